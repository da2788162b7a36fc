"""Starts the demonstration for a test, and sends it requests of its accounts and of visitors of its links."""

import base64
import functools
import glob
import http.client
import json
import os
import random
import signal
import socket
import subprocess
import tempfile
import time

REPOSITORY = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
# The build folder that ./run serves.
BUILD = os.path.abspath(os.environ.get("VELT_BUILD") or os.path.join(REPOSITORY, "build/release"))
SHARING = "VELT.Core.Sharing"
START_SECONDS = 120
COMMON_CODES = range(100, 107)


@functools.cache
def declared_methods():
    """What the modules' declarations say of each method."""
    methods = []
    for path in glob.glob(os.path.join(BUILD, "lib/webapi.d/*.json")):
        with open(path, encoding="utf-8") as file:
            methods += json.load(file)["methods"]
    return methods


def require_declared_code(call, answer):
    """Fails when the call's method is declared without the answer's error code."""
    if not answer.body.startswith(b'{"error"'):
        return
    code = answer.json["error"]["code"]
    for method in declared_methods():
        if (method["api"], method["method"]) == (call.get("api"), call.get("method")):
            assert code in COMMON_CODES or code in method["codes"], (method["api"], method["method"], code)


@functools.cache
def door(api, method):
    """What a link's address goes on with for this method."""
    streams = {(row["api"], row["method"]) for row in declared_methods() if row.get("pool") == "stream"}
    return "/stream" if (api, method) in streams else "/webapi"


class Answer:
    """An HTTP answer: status, header (names in lower case; cookies in `set_cookies`) and body."""

    def __init__(self, response):
        self.status = response.status
        self.headers = {name.lower(): value for name, value in response.getheaders()}
        self.set_cookies = response.headers.get_all("Set-Cookie") or []
        self.body = response.read()

    @property
    def text(self):
        return self.body.decode("utf-8")

    @property
    def json(self):
        return json.loads(self.body)


class Demo:
    """One running demonstration. `state` is its state folder; without it a new one is made, which stop() removes.
    `under` is a command that starts ./run, `options` are further options of ./run.

    The programs come from the build folder that VELT_BUILD names, else from build/release, which is brought
    up to date first.
    """

    def __init__(self, state=None, under=(), options=()):
        self._fresh = None if state else tempfile.TemporaryDirectory(prefix="velt-demo-", ignore_cleanup_errors=True)
        self.state = state or self._fresh.name
        self.port = free_port()
        self._under = under
        self._options = options
        self.process = None
        self._sessions, self._browsers = {}, {}
        self.start()

    def start(self):
        """Starts the demonstration and waits until it serves."""
        # The output goes to a file: a pipe that nobody reads would block it when full.
        self.output = os.path.join(self.state, "run.out")
        with open(self.output, "wb") as output:
            self.process = subprocess.Popen(
                [*self._under, os.path.join(REPOSITORY, "run"), "--no-install", "--port", str(self.port),
                 "--state", self.state, *self._options],
                stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT, start_new_session=True)
        try:
            about = self._wait_ready()
        except BaseException:
            self.stop()
            raise
        self.url = about["url"]
        self.pid = about["pid"]
        self.accounts = {a["name"]: a["password"] for a in about["accounts"]}
        self.links = about.get("links", {})
        self.passwords = about.get("passwords", {})

    def _wait_ready(self):
        path = os.path.join(self.state, "demo.json")
        deadline = time.monotonic() + START_SECONDS
        while time.monotonic() < deadline:
            if self.process.poll() is not None:
                raise RuntimeError(f"./run ended with {self.process.returncode}:\n{self.printed()}")
            try:
                with open(path, encoding="utf-8") as file:
                    about = json.load(file)
                if about["pid"] == self.process.pid:  # not one left by an earlier run that was killed
                    return about
            except FileNotFoundError:
                pass
            time.sleep(0.02)
        raise RuntimeError(f"./run serves nothing after {START_SECONDS} s:\n{self.printed()}")

    def printed(self):
        """What ./run has printed so far."""
        with open(self.output, encoding="utf-8", errors="replace") as file:
            return file.read()

    def stop(self):
        """Stops the demonstration and returns its exit status. Does nothing when it is stopped already."""
        if self.process is None:
            return None
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        status = self.process.wait(timeout=60)
        self.process = None
        if self._fresh:
            self._fresh.cleanup()
        return status

    def restart(self):
        """Stops and starts again over the same state folder."""
        fresh, self._fresh = self._fresh, None
        self.stop()
        self._fresh = fresh
        self.start()

    def path(self, inside):
        """The path outside of what the demonstration sees as `inside` ("/usr/velt/...", "/etc.defaults/...")."""
        return os.path.join(self.state, "root", inside.lstrip("/"))

    @property
    def database(self):
        return self.path("/usr/velt/var/sharing/sharing.db")

    def login(self, account):
        """(name, password) of an account, for Browser.open."""
        return account, self.accounts[account]

    def request(self, method, path, body=None, headers=None, account=None):
        """One HTTP request, signed in when an account is named. A dict as body is sent as JSON."""
        headers, call = dict(headers or {}), {}
        if isinstance(body, dict):
            body, call = json.dumps(body), body
            headers.setdefault("Content-Type", "application/json")
        if account:
            headers |= self.signed_in(account)
        connection = self.connect()
        try:
            connection.request(method, path, body, headers)
            answer = Answer(connection.getresponse())
            require_declared_code(call, answer)
            return answer
        finally:
            connection.close()

    def connect(self):
        return http.client.HTTPConnection("127.0.0.1", self.port, timeout=120)

    def signed_in(self, account):
        """The header of a request by the account, which signs in the first time."""
        if account not in self._sessions:
            browser = self._browsers.get(account, "")
            body = {"api": "VELT.Core.SignIn", "version": 1, "method": "login", "account": account,
                    "password": self.accounts[account]}
            answer = self.request("POST", "/webapi/entry.cgi", body, {"Cookie": f"velt_owner_browser={browser}"})
            cookies = dict(cookie.partition(";")[0].split("=", 1) for cookie in answer.set_cookies)
            assert answer.json["success"], answer.text
            self._browsers[account] = cookies["velt_owner_browser"]
            self._sessions[account] = cookies["velt_owner_sid"]
        return {"Cookie": f"velt_owner_sid={self._sessions[account]}"}

    def forget_session(self, account):
        """Signs in anew at the account's next request, in a browser that is known."""
        self._sessions.pop(account, None)

    def authorization(self, account):
        pair = f"{account}:{self.accounts[account]}".encode()
        return "Basic " + base64.b64encode(pair).decode()

    def call(self, api, method, params=None, account="alice", version=1):
        """Calls an API method as an account and returns the answer's JSON."""
        body = {"api": api, "version": version, "method": method, **(params or {})}
        return self.request("POST", "/webapi/entry.cgi", body, account=account).json

    def data(self, api, method, params=None, account="alice"):
        """Like call, for calls that must succeed: returns the data alone."""
        answer = self.call(api, method, params, account)
        if not answer["success"]:
            raise AssertionError(f"{method} {params}: {answer}")
        return answer["data"]

    def create(self, account="alice", **fields):
        """Creates a link and returns its id."""
        return self.data(SHARING, "set", {"project_name": "album", **fields}, account)["sharing_id"]

    def visitor(self, link_id):
        return Visitor(self, link_id)


class Visitor:
    """A visitor of one link with a cookie jar (`cookies`, name -> value) like a browser's."""

    def __init__(self, demo, link_id, cookies=None):
        self.demo = demo
        self.link_id = link_id
        self.cookies = dict(cookies or {})

    def at(self, link_id):
        """The same visitor, cookies included, at another link."""
        return Visitor(self.demo, link_id, self.cookies)

    def request(self, method, path="", body=None, headers=None):
        """Requests `path` below the link's page ("": the page itself, "/webapi": its API)."""
        headers = dict(headers or {})
        if self.cookies:
            headers["Cookie"] = "; ".join(f"{name}={value}" for name, value in self.cookies.items())
        answer = self.demo.request(method, f"/sharing/{self.link_id}{path}", body, headers)
        for cookie in answer.set_cookies:
            name, _, value = cookie.split(";", 1)[0].partition("=")
            self.cookies[name] = value
        return answer

    def page(self):
        return self.request("GET")

    def call(self, api, method, params=None, version=1):
        body = {"api": api, "version": version, "method": method, **(params or {})}
        return self.request("POST", door(api, method), body).json

    def login(self, **params):
        return self.call(SHARING + ".Login", "login", {"sharing_id": self.link_id, **params})


def wait_until(condition, seconds=60):
    """Polls until the condition holds; AssertionError when it does not within `seconds`."""
    end = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < end, "waited in vain"
        time.sleep(0.02)


def free_port():
    """A free port on 127.0.0.1, below the range from which the system takes ports for clients."""
    while True:
        with socket.socket() as probe:
            try:
                probe.bind(("127.0.0.1", random.randrange(10000, 32000)))
                return probe.getsockname()[1]
            except OSError:
                continue
