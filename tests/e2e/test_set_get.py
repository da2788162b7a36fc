"""Creating, reading and changing links over the web server, and what bad requests and bad databases give."""

import base64
import contextlib
import itertools
import json
import os
import re
import shutil
import sqlite3
import subprocess
import tempfile
import unittest

from demo import REPOSITORY, SHARING, Demo

DEMO = None
MIB = 1 << 20
LINK_MEMBERS = {
    "sharing_id", "project_name", "owner_uid", "owner_user", "enabled", "auto_gc", "enable_match_ip", "start_at",
    "expire_at", "expire_times", "visits", "protect_type", "protect_title", "has_password", "protect_users",
    "protect_groups", "redirect_type", "redirect_uri", "app", "created_at", "status", "url", "qrcode"}
# What each parameter of "set" must be.
TYPES = {
    "project_name": "string", "sharing_id": "string", "app": "object", "private_data": "object",
    "redirect_uri": "string", "redirect_type": "string", "protect_groups": "array", "protect_users": "array",
    "protect_password": "string", "protect_type": "string", "protect_title": "string", "enable_match_ip": "bool",
    "expire_times": "int", "start_at": "string", "expire_at": "string", "auto_gc": "bool", "enabled": "bool"}
SAMPLES = {
    "null": None, "bool": True, "int": 5, "real": 1.5, "string": "text", "array": ["text"], "object": {"a": 1}}
QUOTES = "a'; drop table link; -- \" ` \\ %s"


def setUpModule():
    global DEMO
    DEMO = Demo()


def tearDownModule():
    DEMO.stop()


def database():
    return contextlib.closing(sqlite3.connect(DEMO.database))


def rows(query, *values):
    with database() as sql:
        return sql.execute(query, values).fetchall()


class OverCurl(unittest.TestCase):
    def curl(self, *options):
        login = ":".join(DEMO.login("alice"))
        done = subprocess.run(["curl", "-sS", "-u", login, f"{DEMO.url}/webapi/entry.cgi", *options],
                              stdout=subprocess.PIPE, check=True)
        return json.loads(done.stdout)

    def method(self, name, **fields):
        fields = {"api": SHARING, "version": "1", "method": name, **fields}
        return self.curl(*itertools.chain.from_iterable(["--data-urlencode", f"{k}={v}"] for k, v in fields.items()))

    def test_create_read_update(self):
        made = self.method("set", project_name="album", protect_title="Été & co", expire_times="3")
        self.assertTrue(made["success"], made)
        link = made["data"]
        self.assertEqual({"sharing_id", "url", "qrcode"}, set(link))
        self.assertRegex(link["sharing_id"], r"\A[A-Za-z0-9]{22}\Z")
        self.assertEqual(f"{DEMO.url}/sharing/{link['sharing_id']}", link["url"])
        self.assertEqual(link["url"], self.scan(link["qrcode"]))
        self.assertEqual([("album", "Été & co", 3)],
                         rows("select project_name, protect_title, expire_times from link where hash = ?",
                              link["sharing_id"]))

        read = self.method("get", sharing_id=link["sharing_id"])["data"]
        self.assertEqual(LINK_MEMBERS, set(read))
        self.assertEqual(("Été & co", 3, "alice", link["url"], link["qrcode"]),
                         tuple(read[k] for k in ("protect_title", "expire_times", "owner_user", "url", "qrcode")))

        # An update changes what it carries and nothing else.
        changed = self.method("set", project_name="album", sharing_id=link["sharing_id"], enabled="false")
        self.assertEqual(link, changed["data"])
        self.assertEqual({**read, "enabled": False, "status": "disabled"},
                         self.method("get", sharing_id=link["sharing_id"])["data"])

    def scan(self, qrcode):
        head, _, data = qrcode.partition(",")
        self.assertEqual("data:image/png;base64", head)
        with tempfile.NamedTemporaryFile(suffix=".png") as image:
            image.write(base64.b64decode(data, validate=True))
            image.flush()
            return subprocess.run(["zbarimg", "-q", "--raw", image.name], stdout=subprocess.PIPE,
                                  stderr=subprocess.DEVNULL, text=True, check=True).stdout.strip()

    def shell(self, lines, folder=None):
        done = subprocess.run(["sh", "-c", lines], stdout=subprocess.PIPE, cwd=folder, check=True)
        answer = json.loads(done.stdout)
        self.assertTrue(answer["success"], answer)
        return answer["data"]

    def test_printed_lines_work(self):
        lines = re.findall(r"^ +(curl .*)$", DEMO.printed(), re.MULTILINE)
        self.assertEqual(2, len(lines))
        for line in lines:
            self.shell(line)

    def test_lines_of_the_readme_work(self):
        with open(os.path.join(REPOSITORY, "README.md"), encoding="utf-8") as file:
            text = file.read().replace("\\\n", " ").replace(":8080", f":{DEMO.port}")
        text = text.replace("alice:PASSWORD", ":".join(DEMO.login("alice")))
        settings, link = "", "ID"
        with tempfile.TemporaryDirectory() as folder:
            for line in re.findall(r"^    ((?:\w+=|curl ).*)$", text, re.MULTILINE):
                line = re.sub(r"(?<=[=/])ID\b", link, line)
                if not line.startswith("curl "):
                    settings += line + "\n"
                    continue
                data = self.shell(settings + line, folder)
                link = data["sharing_id"] if link == "ID" else link
        self.assertEqual([], rows("select hash from link where hash = ?", link))


class BadRequests(unittest.TestCase):
    """Each is answered with its code, changes no link, and the next request works."""

    def setUp(self):
        self.before = rows("select * from link order by id")

    def refused(self, code, detail, answer):
        self.assertIs(False, answer["success"], answer)
        self.assertEqual(code, answer["error"]["code"], answer)
        if detail is not None:
            self.assertEqual(detail, answer["error"]["errors"])
        self.assertEqual(self.before, rows("select * from link order by id"))

    def set(self, **fields):
        return DEMO.call(SHARING, "set", {"project_name": "album", **fields})

    def test_wrong_types(self):
        for name, kind in TYPES.items():
            for sample, value in SAMPLES.items():
                if sample != kind:
                    with self.subTest(name, value=sample):
                        self.refused(120, {"name": name, "reason": "type"}, self.set(**{name: value}))
        for method, name, value in (("get", "sharing_id", 5), ("get", "sharing_id", None), ("set", "expire_times", 1 << 31),
                                    ("set", "protect_users", ["bob", 3]), ("set", "protect_groups", [None])):
            with self.subTest(method, name=name, value=value):
                self.refused(120, {"name": name, "reason": "type"},
                             DEMO.call(SHARING, method, {"project_name": "album", name: value}))

    def test_wrong_values(self):
        required = {"name": "project_name", "reason": "required"}
        self.refused(120, required, DEMO.call(SHARING, "set", {"protect_title": "no project"}))
        execute = "Execute Error: "
        for fields, code, detail in (
                ({"project_name": ""}, 120, {"name": "project_name", "reason": "condition"}),
                ({"redirect_type": ""}, 120, {"name": "redirect_type", "reason": "condition"}),
                ({"protect_type": QUOTES}, 120, {"name": "protect_type", "reason": "condition"}),
                ({"protect_type": "password"}, 120, {"name": "protect_password", "reason": "condition"}),
                ({"expire_times": -1}, 120, {"name": "expire_times", "reason": "condition"}),
                ({"protect_type": "user"}, 1009, execute + "set entry fields fail"),
                ({"redirect_type": "always"}, 1011, execute + "set entry fields fail"),
                ({"sharing_id": QUOTES}, 1005, execute + "invalid sharing id"),
                ({"sharing_id": self.before[0][1], "project_name": QUOTES}, 101, execute + "invalid project name"),
                ({"start_at": QUOTES}, 101, "Parse Param Error: bad start_at"),
                ({"expire_at": "2030-02-30 00:00:00"}, 117, execute + "db update entry fail"),
                ({"expire_at": "2030-02-28 0:00:00"}, 101, "Parse Param Error: bad expire_at")):
            with self.subTest(fields):
                self.refused(code, detail, self.set(**fields))
        self.refused(1005, execute + "invalid sharing id", DEMO.call(SHARING, "get", {"sharing_id": QUOTES}))
        self.refused(1005, execute + "invalid sharing id", DEMO.call(SHARING, "get"))

    def test_texts_that_no_parameter_takes(self):
        texts = [name for name, kind in TYPES.items() if kind == "string"]
        for method, name in [("set", name) for name in texts] + [("get", "sharing_id")]:
            fields = {"api": SHARING, "version": 1, "method": method, "project_name": "album", name: "@"}
            body = json.dumps(fields).encode()
            for what, text in (("1 MiB", b"x" * MIB), ("NUL", b"a\\u0000b"), ("half a pair", b"\\ud800"),
                               ("invalid UTF-8", b"a\xffb"), ("overlong", b"\xc0\xaf")):
                with self.subTest(method, name=name, value=what):
                    self.refused(106, None, self.post(body.replace(b"@", text)))

    def test_quotes_are_kept(self):
        for name in ("project_name", "protect_title", "protect_password", "redirect_uri"):
            with self.subTest(name):
                link = DEMO.create(**{name: QUOTES})
                read = DEMO.data(SHARING, "get", {"sharing_id": link})
                self.assertEqual(QUOTES if name != "protect_password" else None, read.get(name))

    def post(self, body, content_type="application/json", account="alice"):
        return DEMO.request("POST", "/webapi/entry.cgi", body, {"Content-Type": content_type}, account).json

    def test_bodies(self):
        call = {"api": SHARING, "version": 1, "method": "set", "project_name": "album"}
        form = "application/x-www-form-urlencoded"
        start = f"api={SHARING}&version=1&method=set&project_name="
        for name, body, content_type, code in (
                ("cut off", json.dumps(call)[:-5], "application/json", 106),
                ("text", '"set"', "application/json", 106),
                ("array", json.dumps([call]), "application/json", 106),
                ("too deep", json.dumps({**call, "app": 0}).replace(": 0", ": " + '{"a":' * 64 + "1" + "}" * 64),
                 "application/json", 106),
                ("too many", json.dumps({**call, **{f"p{i}": i for i in range(256)}}), "application/json", 106),
                ("too large", json.dumps({**call, "app": {"a": "x" * MIB}}), "application/json", 106),
                ("form: NUL", start + "a%00b", form, 106),
                ("form: invalid UTF-8", start + "a%ffb", form, 106),
                ("form: no bool", start + "album&enabled=maybe", form, 120),
                ("form: no object", start + "album&app=[1]", form, 120),
                ("unknown API", json.dumps({**call, "api": "VELT.Core.Nothing"}), "application/json", 102),
                ("no API", "{}", "application/json", 102),
                ("unknown method", json.dumps({**call, "method": "SET"}), "application/json", 103),
                ("unknown version", json.dumps({**call, "version": 2}), "application/json", 104)):
            with self.subTest(name):
                self.refused(code, None, self.post(body, content_type))
        with self.subTest("shorter than told"):
            with contextlib.closing(DEMO.connect()) as connection:
                connection.putrequest("POST", "/webapi/entry.cgi")
                connection.putheader("Authorization", DEMO.authorization("alice"))
                connection.putheader("Content-Length", "5000")
                connection.endheaders(json.dumps(call).encode())
        self.assertEqual(self.before, rows("select * from link order by id"))
        DEMO.create()

    def test_callers(self):
        call = {"api": SHARING, "version": 1, "method": "list"}
        self.assertEqual(401, DEMO.request("POST", "/webapi/entry.cgi", call).status)
        # The web server has a password of this account, the user database doesn't know it.
        path = DEMO.path("/usr/velt/etc/demo/htpasswd")
        with open(path, encoding="ascii") as file:
            alice = next(line.split(":", 1)[1] for line in file if line.startswith("alice:"))
        with open(path, "a", encoding="ascii") as file:
            file.write("ghost:" + alice)
        DEMO.accounts["ghost"] = DEMO.accounts["alice"]
        self.assertEqual(401, DEMO.request("POST", "/webapi/entry.cgi", call, account="ghost").status)

        set_ = {"api": SHARING, "version": 1, "method": "set", "project_name": "album"}
        query = f"/webapi/entry.cgi?api={SHARING}&version=1&method=set&project_name=album"
        self.refused(105, None, DEMO.request("GET", query, account="alice").json)
        for header in ({"Sec-Fetch-Site": "cross-site"}, {"Origin": "http://elsewhere.example"},
                       {"Origin": "null"}):
            with self.subTest(header):
                self.refused(105, None, DEMO.request("POST", "/webapi/entry.cgi", set_, header, "alice").json)


class BadDatabases(unittest.TestCase):
    """While the database can't be used the answers say so; once it is back the links are there."""

    def setUp(self):
        self.link = DEMO.create()
        self.aside = DEMO.database + ".aside"
        with database() as sql:
            sql.execute("pragma wal_checkpoint(truncate)")

    def tearDown(self):
        if os.path.exists(self.aside):
            os.replace(self.aside, DEMO.database)
        self.assertEqual(self.link, DEMO.data(SHARING, "get", {"sharing_id": self.link})["sharing_id"])
        DEMO.create()

    def unusable(self):
        for method, fields in (("get", {"sharing_id": self.link}), ("set", {"project_name": "album"}), ("list", {}),
                               ("delete", {"sharing_id": self.link}), ("trigger_gc", {})):
            answer = DEMO.call(SHARING, method, fields)
            self.assertEqual({"code": 117, "errors": "Execute Error: db open fail"}, answer.get("error"), method)

    def test_missing(self):
        os.rename(DEMO.database, self.aside)
        self.unusable()
        self.assertFalse(os.path.exists(DEMO.database), "an empty database took its place")

    def test_damaged(self):
        os.rename(DEMO.database, self.aside)
        shutil.copyfile(self.aside, DEMO.database)
        owner = os.stat(self.aside)
        os.chown(DEMO.database, owner.st_uid, owner.st_gid)
        with open(DEMO.database, "r+b") as file:
            file.write(b"no database " * 400)
        self.unusable()

    def test_newer(self):
        with database() as sql, sql:
            sql.execute("update schema_version set version = version + 1")
        self.unusable()
        with database() as sql, sql:
            sql.execute("update schema_version set version = version - 1")

    def test_locked(self):
        with database() as sql:
            sql.execute("begin immediate")
            answer = DEMO.call(SHARING, "set", {"project_name": "album"})
            self.assertEqual(117, answer["error"]["code"])

    @unittest.skipIf(os.geteuid(), "file modes don't bind the demonstration's own root")
    def test_read_only(self):
        os.chmod(DEMO.database, 0o400)
        DEMO.restart()  # a worker that has the file open already may go on
        self.unusable()
        os.chmod(DEMO.database, 0o600)


if __name__ == "__main__":
    unittest.main()
