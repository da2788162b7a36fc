"""Files by link in a browser: the visitor's page and the owner's."""

import hashlib
import os
import shutil
import unittest

from demo import Demo
from shared_files import Shared, listed
from webdriver import Browser


def setUpModule():
    global DEMO, ALICE
    DEMO = Demo()
    unittest.addModuleCleanup(DEMO.stop)
    ALICE = Shared(DEMO)


class Pages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.browser = cls.enterClassContext(Browser())

    def test_a_visitor_opens_folders_previews_and_downloads(self):
        ALICE.put("page/sub/deep.txt", b"deep down <b>not bold</b>")
        for number in range(120):
            ALICE.put(f"page/{number:03}.bin")
        ALICE.put(b"page/\xff\xe2\x80\xae.txt", b"odd name")
        browser = self.browser
        browser.open(f"{DEMO.url}/sharing/{ALICE.share('page')}")
        browser.wait_text("100 of 122 shown")
        browser.find("#files-more").click()
        browser.wait(lambda: len(browser.find_all(".files > li")) == 122)
        odd = browser.find(".files > li:last-child .name")
        self.assertNotIn("\u202e", odd.text)
        odd.click()
        browser.wait_text("odd name", "#preview pre")
        browser.find("#preview .dialog-actions button").click()
        browser.find('[data-path="0/sub"] button.name').click()
        browser.wait_for('[data-path="0/sub/deep.txt"]')
        browser.find('[data-path="0/sub/deep.txt"] button.name').click()
        browser.wait_text("<b>not bold</b>", "#preview pre")
        browser.find("#preview .dialog-actions button").click()
        size = browser.script("""const link = document.querySelector('[data-path="0/sub/deep.txt"] .get').href;
            return fetch(link).then((answer) => answer.text()).then((text) => text.length);""")
        self.assertEqual(25, size)
        browser.script("history.back()")
        browser.wait_for('[data-path="0/sub"]')
        self.assertEqual([], [line for line in browser.console() if "favicon" not in str(line)])

    def test_twenty_files_arrive_though_the_connection_is_cut(self):
        folder = os.path.join(DEMO.state, "to-send")
        os.makedirs(folder, exist_ok=True)
        sums = {}
        for number in range(20):
            content = os.urandom((6 << 20) if number % 5 == 0 else 1000 + number)
            sums[f"file {number}.bin"] = hashlib.sha256(content).hexdigest()
            with open(os.path.join(folder, f"file {number}.bin"), "wb") as file:
                file.write(content)
        shutil.rmtree(ALICE.path("dropped"), ignore_errors=True)
        ALICE.put("dropped/x")
        browser = self.browser
        browser.open(f"{DEMO.url}/sharing/{ALICE.share('dropped', upload={'only': True, 'max_size': 1 << 30})}")
        browser.wait_for("#upload-files").type("\n".join(os.path.join(folder, name) for name in sums))
        conditions = {"latency": 0, "downloadThroughput": -1, "uploadThroughput": -1}
        browser.devtools("Network.enable")
        for done in (2, 9):
            browser.wait(lambda: len(browser.find_all('.uploads li[data-state="done"]')) >= done)
            browser.devtools("Network.emulateNetworkConditions", offline=True, **conditions)
            browser.wait_text("Waiting for the connection", ".uploads")
            browser.devtools("Network.emulateNetworkConditions", offline=False, **conditions)
        browser.wait(lambda: len(browser.find_all('.uploads li[data-state="done"]')) == 20, seconds=60)
        arrived = {}
        for name in os.listdir(ALICE.path("dropped")):
            with open(ALICE.path("dropped", name), "rb") as file:
                arrived[name] = hashlib.sha256(file.read()).hexdigest()
        arrived.pop("x")
        self.assertEqual(sums, arrived)

    def test_a_file_whose_last_answer_was_lost_has_arrived(self):
        path = os.path.join(DEMO.state, "lost.txt")
        with open(path, "w", encoding="ascii") as file:
            file.write("content")
        ALICE.put("lost/x")
        browser = self.browser
        browser.open(f"{DEMO.url}/sharing/{ALICE.share('lost', upload={'only': True})}")
        browser.wait_for("#upload-files")
        browser.script("""const fetch = window.fetch;
            let failures = 0;
            window.fetch = async (url, options) => {
              if (failures === 1) { failures = 2; throw new TypeError('offline'); }
              const answer = await fetch(url, options);
              if (failures === 0 && String(url).includes('upload_piece')) { failures = 1; throw new TypeError('lost'); }
              return answer;
            };""")
        browser.find("#upload-files").type(path)
        self.assertEqual("done", browser.wait_for(".uploads li[data-state]").attribute("data-state"))
        self.assertEqual(["lost.txt", "x"], sorted(os.listdir(ALICE.path("lost"))))

    def test_an_owner_chooses_and_sees_what_is_gone(self):
        ALICE.put("chosen/one.txt")
        ALICE.put("chosen/two.txt")
        browser = self.browser
        browser.open(DEMO.url + "/", DEMO.login("alice"))
        browser.wait(lambda: browser.find("#share-files").shown())
        browser.find("#share-files").click()
        browser.wait_for('#pick-list [data-path="chosen"] button').click()
        for name in ("one", "two"):
            browser.wait_for(f'#pick-list [data-path="chosen/{name}.txt"] input').click()
        browser.find("#pick-next").click()
        browser.wait(lambda: browser.find("#edit [type=submit]").shown())
        browser.find("#edit [type=submit]").click()
        browser.wait_text("chosen › two.txt", "#share-contents")
        link = browser.find("#share-url").property("value").rsplit("/", 1)[-1]
        browser.find("#share [data-close]").click()
        os.unlink(ALICE.path("chosen/two.txt"))
        browser.wait_for(f"[data-key='show {link}']").click()  # once the list has the new link
        browser.wait_text("two.txt (not there any more)", "#share-contents")
        visitor = DEMO.visitor(link)
        self.assertTrue(visitor.login()["success"])
        self.assertEqual(["one.txt"], listed(visitor, ""))


if __name__ == "__main__":
    unittest.main()
