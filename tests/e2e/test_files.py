"""Files by link: who may see which file, hostile paths, names and symbolic links, archives."""

import contextlib
import io
import json
import os
import subprocess
import threading
import unittest
import zipfile

from demo import Demo
from shared_files import FILES, LINK, Shared, ask, code, get, listed, query

SECRET = b"not for visitors"
NAMES = [b'quote"s\\and%25.txt', b"line\nbreak.txt", b"no\xff\xfeutf8.txt", "\u202egpj.exe".encode(),
         "Über für «alle».txt".encode(), b"n" * 251 + b".txt", b"<b>bold.txt", b"..hidden", b"-rf", b" "]


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

    def test_an_owner_finds_by_name_what_the_account_may_read(self):
        for name in ("find/plan.txt", "find/deep/er/Ground PLAN.md", "find/deep/planks/a", "find/locked/plan.txt",
                     "find/100%plan"):
            ALICE.put(name)
        os.chmod(ALICE.path("find/locked"), 0)
        os.symlink("/etc", ALICE.path("find/planet"))

        def found(text, **params):
            data = DEMO.data(FILES, "find", {"root": "home", "text": text, **params})
            return [e["path"].removeprefix("find/") for e in data["entries"]], data["complete"]

        everything = ["100%25plan", "plan.txt", "deep/planks", "deep/er/Ground PLAN.md"]
        self.assertEqual((everything, True), found("pLaN"))
        self.assertEqual((everything[:2], False), found("plan", limit=2))
        self.assertEqual((everything[:1], True), found("%25plan"))
        for text in ("..", "etc/", "find/plan"):
            self.assertEqual(([], True), found(text))
        self.assertEqual(2000, code(DEMO.call(FILES, "find", {"root": "none", "text": "plan"})))


if __name__ == "__main__":
    unittest.main()
