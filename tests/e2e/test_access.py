"""Who may do what, at every address that takes a link id; and what ends a visit."""

import contextlib
import glob
import json
import os
import re
import sqlite3
import unittest

from demo import SHARING, Demo, Visitor, declared_methods, door, wait_until

FILES, LINKS, VISITS, SIGN_IN = "VELT.Files", "VELT.Links", "VELT.Visits", "VELT.Core.SignIn"
NOTIFY = "VELT.Notify"
LOGIN, SESSION, INIT = SHARING + ".Login", SHARING + ".Session", SHARING + ".Initdata"
SID = "sharing_sid"
CALLERS = ("nobody", "owner", "other", "admin", "visitor", "elsewhere", "stranger")
# "elsewhere" is a visitor of another link at this link's address, "stranger" one who has logged in nowhere.
LET_IN = {"anyone": {"nobody", "owner", "other", "admin"}, "user": {"owner", "other", "admin"},
          "visitor": {"visitor", "elsewhere", "stranger"}, "token": {"visitor"}}
NOT_LET_IN = 105
# What the methods themselves answer to those that are let in, where that isn't success. The link belongs to no
# application, so those of the files application answer as if there were none.
ANSWERS = {
    (SHARING, "set"): {"other": 1007},
    (SHARING, "get"): {"other": 1007, "elsewhere": 1006, "stranger": 1006},
    (SHARING, "delete"): {"other": 1007},
    (SHARING, "logout"): {"owner": 101, "other": 101, "admin": 101, "elsewhere": 1004, "stranger": 1004},
    (SIGN_IN, "login"): dict.fromkeys(CALLERS, 3000),
    **{(SIGN_IN, method): dict.fromkeys(CALLERS, 3004) for method in ("session_end", "token_delete")},
    **{(VISITS, method): {"other": 1005} for method in ("event_list", "event_csv")},
    (NOTIFY, "confirm"): dict.fromkeys(CALLERS, 4002),
    **{(NOTIFY, method): {"other": 1005, "admin": 1005} for method in ("get", "link_set")},
    (FILES, "find"): dict.fromkeys(CALLERS, 2000),
    (FILES, "list"): dict.fromkeys(CALLERS, 2000),
    (FILES, "describe"): dict.fromkeys(CALLERS, 1005),
    (FILES, "upload_remove"): dict.fromkeys(CALLERS, 1005),
    **{(FILES, f"upload_{method}"): dict.fromkeys(CALLERS, 2000) for method in ("begin", "piece", "state")},
    (FILES, "upload_cancel"): dict.fromkeys(CALLERS, 2008),
    **{(FILES + ".Link", method): dict.fromkeys(CALLERS, 1000)
       for method in ("get", "zip", "list", "thumbnail", "upload_begin", "upload_piece", "upload_state",
                      "upload_cancel")},
}
METHODS = [row for row in declared_methods() if "put" not in row]  # test_put has the others


def setUpModule():
    global DEMO
    DEMO = Demo()
    unittest.addModuleCleanup(DEMO.stop)


def query(statement, *values):
    with contextlib.closing(sqlite3.connect(DEMO.database)) as sql:
        return sql.execute(statement, values).fetchall()


def admitted(link, **credentials):
    """A visitor who has logged in to the link."""
    visitor = DEMO.visitor(link)
    answer = visitor.login(**credentials)
    assert answer["success"], answer
    return visitor


def code(answer):
    """0 or the error's code of an API answer; the session script, which is no JSON, counts as success."""
    if answer.status == 401:
        return "http"
    if answer.headers["content-type"].startswith("application/json"):
        return 0 if answer.json["success"] else answer.json["error"]["code"]
    assert {"javascript", "csv"} & set(re.findall(r"\w+", answer.headers["content-type"])), answer.headers
    return 0


def stored(link):
    return query("select revision, protect_title from link where hash = ?", link)


def answer_to(caller, method):
    """The code that the caller gets, 0 for success; "http" is status 401."""
    if caller == "nobody" and "anyone" not in method["access"]:
        return "http"
    if not any(caller in LET_IN[level] for level in method["access"]):
        return NOT_LET_IN
    return ANSWERS.get((method["api"], method["method"]), {}).get(caller, 0)


class Matrix(unittest.TestCase):
    def ask(self, caller, link, body):
        accounts = {"nobody": None, "owner": "alice", "other": "bob", "admin": "admin"}
        if caller in accounts:
            answer = DEMO.request("POST", "/webapi/entry.cgi", body, account=accounts[caller])
            if body["method"] == "logout":
                DEMO.forget_session(accounts[caller])
            return answer
        visitor = {"visitor": lambda: admitted(link), "elsewhere": lambda: admitted(DEMO.create()).at(link),
                   "stranger": lambda: DEMO.visitor(link)}[caller]()
        return visitor.request("POST", door(body["api"], body["method"]), body)

    def test_matrix(self):
        for row in METHODS:
            api, method, wanted_by = row["api"], row["method"], {caller: answer_to(caller, row) for caller in CALLERS}
            for caller, wanted in wanted_by.items():
                with self.subTest(api=api, method=method, caller=caller):
                    link = DEMO.create(private_data={"note": "for members"})
                    before = stored(link)
                    needed = {each["name"]: each["examples"][0] for each in row["parameters"] if each.get("required")}
                    body = {**needed, "api": api, "version": 1, "method": method, "sharing_id": link}
                    if api == VISITS:
                        body["sharing_ids"] = [link]
                    if (api, method) == (SHARING, "set"):
                        body |= {"project_name": "album", "protect_title": "changed"}
                    self.assertEqual(wanted, code(self.ask(caller, link, body)))
                    if wanted:
                        self.assertEqual(before, stored(link))
                    elif api == SHARING and method in ("set", "delete"):
                        self.assertNotEqual(before, stored(link))

    def test_a_list_shows_only_the_callers_links(self):
        mine, theirs = DEMO.create("alice"), DEMO.create("bob")
        for account, everybody, sees in (("alice", False, {mine}), ("alice", True, {mine}), ("bob", True, {theirs}),
                                         ("admin", False, set()), ("admin", True, {mine, theirs})):
            with self.subTest(account, all_entry=everybody):
                listed = DEMO.data(SHARING, "list", {"all_entry": everybody}, account)
                ids = {link["sharing_id"] for link in listed["sharings"]}
                self.assertEqual(sees, ids & {mine, theirs})
                self.assertEqual(len(ids), listed["total"])
                if account == "admin" and everybody:
                    self.assertEqual(set(h for h, in query("select hash from link")), ids)

    def test_a_search_finds_only_the_callers_links(self):
        mine, theirs = (DEMO.create(account, protect_title="Wanted") for account in ("alice", "bob"))
        listed = DEMO.create("alice", protect_title="wanted", project_name="search", protect_type="user",
                             protect_users=["alice"])
        for account, params, sees in (
                ("alice", {}, [listed, mine]), ("alice", {"all_entry": True}, [listed, mine]), ("bob", {}, [theirs]),
                ("admin", {}, []), ("admin", {"all_entry": True}, [listed, theirs, mine]),
                ("alice", {"project_name": "search"}, [listed]), ("alice", {"status": "active", "limit": 1}, [listed]),
                ("alice", {"status": "expired"}, []), ("alice", {"limit": 1}, [listed]),
                ("alice", {"text": "wanted "}, []), ("alice", {"text": mine[:6]}, [mine]), ("bob", {"text": mine}, [])):
            with self.subTest(account, **params):
                found = DEMO.data(LINKS, "find", {"text": "wanteD", **params}, account)
                self.assertEqual(sees, [link["sharing_id"] for link in found["sharings"]])
                every = 2 if "limit" in params else len(sees)
                self.assertEqual(every, found["total"])
                self.assertFalse([link for link in found["sharings"] if "qrcode" in link])

    def test_days_of_visits_are_told_to_the_owner_and_to_administrators(self):
        mine, theirs = DEMO.create("alice"), DEMO.create("bob")
        for _ in range(2):
            admitted(mine)
        asked = [mine, theirs, "x" * 22, ""]
        for account, sees in (("alice", {mine}), ("bob", {theirs}), ("admin", {mine, theirs})):
            told = DEMO.data(VISITS, "list", {"sharing_ids": asked}, account)["visits"]
            self.assertEqual({link: [0] * 89 + [2 if link == mine else 0] for link in sees}, told)
        for asked, reason in (([1], "type"), (mine, "type"), ([mine] * 101, "condition"), (None, "required")):
            answer = DEMO.call(VISITS, "list", {} if asked is None else {"sharing_ids": asked})
            self.assertEqual({"code": 120, "errors": {"name": "sharing_ids", "reason": reason}}, answer["error"])


class Disclosure(unittest.TestCase):
    """What the address of a link reveals about this link and about others."""

    def answers_at(self, link, visitor):
        """Every answer that the visitor gets at the link's address, with "ID" in place of the link's id."""
        visitor = visitor.at(link)
        script = f"/webapi?api={SESSION}&version=1&method=get"
        got = {"page": visitor.page(), "head": visitor.request("HEAD"),
               "page with an error": visitor.request("GET", "?sharing_error=5"),
               "script": visitor.request("GET", script),
               "link's script": visitor.request("GET", f"{script}&sharing_id={link}&sharing_status=password")}
        for api, method, params in ((SHARING, "get", {}), (SHARING, "get", {"sharing_id": link}), (INIT, "get", {}),
                                    (LOGIN, "login", {"sharing_id": link, "password": "0123"}),
                                    (SHARING, "logout", {})):
            body = {"api": api, "version": 1, "method": method, **params}
            got[f"{api} {method} {list(params)}"] = visitor.request("POST", "/webapi", body)
        own = {"date": "", "x-request-id": ""}
        return {name: (answer.status, {**answer.headers, **own}, answer.text.replace(link, "ID"))
                for name, answer in got.items()}

    def test_a_link_that_is_off_is_answered_like_a_missing_one(self):
        fields = {"project_name": "photo-album", "protect_title": "Hidden", "app": {"title": "Hidden"},
                  "protect_type": "password", "protect_password": "0123", "enable_match_ip": False}
        for name, change in (("disabled", "enabled = 0"), ("without an owner", "owner_uid = 4242"),
                             ("disabled and expired", "enabled = 0, expire_at = 1")):
            link = DEMO.create(**fields)
            callers = {"stranger": DEMO.visitor(link), "former visitor": admitted(link, password="0123")}
            with contextlib.closing(sqlite3.connect(DEMO.database)) as sql, sql:
                sql.execute(f"update link set {change} where hash = ?", (link,))
            for caller, visitor in callers.items():
                off, missing = self.answers_at(link, visitor), self.answers_at("x" * 22, visitor)
                for request, answer in missing.items():
                    with self.subTest(name, caller=caller, request=request):
                        self.assertEqual(answer, off[request])

    def test_no_other_link_can_be_named(self):
        here = admitted(DEMO.create())
        others = (DEMO.create(protect_title="There"), DEMO.links["disabled"], "x" * 22)
        refusals = set()
        for api, method in ((row["api"], row["method"]) for row in METHODS):
            if method in ("set", "delete", "list", "find", "trigger_gc"):
                continue
            for other in others:
                refusals.add(json.dumps(here.call(api, method, {"sharing_id": other})))
                path = f"{door(api, method)}?api={api}&version=1&method={method}&sharing_id={other}"
                refusals.add(json.dumps(here.request("POST", path).json))
        refusal = {"code": 105, "errors": "only this address's own link can be asked about"}
        self.assertEqual({json.dumps({"error": refusal, "success": False})}, refusals)
        self.assertTrue(here.call(SHARING, "get")["success"])


class Tokens(unittest.TestCase):
    def test_a_token_is_for_its_link_alone(self):
        link, other = DEMO.create(), DEMO.create()
        visitor = admitted(link)
        self.assertEqual(105, visitor.call(SHARING, "get", {"sharing_id": other})["error"]["code"])
        self.assertEqual({"code": 1006, "errors": "Execute Error: no token"},
                         visitor.at(other).call(SHARING, "get")["error"])
        self.assertEqual(105, visitor.at(other).call(INIT, "get", {"action": "jsconfig"})["error"]["code"])
        self.assertEqual(link, visitor.call(SHARING, "get")["data"]["sharing_id"])
        # The next link must not inherit the visitors of a deleted one.
        DEMO.data(SHARING, "delete", {"sharing_id": link})
        self.assertEqual(1005, visitor.call(SHARING, "get")["error"]["code"])
        self.assertEqual(1006, visitor.at(DEMO.create()).call(SHARING, "get")["error"]["code"])

    def test_a_planted_session_is_not_adopted(self):
        link = DEMO.create()
        for planted in ("planted", "A" * 43, DEMO.visitor(link).login()["data"][SID]):
            with self.subTest(planted[:7]):
                visitor = Visitor(DEMO, link, {SID: planted})
                self.assertTrue(visitor.login()["success"])
                self.assertNotEqual(planted, visitor.cookies[SID])
                self.assertEqual(1006, Visitor(DEMO, link, {SID: planted}).call(SHARING, "get")["error"]["code"])
                self.assertTrue(visitor.call(SHARING, "get")["success"])

    def test_only_a_call_that_is_let_in_is_a_use_of_the_session(self):
        link, other = DEMO.create(), DEMO.create()
        visitor = admitted(link)
        with contextlib.closing(sqlite3.connect(DEMO.database, isolation_level=None)) as sql:
            sql.execute("update visitor_session set last_used = last_used - 1000")

            def unused():
                return sql.execute("select count(*) from visitor_session where last_used > "
                                   "unixepoch() - 900").fetchone() == (0,)
            self.assertEqual(200, visitor.page().status)
            self.assertEqual(1006, visitor.at(other).call(SHARING, "get")["error"]["code"])
            self.assertEqual(105, visitor.call(SHARING, "get", {"sharing_id": other})["error"]["code"])
            self.assertTrue(unused())
            self.assertTrue(visitor.call(SHARING, "get")["success"])
            wait_until(lambda: not unused())


class EndOfAVisit(unittest.TestCase):
    """A change of the link ends its visits for every kind of request."""

    def outcomes(self, visitor):
        """(code of get, code of the start-up data, status of the redirecting page)."""
        return (code(visitor.request("POST", "/webapi", {"api": SHARING, "version": 1, "method": "get"})),
                code(visitor.request("POST", "/webapi", {"api": INIT, "version": 1, "method": "get"})),
                visitor.page().status)

    def test_changes_that_end_visits(self):
        password = {"protect_type": "password", "protect_password": "0123"}
        user = {"protect_type": "user", "protect_users": ["bob"]}
        bob = {"mosk_username": "bob", "mosk_password": DEMO.accounts["bob"]}
        for name, fields, credentials, change in (
                ("password", password, {"password": "0123"}, {"protect_password": "123"}),
                ("users", user, bob, {"protect_users": ["alice"]}),
                ("groups", user, bob, {"protect_groups": ["administrators"]}),
                ("now for users", {"protect_users": ["bob"]}, {}, {"protect_type": "user"}),
                ("no longer for users", user, bob, {"protect_type": "none"}),
                ("disabled", password, {"password": "0123"}, {"enabled": False}),
                ("expired", {}, {}, {"expire_at": "2020-01-01 00:00:00"}),
                ("not started", {}, {}, {"start_at": "2099-01-01 00:00:00"}),
                ("deleted", user, bob, None)):
            with self.subTest(name):
                link = DEMO.create(redirect_type="always", redirect_uri="/target", **fields)
                visitor = admitted(link, **credentials)
                self.assertEqual((0, 0, 302), self.outcomes(visitor))
                if change is None:
                    DEMO.data(SHARING, "delete", {"sharing_id": link})
                else:
                    DEMO.data(SHARING, "set", {"project_name": "album", "sharing_id": link, **change})
                get, init, page = self.outcomes(visitor)
                self.assertEqual((1005 if name in ("disabled", "deleted") else 1006, 105), (get, init))
                self.assertNotEqual(302, page)

    def test_other_changes_end_none(self):
        link = DEMO.create(redirect_type="always", redirect_uri="/target")
        visitor = admitted(link)
        DEMO.data(SHARING, "set", {"project_name": "album", "sharing_id": link, "protect_title": "new"})
        self.assertEqual((0, 0, 302), self.outcomes(visitor))


class Secrets(unittest.TestCase):
    def test_no_password_or_session_is_on_disk(self):
        secret, account = "Plant3d-Passw0rd", DEMO.accounts["bob"]
        link = DEMO.create(protect_type="password", protect_password=secret)
        sids = [admitted(link, password=secret).cookies[SID]]
        DEMO.data(SHARING, "set", {"project_name": "album", "sharing_id": link, "protect_password": secret + "2"})
        sids.append(admitted(link, password=secret + "2").cookies[SID])
        link = DEMO.create(protect_type="user", protect_groups=["users"])
        sids.append(admitted(link, mosk_username="bob", mosk_password=account).cookies[SID])
        folders = (os.path.dirname(DEMO.database), DEMO.path("/usr/velt/var/log"))
        for path in (path for folder in folders for path in glob.glob(folder + "/*")):
            with open(path, "rb") as file:
                text = file.read()
            for planted in (secret, account, *sids):
                self.assertNotIn(planted.encode(), text, path)


if __name__ == "__main__":
    unittest.main()
