"""The web servers' configurations of the package, in a copy of this machine: each is started and called."""

import contextlib
import os
import tempfile
import unittest
import urllib.parse

from roots import CONFIG, COPY, ENTRY, HOMES, OWNER, PASSWORD, SIGN_IN, Client, Root, packages

SERVERS = {
    "nginx": """
        rm -f /etc/nginx/sites-enabled/*
        ln -s /etc/velt-sharing/nginx.conf /etc/nginx/sites-enabled/velt-sharing
        sed -i 's|"spool"|"accel_prefix": "/velt-spool/", "spool"|' /etc/velt-sharing/files.json
        nginx""",
    "apache2": """
        a2dissite -q 000-default >/dev/null
        a2enmod -q buffer deflate headers http2 proxy_fcgi proxy_scgi rewrite ssl xsendfile >/dev/null
        ln -s /etc/velt-sharing/apache2.conf /etc/apache2/sites-enabled/velt-sharing.conf
        apachectl start""",
    "lighttpd": """
        ln -s /etc/velt-sharing/lighttpd.conf /etc/lighttpd/conf-enabled/90-velt-sharing.conf
        lighttpd -f /etc/lighttpd/lighttpd.conf""",
}
LINK = "VELT.Files.Link"
# Header fields that some program takes for a caller's name.
CLAIMS = ("REMOTE_USER", "Remote-User", "X-Remote-User", "VELT_OWNER", "Velt-Owner", "X-Forwarded-User",
          "Authorization")


@unittest.skipUnless(os.geteuid() == 0, "needs root")
class WebServers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        cls.package = packages(cls.folder.name)[0]

    @contextlib.contextmanager
    def served(self, server, script=""):
        with contextlib.closing(Root(COPY)) as root:
            root.run("dpkg", "-i", root.take(self.package))
            root.lay_out()
            root.start_service()
            root.shell(script + SERVERS[server])
            yield Client(root)

    def test_each_serves_owners_and_visitors(self):
        for server in SERVERS:
            with self.subTest(server), self.served(server) as client:
                self.check_owner(client)
                self.check_credentials(client)
                self.check_compression(client)
                self.check_visitor(client)
                self.check_sizes(client)
                self.check_files(client)
                self.check_put(client)
                self.check_conditions(server, client)
                self.check_logs(server, client)

    def test_lighttpds_earlier_configuration_lets_owners_in(self):
        """One that was changed and kept, and so still asks with the means that the package's part had loaded."""
        ask = """sed -i 's|^include|var.velt_login = "velt-web"\\n&|' /etc/velt-sharing/lighttpd.conf
            cat >>/etc/velt-sharing/lighttpd.conf <<'END'
$HTTP["url"] =~ "^/webapi(/.*)?$" {
  auth.require = ("" => ("method" => "basic", "realm" => "Share links", "require" => "valid-user"))
}
END
"""
        with self.served("lighttpd", ask) as client:
            self.assertEqual(client.own("list").code, 0)

    def check_owner(self, client):
        moved = client.get("http://localhost/owner/page.js?a=b")
        self.assertEqual((moved.status, moved.headers["location"]), (301, "https://localhost/owner/page.js?a=b"))
        page = client.get("/")
        self.assertEqual((page.protocol, page.status), ("HTTP/2", 200))
        self.assertIn("default-src 'none'", page.headers["content-security-policy"])
        self.assertEqual(page.headers["x-frame-options"], "DENY")
        described = client.get("/webapi/openapi.json")
        self.assertIn("default-src 'none'", described.headers["content-security-policy"])
        self.assertIn("openapi", described.json)
        style = client.get("/link/link.css")
        self.assertEqual((style.status, style.headers["x-content-type-options"]), (200, "nosniff"))
        self.assertIn("text/css", style.headers["content-type"])
        stranger = client.call(ENTRY, "VELT.Core.Sharing", "list")
        self.assertEqual((stranger.status, stranger.code), (401, 105))
        self.assertNotIn("www-authenticate", stranger.headers)
        self.assertEqual(client.sign_in(password="wrong").code, 3000)
        signed_in = client.sign_in()
        self.assertIn("; Secure", signed_in.headers["set-cookie"])
        for name, value in (("cache-control", "no-store"), ("x-content-type-options", "nosniff")):
            self.assertEqual(signed_in.headers[name], value)
        self.assertEqual(client.own("list").code, 0)

    def check_credentials(self, client):
        """Which of a request's claims reach the service, and what it makes of them."""
        token = client.own("token_create", api=SIGN_IN, name="test", scope="read").json["data"]["token"]
        basic = ["-u", f"{OWNER}:{PASSWORD}"]
        for options, headers in (*(([], [claim + ": " + OWNER]) for claim in CLAIMS), (basic, [])):
            self.assertEqual(client.account(*options, headers=headers), "", headers)
        self.assertEqual(client.account(headers=["Authorization: Bearer " + token]), OWNER)
        self.set_options(client, "owner-basic=yes")
        self.assertEqual((client.account(*basic), client.account("-u", OWNER + ":wrong")), (OWNER, ""))
        # The service would believe its web server, which passes no client's claim on.
        self.set_options(client, "owner-login=web-server")
        for options, headers in (*(([], [claim + ": " + OWNER]) for claim in CLAIMS), (basic, [])):
            self.assertEqual(client.account(*options, headers=headers), "", headers)
        self.assertEqual(client.sign_in().status, 401)
        self.set_options(client, "owner-login=own")
        self.assertEqual(client.account("-b", client.session), OWNER)

    def set_options(self, client, line):
        client.root.stop_service()
        client.root.shell(f"sed -i '/^owner-/d' {CONFIG} && echo {line} >>{CONFIG}")
        client.root.start_service()

    def check_compression(self, client):
        link = client.create()
        for path, wanted in [("/", "gzip"), ("/owner/page.js", "gzip"), ("/link/link.css", "gzip"),
                             ("/link/texts/enu.json", "gzip"), (f"/sharing/{link}", None),
                             (f"/sharing/{link}/webapi", None), (ENTRY, None)]:
            answer = client.get(path, headers=["Accept-Encoding: gzip"])
            self.assertEqual((answer.status, answer.headers.get("content-encoding")), (200, wanted), path)
            if wanted:
                known = [f"If-None-Match: {answer.headers['etag']}", "Accept-Encoding: gzip"]
                self.assertEqual(client.get(path, headers=known).status, 304, path)

    def check_visitor(self, client):
        link = "/sharing/" + client.create(protect_type="password", protect_password="sesame")
        page = client.get(link)
        self.assertEqual((page.protocol, page.status), ("HTTP/2", 200))
        self.assertIn("content-security-policy", page.headers)
        login = {"sharing_id": link.removeprefix("/sharing/")}
        refused = client.call(link + "/webapi", "VELT.Core.Sharing.Login", "login", password="no", **login)
        self.assertNotEqual(refused.code, 0)
        answer = client.call(link + "/webapi", "VELT.Core.Sharing.Login", "login", password="sesame", **login)
        self.assertEqual(answer.code, 0)
        self.assertIn("secure", answer.headers["set-cookie"].lower())
        self.assertEqual(answer.headers["cache-control"], "no-store")
        # No owner is known at a link's address.
        answer = client.call(link + "/webapi", "VELT.Core.Sharing", "list", "-b", client.session)
        self.assertEqual(answer.code, 105)

    def check_sizes(self, client):
        link = "/sharing/" + client.create()
        for path, size, limit in [(ENTRY, 1 << 20, "1 MiB"), (ENTRY, 2 << 20, "1 MiB"),
                                  (link + "/webapi", 70 << 10, "64 KiB"), (link + "/webapi", 6 << 20, "64 KiB")]:
            # lighttpd 1.4.69 ends a stream of HTTP/2 that brings too much without an answer.
            answer = client.get(path, "--http1.1", data=b"a=" + b"x" * size,
                                headers=["Content-Type: application/x-www-form-urlencoded"])
            self.assertEqual((answer.code, limit in answer.json["error"]["errors"]), (106, True), (path, size))
            self.assertIn("application/json", answer.headers["content-type"])
            self.assertEqual((answer.headers["x-content-type-options"], answer.headers["cache-control"]),
                             ("nosniff", "no-store"), (path, size))

    def check_files(self, client):
        link = client.create(project_name="files", app={"root": "home", "items": ["numbers.txt", "picture.png"]})
        query = urllib.parse.urlencode({"api": LINK, "version": 1, "method": "get", "path": "0"})
        self.login(client, link)
        whole = client.get(f"/sharing/{link}/webapi?{query}")
        with open(client.root.path(f"{HOMES}/{OWNER}/numbers.txt"), "rb") as file:
            self.assertEqual((whole.status, whole.body), (200, file.read()))
        self.assertEqual(whole.headers["x-content-type-options"], "nosniff")
        self.assertIn("attachment", whole.headers["content-disposition"])
        self.assertFalse({"x-sendfile", "x-accel-redirect"} & set(whole.headers))
        part = client.get(f"/sharing/{link}/webapi?{query}", headers=["Range: bytes=2-3"])
        self.assertEqual((part.status, part.body), (206, whole.body[2:4]))
        shown = client.get(f"/sharing/{link}/webapi?{query}&inline=true")
        self.assertIn("sandbox", shown.headers["content-security-policy"])
        small = urllib.parse.urlencode({"api": LINK, "version": 1, "method": "thumbnail", "path": "1"})
        picture = client.get(f"/sharing/{link}/webapi?{small}", "-b", "/tmp/jar")
        self.assertEqual((picture.status, picture.headers["content-type"]), (200, "image/jpeg"))
        every = urllib.parse.urlencode({"api": LINK, "version": 1, "method": "zip"})
        archive = client.get(f"/sharing/{link}/stream?{every}", "-b", "/tmp/jar")
        self.assertEqual((archive.status, archive.body[:2], archive.headers["cache-control"]), (200, b"PK", "no-store"))
        # Nobody reaches the spool past a worker.
        self.assertEqual(client.get("/velt-spool/").status, 404)

        inbox = client.create(project_name="files",
                              app={"root": "home", "items": ["inbox"], "upload": {"max_size": 1 << 30}})
        at = f"/sharing/{inbox}/webapi"
        piece = os.urandom(4 << 20)
        self.login(client, inbox)
        begun = client.call(at, LINK, "upload_begin", "-b", "/tmp/jar", name="left.bin", size=len(piece))
        self.assertEqual(begun.code, 0, begun.body)
        query = urllib.parse.urlencode({"api": LINK, "version": 1, "method": "upload_piece", "offset": 0,
                                        "upload": begun.json["data"]["upload"]})
        done = client.get(f"{at}?{query}", "-b", "/tmp/jar", data=piece,
                          headers=["Content-Type: application/octet-stream"])
        self.assertEqual(done.json["data"]["name"], "left.bin")
        self.assertEqual(client.root.shell(f"stat -c %U:%G:%a {HOMES}/{OWNER}/inbox/left.bin"),
                         f"{OWNER}:www-data:640\n")

    def check_put(self, client):
        link = client.create(project_name="files", protect_type="password", protect_password="sesame",
                             app={"root": "home", "items": ["inbox"], "upload": {}})
        at, whole = f"/sharing/{link}/", os.urandom(20 << 20)
        for version in ("--http1.1", "--http2"):
            for name, given in (("whole%20%C3%BC.bin", "whole ü"), ("100%25+.bin", "100%25+"),
                                ("why%3F%23%253F&x=1.bin", "why?#%253F&x=1")):
                sent = client.get(at + name, version, "-X", "PUT", "-u", ":sesame", data=whole)
                self.assertEqual((sent.status, sent.body.decode().startswith(given)), (201, True), sent.body)
        self.assertEqual(client.root.shell(f"stat -c %s:%U:%G:%a '{HOMES}/{OWNER}/inbox/whole ü (2).bin'"),
                         f"{len(whole)}:{OWNER}:www-data:640\n")
        for wanted, name, options, headers in (
                (401, "x", (), ()), (401, "x", ("-u", ":no"), ()), (400, "a%2Fb", ("-u", ":sesame"), ()),
                (400, "", ("-u", ":sesame"), ()), (411, "x", ("-u", ":sesame"), ["Transfer-Encoding: chunked"])):
            # lighttpd knows the length of what comes at once.
            content = whole if wanted == 411 else b"x"
            refused = client.get(at + name, "--http1.1", "-X", "PUT", *options, headers=headers, data=content)
            if name == "a%2Fb" and refused.status == 404:
                continue  # Apache takes no such address
            self.assertEqual(refused.status, wanted, (name, options))
            self.assertNotIn(b"<", refused.body)
        self.assertIn(client.get("/velt-put" + at, "--http1.1", "-X", "PUT", data=b"x").status, (404, 405))

    def check_conditions(self, server, client):
        link = client.create(project_name="files", app={"root": "home", "items": ["numbers.txt", "picture.png"]})
        calls = [f"/sharing/{link}/webapi?" + urllib.parse.urlencode(
            {"api": LINK, "version": 1, "method": "get", "path": path}) for path in "01"]
        first, second = (client.get(call) for call in calls)
        tag, size = first.headers["etag"], len(first.body)
        self.assertNotEqual(tag, second.headers["etag"])
        for header, status, part in [("If-Match: \"x\"", 412, None), (f"If-Match: {tag}", 200, None),
                                     (f"If-None-Match: {tag}", 304, None),
                                     ("If-Unmodified-Since: Thu, 01 Jan 2015 00:00:00 GMT", 412, None),
                                     (f"Range: bytes={size}-", 416, f"bytes */{size}"),
                                     (f"Range: bytes=5-{'9' * 30}", 206, f"bytes 5-{size - 1}/{size}")]:
            if server == "nginx" and status == 206:
                status, part = 416, f"bytes */{size}"  # it reads no such number
            answer = client.get(calls[0], headers=[header])
            self.assertEqual((answer.status, answer.headers.get("content-range")), (status, part), header)
            if status < 300:
                self.assertEqual(len(answer.body), size - 5 if part else size, header)
            self.assertFalse({"x-sendfile", "x-sendfile2", "x-accel-redirect"} & set(answer.headers))

    def login(self, client, link):
        answer = client.call(f"/sharing/{link}/webapi", "VELT.Core.Sharing.Login", "login", "-c", "/tmp/jar",
                             sharing_id=link)
        self.assertEqual(answer.code, 0)

    def check_logs(self, server, client):
        def log():
            return client.root.shell(f"cat /var/log/velt-sharing/*.log /var/log/{server}/*", check=False)

        link = client.create()
        # None of these requests reaches a worker.
        client.get(f"/sharing/{link}/webapi", "--http1.1", data=b"x" * (6 << 20))
        client.get(f"/sharing/{link}/webapi", headers=["X: " + "x" * 9000])
        client.root.stop_service()
        for _ in range(2):
            self.assertIn(client.get("/sharing/" + link, headers=["Referer: https://localhost/sharing/" + link]).status,
                          (502, 503))
        logs = log()
        # lighttpd can't be told to leave out the request on which it finds out.
        self.assertEqual(logs.count(link), 1 if server == "lighttpd" else 0, logs)
        for secret in (PASSWORD, client.session.partition("=")[2], OWNER):
            self.assertNotIn(secret, logs)
