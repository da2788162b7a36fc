"""A link's page in Chromium, opened by its QR code, over the real web server, store and plugins."""

import base64
import contextlib
import http.server
import json
import os
import re
import socket
import sqlite3
import subprocess
import tempfile
import threading
import unittest

from demo import SHARING, Demo
from webdriver import Browser, Keys

DEMO = BROWSER = None
UNKNOWN = "x" * 22
HOSTILE = "\"><img src=x onerror=document.title='owned'><script>document.title='owned'</script>"


def setUpModule():
    global DEMO, BROWSER
    DEMO = Demo()
    unittest.addModuleCleanup(DEMO.stop)
    BROWSER = Browser(900, 700)
    unittest.addModuleCleanup(BROWSER.quit)


@contextlib.contextmanager
def serving(folder):
    """Another web server of this machine, which serves the folder; gives its address."""
    class Handler(http.server.SimpleHTTPRequestHandler):
        def __init__(self, *args):
            super().__init__(*args, directory=folder)

        def log_message(self, *_):
            pass

    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler) as server:
        thread = threading.Thread(target=server.serve_forever)
        thread.start()
        try:
            yield f"http://127.0.0.1:{server.server_port}/"
        finally:
            server.shutdown()
            thread.join()


class LinkPage(unittest.TestCase):
    # The browser's message about the page itself: the page of a link that has ended has an error status.
    expected_console = r"/(sharing/\w+|favicon.ico) - Failed to load resource: .* status of (403|404|410)"

    def setUp(self):
        BROWSER.devtools("Network.clearBrowserCookies")

    def tearDown(self):
        # The console also shows what the Content-Security-Policy refuses.
        self.assertEqual([], [text for text in BROWSER.console() if not re.search(self.expected_console, text)])
        self.assertNotEqual("owned", BROWSER.title)

    def open(self, link, query=""):
        BROWSER.open(f"{DEMO.url}/sharing/{link}{query}")

    def says(self, text, css="#problem"):
        BROWSER.wait_text(text, css)

    def log_in(self, *texts):
        for field, text in zip(BROWSER.wait_for("#login").find_all("input:not([hidden])"), texts):
            field.fill(text)
        BROWSER.press(Keys.ENTER)

    def later(self, change, seconds):
        """Puts the clock of the page forward, and the store's by a statement."""
        with contextlib.closing(sqlite3.connect(DEMO.database)) as sql, sql:
            sql.execute(change)
        BROWSER.script(f"const now = Date.now; Date.now = () => now() + {seconds * 1000}")

    def is_open(self, link=None, visits=None):
        self.says("Shared by alice.", "#shared-by")
        self.assertFalse(BROWSER.find("#login").shown())
        if link:
            self.assertEqual(visits, DEMO.data(SHARING, "get", {"sharing_id": link})["visits"])

    def test_scan_visit_reload_log_out(self):
        made = DEMO.data(SHARING, "set", {"project_name": "none", "protect_title": "Trip", "protect_type": "password",
                                          "protect_password": "0123", "expire_at": "2099-12-31 12:00:00"})
        link = made["sharing_id"]
        with tempfile.NamedTemporaryFile(suffix=".png") as picture:
            picture.write(base64.b64decode(made["qrcode"].split(",")[1]))
            picture.flush()
            BROWSER.open(subprocess.run(["zbarimg", "--quiet", "--raw", picture.name], check=True,
                                        capture_output=True, text=True).stdout.strip())
        BROWSER.wait_for("#login")
        self.log_in("0123")
        self.is_open(link, 1)
        self.assertEqual(("Trip", "Trip"), (BROWSER.title, BROWSER.find("h1").text))
        self.says("Open until December 31, 2099", "#link-status")
        self.says("There is nothing to look at", "#bare")
        BROWSER.wait_for("#copy-address")
        BROWSER.reload()
        self.is_open(link, 1)

        visitor = DEMO.visitor(link)
        visitor.cookies = {name: cookie["value"] for name, cookie in BROWSER.cookies().items()}
        BROWSER.find("#logout").click()
        self.says("You are logged out.", "#said")
        self.assertEqual(105, visitor.call(SHARING + ".Initdata", "get")["error"]["code"])
        self.assertEqual("Password", BROWSER.focused().label())
        self.log_in("0123")
        self.is_open(link, 2)

    def test_password(self):
        link = DEMO.create(protect_type="password", protect_password="0123")
        self.open(link)
        field = BROWSER.wait_for("#login [type=password]")
        self.assertEqual(("Password", field.id), (field.label(), BROWSER.focused().id))
        self.log_in("123")
        self.says("The password is wrong.")
        self.assertEqual(("true", "problem", field.id),
                         (field.attribute("aria-invalid"), field.attribute("aria-describedby"), BROWSER.focused().id))
        self.log_in("0123")
        self.is_open()
        BROWSER.reload()
        self.is_open()
        # A changed password ends the visit. The page says so instead of opening the link again.
        DEMO.data(SHARING, "set", {"sharing_id": link, "project_name": "album", "protect_type": "password",
                                   "protect_password": "other"})
        BROWSER.reload()
        self.says("Your visit has ended")
        for _ in range(10):
            self.assertEqual(1001, DEMO.visitor(link).login(password="wrong")["error"]["code"])
        self.log_in("other")
        self.says("accepts no logins")
        self.assertRegex(BROWSER.find("#wait").text, r"^You can try again in 1[45]:\d\d\.$")
        # Later; whoever waits need not reload.
        self.later("update failed_login set failed_at = failed_at - 3600", 3600)
        self.says("You can try again now.", "#said")
        self.log_in("other")
        self.is_open()

    def test_a_link_that_is_to_open_counts_its_last_day_down_and_opens(self):
        link = DEMO.create(start_at="2099-01-01 00:00:00")
        self.open(link)
        self.says("January 1, 2099", "time")
        self.assertFalse(BROWSER.find("#countdown").shown())
        left = 60 * BROWSER.script("return Number(document.querySelector('#countdown').dataset.seconds) / 60 - 59")
        self.later("select 1", left)
        self.assertRegex(BROWSER.wait_for("#countdown").text, r"^In 5\d:\d\d$")
        self.later(f"update link set start_at = 1 where hash = '{link}'", 1e10)
        self.is_open(link, 1)

    def test_language_is_the_browsers_or_the_one_chosen_and_stays(self):
        link, unknown = DEMO.create(project_name="none"), UNKNOWN
        for wanted, tag, direction in (("fr;q=.9, de-AT;q=.8, en;q=.1", "de", "ltr"), ("ar-EG", "ar", "rtl"),
                                       ("fr", "en", "ltr"), ("", "en", "ltr")):
            page = DEMO.request("GET", f"/sharing/{unknown}", headers={"Accept-Language": wanted}).text
            self.assertIn(f'<html lang="{tag}" dir="{direction}"', page)
        self.open(unknown)
        BROWSER.wait_for("#languages select").type("Deutsch")
        BROWSER.wait(lambda: BROWSER.find("h1").text == "Dieser Link funktioniert nicht")
        self.open(link)
        self.says("Geteilt von alice.", "#shared-by")
        self.says("Adresse kopieren", "#actions")  # the modules' texts too
        self.assertEqual([], BROWSER.find_all("#logout"))  # nobody has logged in
        BROWSER.open(f"{DEMO.url}/", DEMO.login("alice"))
        BROWSER.wait_text("Dateien teilen", "[data-application]")
        BROWSER.script("document.cookie = 'velt_language=../x; path=/'")
        self.open(unknown)
        self.assertEqual("This link doesn’t work", BROWSER.find("h1").text)

    def test_accounts(self):
        self.open(DEMO.create(protect_type="user", protect_users=["bob"]))
        labels = [field.label() for field in BROWSER.wait_for("#login").find_all("input")]
        self.assertEqual(["Account", "Password"], labels)
        self.says(f"certain accounts of {socket.gethostname()}.", "#login")
        for account, password, words in (("bob", "wrong", "The user name or the password is wrong."),
                                         ("alice", DEMO.accounts["alice"], "This link is not for this account.")):
            self.log_in(account, password)
            self.says(words)
        self.log_in("bob", DEMO.accounts["bob"])
        self.is_open()

    def test_ends(self):
        for link, status, heading, words in (
                (UNKNOWN, 404, "This link doesn’t work", "mistyped, turned off or deleted"),
                (DEMO.links["disabled"], 404, "This link doesn’t work", "mistyped, turned off or deleted"),
                (DEMO.links["pending"], 403, "This link isn’t open yet", "January 1, 2099"),
                (DEMO.links["expired"], 410, "This link has expired", "is over"),
                (DEMO.links["used_up"], 410, "This link is used up", "limited number of visits")):
            with self.subTest(heading, link=link):
                self.assertEqual(status, DEMO.visitor(link).page().status)
                self.open(link)
                self.assertEqual(heading, BROWSER.find("h1").text)
                self.says(words, "main")
                self.assertEqual([], BROWSER.find_all("form"))
        # The page of a link that is turned off is that of a missing one.
        unknown, disabled = [(page.status, {**page.headers, "date": "", "x-request-id": ""},
                              page.text.replace(link, "ID"))
                             for link in (UNKNOWN, DEMO.links["disabled"]) for page in [DEMO.visitor(link).page()]]
        self.assertEqual(unknown, disabled)
        self.assertNotIn("sharing_id", unknown[2])
        for path in ("/sharing/", "/sharing//", f"/sharing/{UNKNOWN}/more", "/sharing/a/webapi/b"):
            page = DEMO.request("GET", path)
            self.assertEqual((404, DEMO.request("GET", "/sharing/-").text), (page.status, page.text), path)

    def test_without_a_database_it_says_when_to_try_again(self):
        os.rename(DEMO.database, DEMO.database + ".away")
        try:
            page = DEMO.visitor(DEMO.links["open"]).page()
        finally:
            os.rename(DEMO.database + ".away", DEMO.database)
        self.assertEqual((503, "120"), (page.status, page.headers["retry-after"]))
        self.assertIn("Try again in a few minutes", page.text)
        self.assertEqual(200, DEMO.visitor(DEMO.links["open"]).page().status)

    def test_a_link_used_up_by_its_visitor_stays_open(self):
        link = DEMO.create(expire_times=1)
        self.open(link)
        self.is_open()
        for again in (BROWSER.reload, lambda: BROWSER.script("sessionStorage.clear()") or BROWSER.reload()):
            again()  # the second time as a new tab would
            self.is_open(link, 1)
        self.assertEqual(410, DEMO.visitor(link).page().status)

    def test_a_visitor_who_moves_to_another_network_logs_in_again(self):
        link = DEMO.create(enable_match_ip=True)
        self.open(link)
        self.is_open()
        with contextlib.closing(sqlite3.connect(DEMO.database)) as sql, sql:
            sql.execute("update visitor_session set address = '203.0.113.9'")
            sql.execute("update visitor_token set address = '203.0.113.9'")
        BROWSER.reload()
        self.says("Your visit has ended")
        BROWSER.press(Keys.ENTER)
        self.is_open(link, 2)

    def test_redirect_table(self):
        followed = [("always", "https://example.org/a?b=c#d", "https://example.org/a?b=c#d"),
                    ("always", "HTTP://example.org", "HTTP://example.org"),
                    ("always", "/pkg/ä b", "/pkg/%C3%A4%20b"),
                    ("url_param", "https://example.org/a?b=c#d?e", "https://example.org/a?b=c&sharing_id={}#d?e"),
                    ("url_param", "/pkg/a#d?e", "/pkg/a?sharing_id={}#d?e"),
                    ("url_param", "/pkg/a?", "/pkg/a?sharing_id={}"),
                    ("url_param", "/pkg/a?b?", "/pkg/a?b?&sharing_id={}"),
                    ("url_param", "/pkg/a?b&", "/pkg/a?b&sharing_id={}")]
        refused = ("javascript:alert(1)", "data:text/html,x", "//example.org/", "/\\example.org/", "example.org",
                   "https:\\\\example.org/", "https:///example.org", "/\t/example.org", "/a\r\nSet-Cookie: a=b",
                   " https://example.org")
        for kind, uri, target in followed + [("always", uri, None) for uri in refused]:
            with self.subTest(kind=kind, uri=uri):
                link = DEMO.create(redirect_type=kind, redirect_uri=uri)
                visitor = DEMO.visitor(link)
                self.assertEqual(200, visitor.page().status)
                self.assertTrue(visitor.login()["success"])
                page = visitor.page()
                self.assertEqual((302, target.format(link)) if target else (200, None),
                                 (page.status, page.headers.get("location")))
                self.assertEqual(target is None, "isn’t safe to follow" in page.text)
                self.assertEqual(page.status, visitor.request("GET", "?sharing_error=-1").status)  # none

    def test_redirect_in_the_browser(self):
        link = DEMO.create(redirect_type="url_param", redirect_uri="/link/words.js")
        BROWSER.open(f"{DEMO.url}/sharing/{link}")
        BROWSER.wait(lambda: BROWSER.url == f"{DEMO.url}/link/words.js?sharing_id={link}", "the redirect")
        # The application sends a visitor back with an error: the page shows it and does not redirect again.
        self.open(link, "?sharing_error=1006")
        self.says("Your visit has ended.")

    def test_application(self):
        title = "On the <coast> & \"sea\""
        link = DEMO.create(project_name="photo-album", app={"title": title, "photos": ["harbour", "hills"]})
        self.assertIn('<meta content="On the &lt;coast&gt; &amp; &quot;sea&quot;" property="og:title" />',
                      DEMO.visitor(link).page().text)
        self.open(link)
        self.is_open()
        self.says(title, "#album h2")  # session data
        captions = [caption.text for caption in BROWSER.find_all("#album figcaption")]  # private data
        self.assertEqual(["The harbour at dusk", "Behind the village"], captions)
        self.assertEqual("rgb(31, 111, 120)", BROWSER.script("return getComputedStyle(document.body).borderTopColor"))
        BROWSER.wait_for("#slideshow").click()
        self.assertEqual("Next picture", BROWSER.find("#slideshow").text)
        # The package is stopped: its module is not loaded, and the rest works.
        running = DEMO.path("/usr/velt/var/packages/photo-album/running")
        os.remove(running)
        self.addCleanup(lambda: open(running, "w", encoding="ascii").close())
        BROWSER.reload()
        self.is_open()
        self.assertEqual(2, len(BROWSER.find_all("#album figure")))
        self.assertEqual([], BROWSER.find_all("#slideshow"))

    def test_hostile_texts(self):
        plugin = {"name": "open_graph", "params": {"lib": "/usr/velt/lib/sharing/photo-album.so"}}
        for name, title, configuration in (
                ("hostile", HOSTILE, {"protect_title": HOSTILE, "theme": {"color": HOSTILE}, "plugins": [plugin]}),
                ("malformed", "Shared link", {"protect_title": [HOSTILE], "theme": [1], "plugins": [
                    1, {"name": 5}, {"name": "open_graph", "params": 5}, {"name": HOSTILE}]})):
            with self.subTest(name):
                with open(DEMO.path(f"/usr/velt/etc.defaults/sharing/{name}"), "w", encoding="utf-8") as file:
                    json.dump(configuration, file)
                self.open(DEMO.create(project_name=name, app={"title": HOSTILE}))
                self.is_open()
                self.assertEqual((title, title), (BROWSER.title, BROWSER.find("h1").property("textContent")))
                self.assertEqual([], BROWSER.find_all("img[onerror], body script, script:not([src])"))
        link = DEMO.create(protect_title=HOSTILE, project_name="photo-album")
        self.open(link, f"?sharing_error={HOSTILE}")
        self.is_open(link, 1)
        self.assertEqual(HOSTILE, BROWSER.title)
        headers = DEMO.visitor(link).page().headers
        self.assertIn("script-src 'self';", headers["content-security-policy"])
        self.assertNotIn("unsafe", headers["content-security-policy"])
        script = DEMO.request("GET", f"/sharing/x/webapi?api={SHARING}.Session&version=1&method=get").headers
        self.assertEqual(["nosniff", "no-store", "same-site"], [script[name] for name in (
            "x-content-type-options", "cache-control", "cross-origin-resource-policy")])
        self.assertEqual(["no-referrer", "nosniff", "no-store"], [
            headers[name] for name in ("referrer-policy", "x-content-type-options", "cache-control")])

    def test_another_sites_page_can_open_the_page_but_call_no_method(self):
        link = DEMO.create(protect_title="Trip")
        self.open(link)
        self.is_open(link, 1)
        address = f"{DEMO.url}/sharing/{link}"
        call = f"{address}/webapi?version=1&api={SHARING}"
        with tempfile.TemporaryDirectory() as folder, serving(folder) as neighbour:  # the cookies are for every port
            with open(folder + "/index.html", "w", encoding="utf-8") as file:
                file.write(f'<img src="{call}&method=logout">'
                           f'<script>window.VELT = {{TALD: {{}}}}</script>'
                           f'<script src="{call}.Session&method=get&sharing_id={link}"></script>'
                           f'<a href="{address}">Trip</a>')
            BROWSER.open(neighbour)
            self.assertEqual({}, BROWSER.script("return window.VELT.TALD"))
            BROWSER.find("a").click()
            BROWSER.console()
            self.is_open(link, 1)
        headers = DEMO.visitor(link).page().headers
        self.assertEqual(["same-origin"] * 2, [
            headers[f"cross-origin-{name}-policy"] for name in ("opener", "resource")])

    def test_under_another_name_of_the_device(self):
        link = DEMO.create(protect_type="password", protect_password="0123")
        BROWSER.open(f"http://localhost:{DEMO.port}/sharing/{link}")
        BROWSER.wait_for("#login [type=password]")
        self.log_in("0123")
        self.is_open(link, 1)
        BROWSER.open(f"http://localhost:{DEMO.port}/", DEMO.login("alice"))
        BROWSER.wait_for("[data-key^='delete ']")

    def test_fetching_changes_nothing(self):
        robot = DEMO.visitor(DEMO.create(project_name="photo-album", expire_times=3))
        with open(DEMO.database + "-wal", "rb") as log:
            before = log.read()
        for path in re.findall(r'(?:src|href)="([^"]+)"', robot.page().text):
            self.assertEqual(200, DEMO.request("GET", path.replace("&amp;", "&")).status, path)
        head = robot.request("HEAD")
        self.assertEqual((200, b"", {}), (head.status, head.body, robot.cookies))
        with open(DEMO.database + "-wal", "rb") as log:
            self.assertEqual(before, log.read())

    def test_phone_and_dark(self):
        self.addCleanup(BROWSER.set_size, 900, 700)
        self.addCleanup(BROWSER.set_color_scheme, "light")
        BROWSER.set_size(320, 600)
        BROWSER.set_color_scheme("dark")
        album = DEMO.create(project_name="photo-album", protect_title="Very long " + "name" * 40)
        for link in (album, DEMO.links["password"], DEMO.links["user"], UNKNOWN):
            self.open(link)
            self.is_open() if link == album else None
            self.assertEqual([320, "rgb(15, 20, 27)"], BROWSER.script(
                "return [document.documentElement.scrollWidth, getComputedStyle(document.body).backgroundColor]"))


if __name__ == "__main__":
    unittest.main()
