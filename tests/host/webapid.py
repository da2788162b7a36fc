"""Starts velt-webapid on a fresh folder and talks FastCGI to it, as a web server would."""

import contextlib
import json
import os
import socket
import struct
import subprocess
import tempfile
import threading
import time
import urllib.parse
import urllib.request

from prometheus_client.parser import text_string_to_metric_families

BUILD = os.path.abspath(os.environ["VELT_BUILD"])
HOST = os.path.join(BUILD, "bin", "velt-webapid")
FIXTURES = os.environ["VELT_FIXTURES"]
BEGIN, END, PARAMS, STDIN, STDOUT = 1, 3, 4, 5, 6
PATIENCE = 30  # seconds until something that must happen counts as failed


def wait_until(condition):
    end = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < end, "waited in vain"
        time.sleep(0.01)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def scrape(port):
    with urllib.request.urlopen(f"http://127.0.0.1:{port}/metrics", timeout=PATIENCE) as answer:
        text = answer.read().decode()
    return {(sample.name, *sorted(sample.labels.values())): sample.value
            for family in text_string_to_metric_families(text) for sample in family.samples}


class Answer:
    """An answer; `json` is its value when the body is JSON. Its text is empty when the worker died."""

    def __init__(self, text):
        self.text = text
        head, _, self.body = text.partition("\r\n\r\n")
        self.headers = [line.partition(": ")[::2] for line in head.split("\r\n")]
        is_json = ("Content-Type", 'application/json; charset="UTF-8"') in self.headers
        self.json = json.loads(self.body) if is_json else None

    @property
    def code(self):
        """The framework's or module's error code, 0 for a success."""
        return 0 if self.json["success"] else self.json["error"]["code"]


def _pair(name, value):
    def length(text):
        return bytes([len(text)]) if len(text) < 128 else struct.pack(">I", len(text) | 1 << 31)

    return length(name) + length(value) + name + value


def _record(kind, content=b""):
    return struct.pack(">BBHHBB", 1, kind, 1, len(content), 0, 0) + content


def _stream(kind, content):
    chunks = [content[at:at + 65535] for at in range(0, len(content), 65535)]
    return b"".join(_record(kind, chunk) for chunk in chunks) + _record(kind)


def _read_exactly(connection, count):
    data = b""
    while len(data) < count:
        piece = connection.recv(count - len(data))
        if not piece:
            return None
        data += piece
    return data


class Host:
    """One running velt-webapid. `log` holds its log lines so far. `under` is a command that starts it; there and in
    the options "{}" stands for the folder."""

    def __init__(self, *options, modules=None, workers=1, pool_workers=1, at=None, under=()):
        self.folder = tempfile.TemporaryDirectory(prefix="webapid-")
        self.socket = at or os.path.join(self.folder.name, "socket")
        self.registry = os.path.join(self.folder.name, "webapi.d")
        os.mkdir(self.registry)
        for name, text in (modules or {"fixture.json": fixture_registry()}).items():
            self.register(name, text)
        self.database = os.path.join(self.folder.name, "data", "sharing.db")
        os.mkdir(os.path.dirname(self.database))
        command = [part.replace("{}", self.folder.name) for part in under]
        command += [HOST, "--socket", self.socket, "--registry", self.registry, "--log-stderr",
                    "--owner-login", "web-server"]
        command += ["--database", "sqlite3 " + self.database]
        command += ["--workers", str(workers), "--pool-workers", str(pool_workers),
                    "--transfer-workers", str(pool_workers)]
        command += [option.replace("{}", self.folder.name) for option in options]
        self.log = []
        self._news = threading.Condition()
        self.process = subprocess.Popen(
            command, stderr=subprocess.PIPE, text=True, errors="replace", stdin=subprocess.DEVNULL
        )
        self._reader = threading.Thread(target=self._read_log, daemon=True)
        self._reader.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        try:
            self.wait()
        finally:
            self.process.kill()  # one that doesn't end in time; its workers leave with it
            self.folder.cleanup()
        faults = [line for line in self.log if "Sanitizer: " in line or "runtime error: " in line]
        assert not faults, "\n".join(self.log)

    def register(self, name, content):
        with open(os.path.join(self.registry, name), "w", encoding="utf-8") as file:
            file.write(content if isinstance(content, str) else json.dumps(content))

    def _read_log(self):
        for line in self.process.stderr:
            with self._news:
                self.log.append(line.rstrip("\n"))
                self._news.notify_all()

    def wait_for_log(self, text, times=1):
        with self._news:
            found = self._news.wait_for(
                lambda: sum(text in line for line in self.log) >= times, PATIENCE
            )
        assert found, f"{text!r} is not in {self.log}"

    def wait(self):
        status = self.process.wait(PATIENCE)
        self._reader.join(PATIENCE)
        self.process.stderr.close()
        return status

    def signal(self, number):
        self.process.send_signal(number)

    def connect(self):
        """A connection, waiting for the host to come up."""
        end = time.monotonic() + PATIENCE
        while True:
            connection = socket.socket(socket.AF_UNIX)
            connection.settimeout(PATIENCE)
            try:
                connection.connect(self.socket)
                return connection
            except OSError:
                connection.close()
                if time.monotonic() > end or self.process.poll() is not None:
                    raise

    def start(self, variables, body=b""):
        """Sends a request; its answer is read by `finish`."""
        everything = {
            "REQUEST_METHOD": "POST",
            "SCRIPT_NAME": "/webapi/entry.cgi",
            "HTTP_HOST": "nas:5000",
            "REMOTE_USER": "root",
            "CONTENT_TYPE": "application/x-www-form-urlencoded",
            "CONTENT_LENGTH": str(len(body)),
            **variables,
        }
        params = b"".join(_pair(k.encode(), v.encode(errors="surrogateescape")) for k, v in everything.items())
        connection = self.connect()
        try:
            connection.sendall(
                _record(BEGIN, struct.pack(">HB5x", 1, 0))
                + _stream(PARAMS, params)
                + _stream(STDIN, body)
            )
        except OSError:  # the missing answer shows it
            pass
        return connection

    def finish(self, connection):
        """Reads the answer. Its `ended` is whether the worker has marked it as complete."""
        text = b""
        ended = False
        with connection:
            try:
                while (head := _read_exactly(connection, 8)) is not None:
                    _, kind, _, length, padding, _ = struct.unpack(">BBHHBB", head)
                    content = _read_exactly(connection, length + padding)
                    if content is None or kind == END:
                        ended = content is not None
                        break
                    if kind == STDOUT:
                        text += content[:length]
            except ConnectionResetError:
                pass
        answer = Answer(text.decode())
        answer.ended = ended
        return answer

    def ask(self, variables=None, body=b""):
        return self.finish(self.start(variables or {}, body))

    def begin(self, method, variables=None, **parameters):
        """Begins a call of the fixture module as a logged-in user; `finish` reads its answer."""
        form = {"api": "Test.Host", "version": 1, "method": method, **parameters}
        return self.start(variables or {}, urllib.parse.urlencode(form).encode())

    def call(self, method, variables=None, **parameters):
        return self.finish(self.begin(method, variables, **parameters))

    def workers(self):
        """The process ids of all workers, of every pool."""
        return self.children("velt-webapid")

    def children(self, name):
        """Those of its child processes that are called so."""
        found = []
        with open(f"/proc/{self.process.pid}/task/{self.process.pid}/children", encoding="ascii") as file:
            for pid in file.read().split():
                with contextlib.suppress(OSError), open(f"/proc/{pid}/comm", encoding="utf-8") as comm:
                    found += [int(pid)] if comm.read().strip() == name else []
        return found

    def worker(self):
        """The process id of a worker that is up."""
        return self.call("echo").json["data"]["pid"]


def fixture_registry(**changes):
    def row(name, *access, **more):
        return {"api": "Test.Host", "version": 1, "method": name, "access": list(access), **more}

    methods = ["echo", "raw", "print", "crash", "hang", "program", "throw", "throw_int", "silent", "flood", "elevate"]
    rows = [row(name, "user", "visitor") for name in methods] + [
        row("user_post", "user", post_only=True),
        row("for_token", "token"),
        row("wait", "user", pool="long"),
        row("touch", "user", pool="long"),
        row("stream", "user", "visitor", pool="stream"),
        row("stuck", "user"),
        row("raw_body", "user", "visitor", post_only=True, raw_body=3 << 20, pool="bulk"),
    ]
    return {"library": os.path.join(FIXTURES, "fixture_api.so"), "methods": rows, **changes}
