"""velt-webapid, driven over its socket with the fixture module: what it accepts, what it refuses, and what it
answers when handlers fail."""

import json
import os
import unittest

from webapid import Host, wait_until

FORM = b"api=Test.Host&version=1&method=echo"
JSON = {"CONTENT_TYPE": "application/json; charset=utf-8"}
VISITOR = {"SCRIPT_NAME": "/sharing", "PATH_INFO": "/abc/webapi", "REMOTE_USER": ""}
MIB = 1 << 20


def body(**members):
    return json.dumps({"api": "Test.Host", "version": 1, "method": "echo", **members}).encode()


class Requests(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.host = cls.enterClassContext(Host())

    def check(self, rows):
        for name, variables, content, code in rows:
            with self.subTest(name):
                answer = self.host.ask(variables, content)
                self.assertEqual(answer.code, code, answer.text)
        self.assertEqual(self.host.ask({}, FORM).code, 0)

    def test_malformed_requests_are_refused_and_limits_are_exact(self):
        filler = b"&value=" + b"x" * (MIB - len(FORM) - 7)
        self.check(
            [
                ("1 MiB", {}, FORM + filler, 0),
                ("more than 1 MiB", {}, FORM + filler + b"x", 106),
                ("much more", {}, FORM + filler * 4, 106),
                ("a visitor's 64 KiB", VISITOR, FORM + filler[:65536 - len(FORM)], 0),
                ("a visitor's more", VISITOR, FORM + filler[:65537 - len(FORM)], 106),
                ("256 parameters", {}, FORM + b"".join(b"&p%d" % n for n in range(253)), 0),
                ("257 parameters", {}, FORM + b"".join(b"&p%d" % n for n in range(254)), 106),
                ("257 of query and body", {"QUERY_STRING": "q"},
                 FORM + b"".join(b"&p%d" % n for n in range(253)), 106),
                ("cut off", {"CONTENT_LENGTH": "500"}, FORM, 106),
                ("broken escape", {}, FORM + b"&value=%4", 106),
                ("NUL in a form", {}, FORM + b"&value=%00", 106),
                ("invalid UTF-8 in a name", {}, FORM + b"&%C3=1", 106),
                ("NUL in the query", {"QUERY_STRING": "a=%00"}, FORM, 106),
                ("JSON", JSON, body(value=[1]), 0),
                ("JSON list", JSON, b"[1]", 106),
                ("half a JSON text", JSON, body()[:-1], 106),
                ("nested 63 levels", JSON, body(value=0)[:-2] + b"[" * 62 + b"]" * 62 + b"}", 0),
                ("a visitor's 16 levels", {**JSON, **VISITOR}, body(value=0)[:-2] + b"[" * 15 + b"]" * 15 + b"}", 0),
                ("a visitor's 17 levels", {**JSON, **VISITOR}, body(value=0)[:-2] + b"[" * 16 + b"]" * 16 + b"}", 106),
                ("NUL in JSON", JSON, body(value=[{"a\0": 1}]), 106),
                ("half a surrogate pair", JSON, body(value="\udc00"), 106),
                ("comment in JSON", JSON, body()[:-1] + b"/* x */}", 106),
                ("byte order mark before JSON", JSON, b"\xef\xbb\xbf" + body(), 106),
                ("JSON with 257 members", JSON, body(**{f"p{n}": 1 for n in range(254)}), 106),
                ("unknown kind of body", {"CONTENT_TYPE": "text/plain"}, FORM, 106),
                ("no Host", {"HTTP_HOST": ""}, FORM, 106),
                ("Host with a path", {"HTTP_HOST": "nas/x"}, FORM, 106),
                ("Host with a user", {"HTTP_HOST": "a@nas"}, FORM, 106),
                ("Host with too large a port", {"HTTP_HOST": "nas:65536"}, FORM, 106),
                ("Host with port 0", {"HTTP_HOST": "nas:0"}, FORM, 106),
                ("IPv6 host", {"HTTP_HOST": "[fe80::1]:80"}, FORM, 0),
                ("unclosed IPv6 host", {"HTTP_HOST": "[fe80::1"}, FORM, 106),
            ]
        )
        for detail, variables, content in [
            ("malformed form", {}, FORM + b"&value=%4"),
            ("too many parameters", {}, FORM + b"&p=" * 254),
            ("request body is not a JSON object, or is nested deeper than 64 levels", JSON,
             body(value=0)[:-2] + b"[" * 64 + b"]" * 64 + b"}"),
        ]:
            self.assertEqual(detail, self.host.ask(variables, content).json["error"]["errors"])

    def test_only_registered_methods_are_reached_by_those_who_may(self):
        def form(api="Test.Host", version="1", method="echo"):
            return f"api={api}&version={version}&method={method}".encode()

        post = form(method="user_post")
        self.check(
            [
                ("unknown API", {}, form(api="Test.Hos", version="9", method="no"), 102),
                ("no API", {}, b"version=1&method=echo", 102),
                ("unknown version", {}, form(version="2", method="no"), 104),
                ("version in words", {}, form(version="1x"), 104),
                ("unknown method", {}, form(method="no"), 103),
                ("method that is not registered", {}, form(method="unlisted"), 103),
                ("unknown before not allowed", {"REMOTE_USER": ""}, form(method="no"), 103),
                ("no login", {"REMOTE_USER": ""}, FORM, 105),
                ("unknown user", {"REMOTE_USER": "no-such-user"}, FORM, 105),
                ("visitor", VISITOR, FORM, 0),
                ("visitor at a user's method", {**VISITOR, "REMOTE_USER": "root"}, post, 105),
                ("no token", VISITOR, form(method="for_token"), 105),
                ("planted session", {**VISITOR, "HTTP_COOKIE": "sharing_sid=x"}, form(method="for_token"), 105),
                ("user at a token's method", {}, form(method="for_token"), 105),
                ("a visitor's stream at the API's address", VISITOR, form(method="stream"), 105),
                ("another method at the stream's", {**VISITOR, "PATH_INFO": "/abc/stream"}, FORM, 105),
                ("POST", {}, post, 0),
                ("GET", {"REQUEST_METHOD": "GET", "QUERY_STRING": post.decode()}, b"", 105),
                ("GET with a body", {"REQUEST_METHOD": "GET"}, post, 105),
                ("refused by its check", {}, form(method="hang"), 120),
            ]
        )

    def test_no_method_runs_for_another_sites_page(self):
        for caller, variables, content in [
            ("a user who reads", {}, FORM),
            ("a user who changes", {}, FORM.replace(b"echo", b"user_post")),
            ("a visitor", VISITOR, FORM),
            ("by GET", {"REQUEST_METHOD": "GET", "QUERY_STRING": FORM.decode()}, b""),
        ]:
            self.check(
                [
                    (f"{caller}, {name}", {**variables, **headers}, content, code)
                    for name, headers, code in [
                        ("own page", {"HTTP_SEC_FETCH_SITE": "same-origin"}, 0),
                        ("own page that sends no referrer",
                         {"HTTP_SEC_FETCH_SITE": "same-origin", "HTTP_ORIGIN": "null"}, 0),
                        ("the user's own doing", {"HTTP_SEC_FETCH_SITE": "none"}, 0),
                        ("a page of the same site", {"HTTP_SEC_FETCH_SITE": "same-site"}, 105),
                        ("a page on another port",
                         {"HTTP_SEC_FETCH_SITE": "same-site", "HTTP_ORIGIN": "http://nas:9999"}, 105),
                        ("another site's page", {"HTTP_SEC_FETCH_SITE": "cross-site"}, 105),
                        ("unknown value", {"HTTP_SEC_FETCH_SITE": "x"}, 105),
                        ("own origin", {"HTTP_ORIGIN": "http://nas:5000"}, 0),
                        ("other origin", {"HTTP_ORIGIN": "http://nas.example"}, 105),
                        ("other port", {"HTTP_ORIGIN": "http://nas:5001"}, 105),
                        ("other scheme", {"HTTP_ORIGIN": "https://nas:5000"}, 105),
                        ("sandboxed page", {"HTTP_ORIGIN": "null"}, 105),
                    ]
                ]
            )

    def test_a_links_address_answers_for_that_link_alone(self):
        query = {"QUERY_STRING": "sharing_id=abd"}
        self.check(
            [
                ("its own id", VISITOR, FORM + b"&sharing_id=abc", 0),
                ("an empty id", VISITOR, FORM + b"&sharing_id=", 0),
                ("another id", VISITOR, FORM + b"&sharing_id=abd", 105),
                ("one that begins alike", VISITOR, FORM + b"&sharing_id=abcd", 105),
                ("in the query", {**VISITOR, **query}, FORM, 105),
                ("in the query, outdone by the body", {**VISITOR, **query}, FORM + b"&sharing_id=abc", 0),
                ("in JSON", {**VISITOR, **JSON}, body(sharing_id="abd"), 105),
                ("its own in JSON", {**VISITOR, **JSON}, body(sharing_id="abc"), 0),
                ("null in JSON", {**VISITOR, **JSON}, body(sharing_id=None), 0),
                ("a number in JSON", {**VISITOR, **JSON}, body(sharing_id=5), 105),
                ("a list in JSON", {**VISITOR, **JSON}, body(sharing_id=["abc"]), 105),
                ("an owner", {}, FORM + b"&sharing_id=abd", 0),
            ]
        )

    def test_what_a_handler_gets(self):
        owner = self.host.call("echo", {"HTTP_ACCEPT_LANGUAGE": "xx, fr;q=0.5, de-CH;q=0.8"}, value="1e5")
        data = owner.json["data"]
        root = {"uid": 0, "admin": True, "sharing": False, "id": "", "value": "1e5",
                "url": "http://nas:5000", "language": "ger"}
        self.assertEqual({key: data[key] for key in root}, root)
        self.assertEqual(self.host.ask({**JSON, "QUERY_STRING": "value=a"}, body(value="b")).json["data"]["value"], "b")
        cookies = "a=b; sharing_sid=\udcff; sharing_sid=first; sharing_sid=second"
        visitor = self.host.call("echo", {**VISITOR, "REMOTE_USER": "root", "HTTPS": "on", "HTTP_COOKIE": cookies},
                                 value="a b+")
        data = visitor.json["data"]
        someone = {"uid": 0xFFFFFFFE, "admin": False, "sharing": True, "id": "abc", "sid": "first",
                   "url": "https://nas:5000", "value": "a b+"}
        self.assertEqual({key: data[key] for key in someone}, someone)

    def test_answers_carry_safe_headers_and_cookies(self):
        answer = self.host.call("echo", {"HTTPS": "on"}, cookie="text")
        for header in [("Cache-Control", "no-store"), ("X-Content-Type-Options", "nosniff"),
                       ("Set-Cookie", "sid=text; Path=/; HttpOnly; SameSite=Lax; Secure")]:
            self.assertIn(header, answer.headers)
        with Host("--external-url", "https://nas.example") as host:
            for name, secure in [("nas.example", True), ("nas.local", False)]:  # as a proxy that keeps the name sends
                cookie = dict(host.call("echo", {"HTTP_HOST": name}, cookie="text").headers)["Set-Cookie"]
                self.assertEqual(secure, cookie.endswith("; Secure"), name)
        answer = self.host.call("echo", cookie="a\r\nSet-Cookie: b")
        self.assertFalse(answer.json["data"]["added"])
        self.assertNotIn("Set-Cookie", dict(answer.headers))

    def test_unknown_addresses(self):
        for path, status in [("/", "404"), ("/sharing/", "405"), ("/sharing/a/b", "405"),
                             ("/sharing//webapi", "404"), ("/sharing/abc", "405"),
                             ("/sharing/abc/", "405"), ("/sharing/abc//", "405"), ("/sharing//", "405"),
                             ("/sharing/\udcff", "404")]:
            with self.subTest(path):
                self.assertEqual(dict(self.host.ask({"SCRIPT_NAME": path}).headers)["Status"][:3], status)

    def test_printed_output_is_sent_only_instead_of_an_answer(self):
        worker = self.host.worker()
        self.assertEqual((raw := self.host.call("raw", value="cache-control: max-age=5")).body, str(worker))
        self.assertEqual(raw.headers[1:], [
            ("X-Content-Type-Options", "nosniff"), ("Cross-Origin-Resource-Policy", "same-site"),
            ("cache-control", "max-age=5"), ("Content-Type", "text/x-raw")])
        self.assertEqual(self.host.call("print").code, 0)
        self.host.wait_for_log("Test.Host print: 42 printed bytes were dropped")
        self.assertEqual(self.host.call("flood").code, 100)
        self.host.wait_for_log("too much was printed")
        self.assertEqual(self.host.call("raw").body, str(worker))

    def test_handlers_that_fail_are_unexpected_failures(self):
        worker = self.host.worker()
        for method in ["throw", "throw_int", "silent"]:
            with self.subTest(method):
                self.assertEqual(self.host.call(method).code, 100)
        self.assertEqual(self.host.worker(), worker)
        self.assertNotIn("planted secret", "".join(self.host.log))


class Streams(unittest.TestCase):
    """Answers that are sent piece by piece, and raw bodies."""

    @classmethod
    def setUpClass(cls):
        cls.host = cls.enterClassContext(Host())
        cls.log = os.path.join(cls.host.folder.name, "log")

    def expect_log(self, text):
        def logged():
            with open(self.log, encoding="utf-8") as file:
                return file.read() == text

        wait_until(lambda: os.path.exists(self.log) and logged())
        os.unlink(self.log)

    def test_a_stream_is_complete_or_broken_off(self):
        for end, whole in [("", True), ("break", False), ("throw", False)]:
            with self.subTest(end):
                answer = self.host.call("stream", value=500, end=end, log=self.log)
                self.assertIn(("Set-Cookie", "sid=new; Path=/; HttpOnly; SameSite=Lax"), answer.headers)
                self.assertEqual((len(answer.body), answer.ended), (500 << 16, whole))
                self.expect_log("whole after ")
        visitors = self.host.call("stream", {**VISITOR, "PATH_INFO": "/abc/stream"}, value=5, log=self.log)
        self.assertEqual((len(visitors.body), visitors.ended), (5 << 16, True))
        self.expect_log("whole after ")
        head = self.host.call("stream", {"REQUEST_METHOD": "HEAD"}, value=500, log=self.log)
        self.assertEqual((head.body, head.ended), ("", True))
        self.expect_log("left after ")
        self.assertEqual(self.host.call("stuck", log=self.log).code, 100)  # not in the pool "stream"
        self.expect_log("left after ")

    def test_a_reader_that_leaves_or_stops_reading_ends_the_stream(self):
        with self.host.begin("stream", value=500, log=self.log) as leaving:
            leaving.recv(1)
        self.expect_log("left after ")
        with Host("--request-timeout", "1") as host:
            stalled = host.begin("stream", value=500)
            host.wait_for_log("took too long over a request")
            answer = host.finish(stalled)
            self.assertFalse(answer.ended)
            self.assertNotIn("504 Gateway Timeout", answer.text)

    def test_a_raw_body_arrives_unchanged(self):
        query = {"QUERY_STRING": "api=Test.Host&version=1&method=raw_body&value=1",
                 "CONTENT_TYPE": "application/octet-stream"}
        content = b"value=2&\0\xff" * (3 << 20)
        for name, variables, length, expected in [
            ("the largest", query, 3 << 20, {"size": 3 << 20, "nuls": True, "value": "1"}),
            ("a visitor's", {**query, **VISITOR}, 1 << 20, {"size": 1 << 20, "nuls": True, "value": "1"}),
            ("too much", query, (3 << 20) + 1, 106),
            ("far too much", query, 9 << 20, 106),
            ("cut off", {**query, "CONTENT_LENGTH": "99"}, 50, 106),
            ("another method's", {**query, "QUERY_STRING": "api=Test.Host&version=1&method=echo"}, 9, 106),
            ("not by POST", {**query, "REQUEST_METHOD": "PUT"}, 9, 105),
        ]:
            with self.subTest(name):
                answer = self.host.ask(variables, content[:length])
                self.assertEqual(answer.json["data"] if answer.code == 0 else answer.code, expected)


if __name__ == "__main__":
    unittest.main()
