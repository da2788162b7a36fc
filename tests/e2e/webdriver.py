"""A small WebDriver client: headless Chromium through chromedriver, with the standard library only.

Protocol: https://www.w3.org/TR/webdriver2/. Emulation goes through chromedriver's DevTools address.
"""

import base64
import http.client
import json
import os
import re
import subprocess
import tempfile
import time

WAIT_SECONDS = 20
_ELEMENT = "element-6066-11e4-a52e-4f735466cecf"  # the key that marks an element, fixed by the protocol
_FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
          "--disable-dev-shm-usage", "--disable-background-networking", "--disable-component-update",
          "--disable-sync", "--hide-scrollbars", "--force-device-scale-factor=2"]


class Keys:
    """Keys that have no character; for Element.type and Browser.press."""

    TAB, ENTER, ESCAPE, SPACE = "\ue004", "\ue007", "\ue00c", " "
    SHIFT = "\ue008"


class WebDriverError(Exception):
    """The browser refused a command; `code` is the protocol's error code ("no such element", ...)."""

    def __init__(self, code, message):
        super().__init__(f"{code}: {message}")
        self.code = code


class Element:
    """An element of the page that is shown; any use after the page has changed raises WebDriverError."""

    def __init__(self, browser, element_id):
        self.browser = browser
        self.id = element_id

    def _call(self, method, path, body=None):
        return self.browser.call(method, f"/element/{self.id}{path}", body)

    def click(self):
        self._call("POST", "/click", {})

    def type(self, text):
        self._call("POST", "/value", {"text": text})

    def clear(self):
        self._call("POST", "/clear", {})

    def fill(self, text):
        """Replaces a field's text."""
        self.clear()
        self.type(text)

    @property
    def text(self):
        return self._call("GET", "/text")

    def attribute(self, name):
        return self._call("GET", f"/attribute/{name}")

    def property(self, name):
        return self._call("GET", f"/property/{name}")

    def shown(self):
        return self._call("GET", "/displayed")

    def role(self):
        return self._call("GET", "/computedrole")

    def label(self):
        """The name that a screen reader announces."""
        return self._call("GET", "/computedlabel")

    def find(self, css):
        return Element(self.browser, self._call("POST", "/element", _by(css))[_ELEMENT])

    def find_all(self, css):
        return [Element(self.browser, e[_ELEMENT]) for e in self._call("POST", "/elements", _by(css))]

    def screenshot(self, path):
        _write_png(path, self._call("GET", "/screenshot"))


class Browser:
    """One headless browser with a profile of its own. Use as a context manager, or call quit()."""

    def __init__(self, width=1100, height=800):
        self._profile = tempfile.TemporaryDirectory(prefix="velt-browser-", ignore_cleanup_errors=True)
        self._driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, text=True)
        self._session = None
        try:
            self._port = self._read_port()
            options = {"args": _FLAGS + [f"--user-data-dir={self._profile.name}"]}
            wanted = {"goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL"}}
            self._session = self._send("POST", "/session", {"capabilities": {"alwaysMatch": wanted}})["sessionId"]
            self.set_size(width, height)
        except BaseException:
            self.quit()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.quit()

    def _read_port(self):
        for line in self._driver.stdout:
            started = re.search(r"started successfully on port (\d+)", line)
            if started:
                return int(started.group(1))
        raise RuntimeError("chromedriver did not start")

    def quit(self):
        try:
            if self._session:
                self._send("DELETE", f"/session/{self._session}")
        finally:
            self._session = None
            self._driver.terminate()
            self._driver.wait()
            self._driver.stdout.close()
            self._profile.cleanup()

    def _send(self, method, path, body=None):
        connection = http.client.HTTPConnection("127.0.0.1", self._port, timeout=120)
        try:
            data = None if body is None else json.dumps(body)
            connection.request(method, path, data, {"Content-Type": "application/json"})
            value = json.loads(connection.getresponse().read())["value"]
        finally:
            connection.close()
        if isinstance(value, dict) and "error" in value:
            raise WebDriverError(value["error"], value.get("message", ""))
        return value

    def call(self, method, path, body=None):
        return self._send(method, f"/session/{self._session}{path}", body)

    def devtools(self, command, **params):
        """Runs a command of the DevTools protocol."""
        return self.call("POST", "/goog/cdp/execute", {"cmd": command, "params": params})

    def open(self, url, account=None):
        """Opens a page and waits until it has loaded; `account` (name, password) signs in first."""
        if account:
            self._sign_in(url, *account)
        self.call("POST", "/url", {"url": url})

    def _sign_in(self, url, account, password):
        connection = http.client.HTTPConnection(url.split("/")[2], timeout=120)
        try:
            body = json.dumps({"api": "VELT.Core.SignIn", "version": 1, "method": "login", "account": account,
                               "password": password})
            connection.request("POST", "/webapi/entry.cgi", body, {"Content-Type": "application/json"})
            cookies = connection.getresponse().headers.get_all("Set-Cookie")
        finally:
            connection.close()
        for cookie in cookies:
            name, _, value = cookie.partition(";")[0].partition("=")
            self.devtools("Network.setCookie", url=url, name=name, value=value, httpOnly=True, sameSite="Lax")

    def reload(self):
        self.call("POST", "/refresh", {})

    @property
    def url(self):
        return self.call("GET", "/url")

    @property
    def title(self):
        return self.call("GET", "/title")

    def find(self, css):
        """The first element that the CSS selector names; WebDriverError when there is none."""
        return Element(self, self.call("POST", "/element", _by(css))[_ELEMENT])

    def find_all(self, css):
        return [Element(self, e[_ELEMENT]) for e in self.call("POST", "/elements", _by(css))]

    def focused(self):
        return Element(self, self.call("GET", "/element/active")[_ELEMENT])

    def press(self, *keys):
        """Presses keys together, as a keyboard would, whatever has the focus: press(Keys.SHIFT, Keys.TAB)."""
        steps = [{"type": "keyDown", "value": k} for k in keys]
        steps += [{"type": "keyUp", "value": k} for k in reversed(keys)]
        self.call("POST", "/actions", {"actions": [{"type": "key", "id": "keyboard", "actions": steps}]})

    def wait(self, condition, what="the condition", seconds=WAIT_SECONDS):
        """Calls `condition` until it returns something true, which is returned; AssertionError after `seconds`.

        An element that is missing or has been replaced counts as "not yet".
        """
        deadline = time.monotonic() + seconds
        while True:
            try:
                found = condition()
                if found:
                    return found
            except WebDriverError as error:
                if error.code not in ("no such element", "stale element reference"):
                    raise
            if time.monotonic() > deadline:
                raise AssertionError(f"waited {seconds} s for {what}; the page says:\n{self.page_text()}")
            time.sleep(0.02)

    def wait_for(self, css, seconds=WAIT_SECONDS):
        """Waits until an element that the selector names is shown, and returns it."""
        return self.wait(lambda: next((e for e in self.find_all(css) if e.shown()), None), css, seconds)

    def wait_text(self, text, css="body", seconds=WAIT_SECONDS):
        """Waits until the element's text holds `text`."""
        return self.wait(lambda: text in self.find(css).text, f"{text!r} in {css}", seconds)

    def page_text(self):
        return self.script("return document.body ? document.body.innerText : ''")

    def script(self, source, *args):
        """Runs a function body in the page and returns its JSON value; a promise that it returns is awaited."""
        return self.call("POST", "/execute/sync", {"script": source, "args": list(args)})

    def screenshot(self, path):
        _write_png(path, self.call("GET", "/screenshot"))

    def set_size(self, width, height):
        """Gives the page's area a size in CSS pixels, also below the least width of a window."""
        self.devtools("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=2,
                      mobile=False)

    def set_color_scheme(self, scheme):
        """"light" or "dark"."""
        self.devtools("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])

    def console(self):
        """Messages of the browser's console since the last call, refused resources and policy violations included."""
        return [entry["message"] for entry in self.call("POST", "/se/log", {"type": "browser"})]

    def cookies(self):
        return {c["name"]: c for c in self.call("GET", "/cookie")}


def _by(css):
    return {"using": "css selector", "value": css}


def _write_png(path, text):
    os.makedirs(os.path.dirname(os.path.abspath(path)), exist_ok=True)
    with open(path, "wb") as file:
        file.write(base64.b64decode(text))
