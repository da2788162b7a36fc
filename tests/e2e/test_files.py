"""Files and folders by link: who sees what, whatever paths, names and links look like; downloads, archives, uploads."""

import contextlib
import hashlib
import json
import os
import shutil
import socket
import subprocess
import threading
import time
import unittest
import urllib.parse
import zipfile

from demo import SHARING, Demo
from webdriver import Browser

DEMO = None
FILES, LINK = "VELT.Files", "VELT.Files.Link"
SECRET = b"not for visitors"
NAMES = [b'quote"s\\and%25.txt', b"line\nbreak.txt", b"no\xff\xfeutf8.txt", "\u202egpj.exe".encode(),
         "Über für «alle».txt".encode(), b"n" * 251 + b".txt", b"<b>bold.txt", b"..hidden", b"-rf", b" "]


def setUpModule():
    global DEMO, HOME
    DEMO = Demo()
    HOME = DEMO.path("/usr/velt/var/files/alice")


def tearDownModule():
    DEMO.stop()


def put(path, content=b"content", mode=0o640):
    """Writes a file of alice's that the web server may read; `path` is below her folder."""
    full = os.path.join(os.fsencode(HOME), os.fsencode(path))
    os.makedirs(os.path.dirname(full), exist_ok=True)
    with open(full, "wb") as file:
        file.write(content)
    os.chmod(full, mode)
    folder = os.stat(HOME)
    while full != os.fsencode(HOME):
        if os.geteuid() == 0:
            os.chown(full, folder.st_uid, folder.st_gid)
        full = os.path.dirname(full)


def share(*items, upload=None, account="alice", **fields):
    app = {"root": "home", "items": list(items), **({} if upload is None else {"upload": upload})}
    return DEMO.create(account, project_name="files", **{"app": app, **fields})


def visit(*items, **fields):
    visitor = DEMO.visitor(share(*items, **fields))
    assert visitor.login()["success"]
    return visitor


def code(answer):
    return 0 if answer["success"] else answer["error"]["code"]


def ask(visitor, method, **params):
    return visitor.call(LINK, method, params)


def query(method, **params):
    return "/webapi?" + urllib.parse.urlencode({"api": LINK, "version": 1, "method": method, **params})


def get(visitor, path, method="get", headers=None, **params):
    return visitor.request("GET", query(method, path=path, **params), headers=headers)


def listed(visitor, path, **params):
    return [entry["name"] for entry in ask(visitor, "list", path=path, **params)["data"]["entries"]]


def send(visitor, upload, offset, piece):
    return visitor.request("POST", query("upload_piece", upload=upload, offset=offset), piece,
                           {"Content-Type": "application/octet-stream"}).json


class Owner(unittest.TestCase):
    def test_sees_and_shares_what_the_account_may_read(self):
        put("own/a.txt")
        put("own/locked/b.txt")
        put("own/other.txt")
        os.chown(os.path.join(HOME, "own/other.txt"), 0, 0)
        os.chown(os.path.join(HOME, "own/locked"), 0, 0)
        os.chmod(os.path.join(HOME, "own/locked"), 0o700)
        self.assertEqual([{"name": "home", "title": "My files"}], DEMO.data(FILES, "roots")["roots"])
        names = [e["path"] for e in DEMO.data(FILES, "list", {"root": "home", "path": "own"})["entries"]]
        self.assertEqual(["own/a.txt"], names)
        link = share("own/a.txt", "own/gone.txt", "own/other.txt")
        items = DEMO.data(FILES, "describe", {"sharing_id": link})["items"]
        self.assertEqual([("a.txt", False), ("gone.txt", True), ("other.txt", True)],
                         [(item["name"], item["missing"]) for item in items])
        self.assertEqual(3, len(DEMO.data(FILES, "describe", {"sharing_id": link}, "admin")["items"]))
        self.assertEqual(1007, code(DEMO.call(FILES, "describe", {"sharing_id": link}, "bob")))
        for name, params, wanted in [("another's", {"root": "home", "path": "../alice/own"}, 2001),
                                     ("a file", {"root": "home", "path": "own/a.txt"}, 2001),
                                     ("no root", {"root": "none"}, 2000), ("limit", {"root": "home", "limit": 5000}, 120)]:
            with self.subTest(name):
                self.assertEqual(wanted, code(DEMO.call(FILES, "list", params, "bob")))
        visitor = visit("own/a.txt", "own/gone.txt", "own/other.txt")
        self.assertEqual(["a.txt"], listed(visitor, ""))
        self.assertEqual([200, 404, 404], [get(visitor, str(n)).status for n in range(3)])

    def test_what_a_link_says_is_not_believed(self):
        put("own/a.txt")
        for name, app in [("another's folder", {"root": "home", "items": ["../bob"]}),
                          ("escaped", {"root": "home", "items": ["%2e%2e/bob"]}),
                          ("absolute", {"root": "home", "items": ["/etc"]}), ("no items", {"root": "home", "items": []}),
                          ("no list", {"root": "home", "items": "own"}), ("no text", {"root": "home", "items": [1]}),
                          ("no root", {"root": "none", "items": ["own"]}), ("no data", {})]:
            with self.subTest(name):
                visitor = visit(app=app)
                self.assertIn(code(ask(visitor, "list", path="0")), (2000, 2003))
                self.assertEqual(404, get(visitor, "0").status)
        self.assertEqual(404, get(visit("own/a.txt", account="bob"), "0").status)  # his root has none


class Paths(unittest.TestCase):
    def setUp(self):
        put("in/sub/a.txt")
        put("secret.txt", SECRET)
        put("out/secret.txt", SECRET)
        put("in/locked.txt", SECRET, 0o000)
        for name, target in (("link.txt", "../secret.txt"), ("linked", "../out"), ("abs", "/etc/passwd")):
            with contextlib.suppress(FileExistsError):
                os.symlink(target, os.path.join(HOME, "in", name))
        with contextlib.suppress(FileExistsError):
            os.mkfifo(os.path.join(HOME, "in/fifo"), 0o666)
        self.visitor = visit("in")

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
                    self.assertIn(code(ask(self.visitor, "list", path=path)), (2001, 2002))
        self.assertEqual(["sub"], listed(self.visitor, "0"))
        self.assertEqual(b"content", get(self.visitor, "0/sub/a.txt").body)
        self.assertEqual(b"content", get(self.visitor, "0/%73ub/a.txt").body)  # another spelling of the same

    def test_a_folder_that_becomes_a_link_meanwhile(self):
        put("swapped/swap/secret.txt", b"content")
        visitor = visit("swapped")
        folder, kept, link = (os.path.join(HOME, "swapped", name) for name in ("swap", "kept", "to-out"))
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

    def test_names_of_all_kinds_are_told_apart_and_kept_harmless(self):
        for number, name in enumerate(NAMES):
            put(b"names/" + name, b"%d" % number)
        visitor = visit("names")
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

    def zip_of(self, visitor):
        path = os.path.join(DEMO.state, "test.zip")
        with open(path, "wb") as file:
            file.write(visitor.request("GET", query("zip")).body)
        checked = subprocess.run(["unzip", "-tq", path], capture_output=True, check=False)
        self.assertEqual(0, checked.returncode, checked.stdout)
        return zipfile.ZipFile(path)

    def test_what_a_browser_would_run_is_only_stored(self):
        for name, kind, shown in (("x.html", "application/octet-stream", "attachment"),
                                  ("x.svg", "application/octet-stream", "attachment"),
                                  ("x.xml", "application/octet-stream", "attachment"),
                                  ("x.txt", "text/plain; charset=utf-8", "inline"), ("x.png", "image/png", "inline"),
                                  ("x.PDF", "application/pdf", "inline")):
            put("types/" + name, b"<script>alert(1)</script>")
            with self.subTest(name):
                headers = get(visit("types/" + name), "0", show="true").headers
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
                put(f"moving/{number % 50}.txt")
                with contextlib.suppress(FileNotFoundError):
                    os.unlink(os.path.join(HOME, f"moving/{(number + 25) % 50}.txt"))

        put("moving/stays.txt")
        visitor = visit("moving")
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
            put("order/" + name, b"x" * size)
        put("order/z/x")
        visitor = visit("order")
        for params, wanted in (({}, "z A.txt b.txt c.md"), ({"sort_direction": "DESC"}, "z c.md b.txt A.txt"),
                               ({"sort_by": "size"}, "z A.txt c.md b.txt"), ({"sort_by": "type"}, "z c.md A.txt b.txt"),
                               ({"offset": 1, "limit": 2}, "A.txt b.txt"), ({"offset": 9}, "")):
            with self.subTest(params):
                self.assertEqual(wanted.split(), listed(visitor, "0", **params))


class Downloads(unittest.TestCase):
    def test_each_request_asks_the_link_anew(self):
        put("ends/a.txt", b"0123456789")
        for name, change, status in (("disabled", {"enabled": False}, 404), ("expired", {"expire_at": "2020-01-01 00:00:00"}, 404),
                                     ("another password", {"protect_type": "password", "protect_password": "new"}, 403),
                                     ("deleted", None, 404)):
            with self.subTest(name):
                visitor = DEMO.visitor(share("ends", protect_type="password", protect_password="old"))
                self.assertEqual(403, get(visitor, "0/a.txt").status)
                visitor.login(password="old")
                first = get(visitor, "0/a.txt", headers={"Range": "bytes=0-4"})
                self.assertEqual((206, b"01234"), (first.status, first.body))
                resume = {"Range": "bytes=5-", "If-Range": first.headers["etag"]}
                self.assertEqual((206, b"56789"), (lambda a: (a.status, a.body))(get(visitor, "0/a.txt", headers=resume)))
                ids = {"sharing_id": visitor.link_id, "project_name": "files"}
                DEMO.data(SHARING, "set" if change else "delete", {**ids, **(change or {})})
                for method in ("get", "zip"):
                    self.assertEqual(status, get(visitor, "0/a.txt", method, headers=resume).status)
                for method in ("list", "thumbnail", "upload_begin", "upload_state"):
                    params = {"path": "0", "name": "x", "size": 1, "upload": "0" * 32}
                    self.assertEqual(105, code(ask(visitor, method, **params)))

    def test_a_download_without_a_page_is_a_visit(self):
        put("ends/a.txt", b"0123456789")
        visitor = DEMO.visitor(share("ends", expire_times=1))
        first = visitor.request("GET", query("get", path="0/a.txt"))
        self.assertEqual((200, 1), (first.status, len(first.set_cookies)))
        self.assertEqual([200, 200], [get(visitor, "0/a.txt").status, visitor.request("GET", query("zip")).status])
        self.assertEqual(410, get(DEMO.visitor(visitor.link_id), "0/a.txt").status)
        self.assertEqual(1, DEMO.data(SHARING, "get", {"sharing_id": visitor.link_id})["visits"])
        foreign = visitor.request("GET", query("get", path="0/a.txt"), headers={"Sec-Fetch-Site": "cross-site"})
        self.assertNotIn(b"0123", foreign.body)

    def slow(self, count, path):
        """Connections that have asked for an answer and take only its beginning."""
        connections = []
        for _ in range(count):
            connection = socket.create_connection(("127.0.0.1", DEMO.port))
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            connection.sendall(f"GET {path} HTTP/1.1\r\nHost: 127.0.0.1:{DEMO.port}\r\n\r\n".encode())
            connections.append(connection)
        for connection in connections:
            self.assertTrue(connection.recv(12).endswith(b"200"))
        return connections

    def test_slow_readers_keep_nobody_waiting(self):
        put("large/a.bin", os.urandom(1 << 20) * 32)
        link = share("large", enable_match_ip=False)
        for count, method in ((50, "get"), (10, "zip")):
            path = f"/sharing/{link}" + query(method, path="0/a.bin")
            with self.subTest(method), contextlib.ExitStack() as stack:
                # Of the archives as many as there are workers for them begin, the others wait.
                for connection in self.slow(min(count, 50 if method == "get" else 8), path):
                    stack.callback(connection.close)
                for _ in range(20):
                    visitor = visit("large")
                    self.assertEqual(["a.bin"], listed(visitor, "0"))
                    self.assertEqual(200, visitor.page().status)
                    self.assertEqual(206, get(visitor, "0/a.bin", headers={"Range": "bytes=0-9"}).status)
        spool = DEMO.path("/usr/velt/var/spool/files/out")
        deadline = time.monotonic() + 20
        while os.listdir(spool):
            self.assertLess(time.monotonic(), deadline, os.listdir(spool))
            time.sleep(0.05)

    def test_small_pictures(self):
        put("pictures/broken.png", b"\x89PNG\r\n\x1a\nno picture")
        with open(os.path.join(HOME, "Coast/Dawn.png"), "rb") as file:
            put("pictures/good.png", file.read())
        put("pictures/a.txt")
        visitor = visit("pictures")
        self.assertEqual([200, 200, 404, 404], [get(visitor, f"0/{name}", "thumbnail").status
                                               for name in ("good.png", "good.png", "broken.png", "a.txt")])
        self.assertTrue(get(visitor, "0/good.png", "thumbnail").body.startswith(b"\xff\xd8"))


class Uploads(unittest.TestCase):
    def inbox(self, **rule):
        folder = f"inbox-{self.id().rsplit('.', 1)[-1]}"
        shutil.rmtree(os.path.join(HOME, folder), ignore_errors=True)
        put(folder + "/a.txt", b"was here")
        return os.path.join(HOME, folder), visit(folder, upload={"max_size": 1 << 30, **rule})

    def begin(self, visitor, name, size):
        return ask(visitor, "upload_begin", name=name, size=size)

    def test_a_file_comes_in_pieces_and_is_seen_when_whole(self):
        folder, visitor = self.inbox()
        content = os.urandom(9 << 20)
        upload = self.begin(visitor, "a.txt", len(content))["data"]["upload"]
        self.assertEqual({"offset": 4 << 20}, send(visitor, upload, 0, content[:4 << 20])["data"])
        for offset in (0, 5 << 20):
            self.assertEqual({"code": 2007, "errors": {"offset": 4 << 20}},
                             send(visitor, upload, offset, content[:100])["error"])
        self.assertEqual(["a.txt"], os.listdir(folder))
        self.assertEqual({"offset": 4 << 20, "size": 9 << 20}, ask(visitor, "upload_state", upload=upload)["data"])
        self.assertEqual(106, code(send(visitor, upload, 4 << 20, content[4 << 20:] + b"x")))
        send(visitor, upload, 4 << 20, content[4 << 20:8 << 20])
        self.assertEqual(2005, code(send(visitor, upload, 8 << 20, content[8 << 20:] + b"x")))
        self.assertEqual("a (2).txt", send(visitor, upload, 8 << 20, content[8 << 20:])["data"]["name"])
        self.assertEqual(["a (2).txt", "a.txt"], sorted(os.listdir(folder)))
        with open(os.path.join(folder, "a (2).txt"), "rb") as file:
            self.assertEqual(content, file.read())
        with open(os.path.join(folder, "a.txt"), "rb") as file:
            self.assertEqual(b"was here", file.read())
        status = os.stat(os.path.join(folder, "a (2).txt"))
        self.assertEqual((os.stat(HOME).st_uid, os.stat(HOME).st_gid, 0o640),
                         (status.st_uid, status.st_gid, status.st_mode & 0o777))
        self.assertEqual(200, get(visitor, "0/a (2).txt").status)
        self.assertEqual(2008, code(send(visitor, upload, 9 << 20, b"x")))
        self.assertEqual("empty", self.begin(visitor, "empty", 0)["data"]["name"])

    def test_limits_and_names(self):
        folder, visitor = self.inbox(max_files=2, max_size=10)
        for name, size, wanted in (("large", 11, 2005), ("", 1, 2001), ("..", 1, 2001), ("a/b", 1, 2001), ("a%2Fb", 1, 2001),
                                   ("n" * 256, 1, 2001), ("one", 10, 0), ("one", 0, 0), ("three", 1, 2005), ("x", -1, 120)):
            with self.subTest(name[:9], size=size):
                self.assertEqual(wanted, code(self.begin(visitor, name, size)))
        self.assertEqual(["a.txt", "one"], sorted(os.listdir(folder)))
        for rule, item in ((None, "Coast"), ({"max_size": "all"}, "Coast"), ({}, "Coast/Dawn.png")):
            self.assertIn(code(self.begin(visit(item, upload=rule), "x", 1)), (2004, 2005))
        for name in ("0" * 32, "../" + "0" * 29, "g" * 32, "done"):
            self.assertEqual(2008, code(send(visitor, name, 0, b"x")))
        long = self.inbox()[1]
        names = [self.begin(long, "ü" * 126 + ".t", 0)["data"]["name"] for _ in range(2)]
        self.assertEqual(["ü" * 126 + ".t", "ü" * 124 + " (2).t"], names)

    def test_a_box_to_drop_into_shows_nothing(self):
        _, visitor = self.inbox(only=True)
        self.assertEqual("new.txt", self.begin(visitor, "new.txt", 0)["data"]["name"])
        self.assertEqual([], listed(visitor, ""))
        self.assertEqual(2001, code(ask(visitor, "list", path="0")))
        self.assertEqual([404] * 3, [get(visitor, "0/a.txt", method).status for method in ("get", "zip", "thumbnail")])

    @unittest.skipUnless(os.geteuid() == 0, "mounts")
    def test_a_full_disk_leaves_the_upload_where_it_stood(self):
        tiny = "/usr/velt/var/tiny"
        inside = ["nsenter", "-t", str(DEMO.pid), "-m", "-r"]
        owner = os.stat(HOME)
        script = (f"mkdir -p {tiny} && mount -t tmpfs -o size=6m none {tiny} && mkdir -p {tiny}/home {tiny}/spool && "
                  f"chown {owner.st_uid}:{owner.st_gid} {tiny}/home && chmod 711 {tiny}/spool")
        subprocess.run([*inside, "sh", "-c", script], check=True, cwd="/")
        path = DEMO.path("/usr/velt/etc/files.json")
        with open(path, encoding="utf-8") as file:
            before = file.read()
        try:
            with open(path, "w", encoding="utf-8") as file:
                json.dump({"roots": [{"name": "home", "path": tiny + "/home"}], "spool": tiny + "/spool"}, file)
            visitor = visit("", upload={"max_files": 9})
            piece = os.urandom(4 << 20)
            begun = self.begin(visitor, "large", 8 << 20)
            self.assertTrue(begun["success"], begun)
            upload = begun["data"]["upload"]
            send(visitor, upload, 0, piece)
            self.assertEqual(2006, code(send(visitor, upload, 4 << 20, piece)))
            self.assertEqual(4 << 20, ask(visitor, "upload_state", upload=upload)["data"]["offset"])
            self.assertEqual([], listed(visitor, "0"))
            self.assertEqual("small", self.begin(visitor, "small", 0)["data"]["name"])
        finally:
            with open(path, "w", encoding="utf-8") as file:
                file.write(before)
            subprocess.run([*inside, "umount", "-l", tiny], check=False)


class Pages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.browser = cls.enterClassContext(Browser())

    def test_a_visitor_goes_through_looks_and_downloads(self):
        put("page/sub/deep.txt", b"deep down <b>not bold</b>")
        for number in range(120):
            put(f"page/{number:03}.bin")
        put(b"page/\xff\xe2\x80\xae.txt", b"odd name")
        browser = self.browser
        browser.open(f"{DEMO.url}/sharing/{share('page')}")
        browser.wait_text("100 of 122 shown")
        browser.find("#files-more").click()
        browser.wait(lambda: len(browser.find_all(".files > li")) == 122)
        odd = browser.find('[data-path="0/%FF%E2%80%AE.txt"] .name' if browser.find_all(
            '[data-path="0/%FF%E2%80%AE.txt"]') else '.files > li:last-child .name')
        self.assertNotIn("\u202e", odd.text)
        odd.click()
        browser.wait_text("odd name", "#preview pre")
        browser.find("#preview .dialog-actions button").click()
        browser.find('[data-path="0/sub"] button.name').click()
        browser.wait_for('[data-path="0/sub/deep.txt"]')
        browser.find('[data-path="0/sub/deep.txt"] button.name').click()
        browser.wait_text("<b>not bold</b>", "#preview pre")
        browser.find("#preview .dialog-actions button").click()
        size = browser.script("""const link = document.querySelector('[data-path="0/sub/deep.txt"] .get').href;
            return fetch(link).then((answer) => answer.text()).then((text) => text.length);""")
        self.assertEqual(25, size)
        browser.script("history.back()")
        browser.wait_for('[data-path="0/sub"]')
        self.assertEqual([], [line for line in browser.console() if "favicon" not in str(line)])

    def test_twenty_files_arrive_though_the_connection_is_cut(self):
        folder = os.path.join(DEMO.state, "to-send")
        os.makedirs(folder, exist_ok=True)
        sums = {}
        for number in range(20):
            content = os.urandom((6 << 20) if number % 5 == 0 else 1000 + number)
            sums[f"file {number}.bin"] = hashlib.sha256(content).hexdigest()
            with open(os.path.join(folder, f"file {number}.bin"), "wb") as file:
                file.write(content)
        shutil.rmtree(os.path.join(HOME, "dropped"), ignore_errors=True)
        put("dropped/x")
        browser = self.browser
        browser.open(f"{DEMO.url}/sharing/{share('dropped', upload={'only': True, 'max_size': 1 << 30})}")
        browser.wait_for("#upload-files").type("\n".join(os.path.join(folder, name) for name in sums))
        conditions = {"latency": 0, "downloadThroughput": -1, "uploadThroughput": -1}
        browser.devtools("Network.enable")
        for done in (2, 9):
            browser.wait(lambda: len(browser.find_all('.uploads li[data-state="done"]')) >= done)
            browser.devtools("Network.emulateNetworkConditions", offline=True, **conditions)
            browser.wait_text("Waiting for the connection", ".uploads")
            browser.devtools("Network.emulateNetworkConditions", offline=False, **conditions)
        browser.wait(lambda: len(browser.find_all('.uploads li[data-state="done"]')) == 20, seconds=60)
        arrived = {}
        for name in os.listdir(os.path.join(HOME, "dropped")):
            with open(os.path.join(HOME, "dropped", name), "rb") as file:
                arrived[name] = hashlib.sha256(file.read()).hexdigest()
        arrived.pop("x")
        self.assertEqual(sums, arrived)

    def test_an_owner_chooses_and_sees_what_is_gone(self):
        put("chosen/one.txt")
        put("chosen/two.txt")
        browser = self.browser
        browser.open(DEMO.url + "/", DEMO.login("alice"))
        browser.wait(lambda: browser.find("#share-files").shown())
        browser.find("#share-files").click()
        browser.wait_for('#pick-list [data-path="chosen"] button').click()
        for name in ("one", "two"):
            browser.wait_for(f'#pick-list [data-path="chosen/{name}.txt"] input').click()
        browser.find("#pick-next").click()
        browser.wait(lambda: browser.find("#edit [type=submit]").shown())
        browser.find("#edit [type=submit]").click()
        browser.wait_text("chosen › two.txt", "#share-contents")
        address = browser.find("#share-url").property("value")
        browser.find("#share [data-close]").click()
        os.unlink(os.path.join(HOME, "chosen/two.txt"))
        browser.wait_for("td.qr button").click()
        browser.wait_text("two.txt (not there any more)", "#share-contents")
        visitor = DEMO.visitor(address.rsplit("/", 1)[-1])
        self.assertTrue(visitor.login()["success"])
        self.assertEqual(["one.txt"], listed(visitor, ""))


if __name__ == "__main__":
    unittest.main()
