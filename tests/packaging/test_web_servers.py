"""The web servers' configurations of the package, in a copy of this machine: each is started and called."""

import contextlib
import os
import tempfile
import unittest
import urllib.parse

from roots import COPY, HOMES, OWNER, PASSWORD, Client, Root, packages

SERVERS = {
    "nginx": """
        rm -f /etc/nginx/sites-enabled/*
        ln -s /etc/velt-sharing/nginx.conf /etc/nginx/sites-enabled/velt-sharing
        sed -i 's|"spool"|"accel_prefix": "/velt-spool/", "spool"|' /etc/velt-sharing/files.json
        nginx""",
    "apache2": """
        a2dissite -q 000-default >/dev/null
        a2enmod -q authnz_pam buffer deflate headers http2 proxy_fcgi rewrite ssl xsendfile >/dev/null
        ln -s /etc/velt-sharing/apache2.conf /etc/apache2/sites-enabled/velt-sharing.conf
        apachectl start""",
    "lighttpd": """
        ln -s /etc/velt-sharing/lighttpd.conf /etc/lighttpd/conf-enabled/90-velt-sharing.conf
        lighttpd -f /etc/lighttpd/lighttpd.conf""",
}
LINK = "VELT.Files.Link"


@unittest.skipUnless(os.geteuid() == 0, "needs root")
class WebServers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        cls.package = packages(cls.folder.name)[0]

    @contextlib.contextmanager
    def served(self, server):
        with contextlib.closing(Root(COPY)) as root:
            root.run("dpkg", "-i", root.take(self.package))
            root.lay_out()
            root.start_service()
            root.shell(SERVERS[server])
            yield Client(root)

    def test_each_serves_owners_and_visitors(self):
        for server in SERVERS:
            with self.subTest(server), self.served(server) as client:
                self.check_owner(client)
                self.check_compression(client)
                self.check_visitor(client)
                self.check_sizes(client)
                self.check_files(client)
                self.check_guesses(client)
                self.check_logs(server, client)

    def check_owner(self, client):
        moved = client.get("http://localhost/owner/page.js?a=b")
        self.assertEqual((moved.status, moved.headers["location"]), (301, "https://localhost/owner/page.js?a=b"))
        for path in ("/", "/index.html", "/owner/page.js", "/webapi/entry.cgi", "/webapi/other"):
            self.assertEqual(client.get(path).status, 401, path)
        page = client.get("/", login=(OWNER, PASSWORD))
        self.assertEqual((page.protocol, page.status), ("HTTP/2", 200))
        self.assertIn("default-src 'none'", page.headers["content-security-policy"])
        self.assertEqual(page.headers["x-frame-options"], "DENY")
        described = client.get("/webapi/openapi.json", login=(OWNER, PASSWORD))
        self.assertIn("default-src 'none'", described.headers["content-security-policy"])
        self.assertIn("openapi", described.json)
        self.assertEqual(client.own("list").code, 0)
        self.assertEqual(client.get("/webapi/entry.cgi", login=(OWNER, "wrong")).status, 401)
        style = client.get("/link/link.css")
        self.assertEqual((style.status, style.headers["x-content-type-options"]), (200, "nosniff"))
        self.assertIn("text/css", style.headers["content-type"])

    def check_compression(self, client):
        link = client.create()
        for path, login, wanted in [("/", (OWNER, PASSWORD), "gzip"), ("/owner/page.js", (OWNER, PASSWORD), "gzip"),
                                    ("/link/link.css", None, "gzip"), ("/link/texts/enu.json", None, "gzip"),
                                    (f"/sharing/{link}", None, None), (f"/sharing/{link}/webapi", None, None),
                                    ("/webapi/entry.cgi", (OWNER, PASSWORD), None)]:
            answer = client.get(path, login=login, headers=["Accept-Encoding: gzip"])
            self.assertEqual((answer.status, answer.headers.get("content-encoding")), (200, wanted), path)
            if wanted:
                known = [f"If-None-Match: {answer.headers['etag']}", "Accept-Encoding: gzip"]
                self.assertEqual(client.get(path, login=login, headers=known).status, 304, path)

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
        # A name in a request that nobody has checked makes no owner.
        for path in (link + "/webapi", link):
            self.assertNotIn(b'"links"', client.call(path, "VELT.Core.Sharing", "list", login=(OWNER, "no")).body)

    def check_sizes(self, client):
        link = "/sharing/" + client.create()
        for path, login, size, limit in [("/webapi/entry.cgi", (OWNER, PASSWORD), 1 << 20, "1 MiB"),
                                         ("/webapi/entry.cgi", (OWNER, PASSWORD), 2 << 20, "1 MiB"),
                                         (link + "/webapi", None, 70 << 10, "64 KiB"),
                                         (link + "/webapi", None, 6 << 20, "64 KiB")]:
            # lighttpd 1.4.69 ends a stream of HTTP/2 that brings too much without an answer.
            answer = client.get(path, "--http1.1", login=login, data=b"a=" + b"x" * size,
                                headers=["Content-Type: application/x-www-form-urlencoded"])
            self.assertEqual((answer.code, limit in answer.json["error"]["errors"]), (106, True), (path, size))
            self.assertIn("application/json", answer.headers["content-type"])

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

    def login(self, client, link):
        answer = client.call(f"/sharing/{link}/webapi", "VELT.Core.Sharing.Login", "login", "-c", "/tmp/jar",
                             sharing_id=link)
        self.assertEqual(answer.code, 0)

    def check_guesses(self, client):
        for _ in range(10):
            self.assertEqual(client.get("/webapi/entry.cgi", login=(OWNER, "wrong")).status, 401)
        self.assertEqual(client.get("/webapi/entry.cgi", login=(OWNER, PASSWORD)).status, 401)
        client.root.run("faillock", "--dir", "/var/lib/velt-sharing/failures", "--user", OWNER, "--reset")
        self.assertEqual(client.own("list").code, 0)

    def check_logs(self, server, client):
        def log():
            return client.root.shell(f"cat /var/log/velt-sharing/*.log /var/log/{server}/*", check=False)

        for name, path in ((OWNER, "/webapi/" + "x" * 7000), ("x" * 3000, "/"), ("x" * 250, "/owner/" + "x" * 90)):
            before = len(log())
            self.assertIn(client.get(path, login=(name, "wrong")).status, (401, 403))
            self.assertLess(len(log()) - before, 1000, (name[:9], path[:9]))
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
