"""Creating, reading and changing links over the web server, and what bad requests and a missing database give."""

import base64
import contextlib
import itertools
import json
import os
import re
import sqlite3
import subprocess
import tempfile
import unittest

from demo import REPOSITORY, SHARING, Demo

MIB = 1 << 20
LINK_MEMBERS = {
    "sharing_id", "project_name", "owner_uid", "owner_user", "enabled", "auto_gc", "enable_match_ip", "start_at",
    "expire_at", "expire_times", "visits", "protect_type", "protect_title", "has_password", "protect_users",
    "protect_groups", "redirect_type", "redirect_uri", "app", "created_at", "status", "url", "qrcode"}
QUOTES = "a'; drop table link; -- \" ` \\ %s"


def setUpModule():
    global DEMO
    DEMO = Demo()
    unittest.addModuleCleanup(DEMO.stop)


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
    """Each is answered with its code and changes no link, and the next request works."""

    def setUp(self):
        self.before = rows("select * from link order by id")

    def refused(self, code, detail, answer):
        self.assertIs(False, answer["success"], answer)
        self.assertEqual(code, answer["error"]["code"], answer)
        if detail is not None:
            self.assertEqual(detail, answer["error"]["errors"])
        self.assertEqual(self.before, rows("select * from link order by id"))

    def test_bad_parameters(self):
        def bad(name, reason="type"):
            return {"name": name, "reason": reason}

        execute = "Execute Error: "
        for fields, code, detail in (
                # One of each type.
                ({"sharing_id": 5}, 120, bad("sharing_id")),
                ({"enabled": "true"}, 120, bad("enabled")),
                ({"expire_times": 1.5}, 120, bad("expire_times")),
                ({"app": [1]}, 120, bad("app")),
                ({"protect_users": "bob"}, 120, bad("protect_users")),
                # Texts that might reach the database.
                ({"protect_type": QUOTES}, 120, bad("protect_type", "condition")),
                ({"sharing_id": QUOTES}, 1005, execute + "invalid sharing id"),
                ({"sharing_id": self.before[0][1], "project_name": QUOTES}, 101, execute + "invalid project name"),
                ({"start_at": QUOTES}, 117, execute + "db update entry fail"),
                ({"redirect_type": "always"}, 1011, execute + "set entry fields fail")):
            with self.subTest(fields):
                self.refused(code, detail, DEMO.call(SHARING, "set", {"project_name": "album", **fields}))

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
        form = f"api={SHARING}&version=1&method=set&project_name="
        deep = json.dumps({**call, "app": 0}).replace(": 0", ": " + '{"a":' * 64 + "1" + "}" * 64)
        for name, body, content_type, code, detail in (
                ("cut off", json.dumps(call)[:-5], "application/json", 106,
                 "request body is not a JSON object, or is nested deeper than 64 levels"),
                ("too deep", deep, "application/json", 106,
                 "request body is not a JSON object, or is nested deeper than 64 levels"),
                ("too large", json.dumps({**call, "app": {"a": "x" * MIB}}), "application/json", 106,
                 "request body is larger than 1 MiB"),
                ("invalid UTF-8", form + "a%ffb", "application/x-www-form-urlencoded", 106, "malformed form"),
                ("no bool", form + "album&enabled=maybe", "application/x-www-form-urlencoded", 120,
                 {"name": "enabled", "reason": "type"})):
            with self.subTest(name):
                answer = DEMO.request("POST", "/webapi/entry.cgi", body, {"Content-Type": content_type}, "alice")
                self.refused(code, detail, answer.json)
        with self.subTest("shorter than announced"):
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

        query = f"/webapi/entry.cgi?api={SHARING}&version=1&method=set&project_name=album"
        self.refused(105, "this method needs POST", DEMO.request("GET", query, account="alice").json)
        self.refused(105, "another site's page may not call this method",
                     DEMO.request("POST", query, headers={"Origin": "null"}, account="alice").json)


class MissingDatabase(unittest.TestCase):
    def test_is_reported_and_not_replaced_by_an_empty_one(self):
        link = DEMO.create()
        with database() as sql:
            sql.execute("pragma wal_checkpoint(truncate)")
        os.rename(DEMO.database, DEMO.database + ".aside")
        try:
            for method, fields in (("get", {"sharing_id": link}), ("set", {"project_name": "album"})):
                answer = DEMO.call(SHARING, method, fields)
                # Nobody's session can be looked up.
                self.assertEqual({"code": 100, "errors": "the caller can't be judged now"}, answer.get("error"), method)
            self.assertFalse(os.path.exists(DEMO.database))
        finally:
            os.rename(DEMO.database + ".aside", DEMO.database)
        self.assertEqual(link, DEMO.data(SHARING, "get", {"sharing_id": link})["sharing_id"])
        DEMO.create()


if __name__ == "__main__":
    unittest.main()
