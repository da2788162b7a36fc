"""The ways through the pages in Firefox: an owner signs in and makes a link, a visitor opens it, looks and uploads."""

import os
import unittest

import firefox
from demo import SHARING, Demo
from shared_files import Shared
from webdriver import Keys


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

    def test_an_owner_signs_in_and_makes_a_link_that_a_visitor_opens(self):
        browser = self.browser
        browser.open(self.demo.url + "/")
        browser.wait_for("#signin-account").type("alice")
        browser.find("#signin-password").type("wrong")
        browser.press(Keys.ENTER)
        browser.wait_for(".signin .notice")
        browser.find("#signin-password").type(self.demo.accounts["alice"])
        browser.press(Keys.ENTER)
        browser.wait_text("Signed in as alice", "#account")
        self.click("#more summary")
        self.click("#new")
        browser.find("#f-project_name").type("album")
        browser.find("#f-protect_title").type("From Firefox")
        self.click("#edit [type=submit]")
        browser.wait_for("#share .qr-large")
        link = browser.find("#share-url").property("value")
        self.demo.data(SHARING, "set", {"sharing_id": link.rsplit("/", 1)[1], "project_name": "album",
                                        "protect_type": "password", "protect_password": "sesame"}, account="alice")
        browser.open(link)
        browser.wait_for("#login input[name=password]").type("sesame")
        browser.press(Keys.ENTER)
        browser.wait(lambda: browser.script("return document.body.dataset.state === 'open' || !document.forms.login "
                                            "|| document.forms.login.hidden"))
        browser.open(self.demo.url + "/")
        browser.wait_text("From Firefox", "#links")
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


if __name__ == "__main__":
    unittest.main()
