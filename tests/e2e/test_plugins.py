"""Faulty plugin libraries of a link: a fault affects only the request that runs the library."""

import glob
import json
import os
import shutil
import unittest

from demo import BUILD, SHARING, Demo


def setUpModule():
    global DEMO
    DEMO = Demo()
    unittest.addModuleCleanup(DEMO.stop)


def publish(fault):
    """A visitor of a link whose application ships the library `fault`, unless that is "missing"."""
    if fault != "missing":
        shutil.copy(os.path.join(BUILD, "tests/plugins/libs", fault + ".so"), DEMO.path("/usr/velt/lib/sharing/"))
    plugins = [{"name": name, "params": {"lib": f"/usr/velt/lib/sharing/{fault}.so"}}
               for name in ("custom_page", "open_graph")]
    with open(DEMO.path(f"/usr/velt/etc.defaults/sharing/{fault}"), "w", encoding="utf-8") as file:
        json.dump({"plugins": plugins}, file)
    return DEMO.visitor(DEMO.create(project_name=fault))


def outcome(answer):
    """What the visitor got: "page", "script", "no script", an error's code, or the login's private data."""
    if answer.status != 200:
        return answer.status
    if answer.headers["content-type"].startswith("text/html"):
        return "page"
    if "javascript" in answer.headers["content-type"]:
        return "script" if answer.text.startswith("VELT.TALD.Session = {") else "no script"
    return answer.json["data"]["private"] if answer.json["success"] else answer.json["error"]["code"]


def logged(text):
    """How many lines of the demonstration's logs hold the text."""
    lines = []
    for path in glob.glob(DEMO.path("/usr/velt/var/log/*")):
        with open(path, encoding="utf-8", errors="replace") as file:
            lines += file
    return sum(text in line for line in lines)


class Plugins(unittest.TestCase):
    def test_a_fault_affects_only_its_own_request(self):
        for fault, *expected in (
                ("missing", "page", "script", ""),
                ("ten_mebibytes_of_tags", "page", "script", ""),
                ("throws", "page", 100, 100),
                ("prints_to_stdout", "page", "script", {}),
                ("crashes", 500, 500, 500)):
            with self.subTest(fault):
                visitor = publish(fault)
                sound = DEMO.visitor(DEMO.create())
                script = f"/webapi?api={SHARING}.Session&version=1&method=get&sharing_id="
                login = {"api": SHARING + ".Login", "version": 1, "method": "login"}
                got = [outcome(visitor.page()), outcome(visitor.request("GET", script + visitor.link_id)),
                       outcome(visitor.request("POST", "/webapi", {**login, "sharing_id": visitor.link_id}))]
                self.assertEqual(expected, got)
                self.assertEqual("script", outcome(sound.request("GET", script + sound.link_id)))
                if fault == "prints_to_stdout":
                    self.assertEqual(5, logged("StrayOutput:31 printed text was dropped: /usr/velt/lib/sharing/prints"))

    def test_a_login_that_a_plugin_breaks_keeps_its_session(self):
        visitor = publish("throws")
        for _ in range(2):
            self.assertEqual(100, visitor.login()["error"]["code"])
            self.assertTrue(visitor.call(SHARING, "get")["success"])
        self.assertEqual(1, visitor.call(SHARING, "get")["data"]["visits"])


if __name__ == "__main__":
    unittest.main()
