"""All code has the style and passes the linter that its language's developers use."""

import glob
import shutil
import subprocess
import unittest

import npm
from demo import REPOSITORY

FOLDERS = ["api", "apps", "bench", "examples", "host", "module", "packaging", "platform", "scripts", "sharing",
           "tests", "tools", "web"]


def sources(*endings):
    found = [path for folder in FOLDERS for ending in endings
             for path in glob.glob(f"{folder}/**/*{ending}", root_dir=REPOSITORY, recursive=True)]
    assert len(found) > 20, found
    return found


class Style(unittest.TestCase):
    maxDiff = None

    def check(self, *command):
        done = subprocess.run(command, cwd=REPOSITORY, stdin=subprocess.DEVNULL, text=True, check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual((0, ""), (done.returncode, done.stdout))

    def test_cpp(self):
        program = shutil.which("clang-format-14") or "clang-format"
        self.check(program, "--dry-run", "--Werror", *sources(".cpp", ".h"))

    def test_python(self):
        self.check("pycodestyle", "--max-line-length=120", *sources(".py"))
        self.check("pyflakes3", *sources(".py"))

    def test_javascript(self):
        folder = npm.install("eslint")
        self.check(f"{folder}/node_modules/.bin/eslint", "--max-warnings=0", "--config", f"{folder}/eslint.config.mjs",
                   *sources(".js", ".mjs"))
