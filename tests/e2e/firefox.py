"""Headless Firefox, driven by its own remote protocol: Debian has no geckodriver, which translates WebDriver to it.

Protocol: https://firefox-source-docs.mozilla.org/testing/marionette/Protocol.html
"""

import json
import re
import shutil
import socket
import subprocess
import tempfile
import time

from webdriver import Browser, WebDriverError

_COMMANDS = {
    ("POST", "/url"): "Navigate", ("GET", "/url"): "GetCurrentURL", ("POST", "/back"): "Back",
    ("POST", "/element"): "FindElement", ("POST", "/elements"): "FindElements", ("POST", "/click"): "ElementClick",
    ("POST", "/value"): "ElementSendKeys", ("POST", "/clear"): "ElementClear", ("GET", "/text"): "GetElementText",
    ("GET", "/displayed"): "IsElementDisplayed", ("GET", "/property"): "GetElementProperty",
    ("POST", "/execute/sync"): "ExecuteScript", ("POST", "/actions"): "PerformActions",
    ("GET", "/screenshot"): "TakeScreenshot", ("GET", "/cookie"): "GetCookies",
}


def is_installed():
    return shutil.which("firefox-esr") is not None


class Firefox(Browser):
    def __init__(self):
        self._profile = tempfile.TemporaryDirectory(prefix="velt-firefox-", ignore_cleanup_errors=True)
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            port = free.getsockname()[1]
        with open(f"{self._profile.name}/user.js", "w", encoding="ascii") as file:
            file.write(f'user_pref("marionette.port", {port});\n')
        self._driver = subprocess.Popen(
            ["firefox-esr", "--headless", "--marionette", "--no-remote", "--profile", self._profile.name],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self._socket = None
        try:
            self._stream = self._connect(port).makefile("rwb")
            self._receive()  # what it is
            self._command("NewSession", {"capabilities": {"alwaysMatch": {}}})
        except BaseException:
            self.quit()
            raise

    def _connect(self, port, seconds=60):
        deadline = time.monotonic() + seconds
        while True:
            try:
                self._socket = socket.create_connection(("127.0.0.1", port), timeout=120)
                return self._socket
            except ConnectionRefusedError:
                if time.monotonic() > deadline or self._driver.poll() is not None:
                    raise
                time.sleep(0.1)

    def quit(self):
        if self._socket:
            self._socket.close()
        self._driver.terminate()
        self._driver.wait()
        self._profile.cleanup()

    def _receive(self):
        length = b""
        while (digit := self._stream.read(1)) != b":":
            length += digit
        return json.loads(self._stream.read(int(length)))

    def _command(self, name, parameters):
        message = json.dumps([0, 1, f"WebDriver:{name}", parameters]).encode()
        self._stream.write(b"%d:%s" % (len(message), message))
        self._stream.flush()
        _, _, error, result = self._receive()
        if error:
            raise WebDriverError(error["error"], error["message"])
        return result["value"] if isinstance(result, dict) and set(result) == {"value"} else result

    def call(self, method, path, body=None):
        parameters = dict(body or {})
        if found := re.fullmatch(r"/element/([^/]+)(/\w+)(?:/(\w+))?", path):
            parameters |= {"element" if found[2] in ("/element", "/elements") else "id": found[1]}
            parameters |= {"name": found[3]} if found[3] else {}
            path = found[2]
        return self._command(_COMMANDS[method, path], parameters)
