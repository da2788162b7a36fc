"""Owners are told what happens to their links: by real mail through `sendmail`, and by signed calls of a webhook."""

import base64
import email
import email.policy
import hashlib
import hmac
import http.server
import json
import os
import queue
import sqlite3
import subprocess
import tempfile
import threading
import time
import unittest

import firefox
from aiosmtpd.controller import Controller
from demo import BUILD, Demo, free_port
from shared_files import Shared, ask, get
from webdriver import Browser, Keys

NOTIFY = "VELT.Notify"
ALL = ["opened", "upload", "download", "ending", "guesses"]
SECONDS = 60


class Post(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        body = self.rfile.read(int(self.headers["Content-Length"]))
        self.server.calls.put((self.path, dict(self.headers), body))
        self.send_response(self.server.statuses.pop(0) if self.server.statuses else 204)
        self.send_header("Location", "/elsewhere")
        self.end_headers()

    def log_message(self, *_):
        pass


class MailBox:
    def __init__(self):
        self.mails = queue.Queue()

    async def handle_DATA(self, _server, _session, envelope):
        self.mails.put((envelope.rcpt_tos, email.message_from_bytes(envelope.content, policy=email.policy.default)))
        return "250 OK"


class Notify(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        os.chmod(folder.name, 0o755)
        cls.box = MailBox()
        smtp = Controller(cls.box, hostname="127.0.0.1", port=free_port())
        smtp.start()
        cls.addClassCleanup(smtp.stop)
        sendmail = cls.program(folder.name, "sendmail", f"exec msmtp -C {folder.name}/msmtprc \"$@\"")
        with open(f"{folder.name}/msmtprc", "w", encoding="ascii") as file:
            file.write(f"account default\nhost 127.0.0.1\nport {smtp.port}\nfrom links@nas.example\n")
        cls.hook = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Post)
        cls.hook.calls, cls.hook.statuses = queue.Queue(), []
        threading.Thread(target=cls.hook.serve_forever, daemon=True).start()
        cls.addClassCleanup(cls.hook.server_close)
        cls.addClassCleanup(cls.hook.shutdown)
        cls.url = f"http://127.0.0.1:{cls.hook.server_port}/hook?a=b"
        state = f"{folder.name}/state"
        os.makedirs(f"{state}/root/usr/velt/etc", mode=0o755)
        with open(f"{state}/root/usr/velt/etc/notify.conf", "w", encoding="ascii") as file:
            file.write(f'OPTIONS="--wait 0 --private-webhooks --sendmail {sendmail} '
                       '--external-url https://nas.example"\n')
        cls.demo = Demo(state=state)
        cls.addClassCleanup(cls.demo.stop)
        cls.files = Shared(cls.demo)

    @staticmethod
    def program(folder, name, line):
        path = f"{folder}/{name}"
        with open(path, "w", encoding="ascii") as file:
            file.write(f"#!/bin/sh\n{line}\n")
        os.chmod(path, 0o755)
        return path

    def tearDown(self):
        self.set([], "", "")
        self.hook.statuses.clear()

    def set(self, kinds, mail, webhook, language="enu", account="alice"):
        self.demo.data(NOTIFY, "set", {"kinds": kinds, "mail": mail, "webhook": webhook, "language": language}, account)

    def change(self, statement):
        with sqlite3.connect(self.demo.database, timeout=30) as database:
            database.execute(statement)

    def hurry(self):
        """Nothing waits for the time between two messages or between two attempts."""
        self.change("update notify_channel set due_at = 0")

    def next(self, calls):
        """What arrives next; pauses are cut short."""
        deadline = time.monotonic() + SECONDS
        while True:
            self.hurry()
            try:
                return calls.get(timeout=1)
            except queue.Empty:
                self.assertLess(time.monotonic(), deadline, self.demo.call(NOTIFY, "get"))

    def all_of(self, calls, count):
        """So many notices, in however many messages they come."""
        found = []
        while len(found) < count:
            found += json.loads(self.next(calls)[2])["notices"]
        return found

    def test_mail_is_confirmed_and_tells_what_happened(self):
        self.set(ALL, "alice+links@example.com", "", "ger")
        recipients, mail = self.next(self.box.mails)
        self.assertEqual(["alice+links@example.com"], recipients)
        text = mail.get_content()
        code = text.split("Ihr Code ist ")[1].split(".")[0]
        self.assertEqual(4002, self.demo.call(NOTIFY, "confirm", {"code": "wrong"})["error"]["code"])
        self.assertEqual(4002, self.demo.call(NOTIFY, "confirm", {"code": code}, account="bob")["error"]["code"])
        self.files.put("told/Größe.txt")
        title = "Die Größe von Ähren und Öfen, \"genau\" gesagt, in einem langen Titel\u202e"
        link = self.files.share("told", protect_title=title)
        get(self.demo.visitor(link), "0/Größe.txt")
        self.demo.data(NOTIFY, "confirm", {"code": code})
        self.assertTrue(self.demo.data(NOTIFY, "get")["mail"]["confirmed"])
        for _ in range(2):
            get(self.demo.visitor(link), "0/Größe.txt")
        recipients, mail = self.next(self.box.mails)
        text = mail.get_content()
        self.assertIn("„Größe.txt“ wurde heruntergeladen.", text)
        self.assertIn("https://nas.example", text)
        self.assertIn("alice", text)
        self.assertEqual("auto-generated", mail["Auto-Submitted"])
        self.assertRegex(mail["Message-ID"], r"^<\w{16}@nas\.example>$")
        self.assertTrue(all(len(line) < 79 for line in mail.as_bytes().split(b"\n")))

    def test_each_kind_is_told_to_the_webhook_and_signed(self):
        self.set(ALL, "", self.url, "../enu")  # no language: English
        inbox = self.files.share("inbox-told", upload={}, protect_type="password", protect_password="right",
                                 protect_title="<In & out>")
        self.files.put("inbox-told/a.txt")
        visitor = self.demo.visitor(inbox)
        self.assertTrue(visitor.login(password="right")["success"])
        self.assertEqual(200, get(visitor, "0/a.txt").status)
        self.assertTrue(ask(visitor, "upload_begin", name="empty.txt", size=0)["success"])
        for _ in range(12):
            self.demo.visitor(inbox).login(password="wrong")
        found = self.all_of(self.hook.calls, 4)
        self.assertEqual({("opened", ""), ("download", "a.txt"), ("upload", "empty.txt"), ("guesses", "")},
                         {(each["kind"], each["file"]) for each in found})
        self.assertEqual({("<In & out>", inbox[:6])}, {(each["title"], each["link"]) for each in found})
        self.demo.data(NOTIFY, "test")
        path, headers, body = self.next(self.hook.calls)
        self.assertEqual("/hook?a=b", path)
        self.assertNotIn(inbox, body.decode())
        secret = self.demo.data(NOTIFY, "secret")["secret"]
        self.require_signature(secret, headers, body)
        self.assertLess(abs(time.time() - int(headers["webhook-timestamp"])), 60)
        self.assertEqual(headers["webhook-id"], json.loads(body)["id"])
        self.assertNotEqual(secret, self.demo.data(NOTIFY, "secret", {"renew": True})["secret"])

    def require_signature(self, secret, headers, body):
        # As https://www.standardwebhooks.com says.
        key = base64.b64decode(secret.removeprefix("whsec_"), validate=True)
        signed = f"{headers['webhook-id']}.{headers['webhook-timestamp']}.".encode() + body
        mac = base64.b64encode(hmac.new(key, signed, hashlib.sha256).digest()).decode()
        self.assertEqual(f"v1,{mac}", headers["webhook-signature"])

    def test_what_is_not_taken_is_sent_again_with_the_same_id(self):
        self.set(["upload"], "", self.url)
        self.hook.statuses += [503, 302, 200]  # no redirection is followed
        link = self.files.share("again", upload={})
        self.files.put("again/a.txt")
        visitor = self.demo.visitor(link)
        visitor.login()
        ask(visitor, "upload_begin", name="x", size=0)
        calls = [self.next(self.hook.calls) for _ in range(3)]
        self.assertEqual(1, len({headers["webhook-id"] for _, headers, _ in calls}))
        self.assertEqual({"/hook?a=b"}, {path for path, _, _ in calls})

    def test_an_owner_sets_it_up_in_the_page(self):
        with Browser(1280, 900) as browser:
            self.set_up_and_be_told(browser)
            self.assertEqual([], browser.console())

    @unittest.skipUnless(firefox.is_installed(), "without firefox-esr")
    def test_an_owner_sets_it_up_in_firefox(self):
        with firefox.Firefox() as browser:
            self.set_up_and_be_told(browser)

    def set_up_and_be_told(self, browser):
        link = self.demo.create(protect_title="Watched")
        browser.open(self.demo.url + "/")
        browser.wait_for("#signin-account").type("alice")
        browser.find("#signin-password").type(self.demo.accounts["alice"] + Keys.ENTER)
        browser.wait_for("#account summary").click()
        browser.wait_for("#account [data-do=notify]").click()
        browser.wait_for("#notify .kinds [value=opened]").click()
        browser.find("#n-mail").type("alice@example.com" + Keys.ENTER)
        browser.wait_for("#n-code").type("wrong" + Keys.ENTER)
        browser.wait_for("#notify .notice")
        text = self.next(self.box.mails)[1].get_content()
        browser.find("#n-code").fill(text.split("code is ")[1].split(".")[0] + Keys.ENTER)
        browser.wait(lambda: not browser.find("#n-code").shown(), "confirmed")
        browser.find("#notify [data-do=test]").click()
        self.assertIn("message to try with", self.next(self.box.mails)[1]["Subject"])
        browser.find("#notify [data-do=close]").click()
        browser.find(f"[data-key='show {link}']").click()
        browser.wait_for("#tell summary").click()
        browser.find("#tell [name=inherit]").click()
        browser.wait(lambda: browser.find("#tell .said").text, "stored")
        browser.find("#tell [value=download]").click()
        browser.wait(lambda: self.demo.data(NOTIFY, "get", {"sharing_id": link})["link_kinds"] ==
                     ["opened", "download"], "stored")
        self.demo.visitor(link).login()
        self.assertIn("“Watched” was opened for the first time.", self.next(self.box.mails)[1].get_content())

    def test_owners_are_refused_what_is_no_address(self):
        link = self.demo.create()
        theirs = self.demo.create("bob")
        for wanted, method, params in (
                (4000, "set", {"mail": "alice"}), (4000, "set", {"mail": "-x@example.com"}),
                (4000, "set", {"mail": "a@b.example\nBcc: c@d.example"}), (4000, "set", {"mail": "a@b, c@d"}),
                (4001, "set", {"webhook": "file:///etc/passwd"}), (4001, "set", {"webhook": "http://a b"}),
                (4003, "set", {"kinds": ["all"]}), (120, "set", {"kinds": [1]}), (120, "set", {"kinds": "opened"}),
                (4003, "link_set", {"kinds": ["none"], "sharing_id": link}),
                (1005, "link_set", {"kinds": [], "sharing_id": theirs}), (1005, "get", {"sharing_id": theirs})):
            with self.subTest(method, **params):
                answer = self.demo.call(NOTIFY, method, {"kinds": [], "mail": "", "webhook": "", **params})
                self.assertEqual(wanted, answer["error"]["code"])
        self.demo.data(NOTIFY, "link_set", {"kinds": ["upload"], "sharing_id": link})
        self.assertEqual(["upload"], self.demo.data(NOTIFY, "get", {"sharing_id": link})["link_kinds"])
        self.demo.data(NOTIFY, "link_set", {"kinds": [], "inherit": True, "sharing_id": link})
        self.assertIsNone(self.demo.data(NOTIFY, "get", {"sharing_id": link})["link_kinds"])

    def test_a_try_from_the_terminal_reaches_no_private_network(self):
        port = self.hook.server_port
        for url in (f"http://127.0.0.1:{port}/", f"http://localhost:{port}/", f"http://[::1]:{port}/",
                    f"http://[::ffff:127.0.0.1]:{port}/", f"http://0x7f000001:{port}/", f"http://0:{port}/",
                    "http://10.0.0.1/", "http://192.168.0.1/", "http://169.254.169.254/", "http://[fe80::1%25lo]/",
                    "http://[64:ff9b::7f00:1]/", "http://[2002:7f00:1::]/"):
            with self.subTest(url):
                self.set([], "", url, account="bob")
                done = self.tool("--test", "bob")
                self.assertEqual(1, done.returncode, done.stdout)
                self.assertIn("network that is not allowed", json.loads(done.stdout)["messages"][0]["error"])
        self.assertTrue(self.hook.calls.empty())
        self.set([], "", self.url, account="bob")
        done = self.tool("--test", "bob", "--private-webhooks")
        self.assertEqual(0, done.returncode, done.stdout)
        self.assertIn("message to try with", json.loads(self.hook.calls.get(timeout=SECONDS)[2])["text"])
        self.set([], "", "", account="bob")

    def tool(self, *options):
        """velt-sharing in the demonstration's namespace."""
        into = ["nsenter", "-t", str(self.demo.pid), "-m", "-U", "--preserve-credentials", "--root"]
        if os.geteuid() == 0:
            into = ["nsenter", "-t", str(self.demo.pid), "-m", "--root"]
        return subprocess.run([*into, f"{BUILD}/bin/velt-sharing", "--json", "--database",
                               "sqlite3 /usr/velt/var/sharing/sharing.db", "notify", *options],
                              capture_output=True, text=True, check=False, timeout=120)


if __name__ == "__main__":
    unittest.main()
