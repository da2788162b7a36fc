"""axe-core finds nothing on any page in any state, and the first view is small and not kept waiting."""

import os
import unittest

import npm
from demo import SHARING, Demo
from shared_files import Shared
from webdriver import Browser, Keys

FIRST_VIEW = 100 * 1000  # bytes


class Pages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with open(f"{npm.install('axe')}/node_modules/axe-core/axe.min.js", encoding="utf-8") as file:
            cls.axe = file.read()
        cls.demo = Demo()
        cls.addClassCleanup(cls.demo.stop)
        cls.browser = Browser(1280, 900)
        cls.addClassCleanup(cls.browser.quit)
        cls.files = Shared(cls.demo)
        cls.files.put("seen/sub/note.txt", b"text")
        cls.files.put("seen/data.bin")

    def check(self, state, variant):
        """What axe-core finds, the rules of good practice included."""
        with self.subTest(state, variant=variant):
            if folder := os.environ.get("VELT_SCREENSHOTS"):
                self.browser.screenshot(f"{folder}/{variant} {state}.png")
            if not self.browser.script("return 'axe' in window"):
                self.browser.script(self.axe)
            found = self.browser.script("""return axe.run({resultTypes: ['violations']}).then(({violations}) =>
                violations.flatMap(({id, nodes}) => nodes.map((node) => `${id}: ${node.html.slice(0, 200)}`)))""")
            self.assertEqual([], found)
            self.assertLessEqual(*self.browser.script("return [document.documentElement.scrollWidth, innerWidth]"))

    def variants(self):
        """Both pages in light and dark, on a desk and a phone, in both directions of writing."""
        self.addCleanup(self.browser.set_color_scheme, "light")
        desk, phone = (1280, 900), (390, 844)
        for name, size, scheme, language in (
                ("desk", desk, "light", "enu"), ("phone", phone, "dark", "ara"),
                ("desk dark", desk, "dark", "ger"), ("phone light", phone, "light", "enu")):
            self.browser.devtools("Network.clearBrowserCookies")
            self.browser.devtools("Network.setCookie", name="velt_language", value=language, url=self.demo.url)
            self.browser.set_size(*size)
            self.browser.set_color_scheme(scheme)
            yield name

    def click(self, css):
        self.browser.wait(lambda: self.browser.find(css).shown() and (self.browser.find(css).click() or True), css)

    def owner(self, account="alice"):
        self.browser.open(self.demo.url + "/", self.demo.login(account))
        self.browser.wait_for("#links[aria-busy=false], #empty")

    def owners_states(self):
        browser = self.browser
        browser.open(self.demo.url + "/")
        browser.wait_for("#signin-account")
        yield "sign in"
        browser.find("#signin-account").type("nobody")
        browser.find("#signin-password").type("guess")
        self.click(".signin button.primary")
        browser.wait_for(".signin .notice")
        yield "sign in, refused"
        self.owner()
        browser.wait_for("td.visits svg")
        yield "list"
        for what in ("sessions", "tokens"):
            self.click("#account summary")
            yield "account's menu"
            self.click(f"#account [data-do={what}]")
            browser.wait_for("#access[open] .hint")
            yield what
            browser.press(Keys.ESCAPE)
        self.click("#account summary")
        self.click("#account [data-do=notify]")
        browser.wait_for("#notify .kinds input")
        yield "notifications"
        browser.find("#n-webhook").fill("no address" + Keys.ENTER)
        browser.wait_for("#notify .notice")
        yield "notifications, refused"
        browser.press(Keys.ESCAPE)
        self.click("[data-key^=show]")
        browser.wait_for("#share .qr-large")
        yield "share"
        self.click("#tell summary")
        yield "what to tell of it"
        self.click("#share-copy")
        yield "share, copied"
        browser.press(Keys.ESCAPE)
        self.click("#more summary")
        yield "more"
        self.click("#new")
        browser.wait_for("#edit")
        yield "new link"
        browser.script("""document.querySelector('#edit details').open = true;
            const values = {protect_type: 'user', redirect_type: 'always', expire_times: 'x'};
            for (const [name, value] of Object.entries(values)) {
              const field = document.querySelector(`#f-${name}`);
              field.value = value;
              field.dispatchEvent(new Event('change', {bubbles: true}));
            }""")
        self.click("#edit [type=submit]")
        browser.wait_for(".field-error, #edit .notice")
        yield "new link, refused"
        browser.press(Keys.ESCAPE)
        browser.wait_for("#confirm")
        yield "discard"
        self.click("#confirm-yes")
        self.click("#select-all")
        yield "selected"
        self.click("[data-do=clear]")
        self.click("[data-key^=delete]")
        browser.wait_for("#undo")
        yield "undo"
        self.click("#undo-now")
        browser.find("#search").type("no such title")
        browser.wait_for("#empty")
        yield "no match"
        browser.find("#search").clear()
        self.click("[data-application=files]")
        browser.wait_for("#pick-list li")
        self.click("#pick-takes")
        yield "choose files"
        browser.press(Keys.ESCAPE)
        os.rename(self.demo.database, self.demo.database + ".away")
        try:
            browser.find("#search").type("x")
            browser.wait_for("#problem")
        finally:
            os.rename(self.demo.database + ".away", self.demo.database)
        yield "no database"

    def visitors_states(self):
        browser, links = self.browser, self.demo.links

        def page(link, wait="main p"):
            browser.open(f"{self.demo.url}/sharing/{link}")
            browser.wait_for("#languages")
            browser.wait_for(wait)

        for kind in ("disabled", "expired", "used_up"):
            page(links[kind])
            yield kind
        page(links["pending"], "time[dir=auto]")
        yield "pending"
        page(links["open"], "#bare")
        yield "open"
        page(links["user"], "#login")
        yield "account"
        link = self.demo.create(protect_type="password", protect_password="0123", protect_title="Trip")
        page(link, "#login")
        yield "password"
        for _ in range(11):
            browser.find("[name=password]").fill("wrong" + Keys.ENTER)
            browser.wait(lambda: not browser.find("#login").attribute("aria-busy") and browser.find("#problem").shown())
            if browser.find("#wait").shown():
                break
            if _ == 0:
                yield "password, refused"
        browser.wait_for("#wait")
        yield "password, too many tries"
        page(self.demo.create(redirect_type="always", redirect_uri="javascript:alert(1)"), "#shared-by")
        yield "unsafe redirect"
        page(links["plugin"], "#album figure")
        yield "album"
        page(self.files.share("seen"), ".files li")
        yield "files"
        browser.find(".files button.name").click()
        browser.wait_for(".trail [aria-current]")
        browser.wait_for('[data-path="0/sub/note.txt"] button.name').click()
        browser.wait_for("#preview pre")
        yield "file"
        page(links["files"], ".tile img")
        yield "gallery"
        browser.find(".tile .picture").click()
        browser.wait_for("#preview img")
        yield "picture"
        page(self.files.share("seen", upload={"max_size": 1000000}), ".drop")
        yield "upload files"

    def test_owner(self):
        for _ in range(2):
            self.demo.visitor(self.demo.links["open"]).login()
        for variant in self.variants():
            for state in self.owners_states():
                self.check(f"owner, {state}", variant)

    def test_owner_without_links(self):
        for link in self.demo.data(SHARING, "list", {}, "bob")["sharings"]:
            self.demo.data(SHARING, "delete", {"sharing_id": link["sharing_id"]}, "bob")
        self.browser = Browser(1280, 900)  # a browser keeps its login
        self.addCleanup(self.browser.quit)
        for variant in self.variants():
            self.owner("bob")
            self.browser.wait_for("#empty")
            self.check("owner, empty", variant)

    def test_visitor(self):
        for variant in self.variants():
            for state in self.visitors_states():
                self.check(f"visitor, {state}", variant)

    def test_first_view_is_small_and_waits_for_no_script(self):
        browser = self.browser
        browser.set_size(1280, 900)
        browser.devtools("Network.enable")
        browser.devtools("Network.setCacheDisabled", cacheDisabled=True)
        self.addCleanup(browser.devtools, "Network.setCacheDisabled", cacheDisabled=False)
        self.demo.visitor(self.demo.links["open"]).login()
        for name, ready in (("owner", "td.visits svg"), ("pending", "time[dir=auto]"), ("password", "#login"),
                            ("plugin", "#album figure"), ("files", ".files li")):
            path = "/" if name == "owner" else f"/sharing/{self.demo.links[name]}"
            with self.subTest(name):
                browser.devtools("Network.clearBrowserCookies")
                browser.open(self.demo.url + path, self.demo.login("alice") if name == "owner" else None)
                browser.wait_for(ready)
                loaded = browser.script("""return [...performance.getEntriesByType('navigation'),
                    ...performance.getEntriesByType('resource')].map((entry) =>
                    [entry.name, entry.initiatorType, entry.renderBlockingStatus, entry.transferSize])""")
                # What the visitor came for is not the page: the pictures of an album or of files.
                own = [row for row in loaded if "/photos/" not in row[0] and "method=thumbnail" not in row[0]]
                size = sum(row[3] for row in own)
                print(f"{name}: {size} bytes in {len(own)} requests")
                self.assertGreater(min(row[3] for row in own), 0)
                self.assertLess(size, FIRST_VIEW)
                scripts = [row for row in loaded if row[1] == "script" or row[0].split("?")[0].endswith(".js")]
                self.assertGreater(len(scripts), 2)
                self.assertEqual([], [row[0] for row in scripts if row[2] == "blocking"])


if __name__ == "__main__":
    unittest.main()
