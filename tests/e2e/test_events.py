"""What visitors do with a link can be read by its owner, and by nobody else."""

import collections
import csv
import io
import os
import signal
import time
import unittest

import processes
from demo import Demo
from shared_files import Shared, ask, get, query
from webdriver import Browser, Keys

VISITS = "VELT.Visits"


def events(demo, link, account="alice", **params):
    return demo.data(VISITS, "event_list", {"sharing_id": link, **params}, account)


def told(found):
    """How often each thing happened: equal ones count in one event only where they were written together."""
    times = collections.Counter()
    for event in found:
        times[event["kind"], event["file"], event["result"]] += event["times"]
    return times


def wait_for(demo, link, count):
    """The events of the link once so many things happened; they are written some seconds after the answers."""
    deadline = time.monotonic() + 30
    while told(found := events(demo, link)["events"]).total() < count:
        assert time.monotonic() < deadline, found
        time.sleep(0.05)
    return found


class Events(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.demo = Demo()
        cls.addClassCleanup(cls.demo.stop)
        cls.files = Shared(cls.demo)

    def test_each_kind_is_told_once(self):
        self.files.put("told/a.txt", b"0123456789")
        self.files.put("told/=formula \"1\".txt")
        link = self.files.share("told", upload={}, protect_type="password", protect_password="right")
        visitor = self.demo.visitor(link)
        self.assertFalse(visitor.login(password="wrong")["success"])
        self.assertTrue(visitor.login(password="right")["success"])
        self.assertTrue(visitor.login(password="right")["success"])  # goes on with the visit
        for part in ("bytes=0-4", "bytes=5-"):  # two parts of one download
            self.assertEqual(206, get(visitor, "0/a.txt", headers={"Range": part}).status)
        self.assertEqual(200, get(visitor, "0/a.txt", show="true").status)
        self.assertEqual(404, get(visitor, "0/none.txt").status)
        self.assertEqual(200, visitor.request("HEAD", query("get", path="0/a.txt")).status)
        for _ in range(3):
            self.assertEqual(200, get(visitor, '0/=formula "1".txt').status)
        self.assertEqual(200, visitor.request("GET", query("zip")).status)
        self.assertTrue(ask(visitor, "upload_begin", name="new.txt", size=0)["success"])
        found = wait_for(self.demo, link, 9)
        self.assertEqual({
            ("archive", "told.zip", "ok"): 1, ("download", '=formula "1".txt', "ok"): 3,
            ("download", "a.txt", "ok"): 1, ("login", "", "refused"): 1, ("preview", "a.txt", "ok"): 1,
            ("upload", "new.txt", "ok"): 1, ("visit", "", "ok"): 1}, told(found))
        self.assertEqual({"127.0.0.0"}, {e["address"] for e in found})
        self.assertEqual(1, events(self.demo, link, kind="login")["total"])
        self.assertEqual(0, events(self.demo, link, since=int(time.time()) + 60)["total"])
        for account, success in (("bob", False), ("admin", True)):
            answer = self.demo.call(VISITS, "event_list", {"sharing_id": link}, account)
            self.assertEqual(success, answer["success"])
        table = self.demo.request("POST", "/webapi/entry.cgi", {
            "api": VISITS, "version": 1, "method": "event_csv", "sharing_id": link}, account="alice")
        self.assertIn("text/csv", table.headers["content-type"])
        rows = list(csv.DictReader(io.StringIO(table.text)))
        self.assertEqual(sorted(e["kind"] for e in found), sorted(row["kind"] for row in rows))
        self.assertEqual({"'=formula \"1\".txt"}, {row["file"] for row in rows if "formula" in row["file"]})

    def test_nothing_is_lost_when_the_writer_dies_or_the_service_stops(self):
        self.files.put("kept/a.txt")
        visitor = self.files.visit("kept")
        host = next(pid for pid in processes.children(self.demo.pid) if processes.name_of(pid) == "velt-webapid")
        writer = next(pid for pid in processes.children(host) if processes.name_of(pid) == "velt-events")
        os.kill(writer, signal.SIGKILL)
        self.assertEqual(200, get(visitor, "0/a.txt").status)
        self.assertIn(("download", "a.txt", "ok"), told(wait_for(self.demo, visitor.link_id, 2)))
        self.assertEqual(200, get(visitor, "0/a.txt", show="true").status)
        self.demo.restart()
        found = told(events(self.demo, visitor.link_id)["events"])
        self.assertEqual(1, found["preview", "a.txt", "ok"], found)

    def test_a_download_that_makes_a_visit_tells_both(self):
        self.files.put("single/a.txt")
        link = self.files.share("single")
        self.assertEqual(200, get(self.demo.visitor(link), "0/a.txt").status)
        self.assertEqual(["download", "visit"], sorted(e["kind"] for e in wait_for(self.demo, link, 2)))

    def test_the_owner_sees_what_is_new(self):
        self.files.put("seen/<b>.txt")
        visitor = self.files.visit("seen")
        wait_for(self.demo, visitor.link_id, 1)
        with Browser(1280, 900) as browser:
            browser.open(self.demo.url + "/", self.demo.login("alice"))
            browser.wait_for(f"[data-key='show {visitor.link_id}']").click()
            browser.wait_text("What visitors did (1)", "#share-events summary")
            browser.find("#share-events summary").click()
            browser.wait_text("Visit", "#share-events li")
            browser.press(Keys.ESCAPE)
            first = events(self.demo, visitor.link_id)["events"][0]["time"]
            browser.wait(lambda: time.time() >= first + 1, "another second")
            self.assertEqual(200, get(visitor, "0/<b>.txt").status)
            wait_for(self.demo, visitor.link_id, 2)
            browser.find(f"[data-key='show {visitor.link_id}']").click()
            browser.wait_text("What visitors did (2, 1 since you looked)", "#share-events summary")
            browser.find("#share-events summary").click()
            self.assertIn("Download <b>.txt new", browser.wait_for("#share-events li").text)
            self.assertEqual([], browser.console())


class None_(unittest.TestCase):
    def test_nothing_is_kept_where_nothing_is_to_be(self):
        demo = Demo()
        self.addCleanup(demo.stop)
        link = demo.links["open"]
        self.assertTrue(demo.visitor(link).login()["success"])
        wait_for(demo, link, 1)
        with open(demo.path("/usr/velt/etc/webapid.conf"), "a", encoding="ascii") as file:
            file.write("event-days=0\n")
        demo.restart()
        self.assertTrue(demo.visitor(link).login()["success"])
        deadline = time.monotonic() + 60
        while events(demo, link)["total"] > 0:  # what was kept goes
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.05)


if __name__ == "__main__":
    unittest.main()
