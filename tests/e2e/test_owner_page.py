"""The owner's page: making, changing and showing links, over the real web server, store and QR program."""

import os
import shutil
import tempfile
import unittest

from demo import SHARING
from owner_page import CONTROL, OwnerPage
from webdriver import Browser, Keys

HOSTILE = ["<img src=x onerror=document.title='owned'>", "\"><script>document.title='owned'</script>",
           "'; DROP TABLE link; --", "\u202eright to left", "x" * 3000]


class Links(OwnerPage):
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
            for menu in ("#account", "#more"):
                self.click(f"{menu} summary")
                self.assertGreaterEqual(self.browser.script(
                    f"return document.querySelector('{menu} > div').getBoundingClientRect().left"), 0)
        self.click("tbody tr:nth-child(3) [data-key^=delete]")
        self.assertIn(HOSTILE[0], self.browser.wait_for("#undo-text").text)
        self.click("#undo-now")
        self.shows(*sorted(HOSTILE))
        self.click("tbody tr:nth-child(3) [data-key^=edit]")
        self.assertIn(HOSTILE[0], self.browser.wait_for("#edit-title").text)
        self.assertEqual(self.browser.title, "Share links")
        self.assertEqual(self.browser.find_all("img[src=x]"), [])

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
        self.browser.wait_text("<b>La</b>", "#edit[open] h2")
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
            parts = ("#edit-title", "#share-url", "#page", ".qr-actions", "#share-copy", "#share-visits")
            shown = [css for css in parts if self.browser.find(css).shown()]
            self.assertEqual(["#edit-title", "#share-url"], shown)
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
        self.browser.press(Keys.ESCAPE)
        self.new_link()
        self.browser.devtools("Emulation.setEmulatedMedia", media="print")
        self.assertTrue(self.browser.find("#page").shown())
        self.browser.devtools("Emulation.setEmulatedMedia", media="")

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


if __name__ == "__main__":
    unittest.main()
