"""Downloads by link: what each request checks, conditions and parts, slow readers, thumbnails."""

import contextlib
import glob
import os
import socket
import struct
import time
import unittest
import zlib

from demo import SHARING, Demo, wait_until
from shared_files import Shared, ask, code, get, listed, query


def bomb(side):
    """A black PNG image, `side` pixels high and wide, of which a thousandth is a file: no program reads it in time."""
    size = side * (side // 8 + 1)
    block = 1 << 20
    packer = zlib.compressobj(9)
    start = packer.compress(bytes(block)) + packer.flush(zlib.Z_FULL_FLUSH)
    again = start[2:]  # without zlib's header; after a full flush a block refers to nothing before it
    last = packer.compress(bytes(size % block)) + packer.flush()
    sum_of_zeros = struct.pack(">HH", size % 65521, 1)  # Adler-32
    data = start + again * (size // block - 1) + last[:-4] + sum_of_zeros
    chunks = ((b"IHDR", struct.pack(">IIBBBBB", side, side, 1, 0, 0, 0, 0)), (b"IDAT", data), (b"IEND", b""))
    return b"\x89PNG\r\n\x1a\n" + b"".join(
        struct.pack(">I", len(content)) + kind + content + struct.pack(">I", zlib.crc32(kind + content))
        for kind, content in chunks)


def setUpModule():
    global DEMO, ALICE
    DEMO = Demo()
    unittest.addModuleCleanup(DEMO.stop)
    ALICE = Shared(DEMO)


class Downloads(unittest.TestCase):
    def test_each_request_checks_the_link_again(self):
        ALICE.put("ends/a.txt", b"0123456789")
        for name, change, status in (("disabled", {"enabled": False}, 404),
                                     ("expired", {"expire_at": "2020-01-01 00:00:00"}, 404),
                                     ("another password", {"protect_type": "password", "protect_password": "new"}, 403),
                                     ("deleted", None, 404)):
            with self.subTest(name):
                visitor = DEMO.visitor(ALICE.share("ends", protect_type="password", protect_password="old"))
                self.assertEqual(403, get(visitor, "0/a.txt").status)
                visitor.login(password="old")
                first = get(visitor, "0/a.txt", headers={"Range": "bytes=0-4"})
                self.assertEqual((206, b"01234"), (first.status, first.body))
                resume = {"Range": "bytes=5-", "If-Range": first.headers["etag"]}
                rest = get(visitor, "0/a.txt", headers=resume)
                self.assertEqual((206, b"56789"), (rest.status, rest.body))
                ids = {"sharing_id": visitor.link_id, "project_name": "files"}
                DEMO.data(SHARING, "set" if change else "delete", {**ids, **(change or {})})
                for method in ("get", "zip"):
                    self.assertEqual(status, get(visitor, "0/a.txt", method, headers=resume).status)
                for method in ("list", "thumbnail", "upload_begin", "upload_state"):
                    params = {"path": "0", "name": "x", "size": 1, "upload": "0" * 32}
                    self.assertEqual(105, code(ask(visitor, method, **params)))

    def test_a_download_without_a_page_is_a_visit(self):
        ALICE.put("ends/a.txt", b"0123456789")
        visitor = DEMO.visitor(ALICE.share("ends", expire_times=1))
        first = visitor.request("GET", query("get", path="0/a.txt"))
        self.assertEqual((200, 1), (first.status, len(first.set_cookies)))
        self.assertEqual([200, 200], [get(visitor, "0/a.txt").status, visitor.request("GET", query("zip")).status])
        self.assertEqual(410, get(DEMO.visitor(visitor.link_id), "0/a.txt").status)
        self.assertEqual(1, DEMO.data(SHARING, "get", {"sharing_id": visitor.link_id})["visits"])
        foreign = visitor.request("GET", query("get", path="0/a.txt"), headers={"Sec-Fetch-Site": "cross-site"})
        self.assertNotIn(b"0123", foreign.body)

    def test_only_what_is_sent_is_a_visit(self):
        ALICE.put("once/a.txt", b"0123456789")
        link = ALICE.share("once", expire_times=1)
        file, archive = query("get", path="0/a.txt"), query("zip")

        def ask_anew(verb, path, headers=None):
            answer = DEMO.visitor(link).request(verb, path, headers=headers)
            return answer.status, len(answer.set_cookies)

        for name, verb, path, headers, status in (
                ("head", "HEAD", file, {}, 200), ("head of an archive", "HEAD", archive, {}, 200),
                ("no such file", "GET", query("get", path="0/b.txt"), {}, 404),
                ("a folder", "GET", query("get", path="0"), {}, 404),
                ("no such file in an archive", "GET", query("zip", paths='["0/b.txt"]'), {}, 404),
                ("another version", "GET", file, {"If-Match": '"x"'}, 412),
                ("nothing new", "GET", file, {"If-None-Match": "*"}, 304),
                ("past the end", "GET", file, {"Range": "bytes=10-"}, 416)):
            with self.subTest(name):
                self.assertEqual((status, 0), ask_anew(verb, path, headers))
                self.assertEqual(0, DEMO.data(SHARING, "get", {"sharing_id": link})["visits"])
        self.assertEqual((200, 1), ask_anew("GET", file))
        self.assertEqual([(410, 0)] * 3, [ask_anew("HEAD", file), ask_anew("GET", file), ask_anew("GET", archive)])
        locked = ALICE.share("once", protect_type="password", protect_password="old")
        self.assertEqual([403] * 2, [DEMO.visitor(locked).request("HEAD", path).status for path in (file, archive)])

    def test_conditions_and_ranges(self):
        ALICE.put("when/a.txt", b"0123456789")
        visitor = ALICE.visit("when")
        whole = get(visitor, "0/a.txt")
        tag, changed = whole.headers["etag"], whole.headers["last-modified"]
        before, after = ("Thu, 01 Jan 2015 00:00:00 GMT", "Fri, 01 Jan 2100 00:00:00 GMT")
        huge = "9" * 30
        for headers, status, wanted in (
                ({"If-Match": tag}, 200, None), ({"If-Match": f'"x", {tag}'}, 200, None),
                ({"If-Match": "*"}, 200, None),
                ({"If-Match": '"x"'}, 412, None), ({"If-Match": "W/" + tag}, 412, None),
                ({"If-Match": tag, "If-Unmodified-Since": before}, 200, None),
                ({"If-Unmodified-Since": before}, 412, None), ({"If-Unmodified-Since": changed}, 200, None),
                ({"If-Unmodified-Since": "Thursday, 01-Jan-15 00:00:00 GMT"}, 412, None),
                ({"If-Unmodified-Since": "Thu Jan  1 00:00:00 2015"}, 412, None),
                ({"If-Unmodified-Since": "yesterday"}, 200, None),
                ({"If-Match": '"x"', "Range": "bytes=0-1"}, 412, None), ({"If-None-Match": "W/" + tag}, 304, None),
                ({"If-None-Match": '"x"', "If-Modified-Since": after}, 200, None),
                ({"If-Modified-Since": changed}, 304, None), ({"If-Modified-Since": before}, 200, None),
                ({"Range": "bytes=2-4"}, 206, b"234"), ({"Range": "bytes=-3"}, 206, b"789"),
                ({"Range": f"bytes=5-{huge}"}, 206, b"56789"), ({"Range": f"bytes=-{huge}"}, 206, b"0123456789"),
                ({"Range": f"bytes=5-{huge}", "If-Range": tag}, 206, b"56789"),
                ({"Range": f"bytes=5-{huge}", "If-Range": '"x"'}, 200, None),
                ({"Range": f"bytes=5-{huge}", "If-Range": changed}, 206, b"56789"),
                ({"Range": "bytes=10-"}, 416, None), ({"Range": f"bytes={huge}-"}, 416, None),
                ({"Range": "bytes=-0"}, 416, None), ({"Range": "bytes=4-2"}, 416, None),
                ({"Range": "bytes=x,20-30"}, 416, None), ({"Range": "lines=1-2"}, 200, None)):
            with self.subTest(**{name.replace("-", "_"): value for name, value in headers.items()}):
                answer = get(visitor, "0/a.txt", headers=headers)
                self.assertEqual(status, answer.status)
                if status < 300:
                    self.assertEqual(wanted or whole.body, answer.body)
                part = answer.headers.get("content-range")
                if status == 206:
                    first = whole.body.index(wanted)
                    self.assertEqual(f"bytes {first}-{first + len(wanted) - 1}/10", part)
                else:
                    self.assertEqual("bytes */10" if status == 416 else None, part)
        time_of = os.stat(ALICE.path("when/a.txt")).st_mtime_ns
        ALICE.put("when/a.txt", b"9876543210")
        os.utime(ALICE.path("when/a.txt"), ns=(time_of + 1,) * 2)  # within the same second
        self.assertEqual(412, get(visitor, "0/a.txt", headers={"If-Match": tag}).status)

    def test_downloads_of_a_file_share_a_link_until_it_changes(self):
        ALICE.put("often/a.txt", b"old")
        path = ALICE.path("often/a.txt")
        spool = DEMO.path("/usr/velt/var/spool/files/out")
        visitor = DEMO.visitor(ALICE.share("often"))
        self.assertEqual({b"old"}, {get(visitor, "0/a.txt").body for _ in range(60)})
        # The web server keeps the file of each name open for some seconds, and has only so many descriptors.
        self.assertLess(sum(entry.inode() == os.stat(path).st_ino for entry in os.scandir(spool)), 30)
        with open(path, "ab") as file:
            file.write(b" and new")
        self.assertEqual(b"old and new", get(visitor, "0/a.txt").body)

    def slow(self, count, path):
        """Connections that send a request and read only the beginning of the answer."""
        connections = []
        for _ in range(count):
            connection = socket.create_connection(("127.0.0.1", DEMO.port))
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            connection.sendall(f"GET {path} HTTP/1.1\r\nHost: 127.0.0.1:{DEMO.port}\r\n\r\n".encode())
            connections.append(connection)
        for connection in connections:
            self.assertTrue(connection.recv(12).endswith(b"200"))
        return connections

    def test_slow_readers_delay_nobody(self):
        ALICE.put("large/a.bin", os.urandom(1 << 20) * 32)
        link = ALICE.share("large", enable_match_ip=False)
        for count, method in ((50, "get"), (2, "zip")):  # as many as one address may receive on any machine
            path = f"/sharing/{link}" + query(method, path="0/a.bin")
            with self.subTest(method), contextlib.ExitStack() as stack:
                for connection in self.slow(count, path):
                    stack.callback(connection.close)
                for _ in range(20):
                    visitor = ALICE.visit("large")
                    self.assertEqual(["a.bin"], listed(visitor, "0"))
                    self.assertEqual(200, visitor.page().status)
                    self.assertEqual(206, get(visitor, "0/a.bin", headers={"Range": "bytes=0-9"}).status)
        spool = DEMO.path("/usr/velt/var/spool/files/out")
        wait_until(lambda: not os.listdir(spool))

    def test_a_file_that_shrinks_breaks_its_archive_off(self):
        ALICE.put("shrinks/a.bin", bytes(64 << 20))
        with contextlib.closing(self.slow(1, f"/sharing/{ALICE.share('shrinks')}" + query("zip"))[0]) as reader:
            reader.settimeout(60)
            received = b""
            while len(received) < 1 << 16:  # then the archive is in the middle of the file
                received += reader.recv(1 << 16)
            os.truncate(ALICE.path("shrinks/a.bin"), 1 << 20)
            while piece := reader.recv(1 << 20):
                received = (received + piece)[-64:]
        self.assertFalse(received.endswith(b"0\r\n\r\n"))

    def test_many_ranges_are_no_lever(self):
        ALICE.put("ranges.bin", bytes(1 << 20))
        visitor = ALICE.visit("ranges.bin")
        for ranges in (",".join(["0-"] * 1000), ",".join(f"{n}-{n}" for n in range(900)), "5-1", "-0", "x"):
            answer = get(visitor, "0", headers={"Range": "bytes=" + ranges})
            self.assertIn(answer.status, (200, 206, 416), ranges[:9])
            self.assertLess(len(answer.body), 3 << 20)

    def test_thumbnails(self):
        drawing = b'<svg xmlns="http://www.w3.org/2000/svg" width="9" height="9"><image href="/etc/passwd"/></svg>'
        hostile = {"broken.png": b"\x89PNG\r\n\x1a\nno picture", "broken.jpg": b"\xff\xd8\xff\xe0" + bytes(9),
                   "drawing.png": drawing, "bomb.png": bomb(200_000), "archive.png": b"PK\3\4" + bytes(99),
                   "empty.png": b""}
        for name, content in hostile.items():
            ALICE.put("pictures/" + name, content)
        with open(ALICE.path("Coast/Dawn.png"), "rb") as file:
            ALICE.put("pictures/good.png", file.read())
        ALICE.put("pictures/a.txt")
        visitor = ALICE.visit("pictures")
        for name, status in {"good.png": 200, "a.txt": 404, **dict.fromkeys(hostile, 404)}.items():
            with self.subTest(name):
                self.assertEqual([status] * 2, [get(visitor, f"0/{name}", "thumbnail").status for _ in range(2)])
        good = get(visitor, "0/good.png", "thumbnail").body
        self.assertTrue(good.startswith(b"\xff\xd8"))
        # A picture that cost five seconds in vain is not tried again for an hour, even if it has become a good one
        # that can't be told from it.
        bad = ALICE.path("pictures/bomb.png")
        before = os.stat(bad)
        with open(ALICE.path("Coast/Dawn.png"), "rb") as source, open(bad, "r+b") as file:
            file.write(source.read().ljust(before.st_size, b"\0"))
        os.truncate(bad, before.st_size)
        os.utime(bad, ns=(before.st_atime_ns, before.st_mtime_ns))
        self.assertEqual(get(visitor, "0/bomb.png", "thumbnail").status, 404)
        for kept in glob.glob(DEMO.path("/usr/velt/var/spool/files/thumbs/*")):
            if os.path.getsize(kept) == 0:
                os.utime(kept, (time.time() - 3700,) * 2)
        self.assertEqual(get(visitor, "0/bomb.png", "thumbnail").status, 200)


if __name__ == "__main__":
    unittest.main()
