"""Files that are sent whole go on to the disk as they come, and whatever breaks a transfer leaves nothing of it."""

import contextlib
import os
import shutil
import signal
import socket
import unittest

import processes
from demo import SHARING, Demo, wait_until
from shared_files import FILES, Shared, SmallDisk, ask, files_of

MIB = 1 << 20
WORKERS = 4


def setUpModule():
    global DEMO, ALICE
    DEMO = Demo()
    unittest.addModuleCleanup(lambda: DEMO.stop())
    with open(DEMO.path("/usr/velt/etc/webapid.conf"), "w", encoding="utf-8") as file:
        file.write(f"transfer-workers={WORKERS}\n")
    DEMO.restart()
    ALICE = Shared(DEMO)


class Sending:
    """A transfer that goes on when it is told to."""

    def __init__(self, link, size, name="new.bin", source="127.0.0.1"):
        self.link, self.size, self.sent = link, size, 0
        self.socket = socket.create_connection(("127.0.0.1", DEMO.port), timeout=60, source_address=(source, 0))
        head = f"PUT /sharing/{link}/{name} HTTP/1.1\r\nHost: x\r\nContent-Length: {size}\r\n\r\n"
        self.socket.sendall(head.encode())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def send(self, length):
        self.socket.sendall(bytes(length))
        self.sent += length
        return self

    def arrive(self):
        """Waits until all that was sent is in the file."""
        wait_until(lambda: sum(map(os.path.getsize, open_files(self.link))) >= self.sent)
        return self

    def finish(self):
        with contextlib.suppress(ConnectionError):  # an answer that comes before
            self.send(self.size - self.sent)
        return self.answer()

    def answer(self):
        """(status, header and body)"""
        text = b""
        with contextlib.suppress(ConnectionResetError):
            while data := self.socket.recv(65536):
                text += data
                head, _, body = text.partition(b"\r\n\r\n")
                if f"Content-Length: {len(body)}\r\n".encode() in head + b"\r\n" or body.endswith(b"0\r\n\r\n"):
                    break
        return int(text.split()[1]), text.decode()


def open_files(link, inside="/usr/velt/var/spool/files"):
    return [path for path in files_of(DEMO, link, inside) if "/open/" in path]


def host_and_server():
    pids = {processes.name_of(pid): pid for pid in processes.children(DEMO.pid)}
    return pids["velt-webapid"], pids["lighttpd"]


def worker_of(link):
    path, = open_files(link)
    wanted = os.stat(path)
    for worker in processes.workers(host_and_server()[0]):
        for number in processes.descriptors(worker):
            with contextlib.suppress(FileNotFoundError):
                if os.path.samestat(os.stat(f"/proc/{worker}/fd/{number}"), wanted):
                    return worker
    raise AssertionError("no worker has the file")


class Transfers(unittest.TestCase):
    def share(self, **fields):
        self.inbox = f"put-{self.id().rsplit('.', 1)[-1]}"
        shutil.rmtree(ALICE.path(self.inbox), ignore_errors=True)
        ALICE.put(self.inbox + "/a.txt", b"was here")
        return ALICE.share(self.inbox, upload={}, **fields)

    def left(self):
        return sorted(os.listdir(ALICE.path(self.inbox)))

    def test_neither_server_keeps_what_passes(self):
        link = self.share()
        host, server = host_and_server()
        with Sending(link, 1024 * MIB) as sending:
            sending.send(64 * MIB).arrive()
            self.assertLessEqual(self.kept_by(server), 2 * MIB)
            worker = worker_of(link)
            os.kill(worker, signal.SIGSTOP)
            try:
                sending.socket.settimeout(2)
                with self.assertRaises(TimeoutError):
                    while True:
                        sending.sent += sending.socket.send(bytes(MIB))
                self.assertLess(sending.sent, 96 * MIB)
                self.assertLessEqual(self.kept_by(server), 2 * MIB)
            finally:
                os.kill(worker, signal.SIGCONT)
            sending.socket.settimeout(60)
            self.assertEqual(201, sending.finish()[0])
            for pid in (server, worker):
                self.assertLess(processes.memory(pid), 32 << 10)
        self.assertEqual(1024 * MIB, os.path.getsize(ALICE.path(self.inbox, "new.bin")))
        self.assertEqual(["a.txt", "new.bin"], self.left())
        os.unlink(ALICE.path(self.inbox, "new.bin"))

    def kept_by(self, server):
        """Bytes in temporary files that the web server has open."""
        files = (f"/proc/{server}/fd/{number}" for number in processes.descriptors(server))
        return sum(os.stat(file).st_size for file in files if "/lighttpd-upload-" in os.readlink(file))

    def test_whatever_breaks_it_leaves_nothing(self):
        def leave(sending, _):
            sending.socket.close()

        def kill(sending, _):
            os.kill(worker_of(sending.link), signal.SIGKILL)

        def switch_off(sending, link):
            DEMO.data(SHARING, "set", {**link, "project_name": "files", "enabled": False})

        def delete(sending, link):
            DEMO.data(SHARING, "delete", link)

        def remove(sending, link):
            described, = DEMO.data(FILES, "describe", link)["unfinished"]
            self.assertEqual(("new.bin", 8 * MIB, MIB), tuple(described[key] for key in ("name", "size", "offset")))
            DEMO.data(FILES, "upload_remove", {**link, "upload": described["upload"]})

        for act, status in ((leave, None), (kill, 500), (switch_off, 410), (delete, 410), (remove, 410)):
            with self.subTest(act.__name__):
                link = self.share()
                with Sending(link, 8 * MIB) as sending:
                    sending.send(MIB).arrive()
                    act(sending, {"sharing_id": link})
                    # What a worker that died has left goes when links are looked through.
                    wait_until(lambda: not open_files(link))
                    if status:
                        self.assertEqual(status, sending.finish()[0])
                self.assertEqual(["a.txt"], self.left())
                self.assertEqual([], [path for path in files_of(DEMO, link) if path.endswith(".json")])

    def test_a_reload_lets_it_end(self):
        link = self.share()
        with Sending(link, 8 * MIB) as sending:
            sending.send(MIB).arrive()
            worker = worker_of(link)
            before = set(processes.workers(host_and_server()[0]))
            os.kill(host_and_server()[0], signal.SIGHUP)
            wait_until(lambda: set(processes.workers(host_and_server()[0])) & before == {worker})
            with Sending(link, 5, "other.bin") as other:
                self.assertEqual(201, other.finish()[0])
            self.assertEqual(201, sending.finish()[0])
        wait_until(lambda: not processes.lives(worker))
        self.assertEqual(["a.txt", "new.bin", "other.bin"], self.left())

    def test_some_workers_are_left_for_others(self):
        link = self.share()
        with contextlib.ExitStack() as stack:
            def begin(source):
                return stack.enter_context(Sending(link, 2 * MIB, source=source))

            held = [begin("127.0.0.1").send(MIB) for _ in range(WORKERS // 2)]
            wait_until(lambda: len(open_files(link)) == 2)
            status, text = begin("127.0.0.1").send(MIB).answer()
            self.assertEqual((503, True), (status, "Retry-After: 30" in text))
            held.append(begin("127.0.0.2").send(MIB))
            wait_until(lambda: len(open_files(link)) == 3)
            self.assertEqual(503, begin("127.0.0.3").send(MIB).answer()[0])  # the last one only refuses
            self.assertEqual(200, DEMO.request("GET", f"/sharing/{link}").status)
            begun = ask(ALICE.visit(self.inbox, upload={}), "upload_begin", name="piece", size=0)
            self.assertTrue(begun["success"])
            self.assertEqual([201] * 3, [sending.finish()[0] for sending in held])
            self.assertEqual(201, begin("127.0.0.3").finish()[0])

    @unittest.skipUnless(os.geteuid() == 0, "mounts")
    def test_a_disk_that_gets_full_meanwhile(self):
        with SmallDisk(ALICE) as disk:
            link = ALICE.share("", upload={})
            spool = disk.seen + "/spool/open"
            for size in (1024, 26):  # of 51 MiB a link may have half
                with Sending(link, size * MIB) as sending:
                    self.assertEqual(507, sending.answer()[0], size)
            with Sending(link, 20 * MIB) as sending:
                sending.send(4 * MIB)
                wait_until(lambda: any(os.path.getsize(f"{spool}/{name}") == 4 * MIB for name in os.listdir(spool)))
                disk.fill(45)
                self.assertEqual(507, sending.finish()[0])
            self.assertEqual([], os.listdir(spool))
            self.assertEqual([], os.listdir(disk.seen + "/home"))


if __name__ == "__main__":
    unittest.main()
