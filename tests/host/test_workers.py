"""The worker processes of velt-webapid: how they end, are replaced and share the work."""

import contextlib
import errno
import glob
import json
import os
import pwd
import signal
import socket
import tempfile
import threading
import unittest

from webapid import Host, fixture_registry, free_port, scrape, wait_until


class Workers(unittest.TestCase):
    @contextlib.contextmanager
    def hanging(self, host, method="hang", pipe="value", **parameters):
        """A call whose handler runs until the block ends; its parameter `pipe` names the pipe that it reads."""
        path = os.path.join(host.folder.name, "fifo")
        os.mkfifo(path)
        connection = host.begin(method, **parameters, **{pipe: path})
        with open(path, "wb"):  # waits for the handler
            yield connection

    def test_a_worker_that_dies_is_replaced(self):
        with Host() as host:
            first = host.worker()
            self.assertEqual(host.call("crash").text, "")
            self.assertNotEqual(host.worker(), first)
            host.wait_for_log(f"worker {first} died: Killed")

    def test_termination_finishes_the_current_request(self):
        with Host(workers=2) as host:
            with self.hanging(host) as connection:
                host.signal(signal.SIGTERM)
            self.assertEqual(host.finish(connection).json, {"data": "finished", "success": True})
            self.assertEqual(host.wait(), 0)
            self.assertFalse(os.path.exists(host.socket))

    def test_hangup_replaces_workers_by_ones_with_the_new_registry(self):
        with Host(workers=2) as host:
            old = {host.worker() for _ in range(50)}
            self.assertEqual(host.call("unlisted").code, 103)
            host.register("fixture.json", "{")
            host.signal(signal.SIGHUP)
            host.wait_for_log("left with status 78", times=7)  # one of each pool, and then another
            self.assertIn(host.worker(), old)  # meanwhile the old ones serve
            registry = fixture_registry()
            registry["methods"].append(
                {"api": "Test.Host", "version": 1, "method": "unlisted", "access": ["user"]}
            )
            host.register("fixture.json", registry)
            wait_until(lambda: all(host.call("unlisted").code == 0 for _ in range(50)))
            self.assertTrue(old.isdisjoint(host.worker() for _ in range(50)))

    def test_hangup_finds_room_for_a_worker_while_all_are_busy(self):
        with Host(workers=1) as host, self.hanging(host):
            host.signal(signal.SIGHUP)
            self.assertEqual(host.call("echo").code, 0)
            self.assertNotIn("took too long", "".join(host.log))

    def test_a_request_that_takes_too_long_ends_its_worker_only(self):
        with Host("--request-timeout", "1") as host:
            with self.hanging(host) as connection:
                answer = host.finish(connection)
            self.assertEqual(dict(answer.headers)["Status"], "504 Gateway Timeout")
            host.wait_for_log("took too long over a request and was ended")
            wait_until(lambda: host.call("echo").json is not None)

    def test_programs_are_ended_in_time_and_started_only_for_clients_that_stay(self):
        with Host("--program-timeout", "1") as host:
            self.assertEqual(host.call("program", value="echo x; sleep 100").json["data"], "")
            host.wait_for_log("program /bin/sh took too long and was ended")
            wait_until(lambda: host.call("program", value="echo x").json["data"] == "x\n")
            host.wait_for_log("a program printed 0 bytes")
            ended = sum("a program printed 0 bytes" in line for line in host.log)
            with self.hanging(host, "program", pipe="after", value="echo x") as connection:
                connection.close()
            host.wait_for_log("a program printed 0 bytes", times=ended + 1)

    @unittest.skipUnless(os.geteuid() == 0, "needs root")
    def test_programs_have_the_services_ids_only(self):
        with Host("--user", "nobody") as host:
            ids = host.call("program", value="grep -E '^[UG]id:' /proc/self/status").json["data"].split()
            nobody = pwd.getpwnam("nobody")
            self.assertEqual(ids, ["Uid:"] + 4 * [str(nobody.pw_uid)] + ["Gid:"] + 4 * [str(nobody.pw_gid)])

    @unittest.skipUnless(os.geteuid() == 0, "needs root")
    def test_a_worker_whose_ids_a_handler_changed_answers_and_exits(self):
        with Host("--user", "nobody") as host:
            first = host.call("echo").json["data"]
            self.assertEqual(first["euid"], pwd.getpwnam("nobody").pw_uid)
            self.assertEqual(host.call("elevate").json["data"]["euid"], 0)
            second = host.call("echo").json["data"]
            self.assertNotEqual(second["pid"], first["pid"])
            self.assertEqual(second["euid"], first["euid"])
            host.wait_for_log("left effective ids 0:")

    def test_workers_exit_with_their_parent_and_its_socket_can_be_reused(self):
        def refused():
            with contextlib.suppress(ConnectionResetError, BrokenPipeError):
                try:
                    host.connect().close()
                except ConnectionRefusedError:
                    return True
            return False

        with Host(workers=2) as host:
            host.worker()
            host.signal(signal.SIGKILL)
            host.wait()
            wait_until(refused)
            with Host(at=host.socket) as heir:
                self.assertEqual(heir.call("echo").code, 0)
                with Host(at=host.socket) as late:
                    self.assertEqual(late.wait(), 1)
                    late.wait_for_log(os.strerror(errno.EADDRINUSE))

    def test_a_registry_that_is_wrong_ends_the_start_with_the_reason(self):
        row = fixture_registry()["methods"][0]
        for content, reason in [
            ("{", "not a readable JSON object"),
            (fixture_registry(library="./none.so"), "cannot load library"),
            (fixture_registry(library="/usr/lib/x86_64-linux-gnu/libc.so.6"), "has no GetAPITable"),
            (fixture_registry(methods=[{**row, "method": "no"}]), "no handler or no check for Test.Host no"),
            (fixture_registry(methods=[{**row, "method": "unchecked"}]), "no handler or no check"),
            (fixture_registry(methods=[{**row, "access": ["guest"]}]), '"access" may hold'),
            (fixture_registry(methods=[{**row, "access": []}]), '"access" must be a list'),
            (fixture_registry(methods=[{**row, "post_only": "yes"}]), '"post_only" must be'),
            (fixture_registry(methods=[{**row, "pool": "front"}]), '"pool" must be'),
            (fixture_registry(methods=[{**row, "post_only": True, "raw_body": 1 << 24}]), '"raw_body" must be'),
            (fixture_registry(methods=[{**row, "raw_body": 1}]), '"raw_body" needs "post_only"'),
            (fixture_registry(methods=[row, row]), "registered twice"),
        ]:
            with self.subTest(reason), Host(modules={"one.json": content}, workers=2) as host:
                self.assertEqual(host.wait(), 78)
                self.assertIn(f"{host.registry}/one.json: ", "".join(host.log))
                self.assertIn(reason, "".join(host.log))


class ServiceManager(unittest.TestCase):
    """Stands in for the service manager, to which sd_notify(3) speaks."""

    @contextlib.contextmanager
    def started(self, **options):
        """A host, and a function that returns the next notice which is no sign of life, unless that is `wanted`."""
        with tempfile.TemporaryDirectory() as folder, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            path = os.path.join(folder, "notify")
            manager.bind(path)
            manager.settimeout(30)

            def notice(wanted=""):
                while (text := manager.recv(4096).decode()) == "WATCHDOG=1" != wanted:
                    pass
                return text

            with Host(under=("env", "NOTIFY_SOCKET=" + path, "WATCHDOG_USEC=300000"), **options) as host:
                yield host, notice

    def test_start_reload_and_end_are_reported(self):
        with self.started(workers=2) as (host, notice):
            self.assertEqual(notice(), "READY=1")
            self.assertEqual(len(host.workers()), 8)  # two of the front's and one of each other pool
            old = {host.worker() for _ in range(50)}
            host.signal(signal.SIGHUP)
            self.assertRegex(notice(), r"^RELOADING=1\nMONOTONIC_USEC=[0-9]+$")
            self.assertEqual(notice(), "READY=1")
            wait_until(lambda: old.isdisjoint(host.worker() for _ in range(50)))  # one may be busy with its last
            host.signal(signal.SIGTERM)
            self.assertEqual(notice(), "STOPPING=1")
            self.assertEqual(host.wait(), 0)

    def test_a_reload_that_fails_is_not_reported_as_done(self):
        with self.started() as (host, notice):
            self.assertEqual(notice(), "READY=1")
            host.register("fixture.json", "{")
            host.signal(signal.SIGHUP)
            self.assertIn("RELOADING=1", notice())
            host.wait_for_log("left with status 78")
            host.register("fixture.json", fixture_registry())
            self.assertEqual(notice(), "READY=1")
            self.assertEqual(notice("WATCHDOG=1"), "WATCHDOG=1")

    def test_reloads_drop_no_request(self):
        codes = []
        ended = threading.Event()

        def call(host):
            while not ended.is_set():
                answer = host.call("echo")
                codes.append(answer.code if answer.text else "dropped")

        with self.started(workers=2) as (host, notice):
            self.assertEqual(notice(), "READY=1")
            callers = [threading.Thread(target=call, args=(host,)) for _ in range(4)]
            try:
                for caller in callers:
                    caller.start()
                for _ in range(10):
                    host.signal(signal.SIGHUP)
                    self.assertIn("RELOADING=1", notice())
                    self.assertEqual(notice(), "READY=1")
            finally:
                ended.set()
                for caller in callers:
                    caller.join()
        self.assertEqual(set(codes), {0})


class Pools(unittest.TestCase):
    """Calls that take long have workers of their own."""

    @contextlib.contextmanager
    def waiting(self, host, count, workers):
        """Connections of `count` calls that go on until the block ends, `workers` of them at work."""
        path = os.path.join(host.folder.name, "wait")
        with open(path, "wb"):
            pass
        try:
            connections = [host.begin("wait", value=path) for _ in range(count)]
            wait_until(lambda: len(glob.glob(path + ".*")) == workers)
            yield connections
        finally:
            os.unlink(path)

    def test_slow_calls_never_delay_fast_ones(self):
        with Host(pool_workers=4) as host:
            with self.waiting(host, 20, workers=2) as slow:  # an account's share
                for _ in range(20):
                    self.assertEqual(host.call("echo").code, 0)
                    for other in ("daemon", "nobody"):
                        path = os.path.join(host.folder.name, other)
                        self.assertEqual(host.call("touch", {"REMOTE_USER": other}, value=path).code, 0)
            answers = [host.finish(connection) for connection in slow]
            self.assertEqual([answer.code for answer in answers], [0] * 20)

    def test_a_parameter_decides_the_pool(self):
        registry = fixture_registry()
        registry["methods"][0].update(pool="bulk", pool_when="big")
        with Host(modules={"fixture.json": registry}) as host:
            front, bulk = ({host.call("echo", big=big).json["data"]["pid"] for _ in range(5)} for big in ("0", "true"))
            self.assertEqual((1, 1, 2), (len(front), len(bulk), len(front | bulk)))
            self.assertEqual(front, {host.call("echo", big=value).json["data"]["pid"] for value in ("x", "{}", "null")})

    def test_a_client_that_takes_nothing_of_its_answer_is_given_up(self):
        with Host() as host, host.begin("echo", value="x" * 1000000) as slow:
            self.assertEqual(host.call("echo").code, 0)
            self.assertRaises(json.JSONDecodeError, host.finish, slow)  # cut off

    def test_streams_find_a_worker_or_are_refused_at_once(self):
        def begin(account):
            stream = host.begin("stream", {"REMOTE_USER": account}, value=50)
            stream.recv(1, socket.MSG_PEEK)
            return self.enterContext(stream)

        def refused(account):
            headers = dict(host.call("stream", {"REMOTE_USER": account}, value=50).headers)
            return headers.get("Status") == "503 Service Unavailable" and int(headers["Retry-After"]) > 0

        with Host(pool_workers=4) as host:
            held = [begin("root"), begin("root")]
            self.assertTrue(refused("root"))
            held += [begin("daemon"), begin("nobody")]
            self.assertTrue(refused("bin"))
            self.assertEqual([50 << 16] * 4, [len(host.finish(stream).body) for stream in held])
            wait_until(lambda: not refused("root"))

    def test_calls_that_do_not_fit_the_queue_are_refused(self):
        with Host() as host:
            with self.waiting(host, 400, workers=1) as slow:
                self.assertEqual(host.call("echo").code, 0)
            codes = [host.finish(connection).code for connection in slow]
            self.assertEqual(set(codes), {0, 100})
            self.assertGreater(codes.count(0), 100)
            host.wait_for_log("too many calls wait for the workers of pool long")

    def test_a_call_whose_client_has_left_is_not_started(self):
        with Host() as host:
            left, stayed = (os.path.join(host.folder.name, name) for name in ("left", "stayed"))
            with self.waiting(host, 1, workers=1) as slow:
                host.begin("touch", value=left).close()
                half = host.begin("touch", value=left)
                half.shutdown(socket.SHUT_WR)
                last = host.begin("touch", value=stayed)
                self.assertEqual(host.call("echo").code, 0)
            self.assertEqual([host.finish(each).code for each in (*slow, last)], [0, 0])
            self.assertEqual(host.finish(half).text, "")
            self.assertTrue(os.path.exists(stayed))
            self.assertFalse(os.path.exists(left))

    def test_hanging_calls_in_every_worker_are_ended_early(self):
        port = free_port()
        with Host("--metrics", f"127.0.0.1:{port}", workers=2) as host:
            host.call("echo")
            # While others start the supervisor is awake anyway.
            wait_until(lambda: not any(count for name, count in scrape(port).items() if "starting" in name))
            paths = [os.path.join(host.folder.name, name) for name in ("first", "second")]
            for path in paths:
                os.mkfifo(path)
            hanging = [host.begin("hang", value=path) for path in paths]
            self.assertEqual(host.call("echo").code, 0)
            host.wait_for_log("took too long over a request")
            for path in paths:
                with contextlib.suppress(OSError):  # the handler has ended already
                    os.close(os.open(path, os.O_WRONLY | os.O_NONBLOCK))
            answers = [host.finish(each).text for each in hanging]
            self.assertIn("504 Gateway Timeout", "".join(answers))
