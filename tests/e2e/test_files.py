"""Files by link: who may see which file, hostile paths, names and symbolic links, downloads and archives."""

import contextlib
import glob
import io
import json
import os
import socket
import struct
import subprocess
import threading
import time
import unittest
import zipfile
import zlib

from demo import SHARING, Demo, wait_until
from shared_files import FILES, LINK, Shared, ask, code, get, listed, query

SECRET = b"not for visitors"
NAMES = [b'quote"s\\and%25.txt', b"line\nbreak.txt", b"no\xff\xfeutf8.txt", "\u202egpj.exe".encode(),
         "Über für «alle».txt".encode(), b"n" * 251 + b".txt", b"<b>bold.txt", b"..hidden", b"-rf", b" "]


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


class Owner(unittest.TestCase):
    def test_sees_and_shares_what_the_account_may_read(self):
        ALICE.put("own/a.txt")
        ALICE.put("own/locked/b.txt")
        ALICE.put("own/other.txt")
        os.chown(ALICE.path("own/other.txt"), 0, os.stat(ALICE.home).st_gid)  # the service may read it
        os.chown(ALICE.path("own/locked"), 0, 0)
        os.chmod(ALICE.path("own/locked"), 0o700)
        self.assertEqual([{"name": "home", "title": "My files"}], DEMO.data(FILES, "roots")["roots"])
        names = [e["path"] for e in DEMO.data(FILES, "list", {"root": "home", "path": "own"})["entries"]]
        self.assertEqual(["own/a.txt"], names)
        link = ALICE.share("own/a.txt", "own/gone.txt", "own/other.txt")
        items = DEMO.data(FILES, "describe", {"sharing_id": link})["items"]
        self.assertEqual([("a.txt", False), ("gone.txt", True), ("other.txt", True)],
                         [(item["name"], item["missing"]) for item in items])
        self.assertEqual(3, len(DEMO.data(FILES, "describe", {"sharing_id": link}, "admin")["items"]))
        self.assertEqual(1007, code(DEMO.call(FILES, "describe", {"sharing_id": link}, "bob")))
        for name, params, wanted in [("another's", {"root": "home", "path": "../alice/own"}, 2001),
                                     ("a file", {"root": "home", "path": "own/a.txt"}, 2001),
                                     ("no root", {"root": "none"}, 2000),
                                     ("limit", {"root": "home", "limit": 5000}, 120)]:
            with self.subTest(name):
                self.assertEqual(wanted, code(DEMO.call(FILES, "list", params, "bob")))
        visitor = ALICE.visit("own/a.txt", "own/gone.txt", "own/other.txt")
        self.assertEqual(["a.txt"], listed(visitor, ""))
        self.assertEqual([200, 404, 404], [get(visitor, str(n)).status for n in range(3)])

    def test_a_links_data_is_not_trusted(self):
        ALICE.put("own/a.txt")
        for name, wanted, app in [("another's folder", 2003, {"root": "home", "items": ["../bob"]}),
                                  ("escaped", 2003, {"root": "home", "items": ["%2e%2e/bob"]}),
                                  ("absolute", 2003, {"root": "home", "items": ["/etc"]}),
                                  ("no items", 2003, {"root": "home", "items": []}),
                                  ("no list", 2003, {"root": "home", "items": "own"}),
                                  ("no text", 2003, {"root": "home", "items": [1]}),
                                  ("no root", 2000, {"root": "none", "items": ["own"]}), ("no data", 2003, {})]:
            with self.subTest(name):
                visitor = ALICE.visit(app=app)
                self.assertEqual(wanted, code(ask(visitor, "list", path="0")))
                self.assertEqual(404, get(visitor, "0").status)
        self.assertEqual(404, get(ALICE.visit("own/a.txt", account="bob"), "0").status)  # his root has none


class Paths(unittest.TestCase):
    def setUp(self):
        ALICE.put("in/sub/a.txt")
        ALICE.put("secret.txt", SECRET)
        ALICE.put("out/secret.txt", SECRET)
        ALICE.put("in/locked.txt", SECRET, 0o000)
        for name, target in (("link.txt", "../secret.txt"), ("linked", "../out"), ("abs", "/etc/passwd")):
            with contextlib.suppress(FileExistsError):
                os.symlink(target, ALICE.path("in", name))
        with contextlib.suppress(FileExistsError):
            os.mkfifo(ALICE.path("in/fifo"), 0o666)
        self.visitor = ALICE.visit("in")

    def test_nothing_leads_out_of_what_is_shared(self):
        rows = ["", "1", "-1", "00x", "in", "/etc/passwd", "0/", "0//sub", "0/.", "0/..", "0/../secret.txt",
                "0/sub/../../secret.txt", "0/%2e%2e/secret.txt", "0/..%2fsecret.txt", "0/%2E./secret.txt",
                "0/sub%2fa.txt", "0/%252e%252e/secret.txt", "0/a%00", "0/%", "0/%4", "0/%zz", "0/link.txt",
                "0/linked/secret.txt", "0/linked", "0/abs", "0/fifo", "0/locked.txt", "0/sub/a.txt/x", "0/" + "n" * 256,
                "0" + "/sub" * 2000, "0/proc/self/environ", "0\\..\\secret.txt"]
        for path in rows:
            with self.subTest(path[:60]):
                for method, params in (("get", {}), ("zip", {"paths": json.dumps([path])}), ("thumbnail", {})):
                    answer = get(self.visitor, path, method, **params)
                    self.assertIn(answer.status, (400, 404, 414, 431) if len(path) > 4000 else (404,), method)
                    self.assertNotIn(SECRET, answer.body)
                if path:
                    self.assertEqual(2001, code(ask(self.visitor, "list", path=path)))
        self.assertEqual(["sub"], listed(self.visitor, "0"))
        self.assertEqual(b"content", get(self.visitor, "0/sub/a.txt").body)
        self.assertEqual(b"content", get(self.visitor, "0/%73ub/a.txt").body)  # another spelling of the same

    @unittest.skipUnless(os.geteuid() == 0, "files of others")
    def test_an_archive_has_what_the_owner_may_read_and_no_more(self):
        for path in ("all/a.txt", "all/-rf/--help", "all/deep/" + "d/" * 300 + "e"):
            ALICE.put(path)
        ALICE.put("theirs", SECRET)
        os.chown(ALICE.path("theirs"), 0, 0)
        for make, *arguments in ((os.symlink, ".", ALICE.path("all/loop")), (os.symlink, "/etc", ALICE.path("all/etc")),
                                 (os.mkfifo, ALICE.path("all/fifo"), 0o666),
                                 (os.link, ALICE.path("theirs"), ALICE.path("all/theirs")),
                                 (os.mknod, ALICE.path("all/zero"), 0o20666, os.makedev(1, 5))):
            make(*arguments)
        with self.zip_of(ALICE.visit("all")) as archive:
            names = {name for name in archive.namelist() if not name.endswith("/")}
        self.assertEqual({"all/a.txt", "all/-rf/--help", "all/deep/" + "d/" * 300 + "e"}, names)
        ALICE.put("all/a.txt", b"closed", 0o000)  # the owner's last right goes
        visitor = ALICE.visit("all")
        self.assertEqual((404, []), (get(visitor, "0/a.txt").status, [n for n in listed(visitor, "0") if n == "a.txt"]))

    def test_a_folder_that_becomes_a_link_meanwhile(self):
        ALICE.put("swapped/swap/secret.txt", b"content")
        visitor = ALICE.visit("swapped")
        folder, kept, link = (ALICE.path("swapped", name) for name in ("swap", "kept", "to-out"))
        with contextlib.suppress(FileExistsError):
            os.symlink("../out", link)
        stop = threading.Event()

        def swap():
            while not stop.is_set():
                os.rename(folder, kept)
                os.rename(link, folder)
                os.rename(folder, link)
                os.rename(kept, folder)

        thread = threading.Thread(target=swap)
        thread.start()
        try:
            seen = set()
            for _ in range(300):
                for method, params in (("get", {}), ("zip", {"paths": '["0/swap"]'})):
                    answer = get(visitor, "0/swap/secret.txt", method, **params)
                    self.assertNotIn(SECRET, answer.body)
                    seen.add((method, answer.status))
                self.assertIn(code(ask(visitor, "list", path="0/swap")), (0, 2001))
        finally:
            stop.set()
            thread.join()
        self.assertLess({("get", 200), ("get", 404)}, seen)

    def test_names_of_all_kinds_are_distinct_and_harmless(self):
        for number, name in enumerate(NAMES):
            ALICE.put(b"names/" + name, b"%d" % number)
        visitor = ALICE.visit("names")
        entries = ask(visitor, "list", path="0")["data"]["entries"]
        self.assertEqual(len(NAMES), len(entries))
        contents = set()
        for entry in entries:
            with self.subTest(entry["name"][:40]):
                answer = get(visitor, entry["path"])
                self.assertEqual(200, answer.status)
                contents.add(int(answer.body))
                disposition = answer.headers["content-disposition"]
                self.assertRegex(disposition, r"^attachment; filename=\"[ !#-\[\]-~]*\"; filename\*=UTF-8''[\w.~%-]*$")
                self.assertEqual(-1, entry["name"].find("\n"))
        self.assertEqual(set(range(len(NAMES))), contents)
        with self.zip_of(visitor) as archive:
            self.assertEqual(len(NAMES) + 1, len(archive.namelist()))
            self.assertIsNone(archive.testzip())
            self.assertIn("names/Über für «alle».txt", archive.namelist())
            self.assertFalse([n for n in archive.namelist() if "\\" in n or ".." in n.split("/")])

    def zip_of(self, visitor, programs=(("unzip", "-tq"), ("bsdtar", "-tf"), ("7zz", "t")), **params):
        path = os.path.join(DEMO.state, "test.zip")
        with open(path, "wb") as file:
            file.write(visitor.request("GET", query("zip", **params)).body)
        for program in programs:
            checked = subprocess.run([*program, path], capture_output=True, check=False)
            self.assertEqual(0, checked.returncode, checked.stdout)
        return zipfile.ZipFile(path)

    def test_an_archive_is_whole_however_deep_and_has_each_name_once(self):
        ALICE.put("levels/a.txt")
        folder = os.open(ALICE.path("levels"), os.O_RDONLY)
        for level in range(200):  # far beyond the longest path that the system takes at once
            name = f"{level:03}-" + "n" * 96
            os.mkdir(name, dir_fd=folder)
            below = os.open(name, os.O_RDONLY, dir_fd=folder)
            os.close(os.open("file", os.O_CREAT | os.O_WRONLY, 0o640, dir_fd=below))
            os.close(folder)
            folder = below
        os.close(folder)
        subprocess.run(["chown", "-R", f"--reference={ALICE.home}", ALICE.path("levels")], check=True)
        with self.zip_of(ALICE.visit("levels"), [("bsdtar", "-tf")]) as archive:
            self.assertEqual(402, len(archive.namelist()))
            self.assertEqual(201, len({name for name in archive.namelist() if not name.endswith("/")}))
            self.assertIsNone(archive.testzip())
        for number, name in enumerate((b"a\\b", b"a_b", b"a\nb", b"a_b (2)", b"\xff", b"%FF", b"sub/a\\b", b"sub/a_b")):
            ALICE.put(b"equal/" + name, b"%d" % number)
        visitor = ALICE.visit("equal", "equal/sub", "equal")
        with self.zip_of(visitor) as archive:
            names = archive.namelist()
            self.assertEqual(len(set(names)), len(names))
            self.assertEqual((b"1", b"3", b"5", b"7"), tuple(archive.read("equal/" + name) for name in (
                "a_b", "a_b (2)", "%FF", "sub/a_b")))
            self.assertEqual({b"%d" % n for n in range(8)}, {archive.read(n) for n in names if not n.endswith("/")})
        # What is there twice, or within another, is in it once.
        for paths, wanted in ((["0/sub/a_b"] * 4000, {"a_b"}), (["0/gone", "0/a_b"], {"a_b"}),
                              (["0/sub/a_b", "1", "0/sub"], {"sub/", "sub/a_b", "sub/a_b (2)"})):
            answer = visitor.request("POST", "/stream", {"api": LINK, "version": 1, "method": "zip", "paths": paths})
            with zipfile.ZipFile(io.BytesIO(answer.body)) as archive:
                self.assertEqual(wanted, set(archive.namelist()))
                self.assertEqual(len(wanted), len(archive.namelist()))
        self.assertEqual(120, code(visitor.call(LINK, "zip", {"paths": ["0"] * 10001})))
        self.assertEqual([404] * 2, [get(ALICE.visit("none", "neither"), "", "zip", **params).status
                                     for params in ({}, {"paths": '["0", "1"]'})])

    def test_what_a_browser_would_run_is_only_stored(self):
        for name, kind, shown in (("x.html", "application/octet-stream", "attachment"),
                                  ("x.svg", "application/octet-stream", "attachment"),
                                  ("x.xml", "application/octet-stream", "attachment"),
                                  ("x.txt", "text/plain; charset=utf-8", "inline"), ("x.png", "image/png", "inline"),
                                  ("x.PDF", "application/pdf", "inline")):
            ALICE.put("types/" + name, b"<script>alert(1)</script>")
            with self.subTest(name):
                headers = get(ALICE.visit("types/" + name), "0", show="true").headers
                self.assertEqual((kind, "nosniff"), (headers["content-type"], headers["x-content-type-options"]))
                self.assertTrue(headers["content-disposition"].startswith(shown))
                self.assertIn("frame-ancestors" if kind == "application/pdf" else "sandbox",
                              headers["content-security-policy"])

    def test_listings_while_files_come_and_go(self):
        stop = threading.Event()

        def change():
            number = 0
            while not stop.is_set():
                number += 1
                ALICE.put(f"moving/{number % 50}.txt")
                with contextlib.suppress(FileNotFoundError):
                    os.unlink(ALICE.path(f"moving/{(number + 25) % 50}.txt"))

        ALICE.put("moving/stays.txt")
        visitor = ALICE.visit("moving")
        thread = threading.Thread(target=change)
        thread.start()
        try:
            for by in ("name", "size", "time", "type") * 20:
                names = listed(visitor, "0", sort_by=by, limit=1000)
                self.assertIn("stays.txt", names)
                self.assertEqual(len(set(names)), len(names))
        finally:
            stop.set()
            thread.join()

    def test_order_and_pages(self):
        for name, size in (("b.txt", 3), ("A.txt", 1), ("c.md", 2)):
            ALICE.put("order/" + name, b"x" * size)
        ALICE.put("order/z/x")
        visitor = ALICE.visit("order")
        for params, wanted in (({}, "z A.txt b.txt c.md"), ({"sort_direction": "DESC"}, "z c.md b.txt A.txt"),
                               ({"sort_by": "size"}, "z A.txt c.md b.txt"), ({"sort_by": "type"}, "z c.md A.txt b.txt"),
                               ({"offset": 1, "limit": 2}, "A.txt b.txt"), ({"offset": 9}, "")):
            with self.subTest(params):
                self.assertEqual(wanted.split(), listed(visitor, "0", **params))


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
