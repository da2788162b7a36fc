"""The owner's page in Chromium, for tests."""

import subprocess
import tempfile
import unittest

from demo import SHARING, Demo
from webdriver import Browser, Keys

CONTROL = "\ue009"


class OwnerPage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.demo = Demo()
        cls.addClassCleanup(cls.demo.stop)
        cls.browser = Browser(1280, 900)
        cls.addClassCleanup(cls.browser.quit)

    def setUp(self):
        for link in self.demo.data(SHARING, "list", {"all_entry": True}, account="admin")["sharings"]:
            self.demo.data(SHARING, "delete", {"sharing_id": link["sharing_id"]}, account="admin")

    def tearDown(self):
        # The console also shows what the Content-Security-Policy refuses.
        self.assertEqual(self.browser.console(), [])

    def open(self, account="alice"):
        self.browser.set_size(1280, 900)
        self.browser.open(self.demo.url + "/", self.demo.login(account))
        self.browser.wait_for("#links[aria-busy=false], #empty")

    def get(self, link_id, account="alice"):
        return self.demo.data(SHARING, "get", {"sharing_id": link_id}, account)

    def click(self, css):
        # A list that is drawn again may replace the button between finding and clicking it.
        self.browser.wait(lambda: self.browser.find(css).shown() and (self.browser.find(css).click() or True), css)

    def fill(self, **fields):
        for name, text in fields.items():
            field = self.browser.find(f"#f-{name}")
            if field.attribute("data-kind") not in ("time", "flag") and field.property("tagName") != "SELECT":
                field.clear()
            field.click() if text is None else field.type(text)

    def new_link(self):
        self.click("#more summary")
        self.click("#new")
        self.browser.wait_for("#edit")

    def titles(self):
        return self.browser.script("return [...document.querySelectorAll('td .title')].map(t => t.textContent)")

    def sort_by_title(self, direction="ascending"):
        self.click("[data-key='sort protect_title']")
        self.browser.wait_for(f"th[aria-sort={direction}] [data-key='sort protect_title']")

    def shows(self, *titles):
        self.browser.wait(lambda: self.titles() == list(titles), f"titles {[title[:40] for title in titles]}")

    def said(self, text):
        self.browser.wait(lambda: text in self.browser.find("#status").property("textContent"), f"saying {text!r}")

    def scan(self, browser=None):
        """The text that a phone would read from the dialog's QR code, or from all that a browser shows."""
        with tempfile.TemporaryDirectory() as folder:
            (browser or self.browser.find("#share")).screenshot(f"{folder}/screen.png")
            return subprocess.run(["zbarimg", "--quiet", "--raw", f"{folder}/screen.png"], check=True,
                                  capture_output=True, text=True).stdout.strip()

    def tab_to(self, css):
        for _ in range(80):
            if self.browser.script("return document.activeElement.matches(arguments[0])", css):
                return
            self.browser.press(Keys.TAB)
        self.fail(f"the Tab key does not reach {css}")

    def asks_before_leaving(self):
        return self.browser.script("""const event = new Event('beforeunload', {cancelable: true});
            return !dispatchEvent(event);""")

    def hold_calls(self, condition):
        """Holds the page's calls for which a condition of JavaScript on `call` and `options` is true. `go()` in the
        page sends them."""
        self.browser.script(f"""const fetch = window.fetch;
            window.held = [];
            window.fetch = async (url, options = {{}}) => {{
                const call = JSON.parse(options.body ?? '{{}}');
                if ({condition}) await new Promise((resolve) => window.held.push(resolve));
                return fetch(url, options);
            }};
            window.go = () => window.held.splice(0).forEach((resolve) => resolve());""")
