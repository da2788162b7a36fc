"""The page of an upload link: folders, what was sent, what the owner says, and how programs send files."""

import os
import subprocess
import tempfile
import unittest

from demo import Demo
from shared_files import Shared, ask, code
from webdriver import Browser


def setUpModule():
    global DEMO, ALICE, BROWSER
    DEMO = Demo()
    unittest.addModuleCleanup(DEMO.stop)
    ALICE = Shared(DEMO)
    BROWSER = Browser()
    unittest.addModuleCleanup(BROWSER.quit)


def tree(path):
    return sorted(os.path.relpath(os.path.join(folder, name), path)
                  for folder, _, names in os.walk(path) for name in names)


class Folders(unittest.TestCase):
    """Of the server: a name may be a path, whose folders are made."""

    def test_missing_folders_are_made_and_nothing_leads_out_of_the_link(self):
        ALICE.put("tree/old/a.txt", b"was here")
        ALICE.put("tree/file", b"no folder")
        ALICE.put("outside/b.txt", b"")
        os.symlink(ALICE.path("outside"), ALICE.path("tree/link"))
        visitor = ALICE.visit("tree", upload={})
        for path, given in (("new/deep/a.txt", "new/deep/a.txt"), ("old/a.txt", "old/a (2).txt"),
                            ("file/a.txt", "file (2)/a.txt"), ("link/a.txt", "link (2)/a.txt"),
                            (".git/hooks/x", "_git/hooks/x"), ("new/desktop.ini", "new/_desktop.ini")):
            self.assertEqual(given, ask(visitor, "upload_begin", name=path, size=0)["data"]["name"])
        for path in ("../x", "a/../../x", "/x", "a//x", "a/%2E%2E/x"):
            self.assertEqual(2001, code(ask(visitor, "upload_begin", name=path, size=0)), path)
        self.assertEqual(["b.txt"], os.listdir(ALICE.path("outside")))
        made, home = os.stat(ALICE.path("tree/new")), os.stat(ALICE.home)
        self.assertEqual((home.st_uid, home.st_gid, 0o750), (made.st_uid, made.st_gid, made.st_mode & 0o777))


class Page(unittest.TestCase):
    def setUp(self):
        self.work = tempfile.TemporaryDirectory()
        self.addCleanup(self.work.cleanup)

    def write(self, path, content):
        full = os.path.join(self.work.name, path)
        os.makedirs(os.path.dirname(full), exist_ok=True)
        with open(full, "wb") as file:
            file.write(content)
        return full

    def open(self, folder, **rule):
        ALICE.put(folder + "/a.txt")
        link = ALICE.share(folder, upload={"max_size": 5000, "max_files": 9, **rule})
        BROWSER.open(f"{DEMO.url}/sharing/{link}")
        BROWSER.wait_for("#upload-files")
        return link

    def wait_ended(self, count):
        BROWSER.wait(lambda: len(BROWSER.find_all(".uploads li[data-state]")) == count)
        return [row.text for row in BROWSER.find_all(".uploads li")]

    def test_a_folder_keeps_its_tree(self):
        link = self.open("chosen-folder", only=True)
        for path in ("Trip/one.txt", "Trip/Day 1/two.txt", "Trip/Day 1/three%.txt"):
            self.write(path, b"x" * 7)
        BROWSER.find("#upload-folder").type(os.path.join(self.work.name, "Trip"))
        self.wait_ended(3)
        self.assertEqual(["Trip/Day 1/three%.txt", "Trip/Day 1/two.txt", "Trip/one.txt", "a.txt"],
                         tree(ALICE.path("chosen-folder")))
        # What was sent is told after the page was loaded again, too.
        BROWSER.open(f"{DEMO.url}/sharing/{link}")
        sent = BROWSER.wait_for(".sent summary")
        self.assertIn("Sent so far: 3 files, 21 bytes", sent.text)
        sent.click()
        self.assertIn("Trip/Day 1/two.txt", BROWSER.find(".sent").text)

    def test_a_dropped_folder_keeps_its_tree(self):
        self.open("dropped-folder", only=True)
        # No driver drops folders, so these entries stand in for the browser's.
        BROWSER.script("""
            const file = (path) => ({isFile: true, fullPath: path, name: path.split('/').at(-1),
              file: (done) => done(new File(['seven'], path.split('/').at(-1)))});
            const folder = (path, ...inner) => ({isFile: false, fullPath: path, name: path.slice(1),
              createReader: () => ({readEntries: (done) => done(inner.splice(0, 1))})});
            const inner = folder('/Box/in', file('/Box/in/2.txt'));
            const entries = [folder('/Box', file('/Box/1.txt'), inner), file('/3.txt')];
            const event = new Event('drop');
            event.dataTransfer = {items: entries.map((entry) => (
              {kind: 'file', getAsFile: () => null, webkitGetAsEntry: () => entry}))};
            document.querySelector('.drop').dispatchEvent(event);""")
        self.wait_ended(3)
        self.assertEqual(["3.txt", "Box/1.txt", "Box/in/2.txt", "a.txt"], tree(ALICE.path("dropped-folder")))

    def test_each_refusal_has_its_words(self):
        self.open("refused", max_files=1)
        paths = [self.write(name, content) for name, content in (("large.txt", b"x" * 5001), ("fits.txt", b"x"))]
        BROWSER.find("#upload-files").type("\n".join(paths))
        rows = self.wait_ended(2)
        self.assertIn("larger than the link takes", rows[0])
        self.assertIn("Done", rows[1])
        BROWSER.find("#upload-files").type(self.write("more.txt", b"x"))
        self.assertIn("as many files as it may", self.wait_ended(3)[2])

    def test_the_owners_note_and_the_line_for_a_terminal(self):
        note = "Only pictures, please.\n<b>Thanks!</b>"
        link = self.open("noted", note=note)
        self.assertEqual(note, BROWSER.find("#upload .note").text)
        BROWSER.find(".terminal summary").click()
        command = BROWSER.find(".terminal code").text
        self.assertIn(f"/sharing/{link}/", command)
        command = command.replace("FILE", self.write("by-hand.txt", b"hello"))
        self.assertEqual("by-hand.txt\n", subprocess.check_output(["sh", "-c", command], text=True,
                                                                  stderr=subprocess.DEVNULL))
        self.assertEqual({"max_size": 5000, "max_files": 9, "only": False, "note": note},
                         DEMO.data("VELT.Files", "describe", {"sharing_id": link})["upload"])


if __name__ == "__main__":
    unittest.main()
