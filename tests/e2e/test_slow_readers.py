"""Clients that ask at every door and take nothing of the answer hold up themselves alone."""

import contextlib
import json
import os
import socket
import unittest
import urllib.parse

from h2.connection import H2Connection
from h2.settings import SettingCodes, Settings

from demo import SHARING, Demo, door
from shared_files import LINK, Shared

CROWD = 60  # connections that ask the same
PIPELINED = 5
# Far more than a page takes among so many, and far less than a worker would wait for a client.
PAGE_SECONDS, LOGIN_SECONDS = 5, 8


def setUpModule():
    global DEMO, FILES
    DEMO = Demo()
    unittest.addModuleCleanup(DEMO.stop)
    FILES = Shared(DEMO)


def over_http1(method, path, headers, body):
    """A connection that sends the request several times without reading an answer."""
    connection = socket.socket()
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
    connection.connect(("127.0.0.1", DEMO.port))
    headers = {"Host": "x", **headers, "Content-Length": str(len(body))}
    head = f"{method} {path} HTTP/1.1\r\n" + "".join(f"{name}: {value}\r\n" for name, value in headers.items())
    connection.settimeout(1)
    with contextlib.suppress(TimeoutError, ConnectionError):  # the server reads no further meanwhile
        for _ in range(PIPELINED):
            connection.sendall(head.encode() + b"\r\n" + body)
    return connection


def over_http2(method, path, headers, body):
    """A connection with a window of 0, so that the server may send nothing of the answer."""
    connection = socket.create_connection(("127.0.0.1", DEMO.port), timeout=10)
    protocol = H2Connection()
    protocol.local_settings = Settings(client=True, initial_values={SettingCodes.INITIAL_WINDOW_SIZE: 0})
    protocol.initiate_connection()
    pseudo = [(":method", method), (":scheme", "http"), (":authority", "x"), (":path", path)]
    protocol.send_headers(1, pseudo + [(name.lower(), value) for name, value in headers.items()], end_stream=not body)
    for at in range(0, len(body), 16384):
        protocol.send_data(1, body[at:at + 16384], end_stream=at + 16384 >= len(body))
    connection.sendall(protocol.data_to_send())
    return connection


class SlowReaders(unittest.TestCase):
    def call(self, link, api, method, visitor=None, **params):
        body = json.dumps({"api": api, "version": 1, "method": method, **params}).encode()
        cookie = "; ".join(f"{name}={value}" for name, value in (visitor.cookies if visitor else {}).items())
        headers = {"Content-Type": "application/json", **({"Cookie": cookie} if cookie else {})}
        return "POST", f"/sharing/{link}{door(api, method)}", headers, body

    def get(self, visitor, method, **params):
        query = urllib.parse.urlencode({"api": LINK, "version": 1, "method": method, **params})
        cookie = "; ".join(f"{name}={value}" for name, value in visitor.cookies.items())
        return "GET", f"/sharing/{visitor.link_id}{door(LINK, method)}?{query}", {"Cookie": cookie}, b""

    def doors(self):
        """A request for each kind of long answer."""
        nested = [1] * 13000
        for _ in range(13):
            nested = [nested]
        large = DEMO.visitor(DEMO.create(app={"title": "x" * 900000}))
        for number in range(3000):
            FILES.put(f"many/{number}-{'x' * 100}.txt", b"")
        FILES.put("large.bin", os.urandom(1 << 20) * 64)
        files = FILES.visit("many", "large.bin")
        assert large.login()["success"]
        return {
            "script": self.call("x" * 22, SHARING + ".Session", "get", preview=True, sharing_preview_params=nested,
                                sharing_preview_project_name="photo-album"),
            "start-up data": self.call(large.link_id, SHARING + ".Initdata", "get", large, action="sharing"),
            "record": self.call(large.link_id, SHARING, "get", large),
            "list": self.call(files.link_id, LINK, "list", files, path="0", limit=3000),
            "archive": self.get(files, "zip"),
            "download": self.get(files, "get", path="1"),
            "page": ("GET", f"/sharing/{large.link_id}", {}, b"")}

    def test_pages_and_logins_are_answered_meanwhile(self):
        link = DEMO.create()
        for name, request in self.doors().items():
            answer = DEMO.request(*request[:2], request[3] or None, request[2])
            self.assertEqual(200, answer.status, name)
            for how in (over_http1, over_http2):
                with self.subTest(name, how=how.__name__), contextlib.ExitStack() as crowd:
                    for _ in range(CROWD):
                        crowd.enter_context(how(*request))
                    for _ in range(5):
                        self.ask(PAGE_SECONDS, "GET", f"/sharing/{link}")
                        self.ask(LOGIN_SECONDS, *self.call(link, SHARING + ".Login", "login", sharing_id=link))

    def ask(self, seconds, method, path, headers=None, body=None):
        connection = DEMO.connect()
        connection.timeout = seconds
        connection.request(method, path, body, headers or {})
        answer = connection.getresponse()
        self.assertEqual(200, answer.status)
        answer.read()
        connection.close()


if __name__ == "__main__":
    unittest.main()
