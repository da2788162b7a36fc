"""What the packages hold, and that it fits a Debian."""

import contextlib
import glob
import os
import re
import subprocess
import tempfile
import unittest

from roots import COPY, SOURCE, Root, packages

UNITS = sorted(glob.glob(f"{SOURCE}/packaging/systemd/*.service"))
# Both ways, with nothing but what is installed.
BUILD_A_PLUGIN = """
cp -r /usr/share/velt-sharing-dev/plugin-template /tmp/plugin
cd /tmp/plugin
cmake -S . -B build >/dev/null
cmake --build build >/dev/null
ctest --test-dir build >/dev/null
g++ -std=c++20 -shared -fPIC -DPLUGIN_NAME='"greeting"' $(pkg-config --cflags velt-sharing) Plugin.cpp -o plugin.so \
  $(pkg-config --libs velt-sharing)
for library in plugin.so build/greeting.so; do readelf -d $library | grep NEEDED; done
"""


class Packages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        cls.packages = packages(cls.folder.name)

    def test_lintian_finds_nothing(self):
        done = subprocess.run(["lintian", "--pedantic", *self.packages], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, text=True, check=False)
        self.assertEqual((done.stdout, done.returncode), ("", 0))

    def test_units_are_hardened(self):
        self.assertEqual(len(UNITS), 3)
        for unit in UNITS:
            with self.subTest(os.path.basename(unit)):
                done = subprocess.run(["systemd-analyze", "security", "--offline=true", "--threshold=30", unit],
                                      stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
                self.assertEqual(done.returncode, 0, done.stdout)

    @unittest.skipUnless(os.geteuid() == 0, "needs root")
    def test_a_debian_takes_them(self):
        with contextlib.closing(Root(COPY)) as root:
            root.run("dpkg", "-i", *(root.take(package) for package in self.packages))
            for unit in ("velt-webapid.service", "velt-sharing-check.service", "velt-sharing-check.timer",
                         "velt-sharing-notify.service"):
                with self.subTest(unit):
                    told = root.run("systemd-analyze", "verify", "--man=no", f"/lib/systemd/system/{unit}")
                    self.assertEqual(told, "")
            self.assertNotIn("error", root.run("logrotate", "--debug", "/etc/logrotate.d/velt-sharing"))
            with self.subTest("manual"):
                options = set(re.findall(r"--[a-z-]+", root.run("velt-webapid", "--help")))
                page = root.shell("zcat /usr/share/man/man8/velt-webapid.8.gz").replace("\\", "")
                self.assertEqual([option for option in sorted(options) if option not in page], [])
            with self.subTest("documents"):
                for name in sorted(os.listdir(f"{SOURCE}/docs")):
                    root.run("test", "-e", f"/usr/share/doc/velt-sharing/docs/{name}")
            with self.subTest("development"):
                self.assertEqual(root.shell(BUILD_A_PLUGIN).count("libveltsharing.so"), 2)
