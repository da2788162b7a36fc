"""Two services on one PostgreSQL database, which also fails while they run."""

import contextlib
import glob
import http.client
import json
import os
import shutil
import subprocess
import tempfile
import threading
import unittest
from concurrent.futures import ThreadPoolExecutor

from demo import SHARING, Demo, free_port, wait_until
from shared_files import query

PROGRAMS = sorted(glob.glob("/usr/lib/postgresql/*/bin"))[-1]
AS_USER = ["setpriv", "--reuid", "postgres", "--regid", "postgres", "--clear-groups"] if os.geteuid() == 0 else []
NO_DATABASE, UNKNOWN_CALLER = 117, 100
WRONG, BRAKED, NOT_POSSIBLE = 3000, 3002, 3006


class Server:
    """A PostgreSQL server on a port of its own, which keeps what it has committed."""

    def __init__(self, folder, name):
        self.data = os.path.join(folder, name)
        self.port = free_port()
        self.folder = folder

    def program(self, name, *arguments):
        subprocess.run([*AS_USER, os.path.join(PROGRAMS, name), *arguments], check=True, cwd=self.folder,
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.STDOUT)

    def make(self):
        self.program("initdb", "-D", self.data, "-U", "velt", "--auth", "trust", "--encoding", "UTF8", "--locale",
                     "C.UTF-8")

    def start(self):
        self.program("pg_ctl", "-D", self.data, "-w", "-l", self.data + ".log", "-o",
                     f"-p {self.port} -c listen_addresses=127.0.0.1 -c unix_socket_directories={self.folder} "
                     "-c max_connections=200", "start")

    def stop(self, mode="fast"):
        self.program("pg_ctl", "-D", self.data, "-w", "-m", mode, "stop")

    def sql(self, text, database="velt"):
        return subprocess.run([os.path.join(PROGRAMS, "psql"), "-XAtq", "-v", "ON_ERROR_STOP=1", "-h", "127.0.0.1",
                               "-p", str(self.port), "-U", "velt", database, "-c", text],
                              capture_output=True, text=True, check=True).stdout.split()


class Postgresql(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="velt-pg-", dir="/tmp")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        if AS_USER:
            shutil.chown(cls.folder, "postgres", "postgres")
        cls.server, cls.spare = Server(cls.folder, "first"), Server(cls.folder, "spare")
        cls.server.make()
        cls.server.start()
        cls.addClassCleanup(cls.stop_servers)
        cls.server.sql("create database velt", "postgres")
        database = (f"postgresql host=127.0.0.1,127.0.0.1 port={cls.server.port},{cls.spare.port} user=velt "
                    "dbname=velt target_session_attrs=read-write")
        # Both have the same accounts, and make the tables at once.
        states = [os.path.join(cls.folder, name) for name in ("one", "two")]
        for state in states:
            os.mkdir(state)
            with open(os.path.join(state, "accounts.json"), "w", encoding="utf-8") as file:
                json.dump({name: name + "'s own" for name in ("admin", "alice", "bob")}, file)
        with ThreadPoolExecutor(2) as pool:
            cls.demos = list(pool.map(lambda state: Demo(state, options=("--database", database)), states))
        for demo in cls.demos:
            cls.addClassCleanup(demo.stop)
        cls.one, cls.two = cls.demos

    @classmethod
    def stop_servers(cls):
        for server in (cls.server, cls.spare):
            with contextlib.suppress(subprocess.CalledProcessError):
                server.stop("immediate")

    def visitors(self, link, count):
        """`count` visitors, every other one of the second service."""
        return [self.demos[number % 2].visitor(link) for number in range(count)]

    def code(self, answer):
        return 0 if answer["success"] else answer["error"]["code"]

    def test_1_link_of_one_opens_on_the_other(self):
        link = self.one.create(protect_type="password", protect_password="sesame", protect_title="here and there")
        visitor = self.two.visitor(link)
        self.assertIn("here and there", visitor.page().text)
        self.assertTrue(visitor.login(password="sesame")["success"])
        with_session = self.one.visitor(link)
        with_session.cookies = visitor.cookies
        for either in (visitor, with_session):  # a load balancer may send a visit to either service
            self.assertTrue(either.call(SHARING, "get")["success"])
        self.two.data(SHARING, "set", {"sharing_id": link, "project_name": "album", "protect_password": "new"})
        self.assertFalse(visitor.call(SHARING, "get")["success"])
        self.assertTrue(visitor.login(password="new")["success"])
        self.two.data(SHARING, "delete", {"sharing_id": link})
        self.assertFalse(with_session.call(SHARING, "get")["success"])
        self.assertEqual(404, with_session.page().status)

    def test_2_hundred_of_two_thousand_visits_are_let_in(self):
        link = self.one.create(expire_times=100, auto_gc=True)
        with ThreadPoolExecutor(64) as pool:
            codes = list(pool.map(lambda visitor: self.code(visitor.login()), self.visitors(link, 2000)))
        self.assertEqual({0: 100, 1012: 1900}, {code: codes.count(code) for code in set(codes)})
        self.assertEqual(100, self.two.data(SHARING, "get", {"sharing_id": link})["visits"])
        self.two.data(SHARING, "trigger_gc", {"project_name": "album"})
        self.assertEqual(404, self.one.visitor(link).page().status)

    def test_3_guesses_are_counted_together(self):
        link = self.one.create(protect_type="password", protect_password="sesame")
        codes = [self.code(visitor.login(password="guess")) for visitor in self.visitors(link, 12)]
        self.assertEqual([1001] * 10 + [1008] * 2, codes)
        for demo in self.demos:
            self.assertEqual(1008, self.code(demo.visitor(link).login(password="sesame")))

    def sign_in(self, demo, password):
        answer = demo.request("POST", "/webapi/entry.cgi", {"api": "VELT.Core.SignIn", "version": 1, "method": "login",
                                                            "account": "bob", "password": password}).json
        return self.code(answer)

    def test_3_guesses_at_an_owner_in_parallel_are_counted_together(self):
        with ThreadPoolExecutor(16) as pool:
            codes = list(pool.map(lambda number: self.sign_in(self.demos[number % 2], "guess"), range(64)))
        self.assertLessEqual(codes.count(WRONG), 10)
        self.assertEqual({WRONG, BRAKED}, set(codes))
        self.server.sql("update failed_login set failed_at = failed_at + 60")  # or the pause may be over
        self.assertEqual([BRAKED] * 2, [self.sign_in(demo, "bob's own") for demo in self.demos])
        self.server.sql("delete from failed_login")
        self.assertEqual(0, self.sign_in(self.two, "bob's own"))

    def test_4_ended_connections_fail_no_later_request(self):
        link = self.one.create(protect_title="still here")
        for demo in self.demos:  # so that many workers have one
            with ThreadPoolExecutor(32) as pool:
                list(pool.map(lambda _, demo=demo: demo.visitor(link).login(), range(64)))

        def restart():
            self.server.stop()
            self.server.start()

        def terminate():
            self.server.sql("select pg_terminate_backend(pid, 10000) from pg_stat_activity "
                            "where pid <> pg_backend_pid() and backend_type = 'client backend'")

        def creates(demo):
            return self.code(demo.call(SHARING, "set", {"project_name": "p"}))

        for end in (terminate, restart):
            end()
            for demo in self.demos:
                with ThreadPoolExecutor(16) as pool:
                    for codes in (
                        pool.map(lambda _: demo.visitor(link).page().status, range(48)),
                        pool.map(lambda _: 200 + self.code(demo.visitor(link).login()), range(24)),
                        pool.map(lambda _: 200 + creates(demo), range(24)),
                    ):
                        self.assertEqual({200}, set(codes))

    def test_5_outage_is_reported_and_ends_without_a_restart(self):
        link = self.one.create(protect_type="password", protect_password="sesame")
        self.server.stop()
        try:
            for demo in self.demos:
                self.assertEqual(UNKNOWN_CALLER, self.code(demo.call(SHARING, "get", {"sharing_id": link})))
                self.assertEqual(UNKNOWN_CALLER, self.code(demo.call(SHARING, "set", {"project_name": "p"})))
                self.assertEqual(NOT_POSSIBLE, self.sign_in(demo, "bob's own"))
                self.assertEqual(NO_DATABASE, self.code(demo.visitor(link).login(password="sesame")))
                page = demo.visitor(link).page()
                self.assertEqual(503, page.status)
                self.assertIn("Try again", page.text)
                # Programs try these again only if they aren't told that there is nothing.
                self.assertEqual(503, demo.visitor(link).request("GET", query("get", path="0/a.txt")).status)
                self.assertEqual(503, demo.visitor(link).request("PUT", "/a.txt", b"content").status)
        finally:
            self.server.start()
        for demo in self.demos:
            self.assertEqual(200, demo.visitor(link).page().status)
            self.assertTrue(demo.visitor(link).login(password="sesame")["success"])

    def test_6_nothing_reported_is_lost_by_crashes_or_a_failover(self):
        reported, failed = [], []
        done = threading.Event()

        def write(number):
            while not done.is_set():
                try:
                    answer = self.demos[number % 2].call(SHARING, "set", {"project_name": "writes"})
                except (OSError, ValueError, http.client.HTTPException):
                    answer = {"success": False, "error": {"code": None}}
                if answer["success"]:
                    reported.append(answer["data"]["sharing_id"])
                else:
                    failed.append(answer["error"]["code"])

        def further(count):
            wanted = len(reported) + count
            wait_until(lambda: len(reported) >= wanted)

        with ThreadPoolExecutor(4) as pool:
            writers = [pool.submit(write, number) for number in range(4)]
            try:
                for _ in range(2):
                    further(50)
                    self.server.stop("immediate")  # as a crash
                    self.server.start()
                self.follow()
                further(50)
                self.server.stop("immediate")
                self.spare.program("pg_ctl", "-D", self.spare.data, "-w", "promote")
                further(50)
            finally:
                done.set()
            for writer in writers:
                writer.result()
        self.assertLessEqual(set(failed), {UNKNOWN_CALLER, NO_DATABASE, 1002, 1003}, "failures of the store")
        stored = self.spare.sql("select hash from link where project_name = 'writes'")
        self.assertEqual(set(), set(reported) - set(stored))
        self.assertEqual(len(reported), len(set(reported)))
        self.assertLessEqual(len(stored) - len(reported), len(failed))

    def follow(self):
        """Gives the first server a standby, which has all links that are reported from now on."""
        self.spare.program("pg_basebackup", "-h", "127.0.0.1", "-p", str(self.server.port), "-U", "velt", "-D",
                           self.spare.data, "-R", "-X", "stream", "-c", "fast")
        self.spare.start()
        self.server.sql("alter system set synchronous_standby_names = '*'", "postgres")
        self.server.sql("select pg_reload_conf()", "postgres")
        wait_until(lambda: self.server.sql("select sync_state from pg_stat_replication", "postgres") == ["sync"])


if __name__ == "__main__":
    unittest.main()
