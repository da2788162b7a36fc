"""Many clients at once, and workers that are killed under them."""

import contextlib
import http.client
import os
import signal
import sqlite3
import threading
import unittest
from concurrent.futures import ThreadPoolExecutor

from demo import SHARING, Demo

DEMO = None


def setUpModule():
    global DEMO
    DEMO = Demo()


def tearDownModule():
    DEMO.stop()


def hashes():
    with contextlib.closing(sqlite3.connect(DEMO.database)) as sql:
        return [row[0] for row in sql.execute("select hash from link")]


def children(pid):
    with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
        return [int(child) for child in file.read().split()]


def name_of(pid):
    with open(f"/proc/{pid}/comm", encoding="ascii") as file:
        return file.read().strip()


def workers():
    host = next(pid for pid in children(DEMO.pid) if name_of(pid).startswith("velt-webapid"))
    return children(host)


class Faults(unittest.TestCase):
    def test_killed_workers_lose_no_link_that_was_told(self):
        told, failed, killed = [], [], []
        lock = threading.Lock()

        def create(number):
            if number % 50 == 49:
                with contextlib.suppress(IndexError, ProcessLookupError):  # none there at this moment
                    os.kill(victim := workers()[0], signal.SIGKILL)
                    killed.append(victim)
            try:
                answer = DEMO.request("POST", "/webapi/entry.cgi", {
                    "api": SHARING, "version": 1, "method": "set", "project_name": "faults"}, account="alice")
            except (OSError, http.client.HTTPException):
                answer = None
            with lock:
                if answer and answer.status == 200 and answer.json["success"]:
                    told.append(answer.json["data"]["sharing_id"])
                else:
                    failed.append(answer.status if answer else None)

        with ThreadPoolExecutor(8) as pool:
            list(pool.map(create, range(1000)))
        self.assertEqual(1000, len(told) + len(failed))
        self.assertGreater(len(killed), 10)
        self.assertGreater(len(told), 900, failed)
        self.assertEqual(len(told), len(set(told)))
        self.assertEqual(set(), set(told) - set(hashes()))
        DEMO.data(SHARING, "get", {"sharing_id": told[-1]})

    def test_one_of_ten_deletes_succeeds(self):
        for _ in range(5):
            link = DEMO.create()
            together = threading.Barrier(10)

            def delete(_, link=link, together=together):
                together.wait()
                answer = DEMO.call(SHARING, "delete", {"sharing_id": link})
                return 0 if answer["success"] else answer["error"]["code"]

            with ThreadPoolExecutor(10) as pool:
                codes = sorted(pool.map(delete, range(10)))
            self.assertEqual([0] + [1005] * 9, codes)
            self.assertNotIn(link, hashes())

    def test_lists_during_creates_and_deletes_are_whole(self):
        members = set(DEMO.data(SHARING, "get", {"sharing_id": DEMO.create("bob")}, "bob"))
        done = threading.Event()

        def churn(_):
            while not done.is_set():
                link = DEMO.create("bob", protect_title="churn", protect_users=["alice", "bob"])
                DEMO.data(SHARING, "delete", {"sharing_id": link}, "bob")

        with ThreadPoolExecutor(3) as pool:
            churning = pool.map(churn, range(3))
            try:
                for _ in range(40):
                    links = DEMO.data(SHARING, "list", {"sort_by": "created_at"}, "bob")["sharings"]
                    ids = [link["sharing_id"] for link in links]
                    self.assertEqual(len(ids), len(set(ids)))
                    for link in links:
                        self.assertEqual(members, set(link))
                        # Inserted bare and then filled in: what is listed must be either, not a mixture.
                        self.assertIn((link["protect_title"], link["protect_users"]),
                                      (("", []), ("churn", ["alice", "bob"])))
            finally:
                done.set()
            list(churning)


if __name__ == "__main__":
    unittest.main()
