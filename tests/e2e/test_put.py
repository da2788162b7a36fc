"""Files that programs send whole, as `curl -T` does: one request, no session, a line of text for an answer."""

import os
import shutil
import sqlite3
import subprocess
import tempfile
import unittest

from demo import SHARING, Demo
from shared_files import Shared, files_of

RULE = {"max_size": 1 << 30}


def setUpModule():
    global DEMO, ALICE
    DEMO = Demo()
    unittest.addModuleCleanup(DEMO.stop)
    ALICE = Shared(DEMO)


class Answer:
    def __init__(self, text):
        head, _, self.body = text.rpartition("\r\n\r\n")
        lines = head.split("\r\n\r\n")[-1].split("\r\n")
        self.status = int(lines[0].split()[1])
        self.headers = {name.lower(): value for name, _, value in (line.partition(": ") for line in lines[1:])}


class Put(unittest.TestCase):
    def setUp(self):
        self.work = tempfile.TemporaryDirectory()
        self.addCleanup(self.work.cleanup)
        self.inbox = f"put-{self.id().rsplit('.', 1)[-1]}"
        shutil.rmtree(ALICE.path(self.inbox), ignore_errors=True)
        ALICE.put(self.inbox + "/a.txt", b"was here")

    def share(self, rule=None, **fields):
        return ALICE.share(self.inbox, upload={**RULE, **(rule or {})}, **fields)

    def file(self, name, content):
        path = os.path.join(self.work.name, name)
        with open(path, "wb") as file:
            file.write(content)
        return path

    def curl(self, *options, data=None):
        return Answer(subprocess.check_output(["curl", "-sSi", "--max-time", "60", *options], input=data).decode())

    def put(self, link, content=b"content", *options, name="new.txt", end=""):
        return self.curl("-T", self.file(name, content), *options, f"{DEMO.url}/sharing/{link}/{end}")

    def left(self):
        return {name: os.path.getsize(ALICE.path(self.inbox, name)) for name in os.listdir(ALICE.path(self.inbox))}

    def test_a_file_gets_its_name_and_can_be_fetched(self):
        link = self.share()
        content = os.urandom(3 << 20)
        for name, given in (("new.bin", "new.bin"), ("new.bin", "new (2).bin"), ("a.txt", "a (2).txt"),
                            ("Größe 100%.txt", "Größe 100%25.txt"), (".hidden", "_hidden"), ("empty", "empty")):
            with self.subTest(name):
                sent = b"" if name == "empty" else content
                answer = self.put(link, sent, name=name)
                self.assertEqual((201, given + "\n"), (answer.status, answer.body))
                self.assertEqual('text/plain; charset="UTF-8"', answer.headers["content-type"])
                fetched = subprocess.check_output(["curl", "-sf", answer.headers["location"]])
                self.assertEqual(sent, fetched)
        with open(ALICE.path(self.inbox, "a.txt"), "rb") as file:
            self.assertEqual(b"was here", file.read())
        status = os.stat(ALICE.path(self.inbox, "new.bin"))
        self.assertEqual((os.stat(ALICE.home).st_uid, os.stat(ALICE.home).st_gid, 0o640),
                         (status.st_uid, status.st_gid, status.st_mode & 0o777))
        self.assertNotIn("location", self.put(self.share({"only": True})).headers)
        # Nothing of the six uploads is left but their number.
        self.assertEqual(["done"], [os.path.basename(path) for path in files_of(DEMO, link)])

    def test_each_counts_as_a_visit_and_an_upload_and_leaves_no_session(self):
        link = self.share()
        before = self.sessions()
        self.assertEqual([201, 201], [self.put(link).status for _ in range(2)])
        self.assertEqual(before, self.sessions())
        visits = DEMO.data(SHARING, "get", {"sharing_id": link})["visits"]
        self.assertEqual(2, visits)
        visitor = DEMO.visitor(link)
        visitor.login()
        cookie = f"sharing_sid={visitor.cookies['sharing_sid']}"
        self.assertEqual(201, self.put(link, b"x", "-b", cookie).status)
        self.assertEqual(3, DEMO.data(SHARING, "get", {"sharing_id": link})["visits"])

    def sessions(self):
        with sqlite3.connect(DEMO.database) as database:
            return database.execute("select count(*) from visitor_session").fetchone()[0]

    def test_passwords_and_accounts(self):
        link = self.share(protect_type="password", protect_password="sesame")
        for options in ((), ("-u", ":no"), ("-u", "sesame:")):
            answer = self.put(link, b"x", *options)
            self.assertEqual(401, answer.status, options)
            self.assertIn("Basic", answer.headers["www-authenticate"])
        self.assertEqual(201, self.put(link, b"x", "-u", ":sesame").status)
        self.assertEqual(201, self.put(link, b"x", "-u", "anyone:sesame").status)
        # What is refused keeps its sentence, also when it comes before the body is sent.
        for version in ("--http1.1", "--http2-prior-knowledge"):
            done = subprocess.run(["curl", "-s", version, "-T", self.file("large", bytes(9 << 20)),
                                   f"{DEMO.url}/sharing/{link}/"], stdout=subprocess.PIPE, check=False)
            self.assertIn(b"asks for a password", done.stdout, version)
        statuses = [self.put(link, b"x", "-u", ":no").status for _ in range(11)]
        self.assertEqual([401] * 10 + [429], statuses)
        answer = self.put(link, b"x", "-u", ":sesame")
        self.assertEqual(429, answer.status)
        self.assertGreater(int(answer.headers["retry-after"]), 0)
        accounts = self.share(protect_type="user", protect_users=["bob"])
        for (account, password), wanted in ((DEMO.login("bob"), 201), (DEMO.login("alice"), 401), (("bob", "no"), 401),
                                            (("", "no"), 401)):
            self.assertEqual(wanted, self.put(accounts, b"x", "-u", f"{account}:{password}").status, account)

    def test_refusals_are_a_sentence_and_leave_nothing(self):
        link, full = self.share({"max_size": 9}), self.share({"max_files": 1})
        used = self.share(expire_times=1)
        self.assertEqual([201, 201], [self.put(each, b"x", name="first").status for each in (full, used)])
        off = self.share()
        DEMO.data(SHARING, "set", {"sharing_id": off, "project_name": "files", "enabled": False})
        before = self.left()
        for wanted, answer in (
                (400, self.put(link, end="a%2Fb")), (400, self.put(link, end="..%2Fx")),
                (400, self.put(link, end="a/b")),
                (400, self.curl("-X", "PUT", "-d", "x", f"{DEMO.url}/sharing/{link}/")),
                (400, self.curl("-X", "PUT", "-d", "x", f"{DEMO.url}/sharing/{link}")),
                (403, self.put(ALICE.share(self.inbox))),
                (403, self.put(link, b"x", "-H", "Origin: http://else.where")),
                (404, self.put("unknown")), (404, self.put(off)), (404, self.put(DEMO.create())),
                (409, self.put(full)), (410, self.put(used)),
                (411, self.curl("-T", "-", f"{DEMO.url}/sharing/{link}/x", data=b"content")),
                (413, self.put(link, b"0123456789")), (201, self.put(link, b"012345678", name="fits"))):
            with self.subTest(answer.body):
                self.assertEqual(wanted, answer.status)
                self.assertIn("text/plain", answer.headers["content-type"])
                self.assertRegex(answer.body, r"\A[^<\n]+\n\Z")
        self.assertEqual({**before, "fits": 9}, self.left())
        # What is refused for what it is uses no visit up.
        self.assertEqual(1, DEMO.data(SHARING, "get", {"sharing_id": link})["visits"])
        for method in ("GET", "DELETE", "OPTIONS"):
            answer = self.curl("-X", method, f"{DEMO.url}/sharing/{link}/new.txt")
            self.assertIn(answer.status, (200, 404, 405), method)
        self.assertEqual(105, DEMO.visitor(link).call("VELT.Files.Link", "put", {"name": "x"})["error"]["code"])


if __name__ == "__main__":
    unittest.main()
