"""A folder of pictures in a browser: the grid, and the view that leads from one to the next."""

import unittest

from demo import Demo
from shared_files import Shared
from webdriver import Browser, Keys

LEFT, RIGHT = "\ue012", "\ue014"


def setUpModule():
    global DEMO, ALICE
    DEMO = Demo()
    unittest.addModuleCleanup(DEMO.stop)
    ALICE = Shared(DEMO)


class Gallery(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.browser = cls.enterClassContext(Browser())
        with open(ALICE.path("Coast/Dawn.png"), "rb") as file:
            cls.picture = file.read()
        for number in range(130):
            ALICE.put(f"many/{number:03}.png", cls.picture)
        ALICE.put("many/200 notes.txt", b"last of all")
        ALICE.put("many/below/a.txt")
        cls.link = ALICE.share("many")

    def setUp(self):
        self.browser.console()
        self.browser.set_size(1100, 800)
        self.browser.open("about:blank")  # not a reload of what another test has left
        self.browser.open(f"{DEMO.url}/sharing/{self.link}")
        self.browser.wait_for(".tile img")

    def tearDown(self):
        self.assertEqual([], [line for line in self.browser.console() if "broken.png" not in str(line)])

    def shows(self, name, place):
        parts = "#preview h2", "#preview .hint"
        self.browser.wait(lambda: [name, place] == [self.browser.find(css).text for css in parts], f"{name}, {place}")

    def no_view(self):
        self.browser.wait(lambda: not self.browser.find_all("#preview"))

    def test_pictures_are_gone_through_by_keyboard(self):
        browser = self.browser
        browser.script("document.querySelector('.tile button').focus()")
        browser.press(Keys.ENTER)
        self.shows("000.png", "1 of 99")
        browser.wait(lambda: browser.script("return document.querySelector('#preview img').naturalWidth") == 640)
        self.assertFalse(browser.find("#preview .before").shown())
        for key, number in ((RIGHT, 1), (RIGHT, 2), (LEFT, 1)):
            browser.press(key)
            self.shows(f"00{number}.png", f"{number + 1} of 99")
        browser.press(Keys.ESCAPE)
        self.no_view()
        self.assertEqual("000.png", browser.focused().attribute("aria-label"))
        # After the last that the page has, further ones come; after the last of all, none.
        browser.find('[data-path="0/098.png"] button').click()
        for name in ("099.png", "100.png"):
            browser.press(RIGHT)
            browser.wait_text(name, "#preview h2")
        browser.press(Keys.ESCAPE)
        self.no_view()
        browser.find('[data-path="0/200 notes.txt"] button').click()
        browser.wait_text("last of all", "#preview pre")
        self.shows("200 notes.txt", "131 of 131")
        browser.find("#preview .after").click()
        browser.wait(lambda: not browser.find("#preview .after").shown())

    def test_back_leads_from_the_view_to_the_folder(self):
        browser = self.browser
        browser.find('[data-path="0/below"] .name').click()
        browser.wait_for('[data-path="0/below/a.txt"] .name').click()
        browser.wait_for("#preview pre")
        browser.script("history.back()")
        self.no_view()
        browser.wait_for('[data-path="0/below/a.txt"]')
        browser.script("history.forward()")
        browser.wait_for("#preview pre")
        browser.reload()
        browser.wait_for("#preview pre")
        browser.find("#preview-close").click()
        self.no_view()
        browser.script("history.back()")
        browser.wait_for(".tile img")
        # A click beside the picture closes it; the next opens at once.
        browser.find(".tile button").click()
        browser.wait_for("#preview img")
        browser.script("""document.querySelector('#preview .stage').click();
            document.querySelectorAll('.tile button')[1].click();""")
        self.shows("001.png", "2 of 99")
        browser.script("history.back()")
        self.no_view()

    def test_full_size_and_slide_show(self):
        browser = self.browser
        browser.find(".tile button").click()
        browser.set_size(400, 500)
        browser.wait(lambda: browser.script("return document.querySelector('#preview img').naturalWidth") == 640)
        width = "return document.querySelector('#preview img').clientWidth"
        self.assertLess(browser.script(width), 400)
        browser.find("#preview img").click()
        self.assertEqual(640, browser.script(width))
        self.assertEqual([True, 400], browser.script(
            "const stage = document.querySelector('.stage');"
            "return [stage.scrollWidth > stage.clientWidth, document.documentElement.scrollWidth]"))
        browser.find("#preview img").click()
        browser.find("#preview [aria-pressed]:not([hidden]) ~ [aria-pressed]").click()
        self.shows("001.png", "2 of 99")
        self.shows("002.png", "3 of 99")

    def test_rows_keep_their_height_and_many_pictures_their_place(self):
        browser = self.browser
        ALICE.put("shapes/broken.png", b"no picture")
        for number in range(6):
            ALICE.put(f"shapes/{number}.png", self.picture)
        browser.open(f"{DEMO.url}/sharing/{ALICE.share('shapes')}")
        browser.wait_for(".tile img.plain")
        self.assertEqual([190], browser.script(
            "return [...new Set([...document.querySelectorAll('.gallery-row')].map((row) => row.clientHeight))]"))
        browser.find("#files-mode").click()
        browser.wait(lambda: len(browser.find_all(".files > li")) == 7 and not browser.find_all(".tile"))
        browser.find("#files-mode").click()
        browser.wait(lambda: len(browser.find_all(".tile")) == 7)
        browser.set_size(390, 844)
        browser.wait(lambda: len(browser.find_all(".gallery-row")) == 4)
        self.assertEqual(390, browser.script("return document.documentElement.scrollWidth"))


if __name__ == "__main__":
    unittest.main()
