"""The options of velt-webapid: bad ones are refused with a reason, and its man page knows all of them."""

import os
import re
import subprocess
import tempfile
import unittest

from webapid import HOST

PAGE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "host", "velt-webapid.8")


def run(*options):
    return subprocess.run([HOST, *options], stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False,
                          timeout=60)


class Options(unittest.TestCase):
    def test_bad_ones_are_refused_with_a_reason(self):
        with tempfile.TemporaryDirectory() as folder:
            needed = {"--socket": f"{folder}/socket", "--registry": folder, "--database": f"sqlite3 {folder}/db"}
            for name, value, because in [
                    ("--socket", f"{folder}/{'x' * 108}", "100 bytes"), ("--registry", f"{folder}/none", "none"),
                    ("--database", "mysql host=db", "postgresql CONNECTION"), ("--database", "sqlite3", "sqlite3 PATH"),
                    ("--metrics", "0.0.0.0:9464", "loopback"), ("--metrics", "127.0.0.1", "port"),
                    ("--metrics", "127.0.0.1:65537", "port"), ("--metrics", "127.0.0.1:0", "port"),
                    ("--metrics", "[::1]:http", "port"), ("--request-log", "requests.log", "path"),
                    ("--external-url", "nas.example.com", "https://"), ("--workers", "0", "1 to 1024"),
                    ("--request-timeout", "0", "1 to 3600"), ("--user", "no such", "no account"),
                    ("--config", f"{folder}/none", "none"), ("--unknown", "x", "--unknown")]:
                line = [part for option in {**needed, name: value}.items() for part in option]
                done = run("--check-config", *line)
                self.assertNotIn(done.returncode, (0, 78), line)
                self.assertRegex(done.stderr, because)
                self.assertEqual("", done.stdout)
            line = [part for option in needed.items() for part in option]
            self.assertEqual(0, run("--check-config", *line, "--metrics", "[::1]:65535").returncode)
            self.assertIn("--unknown", run("--unknown").stderr)  # rather than what else is missing
            done = run(*line)  # the registry is empty
            self.assertEqual(78, done.returncode)
            self.assertIn("--log-stderr", done.stderr)

    def test_the_man_page_has_each_option_with_its_default(self):
        with open(PAGE, encoding="utf-8") as file:
            page = file.read().replace("\\-", "-")
        described = {entry.split()[1].strip('"'): entry for entry in page.split(".TP\n")[1:]}
        options = re.findall(r"^  (?:-h,)?(--[a-z-]+)(?: \S+?(?:=(\d+))?)?(?: .*)?$", re.sub(
            r" in \[.*?\]", "", run("--help").stdout), re.M)
        self.assertIn(("--program-timeout", "5"), options)
        for name, default in options:
            self.assertIn(name, described)
            self.assertEqual(default, "".join(re.findall(r"^[^.].*\((\d+)\)", described[name], re.M)), name)
        self.assertRegex(run("--version").stdout, r"^velt-webapid \d+\.\d+\.\d+\n$")


if __name__ == "__main__":
    unittest.main()
