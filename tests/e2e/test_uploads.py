"""Uploads of visitors: in pieces, within limits, never over another file, complete or not at all."""

import fcntl
import glob
import os
import shutil
import time
import unittest
import urllib.parse
from concurrent.futures import ThreadPoolExecutor

from demo import SHARING, Demo, wait_until
from shared_files import FILES, Shared, SmallDisk, ask, code, files_of, get, listed, query


def setUpModule():
    global DEMO, ALICE
    DEMO = Demo()
    unittest.addModuleCleanup(DEMO.stop)
    ALICE = Shared(DEMO)


def send(visitor, upload, offset, piece):
    return visitor.request("POST", query("upload_piece", upload=upload, offset=offset), piece,
                           {"Content-Type": "application/octet-stream"}).json


def file_of(upload):
    path, = glob.glob(DEMO.path(f"/usr/velt/var/spool/files/open/*.{upload}"))
    return path


def count_waiting_for(file):
    """How many processes wait for a lock of the file (proc_locks(5))."""
    with open("/proc/locks", encoding="ascii") as locks:
        return sum("-> FLOCK" in lock and f":{os.fstat(file.fileno()).st_ino} " in lock for lock in locks)


class Uploads(unittest.TestCase):
    def inbox(self, **rule):
        folder = f"inbox-{self.id().rsplit('.', 1)[-1]}"
        shutil.rmtree(ALICE.path(folder), ignore_errors=True)
        ALICE.put(folder + "/a.txt", b"was here")
        return ALICE.path(folder), ALICE.visit(folder, upload={"max_size": 1 << 30, **rule})

    def begin(self, visitor, name, size):
        return ask(visitor, "upload_begin", name=name, size=size)

    def test_a_file_comes_in_pieces_and_appears_when_complete(self):
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
        self.assertEqual((os.stat(ALICE.home).st_uid, os.stat(ALICE.home).st_gid, 0o640),
                         (status.st_uid, status.st_gid, status.st_mode & 0o777))
        self.assertEqual(200, get(visitor, "0/a (2).txt").status)
        self.assertEqual(2008, code(send(visitor, upload, 9 << 20, b"x")))
        self.assertEqual({"offset": 9 << 20, "size": 9 << 20, "name": "a (2).txt"},
                         ask(visitor, "upload_state", upload=upload)["data"])
        self.assertEqual("empty", self.begin(visitor, "empty", 0)["data"]["name"])

    def test_a_state_that_waits_for_the_last_piece_gets_the_name(self):
        _, visitor = self.inbox()
        upload = self.begin(visitor, "new.txt", 5)["data"]["upload"]
        with open(file_of(upload), "rb") as file, ThreadPoolExecutor() as pool:
            fcntl.flock(file, fcntl.LOCK_EX)
            last = pool.submit(send, visitor, upload, 0, b"12345")
            wait_until(lambda: count_waiting_for(file) == 1)
            state = pool.submit(ask, visitor, "upload_state", upload=upload)
            wait_until(lambda: count_waiting_for(file) == 2)
            fcntl.flock(file, fcntl.LOCK_UN)
            self.assertEqual("new.txt", last.result()["data"]["name"])
            self.assertEqual({"offset": 5, "size": 5, "name": "new.txt"}, state.result()["data"])

    def test_calls_that_wait_for_the_last_piece_make_no_second_file(self):
        folder, visitor = self.inbox(max_files=1)
        upload = self.begin(visitor, "new", 5)["data"]["upload"]
        with open(file_of(upload), "rb") as file, ThreadPoolExecutor() as pool:
            fcntl.flock(file, fcntl.LOCK_EX)
            calls = []
            for offset, piece in ((0, b"12345"), (5, b"")):
                calls.append(pool.submit(send, visitor, upload, offset, piece))
                wait_until(lambda: count_waiting_for(file) == len(calls))
            fcntl.flock(file, fcntl.LOCK_UN)
            self.assertEqual([0, 2008], [code(call.result()) for call in calls])
        self.assertEqual(["a.txt", "new"], sorted(os.listdir(folder)))

    def test_a_folder_that_becomes_a_link_meanwhile(self):
        folder, visitor = self.inbox()
        elsewhere = folder + "-elsewhere"
        os.makedirs(elsewhere, exist_ok=True)
        upload = self.begin(visitor, "new", 5)["data"]["upload"]
        os.rename(folder, folder + "-kept")
        os.symlink(elsewhere, folder)
        self.assertEqual(2001, code(send(visitor, upload, 0, b"12345")))
        self.assertEqual(2001, code(self.begin(visitor, "other", 0)))
        self.assertEqual([], os.listdir(elsewhere))
        os.unlink(folder)
        os.rename(folder + "-kept", folder)
        self.assertEqual("new", send(visitor, upload, 5, b"")["data"]["name"])

    def test_limits_and_names(self):
        folder, visitor = self.inbox(max_files=2, max_size=10)
        for name, size, wanted in (("large", 11, 2005), ("", 1, 2001), (".", 1, 2001), ("..", 1, 2001),
                                   ("a/../b", 1, 2001), ("a/" * 17 + "b", 1, 2001),
                                   ("/a", 1, 2001), ("a%00b", 1, 2001), ("a\0b", 1, 106),
                                   ("a%2Fb", 1, 2001),
                                   ("n" * 256, 1, 2001), ("one", 10, 0), ("one", 0, 0), ("three", 1, 2005),
                                   ("x", -1, 120)):
            with self.subTest(name[:9], size=size):
                self.assertEqual(wanted, code(self.begin(visitor, name, size)))
        self.assertEqual(["a.txt", "one"], sorted(os.listdir(folder)))
        for limits, shown in (({}, {}), ({"max_size": 1 << 60, "max_files": 7}, {"max_files": 7})):
            link = ALICE.visit("Coast", upload=limits)
            self.assertEqual({"only": False, **shown}, ask(link, "list", path="")["data"]["upload"])
            described = DEMO.data(FILES, "describe", {"sharing_id": link.link_id})
            self.assertEqual({"only": False, **shown}, described["upload"])
        for wanted, rule, item in ((2004, None, "Coast"), (2005, {"max_size": "all"}, "Coast"),
                                   (2004, {}, "Coast/Dawn.png")):
            self.assertEqual(wanted, code(self.begin(ALICE.visit(item, upload=rule), "x", 1)))
        for name in ("0" * 32, "0" * 32 + "-1", "../" + "0" * 29 + "-1", "g" * 32 + "-1", "0" * 32 + "-g", "done"):
            self.assertEqual(2008, code(send(visitor, name, 0, b"x")))
        long = self.inbox()[1]
        names = [self.begin(long, "ü" * 126 + ".t", 0)["data"]["name"] for _ in range(2)]
        self.assertEqual(["ü" * 126 + ".t", "ü" * 124 + " (2).t"], names)

    def test_names_are_harmless_for_whatever_reads_the_folder(self):
        folder, visitor = self.inbox()
        rows = ((".htaccess", "_htaccess"), ("..hidden", "_.hidden"), ("a%0Ab%7F%1B", "a_b__"),
                ("\u202egpj.exe", "_gpj.exe"),
                ("a\u200e\u200f\u061c\u2066\u2069\u2028\u0085b", "a_______b"), ("Desktop.INI", "_Desktop.INI"),
                ("autorun.inf", "_autorun.inf"), ("%FF\xfc", "_\xfc"), ("-rf", "-rf"),
                ("Über שלום 👩‍👩‍👧.txt", "Über שלום 👩‍👩‍👧.txt"),
                (".htaccess", "_htaccess (2)"))
        self.assertEqual([wanted for _, wanted in rows],
                         [self.begin(visitor, name, 0)["data"]["name"] for name, _ in rows])
        self.assertEqual({"a.txt", *(wanted for _, wanted in rows)}, set(os.listdir(folder)))

    def test_the_owner_sees_and_removes_unfinished_uploads(self):
        folder, visitor = self.inbox()
        ids = [self.begin(visitor, name, 9)["data"]["upload"] for name in ("one", "two", "three")]
        send(visitor, ids[1], 0, b"12345")
        link = {"sharing_id": visitor.link_id}
        rows = {row["upload"]: row for row in DEMO.data(FILES, "describe", link)["unfinished"]}
        self.assertEqual([("one", 9, 0), ("two", 9, 5), ("three", 9, 0)],
                         [tuple(rows[each][key] for key in ("name", "size", "offset")) for each in ids])
        self.assertEqual(1007, code(DEMO.call(FILES, "upload_remove", link, "bob")))
        self.assertEqual(2008, code(DEMO.call(FILES, "upload_remove", {**link, "upload": "0" * 32 + "-9"})))
        DEMO.data(FILES, "upload_remove", {**link, "upload": ids[1]})
        self.assertEqual([0, 2008, 0], [code(ask(visitor, "upload_state", upload=each)) for each in ids])
        self.assertEqual([], files_of(DEMO, ids[1]))
        other = self.inbox()[1]
        self.assertEqual([2008] * 3, [code(ask(other, "upload_cancel", upload=each)) for each in (ids[0], "", "done")])
        self.assertEqual([0, 2008], [code(ask(visitor, "upload_cancel", upload=ids[2])) for _ in range(2)])
        self.assertEqual([], files_of(DEMO, ids[2]))
        DEMO.data(FILES, "upload_remove", link, "admin")
        self.assertEqual([], DEMO.data(FILES, "describe", link)["unfinished"])
        self.assertEqual(2008, code(send(visitor, ids[0], 0, b"123456789")))
        self.assertEqual(["a.txt"], os.listdir(folder))

    def test_what_is_unfinished_goes_with_its_link(self):
        soon = time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(time.time() + 3))
        other = self.inbox()[1]
        kept = self.begin(other, "kept", 5)["data"]["upload"]
        rows = (("off", {"enabled": False}, 1), ("deleted", None, 0), ("expires", {"expire_at": soon}, 1))
        for name, change, left in rows:
            with self.subTest(name):
                visitor = self.inbox()[1]
                self.begin(visitor, "complete", 0)
                uploads = [self.begin(visitor, "new", 5)["data"]["upload"] for _ in range(2)]
                send(visitor, uploads[0], 0, b"123")
                self.assertEqual(5, len(files_of(DEMO, visitor.link_id)))
                DEMO.data(SHARING, "set" if change else "delete",
                          {"sharing_id": visitor.link_id, "project_name": "files", **(change or {})})
                # Of a link that may be used again, the number of complete files is kept.
                wait_until(lambda link=visitor.link_id, left=left: len(files_of(DEMO, link)) == left)
        self.assertEqual(0, code(send(other, kept, 0, b"12345")))

    def test_an_abandoned_upload_makes_room_after_a_day(self):
        _, visitor = self.inbox(max_files=1)
        old = self.begin(visitor, "old", 5)["data"]["upload"]
        self.assertEqual(2005, code(self.begin(visitor, "new", 5)))
        os.utime(file_of(old), (0, 0))
        self.assertEqual(0, code(self.begin(visitor, "new", 5)))
        self.assertEqual([], files_of(DEMO, old))

    def test_a_link_for_uploads_only_shows_nothing(self):
        _, visitor = self.inbox(only=True)
        self.assertEqual("new.txt", self.begin(visitor, "new.txt", 0)["data"]["name"])
        self.assertEqual([], listed(visitor, ""))
        self.assertEqual(2001, code(ask(visitor, "list", path="0")))
        self.assertEqual([404] * 3, [get(visitor, "0/a.txt", method).status for method in ("get", "zip", "thumbnail")])

    @unittest.skipUnless(os.geteuid() == 0, "mounts")
    def test_uploads_leave_a_reserve(self):
        with SmallDisk(ALICE) as disk:
            # On a small disk a fifth is kept: uploads have 51 MiB, a link's 25, an owner's 38.
            first, second, third = (ALICE.visit("", upload={"max_files": 9}) for _ in range(3))
            for visitor, mebibytes, wanted in ((first, 1 << 10, 2006), (first, 26, 2006), (first, 24, 0),
                                               (first, 2, 2006), (second, 12, 0), (third, 8, 2006), (third, 1, 0)):
                with self.subTest(mebibytes=mebibytes):
                    begun = self.begin(visitor, "large", mebibytes << 20)
                    self.assertEqual(wanted, code(begun))
                    if mebibytes == 24:
                        upload = begun["data"]["upload"]
            piece = os.urandom(4 << 20)
            self.assertEqual(0, code(send(first, upload, 0, piece)))
            disk.fill(45)  # then another program takes what was free
            self.assertEqual(2006, code(send(first, upload, 4 << 20, piece)))
            self.assertEqual(4 << 20, ask(first, "upload_state", upload=upload)["data"]["offset"])
            disk.fill(50)
            self.assertEqual(2006, code(self.begin(third, "empty", 0)))
            self.assertEqual([], [name for name in listed(first, "0") if name != "other"])
            disk.fill(0)
            for offset in range(4, 24, 4):
                self.assertEqual(0, code(send(first, upload, offset << 20, piece)))
            # An administrator's own number counts instead.
            self.assertEqual(2006, code(self.begin(first, "more", 16 << 20)))
            disk.configure(reserve=0)
            self.assertEqual(0, code(self.begin(first, "more", 16 << 20)))
            DEMO.data(FILES, "upload_remove", {"sharing_id": first.link_id})
            # However many try, the reserve stays.
            disk.configure()
            taken = 0
            for number in range(40):
                visitor = ALICE.visit("", upload={})
                begun = self.begin(visitor, f"{number}", 4 << 20)
                if code(begun) == 0:
                    taken += code(send(visitor, begun["data"]["upload"], 0, piece)) == 0
            self.assertLess(0, taken)
            self.assertGreater(disk.free(), 64 << 18)  # a fifth and some


@unittest.skipUnless(os.geteuid() == 0, "needs accounts with rights of their own")
class Own(unittest.TestCase):
    """Owners upload into their own folders, before they share them."""

    def own(self, method, account="alice", root="home", **params):
        return DEMO.call(FILES, f"upload_{method}", {"root": root, **params}, account)

    def send(self, upload, offset, piece, account="alice", path="own"):
        call = {"api": FILES, "version": 1, "method": "upload_piece", "root": "home", "path": path, "upload": upload,
                "offset": offset}
        return DEMO.request("POST", "/webapi/entry.cgi?" + urllib.parse.urlencode(call), piece,
                            {"Content-Type": "application/octet-stream"}, account).json

    def setUp(self):
        shutil.rmtree(ALICE.path("own"), ignore_errors=True)
        ALICE.put("own/a.txt", b"was here")

    def test_a_file_gets_a_free_name_and_the_owners_rights(self):
        content = os.urandom(1500000)
        upload = self.own("begin", path="own", name="a.txt", size=len(content))["data"]["upload"]
        self.assertEqual(1 << 20, self.send(upload, 0, content[:1 << 20])["data"]["offset"])
        # Other owners can't see it, nor end it; a change of links leaves it alone.
        self.assertEqual([2008] * 2, [code(self.own(method, "bob", upload=upload)) for method in ("state", "cancel")])
        self.assertEqual(2008, code(self.send(upload, 1 << 20, content[1 << 20:], "bob", "")))
        DEMO.data(SHARING, "delete", {"sharing_id": ALICE.share("own")})
        self.assertEqual(1 << 20, self.own("state", path="own", upload=upload)["data"]["offset"])
        self.assertEqual(2007, code(self.send(upload, 5, b"x")))
        self.assertEqual("a (2).txt", self.send(upload, 1 << 20, content[1 << 20:])["data"]["name"])
        with open(ALICE.path("own/a (2).txt"), "rb") as file:
            self.assertEqual(content, file.read())
        status, home = os.stat(ALICE.path("own/a (2).txt")), os.stat(ALICE.home)
        self.assertEqual((home.st_uid, home.st_gid, 0o640), (status.st_uid, status.st_gid, status.st_mode & 0o777))
        self.assertEqual("in/b/c.txt", self.own("begin", path="own", name="in/b/c.txt", size=0)["data"]["name"])
        kept = self.own("begin", path="own", name="x", size=9)["data"]["upload"]
        self.assertEqual([0, 2008], [code(self.own("cancel", upload=kept)) for _ in range(2)])
        self.assertEqual(["a (2).txt", "a.txt", "in"], sorted(os.listdir(ALICE.path("own"))))

    def test_nothing_gets_out_of_the_owners_folders(self):
        os.symlink("/tmp", ALICE.path("own/out"))
        ALICE.put("own/closed/x")
        os.chmod(ALICE.path("own/closed"), 0o550)
        for wanted, params in ((2000, {"root": "other"}), (2001, {"path": ".."}), (2001, {"path": "own/../.."}),
                               (2001, {"path": "own/out"}), (2001, {"path": "none"}), (2001, {"name": "../x"}),
                               (2001, {"name": ""}), (2004, {"path": "own/a.txt"}), (2004, {"path": "own/closed"}),
                               (2006, {"size": 1 << 60})):
            with self.subTest(**params):
                answer = self.own("begin", **{"path": "own", "name": "x", "size": 1, **params})
                self.assertEqual(wanted, code(answer), answer)
        call = {"api": FILES, "version": 1, "method": "upload_begin", "root": "home", "name": "x", "size": 0}
        answer = DEMO.request("POST", "/webapi/entry.cgi", call, {"Origin": "http://else.where"}, "alice")
        self.assertEqual(105, answer.json["error"]["code"])
        self.assertFalse(os.path.exists(ALICE.path("x")))


if __name__ == "__main__":
    unittest.main()
