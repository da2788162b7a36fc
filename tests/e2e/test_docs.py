"""The commands in the documents work as they stand there, with the password, address and ids of a demonstration."""

import glob
import json
import os
import re
import subprocess
import tempfile
import unittest

from demo import REPOSITORY, Demo

ANYTHING = "..."


def setUpModule():
    global DEMO
    DEMO = Demo()
    unittest.addModuleCleanup(DEMO.stop)


def matches(wanted, found):
    """Whether `found` is what the document shows, where "..." stands for anything."""
    if wanted == ANYTHING:
        return True
    if isinstance(wanted, dict) and isinstance(found, dict):
        return wanted.keys() == found.keys() and all(matches(wanted[name], found[name]) for name in wanted)
    if isinstance(wanted, list) and isinstance(found, list):
        return len(wanted) == len(found) and all(map(matches, wanted, found))
    return wanted == found and isinstance(found, type(wanted))


class Commands:
    """Runs a document's commands in their order. `ID` in one is the id of the link in the latest answer."""

    def __init__(self, folder):
        self._folder = folder
        self._variables = ""
        self._id = "ID"
        self.answer = None

    def run(self, block):
        """Returns the commands that failed, with what they printed."""
        failed = []
        for command in re.split(r"\n(?=curl|\w+=)", re.sub(r"^ *#.*\n", "", block, flags=re.M).strip()):
            command = (command.replace("PASSWORD", DEMO.accounts["alice"]).replace("http://127.0.0.1:8080", DEMO.url)
                       .replace("ID", self._id))
            if not command.startswith("curl"):
                self._variables += command + "\n"
                continue
            done = subprocess.run(["bash", "-euc", self._variables + command], cwd=self._folder, capture_output=True,
                                  text=True, check=False)
            # The script and files are no JSON.
            is_answer = done.stdout.startswith("{")
            self.answer = json.loads(done.stdout) if is_answer else {"success": done.stdout != ""}
            refused = not self.answer["success"]
            data = self.answer.get("data")
            if isinstance(data, dict):
                self._id = data.get("sharing_id", self._id)
            if done.returncode or refused:
                failed.append((command, done.stdout, done.stderr))
        return failed


class Documents(unittest.TestCase):
    def commands(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        return Commands(folder.name)

    def test_examples_of_the_api(self):
        with open(os.path.join(REPOSITORY, "docs/api.md"), encoding="utf-8") as file:
            blocks = re.findall(r"```sh\n(.*?)```(?:\n\n```json\n(.*?)```)?", file.read(), re.S)
        self.assertGreater(len(blocks), 10)
        commands = self.commands()
        for block, shown in blocks:
            with self.subTest(block):
                failed = commands.run(block)
                wanted = json.loads(shown or '{"success": true}')
                if wanted["success"]:
                    self.assertEqual([], failed)
                if shown:
                    self.assertTrue(matches(wanted, commands.answer), commands.answer)

    def test_the_readme(self):
        with open(os.path.join(REPOSITORY, "README.md"), encoding="utf-8") as file:
            section = file.read().partition("## Using it")[2].partition("\n## ")[0]
        block = "\n".join(line[4:] for line in section.splitlines() if line.startswith("    "))
        self.assertIn("curl", block)
        self.assertEqual([], self.commands().run(block))


class Links(unittest.TestCase):
    def test_links_lead_to_files_and_headings(self):
        texts = {}
        pages = "*.md", "docs/*.md", "examples/*/*.md"
        for name in sum((glob.glob(each, root_dir=REPOSITORY) for each in pages), []):
            with open(os.path.join(REPOSITORY, name), encoding="utf-8") as file:
                texts[name] = re.sub(r"^```.*?^```", "", file.read(), flags=re.S | re.M)
        broken = []
        for name, text in texts.items():
            for target in re.findall(r"\]\((?!\w+:)([^)\s]+)\)", text):
                path, _, anchor = target.partition("#")
                path = os.path.normpath(os.path.join(os.path.dirname(name), path)) if path else name
                headings = [re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-")
                            for heading in re.findall(r"^#+ (.*)$", texts.get(path, ""), re.M)]
                if not os.path.exists(os.path.join(REPOSITORY, path)) or anchor and anchor not in headings:
                    broken.append((name, target))
        self.assertEqual([], broken)
        self.assertGreater(len(texts), 10)


if __name__ == "__main__":
    unittest.main()
