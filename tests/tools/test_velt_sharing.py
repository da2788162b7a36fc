"""velt-sharing as an administrator runs it: each command on SQLite, and on PostgreSQL if it works there."""

import contextlib
import ctypes
import json
import os
import shutil
import sqlite3
import stat
import subprocess
import tempfile
import threading
import time
import unittest

BUILD = os.path.abspath(os.environ["VELT_BUILD"])
TOOL = os.path.join(BUILD, "bin", "velt-sharing")
HOST = os.path.join(BUILD, "bin", "velt-webapid")
REGISTRY = os.path.join(BUILD, "lib", "webapi.d")
IN_NAMESPACE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../scripts/in-namespace")
POSTGRESQL = os.environ["VELT_TEST_POSTGRESQL"]
ROOT = os.geteuid() == 0
SECRETS = ("$argon2id$secret", "f00d" * 16, "private words")
ENDED = 1_000_000_000  # a time long ago


def run(*command):
    return subprocess.run([TOOL, *command], capture_output=True, text=True, check=False, timeout=120)


def psql(sql):
    return subprocess.run(["psql", "-XAtq", "-v", "ON_ERROR_STOP=1", POSTGRESQL, "-c", sql], capture_output=True,
                          text=True, check=True).stdout.strip()


def read(path):
    with open(path, encoding="ascii") as file:
        return file.read()


def write(path, content):
    with open(path, "wb") as file:
        file.write(content)


class ToolTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="velt-tool-")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.path = self.at("sharing.db")
        self.database = f"sqlite3 {self.path}"
        psql("drop schema if exists tool cascade; create schema tool")
        self.postgresql = f"postgresql {POSTGRESQL} options=-csearch_path=tool"

    def at(self, name):
        return os.path.join(self.folder, name)

    def start_host(self, database=None):
        """The service on the database, which makes it; returns when workers are up."""
        host = subprocess.Popen([HOST, "--socket", self.at("socket"), "--registry", REGISTRY, "--database",
                                 database or self.database], stdin=subprocess.DEVNULL)
        self.addCleanup(self.stop_host, host)
        self.wait(lambda: os.path.exists(self.at("socket")) and len(read(
            f"/proc/{host.pid}/task/{host.pid}/children").split()) > 3)
        return host

    @staticmethod
    def stop_host(host):
        host.terminate()
        host.wait(30)

    def wait(self, condition):
        end = time.monotonic() + 30
        while not condition():
            self.assertLess(time.monotonic(), end, "waited in vain")

    def make(self, links=0):
        """Makes a database as the service does, with links 1 to `links`, and one more that is deleted again."""
        self.stop_host(self.start_host())
        with contextlib.closing(sqlite3.connect(self.path)) as sql, sql:
            sql.execute("pragma journal_mode = wal")  # as its first use does
            for number in range(1, links + 2):
                self.insert(sql, number)
            sql.execute("delete from link where id = ?", (links + 1,))
            if links:
                sql.execute("insert into visitor_session (id, sid_hash, address, last_used) values (?, ?, ?, 1)",
                            (7, SECRETS[1], "192.0.2.1"))
                sql.execute("insert into visitor_token (session_id, link_id, address) values (7, 1, '192.0.2.1')")
                sql.execute("insert into failed_login (link_id, account, address, failed_at) "
                            "values (1, 'bob', '192.0.2.2', 1)")
                sql.execute("insert into visit_day (link_id, day, visits) values (1, 20000, 3)")
                sql.execute("insert into link_event values (3, 1, 1, 'visit', '', 'ok', '192.0.2.0', '', 1)")
                sql.execute("insert into notify_channel values (4, 7001, 'mail', 'alice', 'enu', 1, 'a@b.example', "
                            "'', ?, '', 0, 0, 0, 0, 0, '')", (SECRETS[1],))
                sql.execute("insert into notify_notice values (9, 4, 1, 'upload', 'abcdef', 'title', 'file', 1)")
                sql.execute("insert into notify_link values (1, 2)")
                sql.execute("insert into notify_told values (1, 'opened')")
                sql.execute("insert into login_turn (link_id, address, due_at) values (1, '192.0.2.1', 1)")
                sql.execute("insert into owner_account values (5, 'alice', 7001, ?, 1, 0)", (SECRETS[1],))
                sql.execute("insert into owner_session values (6, 5, ?, '', '192.0.2.*', '', 0, 0, 1, 1)",
                            (SECRETS[1],))
                sql.execute("insert into owner_token values (8, 5, ?, 'backup', 0, '', 1, 0, 0)", (SECRETS[1],))
                sql.execute("insert into sign_in_key values ('browser', ?)", (SECRETS[1],))

    @staticmethod
    def insert(sql, number):
        row = {"hash": f"{number:022}", "owner_uid": 0 if number % 2 else 4242424, "project_name": f"p{number % 3}",
               "enabled": 1, "auto_gc": int(number == 2), "enable_match_ip": 0, "start_at": 0,
               "expire_at": ENDED if number == 2 else 0, "expire_times": 0, "visits": number, "protect_type": 1,
               "protect_title": "Grüße \x1b[31m 'quoted'", "password_hash": SECRETS[0], "protect_users": "[]",
               "protect_groups": "[]", "redirect_type": 0, "redirect_uri": "", "app": "{}",
               "private_data": json.dumps(SECRETS[2]), "created_at": number, "revision": number}
        sql.execute(f"insert into link ({', '.join(row)}) values ({', '.join('?' * len(row))})", list(row.values()))

    def rows(self, path=None):
        with contextlib.closing(sqlite3.connect(path or self.path)) as sql:
            return {table: sorted(sql.execute(f"select * from {table}"))
                    for table in ("link", "visitor_session", "visitor_token", "failed_login", "owner_account",
                                  "owner_session", "owner_token", "sign_in_key", "login_turn", "link_event",
                                  "notify_channel", "notify_notice", "notify_link", "notify_told", "sqlite_sequence")}

    def tool(self, *command, status=0, database=None):
        """The JSON that a command prints. An error must be the same as in the text on standard error."""
        done = run(*command, "--json", "--database", database or self.database)
        self.assertEqual(status, done.returncode, done.stderr)
        result = json.loads(done.stdout)
        self.assertEqual(status == 0, result["success"])
        for secret in SECRETS:
            self.assertNotIn(secret, done.stdout + done.stderr)
        if status and "error" in result:
            self.assertEqual(f"velt-sharing: {result['error']}\n", done.stderr)
        return result

    def refuse(self, *command, because, database=None):
        self.assertIn(because, self.tool(*command, status=1, database=database)["error"])


class Owners(ToolTest):
    SCRIPT = r"""
        mount -t tmpfs none /var/lib/extrausers
        sed 's/^passwd:.*/passwd: files extrausers/' /etc/nsswitch.conf >"$1/nsswitch.conf"
        mount --bind "$1/nsswitch.conf" /etc/nsswitch.conf
        mkdir -p /usr/velt/etc
        printf 'database="sqlite3 %s"\n' "$1/sharing.db" >/usr/velt/etc/webapid.conf
        tool() { printf "$input" | setsid -w "$TOOL" "$@"; echo "$?"; }
        """

    def sh(self, script):
        """The standard output of commands that see accounts and passwords of their own."""
        done = subprocess.run([IN_NAMESPACE, self.at("root"), "bash", "-c", self.SCRIPT + script, "sh", self.folder],
                              env={**os.environ, "TOOL": TOOL}, stdin=subprocess.DEVNULL, capture_output=True,
                              text=True, check=False, timeout=120)
        self.assertNotIn("correct horse", done.stdout + done.stderr)
        return done.stdout.splitlines()

    @unittest.skipUnless(os.path.isdir("/var/lib/extrausers"), "without libnss-extrausers")
    def test_owners_without_an_account_of_the_system(self):
        self.make(2)
        shown = self.sh(r"""
            input='correct horse\ncorrect horse\n'
            tool owner add ann && tool owner add ann 2>&1 && tool owner add root 2>&1 && tool owner add A:b 2>&1
            input='correct horse\nbattery staple\n' tool owner add eve 2>&1
            input='short\nshort\n' tool owner add eve 2>&1
            getent passwd ann eve; stat -c %a /usr/velt/etc/owners /var/lib/extrausers/passwd
            cp /usr/velt/etc/owners "$1/first"
            tool owner password ann; cp /usr/velt/etc/owners "$1/second"
            tool owner list; tool owner remove root 2>&1; tool owner remove ann
            getent passwd ann; cat /usr/velt/etc/owners
            """)
        self.assertEqual([
            "ann can sign in", "0", "velt-sharing: there is an account ann", "1",
            "velt-sharing: there is an account root", "1"], shown[:6])
        text = "\n".join(shown)
        self.assertIn("a name has up to 32", text)
        self.assertIn("the two passwords differ\n1", text)
        self.assertIn("a password has 8 to", text)
        self.assertRegex(text, r"\nann:\*:50000:100::/nonexistent:/usr/sbin/nologin\n600\n644\nThe password is changed")
        self.assertRegex(text, r"\nann +50000 +owner +set\n0\nvelt-sharing: root is no owner")
        self.assertEqual(["Removed; 0 links are left", "0"], shown[-2:])
        first, second = read(self.at("first")).strip(), read(self.at("second")).strip()
        self.assertNotEqual(first, second)
        for row in (first, second):
            name, hashed = row.split(":")
            self.assertEqual(("ann", hashed), (name, crypt_of("correct horse", hashed)))

    def test_tokens(self):
        self.make(2)
        self.refuse("token", "create", "nobody-knows", "backup", because="no account")
        self.refuse("token", "create", "root", "backup", "--expire-at", "soon", because="--expire-at")
        for arguments in (("root", ""), ("root", "x", "--scope", "all"), ("root", "x", "--project", "")):
            self.assertEqual(2, run("token", "create", *arguments, "--database", self.database).returncode)
        made = self.tool("token", "create", "root", "backup", "--project", "p1", "--project", "p2", "--scope", "write",
                         "--expire-at", "2030-01-31 12:00:00")
        self.assertRegex(made["token"], "^velt_[A-Za-z0-9]{49}$")
        listed = self.tool("token", "list", "root")["tokens"]
        self.assertEqual([(made["id"], "backup", "write", ["p1", "p2"], "2030-01-31 12:00:00")],
                         [(row["id"], row["name"], row["scope"], row["projects"], row["expire_at"]) for row in listed])
        with open(self.path, "rb") as file:
            self.assertNotIn(made["token"].encode(), file.read())
        self.assertIn("p1, p2", run("token", "list", "root", "--database", self.database).stdout)
        self.refuse("token", "delete", "alice", str(made["id"]), because="alice has no token")
        self.tool("token", "delete", "root", str(made["id"]))
        self.assertEqual([], self.tool("token", "list", "root")["tokens"])


def crypt_of(password, setting):
    """What crypt(3) makes of the password with the salt of `setting`."""
    library = ctypes.CDLL("libcrypt.so.1")
    library.crypt.restype = ctypes.c_char_p
    return library.crypt(password.encode(), setting.encode()).decode()


class Copies(ToolTest):
    def test_backup_of_a_running_service_can_be_restored(self):
        self.make(3)
        before = self.rows()
        self.start_host()
        done = threading.Event()

        def go_on():
            with contextlib.closing(sqlite3.connect(self.path, timeout=30)) as sql:
                while not done.is_set():
                    with sql:
                        sql.execute("update link set visits = visits + 1")

        writer = threading.Thread(target=go_on)
        writer.start()
        try:
            self.tool("backup", self.at("copy"))
        finally:
            done.set()
            writer.join()
        self.assertEqual(0o600, stat.S_IMODE(os.stat(self.at("copy")).st_mode))
        self.assertEqual(1, len({row[0] - row[1] for row in sqlite3.connect(self.at("copy")).execute(
            "select visits, id from link")}), "one moment")
        self.refuse("backup", self.at("copy"), because="exists")
        self.tool("backup", self.at("copy"), "--force")
        self.refuse("restore", self.at("copy"), because="holds links")
        with contextlib.closing(sqlite3.connect(self.path, timeout=30)) as user:
            user.execute("delete from link where id = 2")
            user.commit()
            self.tool("restore", self.at("copy"), "--force")  # under an open connection
            self.assertEqual(3, user.execute("select count(*) from link").fetchone()[0])
        after = self.rows()
        self.assertEqual([row[:2] for row in before["link"]], [row[:2] for row in after["link"]])
        self.assertEqual(before["sqlite_sequence"], after["sqlite_sequence"])
        kept = {"sharing.db-wal", "sharing.db-shm", "sharing.db-reserve"}
        found = set(os.listdir(self.folder))
        self.assertEqual({"sharing.db", "copy", "socket", "socket.upload"} | kept, found | kept, "nothing is left")

    def test_restore_into_nothing_and_over_damage(self):
        self.make(2)
        self.tool("backup", self.at("copy"))
        whole = self.rows()
        if ROOT:
            os.chown(self.folder, 65534, 65534)
        for name, ruin, needs_force in (
            ("missing", lambda: os.unlink(self.path), False),
            ("damaged", lambda: write(self.path, b"SQLite format 3\0" + b"\x07" * 9000), True),
            ("empty file", lambda: write(self.path, b""), True),
        ):
            with self.subTest(name):
                ruin()
                if needs_force:
                    self.refuse("restore", self.at("copy"), because="--force")
                self.tool("restore", self.at("copy"), *(["--force"] if needs_force else []))
                self.assertEqual(whole, self.rows())
                if ROOT:
                    self.assertEqual(65534, os.stat(self.path).st_uid, "the service's")

    def test_restore_upgrades_an_older_backup(self):
        self.make(2)
        whole = self.rows()
        self.tool("backup", self.at("older"))
        with contextlib.closing(sqlite3.connect(self.at("older"))) as sql:  # as version 2 was
            later = sql.execute("select type, name from sqlite_master where type in ('index', 'trigger') and "
                                "sql is not null and name like 'link%' order by type desc").fetchall()
            sql.executescript("; ".join(f"drop {kind} {name}" for kind, name in later))
            sql.executescript(
                "create index link_list on link (owner_uid);"
                "alter table link drop column protection; alter table visitor_token drop column protection;"
                "drop table link_count; drop table visit_day; drop table failed_login;"
                "drop table owner_session; drop table owner_token; drop table owner_account; drop table sign_in_key;"
                "drop table login_turn; drop table link_event; drop table notify_notice;"
                "drop table notify_channel; drop table notify_link; drop table notify_told;"
                "create table login_failure (link_id bigint not null references link (id) "
                "on delete cascade, address text not null, failed_at bigint not null);"
                "insert into login_failure values (1, '192.0.2.2', 1); update schema_version set version = 2")
        with contextlib.closing(sqlite3.connect(self.path, isolation_level=None)) as user:  # as a worker has it
            user.execute("delete from link")
            self.tool("restore", self.at("older"), "--force")
            self.assertEqual([(11,)], user.execute("select version from schema_version").fetchall())
        self.assertEqual([row[:2] for row in whole["link"]], [row[:2] for row in self.rows()["link"]])
        self.assertEqual([(1, "", "192.0.2.2", 1)], self.rows()["failed_login"])

    def test_restore_over_an_empty_database_checks_whether_it_is_in_use(self):
        self.make(2)
        whole = self.rows()
        self.tool("backup", self.at("copy"))
        with contextlib.closing(sqlite3.connect(self.path)) as user:
            user.executescript("pragma foreign_keys = on; delete from link; delete from visitor_session")
            self.refuse("restore", self.at("copy"), because="in use")
        self.tool("restore", self.at("copy"))
        self.assertEqual(whole, self.rows())

    def test_a_bad_backup_changes_nothing(self):
        self.make(2)
        before = self.rows()
        self.tool("backup", self.at("newer"))
        shutil.copy(self.at("newer"), self.at("orphan"))
        shutil.copy(self.at("newer"), self.at("cut"))
        with contextlib.closing(sqlite3.connect(self.at("newer"))) as sql, sql:
            sql.execute("update schema_version set version = 1000")
        with contextlib.closing(sqlite3.connect(self.at("orphan"))) as sql, sql:
            sql.execute("delete from link")
        os.truncate(self.at("cut"), os.path.getsize(self.at("cut")) - 8192)
        write(self.at("text"), b"no database")
        for name, because in {"newer": "version 1000", "orphan": "damaged", "cut": "damaged|malformed",
                              "text": "not a database", "nothing": "unable to open"}.items():
            with self.subTest(name):
                error = self.tool("restore", self.at(name), "--force", status=1)["error"]
                self.assertRegex(error, because)
                self.assertEqual(before, self.rows())
        self.refuse("backup", self.path, "--force", because="in use")
        for command in (("backup", self.at("x")), ("restore", self.at("orphan"))):
            self.refuse(*command, because="PostgreSQL has its own program", database=self.postgresql)
        self.assertFalse([name for name in os.listdir(self.folder) if name.endswith(".new")])

    def test_migrate_there_and_back(self):
        self.make(1200)
        before = self.rows()
        counts = self.tool("migrate", self.database, self.postgresql)["tables"]
        self.assertEqual({"link": 1200} | {table: 1 for table in (
            "visitor_session", "visitor_token", "failed_login", "visit_day", "owner_account", "owner_session",
            "owner_token", "sign_in_key", "login_turn", "link_event", "notify_channel", "notify_notice", "notify_link",
            "notify_told")}, counts)
        # The id of the deleted link is not used again.
        self.assertEqual("1201|t", psql("select last_value, is_called from tool.link_id_seq"))
        for database in (self.database, self.postgresql):
            self.assertEqual(1200, self.tool("stats", database=database)["links"])
            self.assertTrue(self.tool("list", database=database)["more"])
        self.refuse("migrate", self.database, self.postgresql, because="not empty")
        back = self.at("back.db")
        self.tool("migrate", self.postgresql, f"sqlite3 {back}")
        self.assertEqual(before, self.rows(back))
        self.assertEqual(0o600, stat.S_IMODE(os.stat(back).st_mode))
        self.refuse("migrate", self.database, f"sqlite3 {back}", because="not empty")

    def test_migrate_refuses_other_versions_and_leaves_no_part(self):
        self.make(3)
        other = self.at("other.db")
        shutil.copy(self.path, other)
        for version, because in ((1000, "newer release"), (1, "upgrades it")):
            with contextlib.closing(sqlite3.connect(other)) as sql, sql:
                sql.execute("update schema_version set version = ?", (version,))
            self.refuse("migrate", f"sqlite3 {other}", self.postgresql, because=because)
            self.refuse("migrate", self.database, f"sqlite3 {other}", because=because)
            self.refuse("list", because=because, database=f"sqlite3 {other}")
        with contextlib.closing(sqlite3.connect(self.path)) as sql, sql:
            sql.execute("update link set project_name = cast(x'ff' as text) where id = 3")  # no UTF-8
        self.tool("migrate", self.database, self.postgresql, status=1)
        self.assertEqual("0", psql("select count(*) from tool.link"))


class Checks(ToolTest):
    def check(self, expect, **options):
        text = "".join(f"{name} = {value}\n" for name, value in {
            "socket": self.at("socket"), "registry": REGISTRY, "database": f'"{self.database}"', "workers": 16,
            **{name.replace("_", "-"): value for name, value in options.items()}}.items())
        write(self.at("conf"), text.encode())
        done = run("check", "--config", self.at("conf"), "--json")
        result = json.loads(done.stdout)
        states = {check["subject"]: check for check in result["checks"]}
        for subject, (state, words) in expect.items():
            self.assertEqual(state, states[subject]["state"], states[subject])
            self.assertIn(words, states[subject]["text"])
        self.assertEqual(int(any(check["state"] == "failed" for check in states.values())), done.returncode)

    def test_each_fault_is_reported(self):
        self.make(1)
        os.mkdir(self.at("webapi.d"))
        write(self.at("webapi.d/x.json"), b'{"library": "nowhere.so", "methods": []}')
        self.check({"options": ("ok", ""), "database": ("ok", "schema version"), "rights": ("ok", ""),
                    "qrencode": ("ok", ""), "registry": ("ok", "")})
        self.check({"options": ("failed", "--workers"), "database": ("ok", "")}, workers=-1)
        self.check({"options": ("failed", "nonsense")}, nonsense=1)
        self.check({"options": ("failed", "no account is called nobody-knows")}, user="nobody-knows")
        self.check({"registry": ("failed", "x.json: cannot load library")}, registry=self.at("webapi.d"))
        self.check({"database": ("failed", "No such file")}, database='"postgresql host=/nowhere password=secret"')
        self.refuse("stats", because="can't be opened", database="postgresql host=x password=a $argon2id$secret")
        self.check({"database": ("failed", "first start")}, database=f'"{self.postgresql}"')
        self.tool("migrate", self.database, self.postgresql)
        self.check({"database": ("ok", "PostgreSQL, schema version")}, database=f'"{self.postgresql}"')
        for version, state in ((1000, "failed"), (1, "warning")):
            with contextlib.closing(sqlite3.connect(self.path)) as sql, sql:
                sql.execute("update schema_version set version = ?", (version,))
            self.check({"database": (state, str(version))})
        os.chmod(self.path, 0o640)
        self.check({"rights": ("failed", "chmod 600")})
        os.chmod(self.path, 0o600)
        if ROOT:
            self.check({"rights": ("failed", "nobody can't write it: chown nobody")}, user="nobody")
        write(self.path, b"no database at all")
        self.check({"database": ("failed", "")})
        os.unlink(self.path)
        self.check({"database": ("failed", "No such file")})

    def test_usage(self):
        write(self.at("conf"), b"socket=/run/socket")
        for command, because in {
            (): "subcommand", ("frob",): "frob", ("list",): "--config", ("list", "--odd"): "--odd",
            ("list", "--database", "x", "--status", "odd"): "odd", ("backup", "--database", self.database): "FILE",
            ("list", "--config", self.at("nothing")): "nothing",
            ("list", "--config", self.at("conf")): "names no database",
        }.items():
            done = run(*command)
            self.assertEqual((2, ""), (done.returncode, done.stdout), command)
            self.assertRegex(done.stderr, f"^velt-sharing: .*{because}")
        self.refuse("stats", because="sqlite3 PATH", database="mysql host=x")
        self.assertEqual(0, run("--help").returncode)
        self.assertRegex(run("--version").stdout, r"^velt-sharing \d+\.\d+\.\d+\n$")


if __name__ == "__main__":
    unittest.main()
