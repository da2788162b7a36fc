"""What the web server in front is responsible for: connections, large bodies, headers, clients that leave."""

import contextlib
import os
import re
import resource
import socket
import unittest

from demo import Demo

ENTRY = "/webapi/entry.cgi"
CROWD = 2000


def setUpModule():
    global DEMO
    DEMO = Demo()
    unittest.addModuleCleanup(DEMO.stop)
    _, most = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))


class Connections(unittest.TestCase):
    def test_many_unfinished_requests_keep_nobody_out(self):
        head = f"POST /sharing/{DEMO.links['open']}/webapi HTTP/1.1\r\nHost: x\r\n".encode()
        for what, sent in (("idle", b""), ("half a header", head),
                           ("half a body", head + b"Content-Length: 60000\r\n\r\n" + b"x" * 30000)):
            with self.subTest(what), contextlib.ExitStack() as crowd:
                for _ in range(CROWD):
                    client = crowd.enter_context(socket.create_connection(("127.0.0.1", DEMO.port), timeout=10))
                    client.sendall(sent)
                visitor = DEMO.connect()
                visitor.timeout = 5
                visitor.request("GET", f"/sharing/{DEMO.links['open']}")
                self.assertEqual(200, visitor.getresponse().status)
                visitor.close()


class LargeBodies(unittest.TestCase):
    def test_the_answer_is_the_apis(self):
        answer = {"error": {"code": 106, "errors": None}, "success": False}
        for side, path, limit in (("owner", ENTRY, "1 MiB"),
                                  ("visitor", f"/sharing/{DEMO.links['open']}/webapi", "64 KiB")):
            answer["error"]["errors"] = f"request body is larger than {limit}"
            for mib in (2, 200):
                for form in ("announced", "chunked"):
                    with self.subTest(side=side, mib=mib, form=form):
                        done = self.send(path, mib, form)
                        self.assertEqual((413, "application/json"), (done.status, done.headers["content-type"][:16]))
                        self.assertEqual(["nosniff", "no-store", "same-site"], [done.headers[name] for name in (
                            "x-content-type-options", "cache-control", "cross-origin-resource-policy")])
                        self.assertEqual(answer, done.json)

    def send(self, path, mib, form):
        piece = b"x" * (1 << 16)
        headers = {"Content-Type": "application/json"}
        if form == "announced":
            headers["Content-Length"] = str(mib << 20)
        return DEMO.request("POST", path, (piece for _ in range(mib << 4)), headers)


class Headers(unittest.TestCase):
    def test_owners_page(self):
        for path in ("/", "/index.html"):
            page = DEMO.request("GET", path)
            policy = page.headers["content-security-policy"]
            own = re.search(r'Content-Security-Policy"\s+content="([^"]+)"', page.text)[1]
            self.assertEqual(own + "; frame-ancestors 'none'", policy)
            self.assertEqual(["same-origin"] * 2, [page.headers[f"cross-origin-{name}-policy"]
                                                   for name in ("opener", "resource")])
        # An application's files set no policy for pages.
        file = DEMO.request("GET", "/pkg/photo-album/photos/lighthouse.svg")
        self.assertEqual((200, "nosniff", None), (file.status, file.headers["x-content-type-options"],
                                                  file.headers.get("content-security-policy")))


class Worker(unittest.TestCase):
    """The test takes the place of the workers; the server connects to it for each request."""

    def setUp(self):
        self.demo = Demo()
        self.addCleanup(self.demo.stop)
        path = f"/proc/{self.demo.pid}/root/usr/velt/var/run/webapid.sock"
        os.unlink(path)
        self.listener = self.enterContext(socket.socket(socket.AF_UNIX))
        self.listener.bind(path)
        os.chmod(path, 0o666)
        self.listener.listen()
        self.listener.settimeout(10)

    def begin(self):
        """Sends a request; returns its client's connection and the worker's."""
        client = self.enterContext(socket.create_connection(("127.0.0.1", self.demo.port), timeout=10))
        client.sendall(b"HEAD /shared/icon.svg HTTP/1.1\r\nHost: x\r\n\r\n")
        self.assertRegex(client.recv(65536), rb"^HTTP/1\.1 200 ")
        client.sendall(b"POST /sharing/x/webapi HTTP/1.1\r\nHost: x\r\nContent-Length: 4\r\n\r\nbody")
        worker = self.enterContext(self.listener.accept()[0])
        worker.settimeout(2)
        got = b""
        while b"body" not in got:
            got += worker.recv(65536)
        return client, worker

    def test_sees_that_its_client_has_left(self):
        # The server notices the client's end only if it has waited for the request on an open connection. A client
        # can't be sure of that, so several try.
        for _ in range(10):
            client, worker = self.begin()
            client.close()
            with contextlib.suppress(TimeoutError):
                while worker.recv(65536):  # the rest of the request, then the end
                    pass
                return
        self.fail("no end was seen")

    def test_that_dies_is_reported_at_once(self):
        client, worker = self.begin()
        worker.close()
        self.assertRegex(client.recv(65536), rb"^HTTP/1\.1 50[03] ")


if __name__ == "__main__":
    unittest.main()
