"""The owner's page in Chromium, over the real web server, store and QR program."""

import os
import shutil
import subprocess
import tempfile
import unittest

from demo import SHARING, Demo
from webdriver import Browser, Keys

CONTROL = "\ue009"
HOSTILE = ["<img src=x onerror=document.title='owned'>", "\"><script>document.title='owned'</script>",
           "'; DROP TABLE link; --", "\u202eright to left", "x" * 3000]


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

    def test_create_with_every_field_and_scan(self):
        self.open()
        self.new_link()
        self.click("#edit details summary")
        self.fill(project_name="album", end="At a time", protect_title="Trip", enabled=None, auto_gc=None,
                  enable_match_ip=None, start_at="01022035103000AM", expire_at="12312035115959PM", expire_times="7",
                  protect_type="A password", protect_password=" 0123", redirect_type="Yes, with",
                  redirect_uri="https://example.org/", app='{"id": 9007199254740993}', private_data='{"k": 1}')
        self.click("#edit [type=submit]")
        self.browser.wait_for("#share .qr-large")
        url = self.browser.find("#share-url").property("value")
        self.assertEqual(self.scan(), url)
        self.click("#share-copy")
        self.browser.wait_text("Address copied.", "#share")
        link_id = url.rsplit("/", 1)[1]
        made = self.get(link_id)
        wanted = {"project_name": "album", "protect_title": "Trip", "enabled": False, "auto_gc": True,
                  "enable_match_ip": False, "start_at": "2035-01-02 10:30:00", "expire_at": "2035-12-31 23:59:59",
                  "expire_times": 7, "protect_type": "password", "has_password": True, "redirect_type": "url_param",
                  "redirect_uri": "https://example.org/", "app": {"id": 9007199254740993}, "url": url}
        self.assertEqual({key: made[key] for key in wanted}, wanted)
        self.browser.press(Keys.ESCAPE)
        self.shows("Trip")
        self.click("#project-filter")
        self.browser.press(CONTROL, "v")
        self.assertEqual(self.browser.find("#project-filter").property("value"), url)
        self.browser.find("#project-filter").clear()

    def test_an_edit_sends_only_what_was_changed(self):
        link_id = self.demo.create(protect_title="Trip", expire_times=7, protect_type="password",
                                   protect_password=" 0123", app={"id": 9007199254740993})
        self.open()
        self.browser.script("""const fetch = window.fetch;
            window.sent = [];
            window.fetch = (url, options) => (window.sent.push(JSON.parse(options.body)), fetch(url, options));""")
        self.click("[data-key^=edit]")
        self.browser.wait_for("#edit")
        self.fill(protect_title="Trip home", protect_password="typed before the choice", protect_type="Acc",
                  protect_users="bob\n\n alice ")
        self.click("#edit [type=submit]")
        self.said("Changes saved.")
        self.assertEqual(self.browser.script("return window.sent.find((call) => call.method === 'set')"), {
            "api": SHARING, "version": 1, "method": "set", "sharing_id": link_id, "project_name": "album",
            "protect_title": "Trip home", "protect_type": "user", "protect_users": ["bob", "alice"]})
        self.shows("Trip home")

    def test_delete(self):
        link_id = self.demo.create(protect_title="Trip")
        self.open()
        self.click("[data-key^=delete]")
        self.browser.wait_for("#empty")
        self.click("#undo-now")
        self.shows("Trip")
        self.assertEqual(self.get(link_id)["protect_title"], "Trip")
        for layout, key, code, undoes in (("German Y", "y", "KeyZ", False), ("German Z", "z", "KeyY", True),
                                          ("Arabic", "ئ", "KeyZ", True), ("Caps Lock", "Z", "KeyZ", True)):
            with self.subTest(layout):
                self.click("[data-key^=delete]")
                self.browser.wait_for("#undo")
                self.browser.script("""const [key, code] = arguments;
                    const event = new KeyboardEvent('keydown', {key, code, ctrlKey: true, bubbles: true});
                    document.body.dispatchEvent(event);""",
                                    key, code)
                self.assertEqual(undoes, not self.browser.find("#undo").shown())
                if not undoes:
                    self.click("#undo-now")
        self.click("[data-key^=delete]")
        self.click("#undo-skip")
        self.said("Link deleted. No links.")
        self.assertEqual(self.demo.call(SHARING, "get", {"sharing_id": link_id})["error"]["code"], 1005)

    def test_sort_page_filter(self):
        titles = [f"Link {n:02}" for n in range(12)]
        for n, title in enumerate(titles):
            self.demo.create(protect_title=title, project_name="even" if n % 2 == 0 else "odd")
        self.open()
        self.sort_by_title()
        self.shows(*titles[:10])
        self.click("#next")
        self.shows(*titles[10:])
        self.assertEqual(self.browser.find("#range").text, "11–12 of 12")
        self.click("#next")  # the last page: nothing happens
        self.sort_by_title("descending")
        self.shows(*titles[:1:-1])
        self.browser.find("#page-size").type("25")
        self.shows(*titles[::-1])
        self.browser.find("#project-filter").type("odd" + Keys.ENTER)
        self.shows(*titles[::-2])
        self.browser.find("#project-filter").fill("none such" + Keys.ENTER)
        self.browser.wait_text("No link matches.")

    def test_errors_are_shown_at_their_field(self):
        self.open()
        self.new_link()
        self.fill(project_name="album", protect_title="All", end="At a time", expire_at="0131",
                  expire_times="x-1")
        self.click("#edit [type=submit]")
        self.assertEqual(2, len(self.browser.find_all("#edit .field-error")))  # all at once
        self.browser.press(Keys.ESCAPE)
        self.click("#confirm-yes")
        cases = [({"project_name": "", "protect_title": "Trip"}, "project_name", "Enter the name of an application."),
                 ({"protect_type": "A pass"}, "protect_password", "Give the link a password."),
                 ({"protect_type": "Acc"}, "protect_users", "Name at least one user or one group."),
                 ({"redirect_type": "Yes, to"}, "redirect_uri", "Say where visitors are sent."),
                 ({"redirect_type": "Yes, to", "redirect_uri": "javascript:alert(1)"}, "redirect_uri", "or one slash"),
                 ({"redirect_type": "Yes, to", "redirect_uri": "//x"}, "redirect_uri", "or one slash"),
                 ({"end": "At a time", "expire_at": "0131"}, "expire_at",
                  "Enter a whole date and time, or leave it empty."),
                 ({"start_at": "01022035100000AM", "end": "At a time", "expire_at": "01022034100000AM"}, "expire_at",
                  "before it starts"),
                 ({"expire_times": "1.5"}, "expire_times", "Enter a whole number, 0 or more."),
                 ({"expire_times": ""}, "expire_times", "Enter a whole number, 0 or more."),
                 ({"app": "[1]"}, "app", "Enter a JSON object"),
                 ({"private_data": "{k: 1}"}, "private_data", "This is not JSON")]
        for fields, name, words in cases:
            with self.subTest(words=words, fields=fields):
                self.new_link()
                self.click("#edit details summary")
                self.fill(**{"project_name": "album", **fields})
                self.click("#edit [type=submit]")
                self.assertIn(words, self.browser.wait_for(f"#e-{name}").text)
                self.browser.wait(lambda: self.browser.focused().attribute("name") == name, f"focus on {name}")
                self.browser.press(Keys.ESCAPE)
                self.click("#confirm-yes")
        self.assertEqual(self.demo.data(SHARING, "list")["total"], 0)

        link_id = self.demo.create()
        self.open()
        self.click("[data-key^=edit]")
        self.browser.wait_for("#edit")
        self.demo.data(SHARING, "delete", {"sharing_id": link_id})
        self.fill(protect_title="Late")
        self.click("#edit [type=submit]")
        self.assertEqual(self.browser.wait_for("#edit .notice").text, "This link no longer exists.")
        self.assertEqual(self.browser.find("#f-protect_title").property("value"), "Late")

    def test_hostile_texts_are_shown_as_text(self):
        for text in HOSTILE:
            self.demo.create(protect_title=text, project_name=text)
        self.open()
        self.sort_by_title()
        self.shows(*sorted(HOSTILE))
        for width in (390, 1000, 1280):
            self.browser.set_size(width, 900)
            self.assertLessEqual(self.browser.script("return document.documentElement.scrollWidth"), width)
        self.click("tbody tr:nth-child(3) [data-key^=delete]")
        self.assertIn(HOSTILE[0], self.browser.wait_for("#undo-text").text)
        self.click("#undo-now")
        self.shows(*sorted(HOSTILE))
        self.click("tbody tr:nth-child(3) [data-key^=edit]")
        self.assertIn(HOSTILE[0], self.browser.wait_for("#edit-title").text)
        self.assertEqual(self.browser.title, "Share links")
        self.assertEqual(self.browser.find_all("img[src=x]"), [])

    def tab_to(self, css):
        for _ in range(80):
            if self.browser.script("return document.activeElement.matches(arguments[0])", css):
                return
            self.browser.press(Keys.TAB)
        self.fail(f"the Tab key does not reach {css}")

    def test_a_story_by_keyboard_alone(self):
        kept = self.demo.create(protect_title="Kept")
        self.open()
        for css in ("#more summary", "#new"):
            self.tab_to(css)
            self.browser.press(Keys.ENTER)
        self.browser.wait_for("#edit")
        for key in "album":
            self.browser.press(key)
        self.browser.press(Keys.TAB)
        self.browser.press("T")
        self.browser.press(Keys.ENTER)
        self.browser.wait_for("#share")
        self.browser.press(Keys.ESCAPE)
        self.said("Link created. Links 1–2 of 2.")
        self.assertEqual("More", self.browser.focused().text)
        self.tab_to("[aria-label='Edit T']")
        self.browser.press(Keys.ENTER)
        self.browser.wait_for("#edit")
        self.browser.press("U")
        self.browser.press(Keys.ENTER)
        self.said("Changes saved.")
        self.browser.wait(lambda: "TU" in self.titles(), "the new title")
        self.assertEqual(self.browser.focused().label(), "Edit TU")
        self.tab_to("[aria-label='Delete TU']")
        self.browser.press(Keys.ENTER)
        self.said("“TU” will be deleted in a few seconds. Press Ctrl+Z to undo. Links 1–1 of 1.")
        self.assertEqual(self.browser.focused().attribute("data-key"), f"delete {kept}")
        self.browser.press(CONTROL, "z")
        self.said("Nothing was deleted. Links 1–2 of 2.")
        self.tab_to("#select-all")
        self.browser.press(Keys.SPACE)
        self.tab_to("[data-do=off]")
        self.browser.press(Keys.ENTER)
        self.said("2 links switched off.")
        self.assertFalse(self.get(kept)["enabled"])

    def test_what_was_deleted_is_gone_in_a_while_or_when_the_page_is_left(self):
        links = [self.demo.create(protect_title=f"Link {n}") for n in range(5)]
        self.open()
        self.sort_by_title()

        def exists(link):
            return self.demo.call(SHARING, "get", {"sharing_id": link})["success"]

        self.click(f"[data-key='delete {links[0]}']")
        self.shows("Link 1", "Link 2", "Link 3", "Link 4")
        self.assertTrue(exists(links[0]))
        self.click(f"[data-key='delete {links[1]}']")  # the next one is not waited for
        self.shows("Link 2", "Link 3", "Link 4")
        self.browser.wait(lambda: not exists(links[0]), "the first to go")
        self.browser.wait(lambda: not exists(links[1]), "the second to go by itself")
        self.shows("Link 2", "Link 3", "Link 4")
        self.click(f"[data-key='delete {links[2]}']")
        self.shows("Link 3", "Link 4")
        self.browser.devtools("Page.setWebLifecycleState", state="frozen")
        self.browser.wait(lambda: not exists(links[2]), "the third to go")
        self.browser.devtools("Page.setWebLifecycleState", state="active")
        self.shows("Link 3", "Link 4")
        self.click(f"[data-key='delete {links[3]}']")
        self.shows("Link 4")
        self.browser.open("about:blank")
        self.browser.wait(lambda: not exists(links[3]), "the fourth to go")
        self.assertTrue(exists(links[4]))

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

    def test_no_deletion_is_lost_when_answers_are_late(self):
        links = [self.demo.create(protect_title=f"Link {n}") for n in range(5)]
        self.open()
        self.sort_by_title()
        self.hold_calls("call.method === 'delete' && !options.keepalive")
        for n in range(3):
            self.click(f"[data-key='delete {links[n]}']")
            self.shows(*[f"Link {m}" for m in range(n + 1, 5)])
        self.click("#undo-skip")
        self.assertEqual(self.browser.focused().attribute("id"), "select-all")
        self.browser.wait(lambda: self.browser.script("return held.length") == 3, "three calls")
        self.browser.script("go()")

        def exists(link):
            return self.demo.call(SHARING, "get", {"sharing_id": link})["success"]

        self.browser.wait(lambda: not any(map(exists, links[:3])), "all three to go")
        self.shows("Link 3", "Link 4")
        self.click(f"[data-key='delete {links[3]}']")
        self.click("#undo-skip")
        self.browser.open("about:blank")
        self.browser.wait(lambda: not exists(links[3]), "the one whose call was held")
        self.assertTrue(exists(links[4]))

    def test_several_links_at_once_and_those_that_fail(self):
        links = [self.demo.create(protect_title=f"Link {n:02}") for n in range(12)]
        self.open()
        self.sort_by_title()
        self.click(f"[data-key='select {links[0]}']")
        self.click("#next")
        self.shows("Link 10", "Link 11")
        self.click("#select-all")
        self.assertEqual("3 selected, 1 of them on other pages", self.browser.find("#selected").text)
        self.demo.data(SHARING, "delete", {"sharing_id": links[11]})
        self.click("[data-do=off]")
        self.said("2 links switched off.")
        self.assertEqual("“Link 11”: This link no longer exists.", self.browser.find("#problem").text)
        self.assertEqual([0, 10], [n for n in range(11) if not self.get(links[n])["enabled"]])
        self.assertEqual("", self.browser.find("#selected").text)
        self.click("#previous")
        first_page = [f"Link {n:02}" for n in range(10)]
        self.shows(*first_page)
        self.click("#select-all")
        self.click("[data-do=delete]")
        self.shows("Link 10")
        self.assertEqual("1–1 of 1", self.browser.find("#range").text)
        self.assertTrue(self.asks_before_leaving())
        self.click("#undo-now")
        self.shows(*first_page)
        self.click("#next")
        self.shows("Link 10")
        self.click("#select-all")
        self.click("[data-do=delete]")
        self.browser.wait_text("1 link will be deleted", "#undo")
        self.assertFalse(self.asks_before_leaving())
        self.click("#undo-skip")
        self.said("Link deleted. Links 1–10 of 10.")

    def test_search_finds_titles_and_the_beginning_of_ids(self):
        for n in range(60):
            self.demo.create(protect_title=f"Trip {n:02}" if n % 5 == 0 else f"Other {n:02}")
        self.open()
        self.sort_by_title()
        self.hold_calls("call.method === 'find'")
        for n, text in enumerate(("tR", "IP")):
            self.browser.find("#search").type(text)
            self.browser.wait(lambda n=n: self.browser.script("return held.length") == n + 1, "a call")
        self.browser.script("go(); held.push = (resolve) => resolve()")
        self.browser.wait_text("1–10 of 12", "#range")
        self.shows(*(f"Trip {n:02}" for n in range(0, 50, 5)))
        self.click("#next")
        self.shows("Trip 50", "Trip 55")
        self.click("[data-key^=delete]")
        self.shows("Trip 55")
        self.browser.find("#search").fill("none such")
        self.browser.wait_text("No link matches.", "#empty")
        found = self.demo.data(SHARING, "list", {"sort_by": "protect_title", "limit": 1})["sharings"][0]
        self.browser.find("#search").fill(found["sharing_id"][:6])
        self.shows(found["protect_title"])
        self.browser.find("#search").clear()
        self.browser.wait_text("1–10 of 59", "#range")
        self.demo.create(protect_title="Away", expire_at="2001-01-01 00:00:00", app={"items": ["Küste/Dämmerung.png"]})
        self.browser.find("#search").type("dÄMM")
        self.shows("Away")
        self.click("#state-filter option[value=active]")
        self.browser.wait_text("No link matches.", "#empty")
        self.click("#state-filter option[value=expired]")
        self.shows("Away")

    def test_applications_take_part(self):
        for name, script in (
                ("throws", "export const takePart = () => { throw new Error('broken'); };"), ("wrong", "syntax error"),
                ("a%20b", "export const takePart = async ({newLink}) => ({button: 'Sing', open: () => newLink("
                 "'songs', {protect_title: '<b>La</b>', app: {la: 1}}), project: 'songs', contents: () => []});")):
            folder = os.path.join(self.demo.state, "root/usr/velt/web/pkg", name)
            os.makedirs(folder + "/owner")
            self.addCleanup(shutil.rmtree, folder)
            with open(folder + "/owner/part.js", "w", encoding="ascii") as file:
                file.write(script)
        self.demo.create(project_name="photo-album", app={"photos": ["hills", "harbour"]})
        self.open()
        self.browser.wait_for("[data-application=files]")
        self.assertEqual(["Sing", "Share files"], [b.text for b in self.browser.find_all("[data-application]")])
        errors = sorted(line.split('"', 1)[1] for line in self.browser.console())
        self.assertRegex("\n".join(errors), r'(?s)^throws" Error: broken.*\nwrong" SyntaxError[^\n]*$')
        self.click("[data-key^=show]")
        self.browser.wait_text("hills\nharbour", "#share-contents")
        self.browser.press(Keys.ESCAPE)
        self.click("[data-application='a%20b']")
        self.browser.wait_text("<b>La</b>", "#share[open] h2")
        self.assertFalse(self.browser.find("#share-contents").shown())
        self.assertEqual({"la": 1}, self.demo.data(SHARING, "list", {"project_name": "songs"})["sharings"][0]["app"])

    def test_qr_code_to_save_and_print_and_visits_by_day(self):
        link = self.demo.create(protect_title="Trip: 1/2")
        for _ in range(3):
            self.assertTrue(self.demo.visitor(link).login()["success"])
        self.open()
        chart = self.browser.wait_for("td.visits svg")
        self.assertEqual("Visits in the last 30 days: 3, at most 3 on one day", chart.attribute("aria-label"))
        url = self.get(link)["url"]
        self.click("[data-key^=show]")
        self.browser.wait_text("3 visits in the last 30 days", "#share-visits")
        with tempfile.TemporaryDirectory() as folder:
            self.browser.devtools("Browser.setDownloadBehavior", behavior="allow", downloadPath=folder)
            for name in ("svg", "png"):
                self.browser.wait_for(f"#qr-{name}").click()
                self.browser.wait(lambda name=name: os.path.exists(f"{folder}/QR-Trip-1-2.{name}"), name)
            self.browser.devtools("Emulation.setEmulatedMedia", media="print")
            self.assertEqual(url, self.scan())
            parts = ("#share-title", "#share-url", "#page", ".qr-actions", "#share-copy", "#share-visits")
            shown = [css for css in parts if self.browser.find(css).shown()]
            self.assertEqual(["#share-title", "#share-url"], shown)
            self.browser.devtools("Emulation.setEmulatedMedia", media="")
            with Browser(800, 800) as viewer:
                for name in ("svg", "png"):
                    viewer.open(f"file://{folder}/QR-Trip-1-2.{name}")
                    self.assertEqual(url, self.scan(viewer))
        self.browser.devtools("Browser.grantPermissions", permissions=["clipboardReadWrite", "clipboardSanitizedWrite"])
        self.click("#qr-copy")
        self.browser.wait_text("Image copied.", "#share")
        types = self.browser.script("return navigator.clipboard.read().then((items) => items[0].types)")
        self.assertEqual(["image/png"], types)

    def test_every_control_has_a_name(self):
        self.demo.create()
        self.open()
        for part in ("main", "#edit"):
            if part == "#edit":
                self.new_link()
                self.click("#edit details summary")
            controls = [e for e in self.browser.find(part).find_all("button, input, select, textarea, a, table")
                        if e.shown()]
            self.assertGreater(len(controls), 10)
            self.assertEqual([e.attribute("outerHTML") for e in controls if not e.label()], [])

    def test_administrator_lists_everybodys_links_and_cleans_them(self):
        past = {"auto_gc": True, "expire_at": "2001-01-01 00:00:00"}
        for account, title, fields in [("bob", "Stays", {**past, "auto_gc": False}), ("bob", "Goes", past),
                                       ("alice", "Hers", past), ("admin", "Own", {})]:
            self.demo.create(account, protect_title=title, **fields)
        self.open()
        self.shows("Hers")
        self.browser.wait(lambda: self.browser.find("[data-scope=own] .count").property("textContent") == "1")
        self.assertFalse(self.browser.find("#scope").shown())
        self.browser = Browser(1280, 900)  # a browser keeps its login
        self.addCleanup(self.browser.quit)
        self.open("admin")
        self.shows("Own")
        self.assertEqual(self.browser.wait_for("[data-scope=all]").text, "Everybody’s 4")
        self.click("[data-scope=all]")
        self.sort_by_title()
        self.shows("Goes", "Hers", "Own", "Stays")
        self.assertEqual([e.text for e in self.browser.find_all("td[data-title=Owner]")],
                         ["bob", "alice", "admin", "bob"])
        self.click("#more summary")
        self.click("#clean")
        self.assertIn("everybody’s links", self.browser.wait_for("#confirm-text").text)
        self.click("#confirm-yes")
        self.shows("Own", "Stays")


if __name__ == "__main__":
    unittest.main()
