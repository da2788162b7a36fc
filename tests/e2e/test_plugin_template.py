"""The plugin to start from: built with what is installed alone, checked, and shown by ./run --watch as it changes."""

import os
import re
import shutil
import subprocess
import tempfile
import time
import unittest

import processes
from demo import REPOSITORY, SHARING, Demo

BUILD = os.path.abspath(os.environ.get("VELT_BUILD", os.path.join(REPOSITORY, "build/release")))
SHOWN_SECONDS = 60


def run(*command):
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    if done.returncode:
        raise AssertionError(f"{command}: {done.stdout}{done.stderr}")
    return done.stdout


class Template(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="velt-plugin-")
        self.addCleanup(folder.cleanup)
        self.source, self.build = os.path.join(folder.name, "source"), os.path.join(folder.name, "build")
        self.prefix = os.path.join(folder.name, "prefix")
        run("cmake", "--install", BUILD, "--prefix", self.prefix)
        shutil.copytree(os.path.join(REPOSITORY, "examples/plugin-template"), self.source)
        self.edit("CMakeLists.txt", "project(greeting", "project(holiday")

    def edit(self, name, old, new):
        path = os.path.join(self.source, name)
        with open(path, encoding="utf-8") as file:
            text = file.read()
        self.assertIn(old, text)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text.replace(old, new))

    def make(self):
        if not os.path.exists(self.build):
            run("cmake", "-S", self.source, "-B", self.build, "-DCMAKE_PREFIX_PATH=" + self.prefix,
                "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Werror")
        run("cmake", "--build", self.build)

    def wait(self, fetch, text):
        end = time.monotonic() + SHOWN_SECONDS
        while text not in fetch():
            self.assertLess(time.monotonic(), end, f"{text!r} is not in {fetch()!r}")
            time.sleep(0.05)

    def test_build_check_and_change(self):
        demo = Demo(options=("--watch", self.build))
        self.addCleanup(demo.stop)
        visitor = demo.visitor(demo.create(project_name="holiday"))
        query = f"/webapi?api={SHARING}.Session&version=1&method=get&sharing_id={visitor.link_id}"
        service = next(pid for pid in processes.children(demo.pid) if processes.name_of(pid) == "velt-webapid")

        def script():
            return visitor.request("GET", query).text

        self.assertIn("is no build folder of CMake yet", demo.printed())
        self.make()
        self.assertIn("100% tests passed", run("ctest", "--test-dir", self.build))
        self.wait(script, "alice shares this with you.")
        self.wait(lambda: [demo.request("GET", "/pkg/holiday/plugin.js").status], 200)
        self.assertTrue(re.search(r'src="/pkg/holiday/plugin.js\?v=\d+"', visitor.page().text))

        # A worker may keep the library as it was (STB_GNU_UNIQUE), so each gives way to a new one.
        workers = set(processes.workers(service))
        self.edit("Plugin.cpp", "shares", "shows")
        self.make()
        self.wait(script, "alice shows this with you.")
        self.wait(lambda: [bool(workers & set(processes.workers(service)))], False)
        self.edit("configuration.json.in", '{"plugins"', '{"protect_title": "Changed", "plugins"')
        self.make()
        self.wait(script, "Changed")
        self.edit("web/plugin.js", "'p'", "'b'")
        self.wait(lambda: demo.request("GET", "/pkg/holiday/plugin.js").text, "'b'")
        self.assertIn("the next page has lib/sharing/holiday.so", demo.printed())


if __name__ == "__main__":
    unittest.main()
