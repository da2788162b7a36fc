"""The ways through the pages in Firefox: an owner signs in and shares pictures, visitors look at them and upload."""

import os
import unittest

import firefox
from demo import Demo
from shared_files import Shared
from webdriver import Keys

LEFT, RIGHT = "\ue012", "\ue014"


@unittest.skipUnless(firefox.is_installed(), "without firefox-esr")
class InFirefox(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.demo = Demo()
        cls.addClassCleanup(cls.demo.stop)
        cls.browser = firefox.Firefox()
        cls.addClassCleanup(cls.browser.quit)

    def click(self, css):
        self.browser.wait(lambda: self.browser.find(css).shown() and (self.browser.find(css).click() or True), css)

    def test_an_owner_shares_pictures_in_three_clicks_and_sets_a_password(self):
        browser = self.browser
        browser.open(self.demo.url + "/")
        browser.wait_for("#signin-account").type("alice")
        browser.find("#signin-password").type("wrong")
        browser.press(Keys.ENTER)
        browser.wait_for(".signin .notice")
        browser.find("#signin-password").type(self.demo.accounts["alice"])
        browser.press(Keys.ENTER)
        browser.wait_text("Signed in as alice", "#account")
        self.click("[data-application=files]")
        self.click('#pick-list [data-path="Coast"] input')
        self.click("#pick-next")
        browser.wait_for("#share .qr-large")
        link = browser.find("#share-url").property("value")
        browser.find("#f-protect_type").type("A password")
        self.click("#make-password")
        password = browser.find("#f-protect_password").property("value")
        self.click("#edit [type=submit]")
        browser.wait(lambda: not browser.find("#edit").shown())
        browser.open(link)
        browser.wait_for("#login input[name=password]").type(password)
        browser.press(Keys.ENTER)
        browser.wait_for(".tile button")
        browser.script("document.querySelector('.tile button').focus()")
        browser.press(Keys.ENTER)
        browser.wait_for("#preview img")
        first = browser.find("#preview h2").text
        browser.press(RIGHT)
        browser.wait(lambda: browser.find("#preview h2").text != first)
        browser.press(LEFT)
        browser.wait_text(first, "#preview h2")
        browser.press(Keys.ESCAPE)
        browser.wait(lambda: not browser.find_all("#preview"))
        browser.open(self.demo.url + "/")
        browser.wait_text("Coast", "#links")
        self.click("#account summary")
        self.click("#account [data-do=out]")
        browser.wait_for("#signin-account")

    def test_a_visitor_looks_at_files_and_uploads_one(self):
        files = Shared(self.demo)
        files.put("seen/note.txt", b"some words")
        self.browser.open(f"{self.demo.url}/sharing/{files.share('seen', upload={})}")
        self.browser.wait_text("note.txt", ".files")
        path = os.path.join(self.demo.state, "sent.txt")
        with open(path, "wb") as file:
            file.write(b"sent by Firefox")
        self.browser.wait(lambda: self.browser.find("input[type=file]")).type(path)
        self.browser.wait(lambda: os.path.exists(os.path.join(files.home, "seen/sent.txt")), "the file")
        self.browser.wait_text("sent.txt", ".files")

    def test_an_upload_goes_on_after_the_page_was_closed(self):
        browser, files = self.browser, Shared(self.demo)
        path = os.path.join(self.demo.state, "long.bin")
        content = os.urandom(9 << 20)
        with open(path, "wb") as file:
            file.write(content)
        files.put("long/x")
        link = f"{self.demo.url}/sharing/{files.share('long', upload={})}"
        browser.open(link)
        browser.wait_for("#upload-files")
        # The first piece arrives, the second one waits for ever.
        browser.script("""
            const fetch = window.fetch;
            let pieces = 0;
            window.fetch = (url, options) => String(url).includes('upload_piece') && ++pieces === 2 ?
              new Promise(() => {}) : fetch(url, options);
            window.addEventListener('beforeunload', (event) => event.stopImmediatePropagation(), true);""")
        browser.find("#upload-files").type(path)
        browser.wait(lambda: browser.script("return document.querySelector('.uploads progress')?.value") == 4 << 20)
        browser.open("about:blank")
        browser.open(link)
        browser.wait_text("Not sent to the end: long.bin", "#upload")
        browser.script("""
            const fetch = window.fetch;
            window.pieces = 0;
            window.fetch = (url, options) => {
              window.pieces += String(url).includes('upload_piece');
              return fetch(url, options);
            };""")
        browser.find("#upload-files").type(path)
        browser.wait_for('.uploads li[data-state="done"]')
        self.assertEqual(2, browser.script("return window.pieces"))  # of three
        with open(os.path.join(files.home, "long/long.bin"), "rb") as file:
            self.assertEqual(content, file.read())


if __name__ == "__main__":
    unittest.main()
