"""Owners sign in, out, and let programs in by tokens; and who tries to without being one."""

import base64
import contextlib
import glob
import hashlib
import hmac
import json
import os
import sqlite3
import struct
import time
import unittest
import urllib.request

import processes
from demo import SHARING, Demo, declared_methods, free_port, wait_until

SIGN_IN = "VELT.Core.SignIn"
SID, BROWSER = "velt_owner_sid", "velt_owner_browser"
API = "/webapi/entry.cgi"
WRONG, QUESTION, BRAKED, NOT_BY_TOKEN = 3000, 3001, 3002, 3003
NOT_ALLOWED = 105
OATH_KEY = b"12345678901234567890"
HAS_OATH = bool(glob.glob("/lib/*/security/pam_oath.so"))


def setUpModule():
    global DEMO
    DEMO = Demo()
    unittest.addModuleCleanup(DEMO.stop)


def change(statement, *values):
    with contextlib.closing(sqlite3.connect(DEMO.database)) as sql, sql:
        sql.execute(statement, values)


def write(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def forget_failures():
    change("delete from failed_login")


def send(body, cookies=None, headers=None, verb="POST"):
    headers = dict(headers or {})
    if cookies:
        headers["Cookie"] = "; ".join(f"{name}={value}" for name, value in cookies.items())
    if verb == "GET":
        query = "&".join(f"{name}={value}" for name, value in body.items())
        return DEMO.request("GET", f"{API}?{query}", headers=headers)
    return DEMO.request(verb, API, body, headers)


def call(method, cookies=None, headers=None, api=SIGN_IN, verb="POST", **parameters):
    return send({"api": api, "version": 1, "method": method, **parameters}, cookies, headers, verb)


def cookies_of(answer):
    return dict(cookie.partition(";")[0].split("=", 1) for cookie in answer.set_cookies)


def sign_in(account="alice", cookies=None, **parameters):
    answer = call("login", cookies, account=account, password=DEMO.accounts[account], **parameters)
    assert answer.json["success"], answer.text
    return cookies_of(answer)


def bearer(token):
    return {"Authorization": "Bearer " + token}


def basic(account, password):
    return {"Authorization": "Basic " + base64.b64encode(f"{account}:{password}".encode()).decode()}


def make_token(**parameters):
    return call("token_create", sign_in(), name="test", **parameters).json["data"]["token"]


def account_of(cookies=None, headers=None):
    return call("get", cookies, headers).json["data"]["account"]


def code(answer):
    if "javascript" in answer.headers["content-type"]:
        return 0
    if answer.headers["content-type"].startswith("text/csv"):
        return 0  # what is refused is JSON
    return 0 if answer.json["success"] else answer.json["error"]["code"]


class Sessions(unittest.TestCase):
    def test_sign_in_and_out(self):
        answer = call("login", account="alice", password=DEMO.accounts["alice"])
        self.assertEqual({"account": "alice", "failed_attempts": 0}, answer.json["data"])
        cookies = {name: cookie for cookie in answer.set_cookies for name in (SID, BROWSER) if cookie.startswith(name)}
        self.assertRegex(cookies[SID], r"^velt_owner_sid=[\w-]{43}; Path=/; HttpOnly; SameSite=Lax$")
        self.assertIn("; Max-Age=31536000; HttpOnly; SameSite=Lax", cookies[BROWSER])
        mine = cookies_of(answer)
        told = call("get", mine).json["data"]
        self.assertEqual(("alice", False, "session"), (told["account"], told["administrator"], told["how"]))
        self.assertTrue(call("get", sign_in("admin")).json["data"]["administrator"])
        self.assertEqual("", account_of())
        self.assertEqual({}, call("logout", mine).json["data"])
        self.assertEqual("", account_of(mine))
        answer = call("list", mine, api=SHARING)
        self.assertEqual((401, NOT_ALLOWED), (answer.status, code(answer)))
        self.assertNotIn("www-authenticate", answer.headers)
        stays = call("login", account="alice", password=DEMO.accounts["alice"], stay=True)
        self.assertIn("; Max-Age=2592000; ", "".join(stays.set_cookies))

    def test_a_session_id_that_was_planted_is_not_adopted(self):
        for planted in ("A" * 43, "planted", sign_in()[SID]):
            got = sign_in(cookies={SID: planted})
            self.assertNotEqual(planted, got[SID])
            self.assertEqual("", account_of({SID: planted}))
            self.assertEqual("alice", account_of(got))

    def test_a_stolen_cookie_is_worth_nothing_after_each_ending(self):
        def ended_by_id(cookies):
            current = [each for each in call("session_list", cookies).json["data"]["sessions"] if each["current"]]
            call("session_end", sign_in(), id=current[0]["id"])

        def edited(name, old, new):
            path = DEMO.path("/etc/" + name)
            with open(path, encoding="utf-8") as file:
                text = file.read()
            write(path, text.replace(old, new))
            ends.callback(write, path, text)

        def replaced(account):
            def replace(_):
                ends.callback(DEMO.restart)  # no worker remembers the account of before
                edited("passwd", "alice:x:70002:", account)
            return replace

        def changed_password(_):
            edited("shadow", "alice:$6$", "alice:!$6$")
            change("update owner_account set checked_at = checked_at - 60")

        def aged(column, seconds):
            return lambda _: change(f"update owner_session set {column} = {column} - {seconds}")

        for name, end in (("sign-out", lambda cookies: call("logout", cookies)), ("by another session", ended_by_id),
                          ("with all others", lambda _: call("session_end", sign_in(), others=True)),
                          ("after a day", aged("created_at", 86400)), ("unused", aged("last_used", 12 * 3600)),
                          ("account gone", replaced("renamed:x:70002:")),
                          ("another account of this name", replaced("alice:x:70009:")), ("locked", changed_password)):
            with self.subTest(name), contextlib.ExitStack() as ends:
                stolen = sign_in()
                self.assertEqual("alice", account_of(stolen))
                end(stolen)

                def is_worthless():
                    return account_of(stolen) == "" and call("list", stolen, api=SHARING).status == 401
                # Each worker may remember an account for a second.
                wait_until(is_worthless) if "account" in name else self.assertTrue(is_worthless())

    def test_sessions_of_others_are_left_alone(self):
        mine, theirs = sign_in(), sign_in("bob")
        ids = [each["id"] for each in call("session_list", mine).json["data"]["sessions"]]
        self.assertEqual(3004, code(call("session_end", theirs, id=ids[0])))
        self.assertEqual("alice", account_of(mine))
        agent = {"User-Agent": "Mozilla/5.0 (X11; Linux x86_64; rv:128.0) Gecko/20100101 Firefox/128.0"}
        mine = cookies_of(call("login", headers=agent, account="alice", password=DEMO.accounts["alice"]))
        shown = [each for each in call("session_list", mine).json["data"]["sessions"] if each["current"]]
        self.assertEqual([("127.0.0.*", "Firefox, Linux")], [(each["address"], each["browser"]) for each in shown])

    def test_other_sites_can_neither_sign_in_nor_out(self):
        cookies, password = sign_in(), DEMO.accounts["alice"]
        for headers in ({"Origin": "https://evil.example"}, {"Sec-Fetch-Site": "cross-site"},
                        {"Sec-Fetch-Site": "same-site"}, {"Origin": "null"}):
            answer = call("login", headers=headers, account="alice", password=password)
            self.assertEqual((NOT_ALLOWED, []), (code(answer), answer.set_cookies))
            self.assertEqual(NOT_ALLOWED, code(call("logout", cookies, headers)))
        for method in ("login", "logout"):
            answer = call(method, cookies, verb="GET", account="alice", password=password)
            self.assertEqual((NOT_ALLOWED, []), (code(answer), answer.set_cookies))
        self.assertEqual("alice", account_of(cookies))


class Tokens(unittest.TestCase):
    def test_a_reading_token_changes_nothing_and_no_token_makes_others(self):
        link = DEMO.create()
        reading, writing = make_token(scope="read"), make_token(scope="write")
        for row in declared_methods():
            if "user" not in row["access"]:
                continue
            needed = {each["name"]: each["examples"][0] for each in row["parameters"] if each.get("required")}
            body = {**needed, "api": row["api"], "version": 1, "method": row["method"], "sharing_id": link}
            for token, may_change in ((reading, False), (writing, True)):
                with self.subTest(row["api"], method=row["method"], may_change=may_change):
                    got = send(body, headers=bearer(token))
                    if row.get("post_only") and not may_change:
                        self.assertEqual({"code": NOT_ALLOWED, "errors": "the token may read only"}, got.json["error"])
                    elif row["api"] == SIGN_IN and row["method"] not in ("get", "logout"):
                        self.assertEqual(NOT_BY_TOKEN, code(got))
                    else:
                        self.assertNotEqual(NOT_ALLOWED, code(got), got.text)
            if row["method"] == "delete":
                link = DEMO.create()

    def test_a_token_for_projects_reaches_their_links_alone(self):
        theirs = {name: DEMO.create(project_name=name, auto_gc=True, expire_at="2020-01-01 00:00:00")
                  for name in ("album", "demo", "other")}
        token = make_token(scope="write", projects=["album", "demo"])

        def ask(method, api=SHARING, **parameters):
            return call(method, headers=bearer(token), api=api, **parameters)

        for name, link in theirs.items():
            seen = name != "other"
            self.assertEqual(0 if seen else 1005, code(ask("get", sharing_id=link)))
            self.assertEqual(0 if seen else 1005,
                             code(ask("set", project_name=name if seen else "album", sharing_id=link,
                                      protect_title="new")))
            visits = ask("list", "VELT.Visits", sharing_ids=[link]).json["data"]["visits"]
            self.assertEqual([link] if seen else [], list(visits))
        self.assertEqual(NOT_ALLOWED, code(ask("set", project_name="other")))
        self.assertEqual(NOT_ALLOWED, code(ask("list", project_name="other")))
        for parameters in ({}, {"limit": 1000}, {"sort_by": "visits"}):
            listed = ask("list", **parameters).json["data"]
            projects = {each["project_name"] for each in listed["sharings"]}
            self.assertLessEqual(projects, {"album", "demo"})
            self.assertEqual(listed["total"], len(ask("list", limit=1000).json["data"]["sharings"]))
        self.assertEqual(NOT_ALLOWED, code(ask("roots", "VELT.Files")))
        self.assertEqual(1005, code(ask("delete", sharing_id=theirs["other"])))
        self.assertEqual(0, code(ask("trigger_gc")))
        self.assertEqual([1005, 1005, 0], [code(call("get", sign_in(), api=SHARING, sharing_id=link))
                                           for link in theirs.values()])
        self.assertEqual(0, code(ask("set", project_name="demo")))

    def test_a_link_of_another_project_is_to_a_token_as_if_it_were_not(self):
        token = make_token(scope="write", projects=["unused-project"])
        link = DEMO.create(project_name="demo", protect_title="Planted title")
        mine = sign_in()
        before = call("get", mine, api=SHARING, sharing_id=link).json
        for row in declared_methods():
            if "user" not in row["access"] or row["api"] == SIGN_IN:
                continue
            body = {each["name"]: each["examples"][0] for each in row["parameters"] if each.get("required")}
            body |= {"api": row["api"], "version": 1, "method": row["method"]}
            with self.subTest(row["api"], method=row["method"]):
                answers = []
                for named in (link, "x" * len(link)):
                    lists = {"sharing_ids": [named]} if "sharing_ids" in body else {}
                    projects = {"project_name": "unused-project"} if "project_name" in body else {}
                    answer = send({**body, "sharing_id": named, **lists, **projects}, headers=bearer(token))
                    self.assertNotIn("Planted title", answer.text)
                    answers.append((answer.status, answer.text.replace(named, "ID")))
                self.assertEqual(*answers)
                self.assertEqual(before, call("get", mine, api=SHARING, sharing_id=link).json)

    def test_what_is_no_token(self):
        token = make_token()
        self.assertEqual("alice", account_of(headers=bearer(token)))
        ids = [each["id"] for each in call("token_list", sign_in()).json["data"]["tokens"]]
        self.assertEqual(3004, code(call("token_delete", sign_in("bob"), id=ids[-1])))
        for wrong in ("", "velt_", token[:-1], token + "0", token.upper(), sign_in()[SID]):
            self.assertEqual("", account_of(sign_in(), bearer(wrong)), "the header counts, not the cookie")
        self.assertEqual(0, code(call("token_delete", sign_in(), id=ids[-1])))
        self.assertEqual("", account_of(headers=bearer(token)))
        gone = make_token(expire_at="2020-01-01 00:00:00")
        self.assertEqual("", account_of(headers=bearer(gone)))
        for parameters in ({"projects": []}, {"projects": ["a\nb"]}, {"expire_at": "tomorrow"}, {"scope": "all"}):
            self.assertEqual(120, code(call("token_create", sign_in(), name="test", **parameters)), parameters)


class Guesses(unittest.TestCase):
    def setUp(self):
        self.addCleanup(forget_failures)

    def test_unknown_and_known_accounts_are_answered_and_braked_alike(self):
        answers = {}
        for account in ("alice", "nobody-of-this-name", "root"):
            for attempt in range(10):
                answer = call("login", account=account, password="guess")
                if code(answer) == BRAKED:
                    break
                answers.setdefault(account, []).append((answer.status, answer.text))
            self.assertGreaterEqual(attempt, 5)
            self.assertEqual(int(answer.headers["retry-after"]), answer.json["error"]["errors"]["seconds"])
            forget_failures()
        self.assertEqual(1, len({json.dumps(each[:5]) for each in answers.values()}), answers)

    def test_basic_passes_the_same_brakes(self):
        right = basic("alice", DEMO.accounts["alice"])
        told = call("get", headers=right).json["data"]
        self.assertEqual(("alice", "basic"), (told["account"], told["how"]))
        # A pool of its own, after the one that judges.
        self.assertEqual(0, code(call("set", headers=right, api=SHARING, project_name="album")))
        for _ in range(5):
            answer = call("list", headers=basic("alice", "guess"), api=SHARING)
            self.assertEqual((401, NOT_ALLOWED), (answer.status, code(answer)))
            self.assertNotIn("www-authenticate", answer.headers)
        change("update failed_login set failed_at = failed_at + 60")  # or the pause of a second may be over
        answer = call("list", headers=right, api=SHARING)
        self.assertEqual((429, NOT_ALLOWED), (answer.status, code(answer)))
        for malformed in ("Basic", "Basic ", "Basic !!!", "Basic " + base64.b64encode(b"alice").decode()):
            self.assertEqual(401, call("list", headers={"Authorization": malformed}, api=SHARING).status)

    def test_a_name_in_a_header_is_nobodys(self):
        for headers in ({"Remote-User": "admin"}, {"REMOTE_USER": "admin"}, {"X-Remote-User": "admin"},
                        {"Velt-Owner": "admin"}, {"VELT_OWNER": "admin"}, {"X-Forwarded-User": "admin"},
                        {"Authorization": "admin"}, {"Authorization": "Negotiate admin"}):
            self.assertEqual("", account_of(headers=headers), headers)


def one_time_code(moment):
    digest = hmac.new(OATH_KEY, struct.pack(">Q", moment // 30), hashlib.sha1).digest()
    at = digest[-1] & 15
    return f"{(struct.unpack('>I', digest[at:at + 4])[0] & 0x7FFFFFFF) % 1000000:06}"


def ask_for_codes(case):
    """Until `case` ends, PAM also asks for a code, which bob alone has."""
    pam, users = DEMO.path("/etc/pam.d/velt-owner"), os.path.join(DEMO.state, "users.oath")
    with open(pam, encoding="utf-8") as file:
        before = file.read()
    case.addCleanup(write, pam, before)
    case.addCleanup(forget_failures)
    with open(os.open(users, os.O_WRONLY | os.O_CREAT, 0o600), "w", encoding="utf-8") as file:
        file.write(f"HOTP/T30/6 bob - {OATH_KEY.hex()}\n")
    write(pam, "auth requisite pam_unix.so nodelay\n"
               f"auth required pam_oath.so usersfile={users} window=20 digits=6\naccount required pam_unix.so\n")


@unittest.skipUnless(HAS_OATH, "without libpam-oath")
class OneTimeCodes(unittest.TestCase):
    def test_a_code_is_asked_for_and_counts_once(self):
        ask_for_codes(self)
        mine = {"account": "bob", "password": DEMO.accounts["bob"]}
        self.assertEqual(WRONG, code(call("login", account="bob", password="guess")))
        asked = call("login", **mine).json["error"]
        self.assertEqual(QUESTION, asked["code"])
        self.assertIn("One-time password", asked["errors"]["question"])
        self.assertEqual(WRONG, code(call("login", **mine, answers=["000000"])))
        right = one_time_code(int(time.time()))
        answer = call("login", **mine, answers=[right])
        self.assertEqual("bob", account_of(cookies_of(answer)), answer.text)
        self.assertEqual(WRONG, code(call("login", **mine, answers=[right])))
        self.assertEqual(120, code(call("login", **mine, answers=["1"] * 8)))


class Secrets(unittest.TestCase):
    @unittest.skipUnless(os.geteuid() == 0, "an ordinary user's processes are that user's")
    def test_no_worker_leaves_a_core_file(self):
        supervisor = next(pid for pid in processes.children(DEMO.pid) if processes.name_of(pid) == "velt-webapid")
        workers = processes.workers(supervisor)
        self.assertGreater(len(workers), 10)
        # Files of one that is not dumpable belong to root, whatever its effective ids are (proc(5)).
        self.assertEqual({0}, {os.stat(f"/proc/{worker}/mem").st_uid for worker in workers})

    def test_none_is_on_disk_in_a_log_or_metric(self):
        port = free_port()
        write(DEMO.path("/usr/velt/etc/webapid.conf"),
              f"request-log=stderr\nmetrics=127.0.0.1:{port}\n")
        DEMO.restart()
        planted = [DEMO.accounts["alice"], *sign_in().values(), make_token(), "Gu3ssed-Passw0rd"]
        call("login", account="Gu3ssed-Passw0rd", password="Gu3ssed-Passw0rd")
        call("list", headers=bearer(planted[-2]), api=SHARING)
        call("list", headers=basic("alice", "Gu3ssed-Passw0rd"), api=SHARING)
        forget_failures()
        texts = {}
        for path in glob.glob(os.path.dirname(DEMO.database) + "/*") + glob.glob(DEMO.path("/usr/velt/var/log") + "/*"):
            with open(path, "rb") as file:
                texts[path] = file.read()
        with urllib.request.urlopen(f"http://127.0.0.1:{port}/metrics", timeout=20) as metrics:
            texts["metrics"] = metrics.read()
        self.assertIn(b"VELT.Core.SignIn", texts["metrics"])
        self.assertTrue(any(b"method=login" in text for path, text in texts.items() if path.endswith("webapid.log")))
        for path, text in texts.items():
            for secret in planted:
                self.assertNotIn(secret.encode(), text, path)


if __name__ == "__main__":
    unittest.main()
