"""Files by link in a browser: the visitor's page and the owner's."""

import hashlib
import os
import shutil
import unittest
import wave

from demo import SHARING, Demo
from shared_files import FILES, Shared, ask, listed
from webdriver import Browser

PAPER = (b"%PDF-1.4\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj 2 0 obj<</Type/Pages/Kids[3 0 R]/Count 1>>endobj "
         b"3 0 obj<</Type/Page/Parent 2 0 R/MediaBox[0 0 200 100]>>endobj\ntrailer<</Root 1 0 R>>")


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
            ALICE.put(f"page/{number:03}{' of a name that is long.txt' if number == 50 else '.bin'}")
        ALICE.put(b"page/\xff\xe2\x80\xae.txt", b"odd name")
        browser = self.browser
        browser.open(f"{DEMO.url}/sharing/{ALICE.share('page')}")
        browser.wait_text("100 of 122 shown")
        browser.find("#files-more").click()
        browser.wait(lambda: len(browser.find_all(".files > li")) == 122)
        browser.set_size(390, 844)
        self.assertEqual([], browser.script("""return [...document.querySelectorAll('.files .what')]
            .filter((what) => what.scrollWidth > what.clientWidth).map((what) => what.textContent);"""))
        browser.set_size(1100, 800)
        odd = browser.find(".files > li:last-child .name")
        self.assertNotIn("\u202e", odd.text)
        odd.click()
        browser.wait_text("odd name", "#preview pre")
        browser.find("#preview-close").click()
        browser.find('[data-path="0/sub"] button.name').click()
        browser.wait_for('[data-path="0/sub/deep.txt"]')
        browser.find('[data-path="0/sub/deep.txt"] button.name').click()
        browser.wait_text("<b>not bold</b>", "#preview pre")
        browser.find("#preview-close").click()
        size = browser.script("""const link = document.querySelector('[data-path="0/sub/deep.txt"] .get').href;
            return fetch(link).then((answer) => answer.text()).then((text) => text.length);""")
        self.assertEqual(25, size)
        browser.script("history.back()")
        browser.wait_for('[data-path="0/sub"]')
        self.assertEqual([], [line for line in browser.console() if "favicon" not in str(line)])

    def test_what_a_browser_can_show_is_shown(self):
        # Made by: ffmpeg -f lavfi -i testsrc=size=32x24:rate=5:duration=2 -c:v libvpx film.webm
        film = os.path.join(os.path.dirname(__file__), "media/film.webm")
        with wave.open(os.path.join(DEMO.state, "sound.wav"), "wb") as sound:
            sound.setparams((1, 2, 8000, 0, "NONE", ""))
            sound.writeframes(bytes(16000))
        for path in (film, os.path.join(DEMO.state, "sound.wav"), ALICE.path("Coast/Dawn.png")):
            with open(path, "rb") as file:
                ALICE.put("shown/" + os.path.basename(path), file.read())
        ALICE.put("shown/paper.pdf", PAPER)
        ALICE.put("shown/page.html", b"<script>alert(1)</script>")
        ALICE.put("shown/table.csv", b"a;b\n1;2\n")
        browser = self.browser
        browser.console()  # without another test's
        browser.open(f"{DEMO.url}/sharing/{ALICE.share('shown')}")
        for name, shown, expected in (
                ("film.webm", "v = q('video'); return v && v.readyState >= 2 ? [v.videoWidth, v.duration] : null",
                 [32, 2]),
                ("sound.wav", "v = q('audio'); return v && v.readyState >= 2 ? [v.duration] : null", [1]),
                ("Dawn.png", "v = q('img'); return v && v.naturalWidth ? [v.naturalWidth] : null", [640]),
                ("table.csv", "v = q('pre'); return v && v.textContent ? [v.textContent] : null", ["a;b\n1;2\n"])):
            with self.subTest(name):
                browser.wait_for(f'[data-path="0/{name}"] button.name').click()
                script = f"const q = (css) => document.querySelector('#preview ' + css); let {shown}"
                browser.wait(lambda: browser.script(script))
                self.assertEqual(expected, browser.script(script))
                browser.find("#preview-close").click()
        browser.find('[data-path="0/film.webm"] button.name').click()
        browser.script("document.querySelector('#preview video').currentTime = 1.5")  # a part of the file
        browser.wait(lambda: browser.script("const v = document.querySelector('#preview video'); "
                                            "return !v.seeking && v.currentTime === 1.5 && v.error === null"))
        browser.find("#preview-close").click()
        browser.find('[data-path="0/paper.pdf"] button.name').click()
        browser.wait(lambda: browser.script(
            "return document.querySelector('#preview iframe').contentDocument?.contentType") == "application/pdf")
        browser.find("#preview-close").click()
        self.assertEqual([], browser.find_all('[data-path="0/page.html"] button.name'))
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
        browser.wait_for("#upload-files")
        # No upload begins once as many are done, so that the connection is cut before all have arrived.
        browser.script('''const fetch = window.fetch;
            window.most = 2;
            window.fetch = async (url, options) => {
              const begins = String(options?.body).includes('upload_begin');
              while (begins && document.querySelectorAll('.uploads li[data-state="done"]').length >= window.most) {
                await new Promise(requestAnimationFrame);
              }
              return fetch(url, options);
            };''')
        browser.find("#upload-files").type("\n".join(os.path.join(folder, name) for name in sums))
        conditions = {"latency": 0, "downloadThroughput": -1, "uploadThroughput": -1}
        browser.devtools("Network.enable")
        for done, most in ((2, 9), (9, 20)):
            browser.wait(lambda: len(browser.find_all('.uploads li[data-state="done"]')) >= done)
            browser.devtools("Network.emulateNetworkConditions", offline=True, **conditions)
            browser.script(f"window.most = {most};")
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
        ALICE.put("lost/lost.txt")
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
        row = browser.wait_for(".uploads li[data-state]")
        self.assertEqual("done", row.attribute("data-state"))
        self.assertIn("lost (2).txt", row.text)
        self.assertEqual(["lost (2).txt", "lost.txt"], sorted(os.listdir(ALICE.path("lost"))))

    def test_an_upload_is_held_and_goes_on_after_the_page_was_closed(self):
        path = os.path.join(DEMO.state, "long.bin")
        content = os.urandom(9 << 20)
        with open(path, "wb") as file:
            file.write(content)
        ALICE.put("long/x")
        link = ALICE.share("long", upload={"only": True})
        browser = self.browser
        browser.open(f"{DEMO.url}/sharing/{link}")
        hold = """const fetch = window.fetch;
            window.pieces = 0;
            window.fetch = async (url, options) => {
              if (String(url).includes('upload_piece') && ++window.pieces === 1) {
                document.querySelector('.uploads li button').click();
              }
              return fetch(url, options);
            };"""
        browser.wait_for("#upload-files")
        browser.script(hold)
        browser.find("#upload-files").type(path)
        browser.wait(lambda: browser.script("return document.querySelector('.uploads progress').value") == 4 << 20)
        browser.wait_text("Paused", ".uploads")
        self.assertEqual(1, browser.script("return window.pieces"))
        browser.script("window.addEventListener('beforeunload', (event) => event.stopImmediatePropagation(), true)")
        browser.open("about:blank")
        browser.open(f"{DEMO.url}/sharing/{link}")
        browser.wait_text("Not sent to the end: long.bin", "#upload")
        browser.script(hold.replace("=== 1", "=== 0"))
        browser.find("#upload-files").type(path)
        browser.wait_for('.uploads li[data-state="done"]', seconds=60)
        self.assertEqual(2, browser.script("return window.pieces"))  # of three
        with open(ALICE.path("long/long.bin"), "rb") as file:
            self.assertEqual(content, file.read())
        browser.reload()
        browser.wait_for(".drop")
        self.assertNotIn("Not sent", browser.find("#upload").text)

    def test_each_upload_ends_by_itself_and_holds_up_no_other(self):
        folder = os.path.join(DEMO.state, "mixed")
        os.makedirs(folder, exist_ok=True)
        paths = [os.path.join(folder, name) for name in ("gone.txt", "unlucky.txt", "last.txt")]
        for path in paths:
            with open(path, "w", encoding="ascii") as file:
                file.write("content")
        ALICE.put("mixed/x")
        link = ALICE.share("mixed", upload={"only": True})
        browser = self.browser
        browser.open(f"{DEMO.url}/sharing/{link}")
        browser.wait_for("#upload-files")
        browser.script('''const fetch = window.fetch;
            window.lost = true;
            window.fetch = async (url, options) => {
              if (window.lost && String(options?.body).includes('unlucky')) throw new TypeError('lost');
              return fetch(url, options);
            };
            const input = document.querySelector('#upload-files');
            input.addEventListener('change', (event) => {
              if (!window.held) { event.stopImmediatePropagation(); window.held = [...input.files]; }
            }, true);''')
        browser.find("#upload-files").type("\n".join(paths))
        os.unlink(paths[0])
        browser.script('''const transfer = new DataTransfer();
            for (const file of window.held) transfer.items.add(file);
            document.querySelector('.drop').dispatchEvent(new DragEvent('drop', {dataTransfer: transfer}));''')

        def row(number):
            return browser.wait_for(f".uploads li:nth-child({number})")

        browser.wait(lambda: row(3).attribute("data-state") == "done")
        self.assertEqual("failed", row(1).attribute("data-state"))
        self.assertIn("can’t be read", row(1).text)
        self.assertIn("Waiting for the connection", row(2).text)
        browser.find(".uploads li:nth-child(2) button:last-child").click()
        browser.wait(lambda: row(2).attribute("data-state") == "failed")
        self.assertIn("Cancelled", row(2).text)
        browser.script("window.lost = false;")
        with open(paths[0], "w", encoding="ascii") as file:
            file.write("changed")
        for number in (1, 2):
            browser.find(f".uploads li:nth-child({number}) button:last-child").click()
        browser.wait(lambda: row(2).attribute("data-state") == "done")
        browser.wait(lambda: row(1).attribute("data-state") == "failed")
        self.assertEqual(["last.txt", "unlucky.txt", "x"], sorted(os.listdir(ALICE.path("mixed"))))
        self.assertEqual([], DEMO.data(FILES, "describe", {"sharing_id": link})["unfinished"])

    def test_an_owner_chooses_and_sees_what_is_gone(self):
        ALICE.put("chosen/one.txt")
        ALICE.put("chosen/two.txt")
        browser = self.browser
        browser.open(DEMO.url + "/", DEMO.login("alice"))
        browser.wait_for("[data-application=files]").click()
        browser.wait_for("#pick-search").type("TWO.")
        browser.wait(lambda: browser.find("#pick-next").property("disabled"))  # not the folder, which is out of sight
        browser.wait_for('#pick-list [data-path="chosen/two.txt"] input').click()
        browser.find("#pick-search").clear()
        browser.wait_for('#pick-list [data-path="chosen"] button').click()
        browser.wait_for('#pick-list [data-path="chosen/one.txt"] input').click()
        browser.find("#pick-next").click()
        browser.wait_text("chosen › two.txt", "#share-contents")
        link = browser.find("#share-url").property("value").rsplit("/", 1)[-1]
        browser.find("#edit [data-close]").click()
        os.unlink(ALICE.path("chosen/two.txt"))
        browser.wait_for(f"[data-key='show {link}']").click()  # once the list has the new link
        browser.wait_text("two.txt (not there any more)", "#share-contents")
        visitor = DEMO.visitor(link)
        self.assertTrue(visitor.login()["success"])
        self.assertEqual(["one.txt"], listed(visitor, ""))
        # Later the owner lets it share the whole folder instead, and takes files.
        browser.find("#share-change").click()
        browser.wait(lambda: browser.find_all("#pick-list input:checked"))
        browser.find('#pick-list [data-path="chosen/one.txt"] input').click()
        browser.wait_for("#pick-takes").click()
        browser.find("#pick-size").fill("5")
        browser.find("#pick-next").click()
        browser.wait(lambda: DEMO.data(SHARING, "get", {"sharing_id": link})["app"] == {
            "root": "home", "items": ["chosen"], "upload": {"max_size": 5000000, "max_files": 100}})

    def test_an_owner_sees_and_removes_what_is_unfinished(self):
        ALICE.put("open/x")
        visitor = ALICE.visit("open", upload={})
        for name in ("<b>one.bin", "two.bin"):
            self.assertTrue(ask(visitor, "upload_begin", name=name, size=5000)["success"])
        browser = self.browser
        browser.open(DEMO.url + "/", DEMO.login("alice"))
        browser.wait_for(f"[data-key='show {visitor.link_id}']").click()
        browser.wait_text("<b>one.bin", "#share-contents")
        rows = [row.text for row in browser.find_all("#share-contents li") if ".bin" in row.text]
        self.assertEqual(2, len(rows))
        self.assertIn("0 bytes of 5 kB", rows[0])
        browser.find("#share-contents li button").click()
        browser.wait(lambda: len(browser.find_all("#share-contents li button")) == 1)
        self.assertEqual(1, len(DEMO.data(FILES, "describe", {"sharing_id": visitor.link_id})["unfinished"]))

    def test_files_of_the_owners_computer_are_put_into_a_folder_and_shared(self):
        shutil.rmtree(ALICE.path("mine"), ignore_errors=True)
        ALICE.put("mine/x.txt", b"was here")
        path = os.path.join(DEMO.state, "x.txt")
        content = os.urandom(2500000)
        with open(path, "wb") as file:
            file.write(content)
        browser = self.browser
        browser.open(DEMO.url + "/", DEMO.login("alice"))
        browser.wait_for("[data-application=files]").click()
        browser.wait_for('#pick-list [data-path="mine"] button').click()
        browser.wait_for('#pick-list [data-path="mine/x.txt"]')
        browser.find("#pick-files").type(path)
        browser.wait_for('#pick-list [data-path="mine/x (2).txt"] input:checked')
        with open(ALICE.path("mine/x (2).txt"), "rb") as file:
            self.assertEqual(content, file.read())
        browser.script("""const transfer = new DataTransfer();
            transfer.items.add(new File(['dropped'], 'dropped.txt'));
            transfer.items.add(new File(['not this'], 'cancelled.txt'));
            const fetch = window.fetch;
            window.fetch = (url, options) => String(options?.body).includes('cancelled.txt') ?
              new Promise((resolve, reject) => { window.fail = reject; }) : fetch(url, options);
            document.querySelector('#pick-list').dispatchEvent(new DragEvent('drop', {dataTransfer: transfer}));""")
        browser.wait_for('#pick-list [data-path="mine/dropped.txt"] input:checked')
        self.assertTrue(browser.find("#pick-next").property("disabled"))  # not before all have ended
        browser.find("#pick .uploads li:last-child button:last-child").click()
        browser.script("window.fail(new TypeError('lost'))")
        browser.wait_text("Cancelled", "#pick .uploads")
        browser.wait(lambda: not browser.find("#pick-next").property("disabled"))
        browser.find("#pick-next").click()
        browser.wait_for("#share .qr-large")
        link = browser.find("#share-url").property("value").rsplit("/", 1)[1]
        self.assertEqual({"mine/x (2).txt", "mine/dropped.txt"},
                         {item["path"] for item in DEMO.data(FILES, "describe", {"sharing_id": link})["items"]})
        browser.find("#edit [data-close]").click()
        # What is refused says why.
        if os.geteuid() == 0:
            os.chmod(ALICE.path("mine"), 0o550)
            browser.find("[data-application=files]").click()
            browser.wait_for('#pick-list [data-path="mine"] button').click()
            browser.wait_for('#pick-list [data-path="mine/x.txt"]')
            self.assertEqual([], browser.find_all("#pick .uploads li"))
            browser.find("#pick-files").type(path)
            browser.wait_text("You may not put files here", "#pick .uploads")
            os.chmod(ALICE.path("mine"), 0o750)


if __name__ == "__main__":
    unittest.main()
