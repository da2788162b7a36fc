"""The list of the owner's page: pages, filters, search, and what is done with several links."""

import unittest

from demo import SHARING
from owner_page import OwnerPage
from webdriver import Browser, Keys


class List(OwnerPage):
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
