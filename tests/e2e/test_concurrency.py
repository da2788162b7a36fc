"""Several clients at once."""

import threading
import unittest
from concurrent.futures import ThreadPoolExecutor

from demo import SHARING, Demo


def setUpModule():
    global DEMO
    DEMO = Demo()
    unittest.addModuleCleanup(DEMO.stop)


class Lists(unittest.TestCase):
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
                        # A link is first inserted empty and then filled: the list must show either, not a mixture.
                        self.assertIn((link["protect_title"], link["protect_users"]),
                                      (("", []), ("churn", ["alice", "bob"])))
            finally:
                done.set()
            list(churning)


if __name__ == "__main__":
    unittest.main()
