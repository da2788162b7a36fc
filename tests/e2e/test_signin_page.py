"""The page /signin/ and what the owner's page says of who is signed in, in Chromium."""

import time
import unittest
import urllib.parse

import test_signin as api
from demo import SHARING, Demo
from webdriver import Browser, Keys


class SignInPage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.demo = Demo()
        cls.addClassCleanup(cls.demo.stop)
        api.DEMO = cls.demo
        cls.browser = Browser(1280, 900)
        cls.addClassCleanup(cls.browser.quit)

    def setUp(self):
        self.browser.devtools("Network.clearBrowserCookies")

    def tearDown(self):
        self.assertEqual(self.browser.console(), [])

    def click(self, css):
        self.browser.wait(lambda: self.browser.find(css).shown() and (self.browser.find(css).click() or True), css)

    def open(self, path):
        self.browser.open(self.demo.url + path)
        self.browser.wait_for("#signin-account")

    def sign_in(self, account="alice", password=None):
        self.browser.find("#signin-account").fill(account)
        self.browser.find("#signin-password").fill(password or self.demo.accounts[account])
        self.click(".signin button.primary")

    def problem(self):
        return self.browser.wait_for(".signin .notice:not([hidden])").text

    def choose(self, what):
        self.click("#account summary")
        self.click(f"#account [data-do={what}]")

    def end_sessions(self):
        cookies = api.sign_in("alice")
        api.call("session_end", others=True, cookies=cookies)

    def test_from_the_page_and_back_and_out(self):
        browser = self.browser
        self.open("/?a=b#c")
        self.assertEqual(self.demo.url + "/signin/?back=%2F%3Fa%3Db%23c", browser.url)
        self.sign_in(password="wrong")
        self.assertIn("is wrong", self.problem())
        browser.find("#signin-password").type(self.demo.accounts["alice"])
        self.click("[aria-controls=signin-password]")
        self.assertEqual("text", browser.find("#signin-password").property("type"))
        browser.press(Keys.TAB)
        browser.press(Keys.SPACE)
        browser.press(Keys.TAB)
        browser.press(Keys.ENTER)
        browser.wait_text("Signed in as alice", "#account")
        self.assertEqual(self.demo.url + "/?a=b#c", browser.url)
        browser.wait_text("1 attempt to sign in has failed", "#attempts")
        session = next(c for name, c in browser.cookies().items() if name.endswith("velt_owner_sid"))
        self.assertTrue(session["httpOnly"] and session["expiry"])
        self.choose("out")
        browser.wait_for("#signin-account")
        self.assertNotIn(session["name"], browser.cookies())
        browser.console()  # may tell of calls that were under way
        self.open("/webapi/docs/")
        self.sign_in()
        browser.wait(lambda: browser.url == self.demo.url + "/webapi/docs/")

    def test_back_leads_nowhere_else(self):
        for back in ("https://example.org/", "//example.org", "/\\example.org", "\\\\example.org",
                     "/.//example.org", "javascript:alert(1)", "data:text/html,x", "http:example.org",
                     "/signin/?back=/", "http://alice@example.org/", "///example.org", "https:///example.org"):
            with self.subTest(back):
                self.open("/signin/?" + urllib.parse.urlencode({"back": back}))
                self.sign_in()
                self.browser.wait(lambda: "/signin/" not in self.browser.url)
                self.assertTrue(self.browser.url.startswith(self.demo.url + "/"), self.browser.url)
                self.browser.devtools("Network.clearBrowserCookies")
        # Tells of addresses of which there is no page, and of calls without the cookies that are gone.
        self.browser.open("about:blank")
        self.browser.console()

    def test_a_session_that_ends_under_a_form(self):
        browser = self.browser
        browser.open(self.demo.url + "/", self.demo.login("alice"))
        browser.wait_text("Signed in as alice", "#account")
        self.click("#more summary")
        self.click("#new")
        browser.find("#f-project_name").type("album")
        browser.find("#f-protect_title").type("Typed before")
        self.end_sessions()
        self.click("#edit [type=submit]")
        browser.wait_for("#again[open] #signin-password")
        self.assertEqual("alice", browser.find("#signin-account").property("value"))
        browser.press(Keys.ESCAPE)
        browser.wait_text("no longer logged in", "#edit")
        self.click("#edit [type=submit]")
        browser.wait_for("#again[open] #signin-password")
        browser.find("#signin-password").type(self.demo.accounts["alice"])
        browser.press(Keys.ENTER)
        browser.wait_for("#share .qr-large")
        titles = [link["protect_title"] for link in self.demo.data(SHARING, "list", account="alice")["sharings"]]
        self.assertEqual(1, titles.count("Typed before"))
        browser.console()  # tells of the 401

    def test_sessions_and_tokens(self):
        browser = self.browser
        api.change("delete from owner_session")
        browser.open(self.demo.url + "/", self.demo.login("bob"))
        other = api.sign_in("bob")
        self.choose("sessions")
        browser.wait(lambda: len(browser.find_all("#access li")) == 2)
        browser.wait_text("this browser", "#access")
        self.assertEqual(1, len(browser.find_all("#access li button")))
        self.click("#access li button")
        browser.wait(lambda: len(browser.find_all("#access li")) == 1)
        self.assertEqual("", api.account_of(other))
        self.click("#access [data-do=close]")
        self.choose("tokens")
        browser.find("#access [name=name]").type("<b>nightly</b>")
        self.click("#access .primary")
        browser.wait_text("<b>nightly</b>", "#access li strong")
        token = browser.find("#access .made input").property("value")
        who = {"headers": api.bearer(token)}
        self.assertEqual("bob", api.call("get", **who).json["data"]["account"])
        self.assertEqual(105, api.code(api.call("set", api=SHARING, project_name="x", **who)))
        self.click("#access li button")
        browser.wait(lambda: not browser.find_all("#access li"))
        self.assertEqual("", api.call("get", **who).json["data"]["account"])
        self.click("#access [data-do=close]")
        self.assertEqual("", browser.find("#access .made input").property("value"))

    def test_too_many_attempts(self):
        self.addCleanup(api.forget_failures)
        self.open("/signin/")
        for _ in range(5):
            api.call("login", account="bob", password="guess")
        api.change("update failed_login set failed_at = failed_at + 60")  # or the pause may be over
        self.sign_in("bob")
        self.assertRegex(self.problem(), r"Try again in \d+ (second|minute)s?\.")
        self.assertIn("/signin/", self.browser.url)

    @unittest.skipUnless(api.HAS_OATH, "without libpam-oath")
    def test_a_further_question(self):
        api.ask_for_codes(self)
        self.open("/signin/")
        self.sign_in("bob")
        self.browser.wait_text("One-time password", ".signin label[for=signin-answer]")
        self.browser.find("#signin-answer").type("000000")
        self.browser.press(Keys.ENTER)
        self.assertIn("is wrong", self.problem())
        self.sign_in("bob")
        self.browser.wait_for("#signin-answer")
        self.browser.find("#signin-answer").type(api.one_time_code(int(time.time())))
        self.browser.press(Keys.ENTER)
        self.browser.wait_text("Signed in as bob", "#account")


if __name__ == "__main__":
    unittest.main()
