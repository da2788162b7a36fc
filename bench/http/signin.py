#!/usr/bin/env python3
"""Measures what it costs to know an owner: bench/http/signin.py BUILD-FOLDER

An owner's `get`, of a link with its QR code and of who calls, with a session's cookie is compared to the same call
behind a web server that asks PAM for each request, and behind one that gives the name for nothing; both pass to a
second service over the same database. Signing in is compared to PAM's conversation alone, for a password hashed as the
system hashes new ones, and wrong passwords of accounts that exist to those of some that don't. All in turns. Needs wrk;
as root.
"""

import bisect
import contextlib
import ctypes
import os
import shutil
import sqlite3
import statistics
import subprocess
import sys
import tempfile
import time

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path[:0] = [os.path.join(TOP, "bench/load"), os.path.join(TOP, "tests/e2e"), os.path.join(TOP, "scripts/demo")]

from demo import SHARING, Demo, free_port, wait_until  # noqa: E402
from traffic import ENTRY, Caller, Same  # noqa: E402
import webserver  # noqa: E402

SIGN_IN = "VELT.Core.SignIn"
ROUNDS, SECONDS, SIGN_INS, GUESSES = 7, 2, 60, 1000
IN_NAMESPACE = os.path.join(TOP, "scripts/in-namespace")
ASKS = """\
server.modules += ("mod_auth", "mod_authn_pam")
auth.backend = "pam"
auth.backend.pam.opts = ("service" => "asked")
"""
ASKED = 'auth.require = ("" => ("method" => "basic", "realm" => "x", "require" => "valid-user"))'
GIVEN = 'setenv.add-environment = ("REMOTE_USER" => "alice")'
# What a web server that may not read /etc/shadow can ask, and counts wrong passwords with.
SERVICE = """\
auth requisite pam_faillock.so preauth dir={folder} silent nodelay
auth sufficient pam_pwdfile.so pwdfile={folder}/passwords nodelay
auth [default=die] pam_faillock.so authfail dir={folder} nodelay
account required pam_faillock.so dir={folder}
"""


class Named:
    """A service that takes the name from web servers, of which there is one for each way to have it."""

    def __init__(self, demo, folder):
        socket = os.path.join(folder, "named.sock")
        self.processes = []
        self.start(demo, "/usr/velt/bin/velt-webapid", "--socket", socket, "--registry", "/usr/velt/lib/webapi.d",
                   "--database", "sqlite3 /usr/velt/var/sharing/sharing.db", "--user", "www-data", "--group",
                   "www-data", "--owner-login", "web-server")
        wait_until(lambda: os.path.exists(socket))
        failures = os.path.join(folder, "failures")
        os.mkdir(failures)
        with open(demo.path("/etc/shadow"), encoding="utf-8") as shadow:
            rows = [":".join(row.split(":")[:2]) for row in shadow]
        with open(os.path.join(failures, "passwords"), "w", encoding="utf-8") as file:
            file.write("\n".join(rows) + "\n")
        shutil.chown(failures, "www-data")
        with open(demo.path("/etc/pam.d/asked"), "w", encoding="utf-8") as file:
            file.write(SERVICE.format(folder=failures))
        self.asked, self.given = [self.serve(demo, folder, socket, rule) for rule in (ASKED, GIVEN)]

    def start(self, demo, *command):
        self.processes.append(subprocess.Popen([IN_NAMESPACE, demo.path("/"), *command], stderr=subprocess.DEVNULL))

    def serve(self, demo, folder, socket, rule):
        port = free_port()
        path = os.path.join(folder, f"{port}.conf")
        text = webserver.configuration(port, ("www-data", "www-data")).replace(webserver.SOCKET, socket)
        with open(path, "w", encoding="utf-8") as file:
            file.write(f'{text}{ASKS}$HTTP["url"] =~ "^{ENTRY}" {{ {rule} }}\n')
        self.start(demo, "lighttpd", "-D", "-f", path)
        wait_until(lambda: subprocess.run(["curl", "-s", "-o", "/dev/null", f"http://127.0.0.1:{port}/"],
                                          check=False).returncode == 0)
        return port

    def stop(self):
        for process in reversed(self.processes):
            process.terminate()
            process.wait()


class Message(ctypes.Structure):
    _fields_ = [("style", ctypes.c_int), ("text", ctypes.c_char_p)]


class Response(ctypes.Structure):
    _fields_ = [("text", ctypes.c_void_p), ("code", ctypes.c_int)]


ANSWER = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_int, ctypes.POINTER(ctypes.POINTER(Message)),
                          ctypes.POINTER(ctypes.POINTER(Response)), ctypes.c_void_p)


class Conversation(ctypes.Structure):
    _fields_ = [("answer", ANSWER), ("data", ctypes.c_void_p)]


def converse():
    """Reads account and password, and prints for each further line how long PAM took to let them in."""
    pam, libc = ctypes.CDLL("libpam.so.0"), ctypes.CDLL(None)
    libc.calloc.restype = libc.strdup.restype = ctypes.c_void_p
    account, password = (sys.stdin.readline().strip().encode() for _ in range(2))

    def answer(count, _messages, responses, _data):
        responses[0] = ctypes.cast(libc.calloc(count, ctypes.sizeof(Response)), ctypes.POINTER(Response))
        for number in range(count):
            responses[0][number].text = libc.strdup(password)
        return 0

    conversation = Conversation(ANSWER(answer), None)
    for _ in sys.stdin:
        start, handle = time.perf_counter(), ctypes.c_void_p()
        status = [pam.pam_start(b"velt-owner", account, ctypes.byref(conversation), ctypes.byref(handle)),
                  pam.pam_authenticate(handle, 0), pam.pam_acct_mgmt(handle, 0), pam.pam_end(handle, 0)]
        assert status == [0] * 4, status
        print(time.perf_counter() - start, flush=True)


def report(what, value, bound):
    print(f"{what:<62} {value:6.3f}  ({bound})", flush=True)


def measure(demo, named):
    session = {"Cookie": demo.signed_in("alice")["Cookie"]}
    basic = {"Authorization": demo.authorization("alice")}
    for api, parameters in ((SHARING, {"sharing_id": demo.create()}), (SIGN_IN, {})):
        body = {"api": api, "version": 1, "method": "get", **parameters}
        rates = [[Same(port, ENTRY, '"success":true', body, header, connections=16).per_second(SECONDS)
                  for port, header in ((demo.port, session), (named.asked, basic), (named.given, {}))]
                 for _ in range(ROUNDS)]
        print(f"{api} get, a second: session %.0f, asked by the web server %.0f, given by it %.0f"
              % tuple(statistics.median(column) for column in zip(*rates)))
        report("with a session / behind a web server that asks PAM", statistics.median(a / b for a, b, _ in rates),
               "at least 3")
        report("with the name given / with a session", statistics.median(c / a for a, _, c in rates), "at most 1.25")

    measure_guesses(demo)
    path = demo.path("/etc/shadow")
    with open(path, encoding="utf-8") as file:
        rows = file.read().splitlines()
    library = ctypes.CDLL("libcrypt.so.1")
    library.crypt.restype = library.crypt_gensalt.restype = ctypes.c_char_p
    hashed = library.crypt(demo.accounts["alice"].encode(), library.crypt_gensalt(None, 0, None, 0)).decode()
    with open(path, "w", encoding="utf-8") as file:
        file.writelines((f"alice:{hashed}:20000::::::" if row.startswith("alice:") else row) + "\n" for row in rows)
    bare = subprocess.Popen([IN_NAMESPACE, demo.path("/"), sys.executable, os.path.abspath(__file__), "--converse"],
                            text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    print("alice", demo.accounts["alice"], sep="\n", file=bare.stdin, flush=True)
    caller, times = Caller(demo.port), []
    for _ in range(SIGN_INS):
        print(file=bare.stdin, flush=True)
        times.append((caller.seconds("login", api=SIGN_IN, account="alice",
                                     password=demo.accounts["alice"]), float(bare.stdout.readline())))
    bare.stdin.close()
    bare.wait()
    took, alone = (statistics.median(column) for column in zip(*times))
    print(f"sign-in {1e3 * took:.1f} ms, PAM alone {1e3 * alone:.1f} ms")
    report("sign-in / PAM's conversation alone", took / alone, "at most 1.1")


def measure_guesses(demo):
    """Whether the time of an answer tells which accounts there are, whose passwords are hashed alike."""
    caller, times = Caller(demo.port), {"alice": [], "bob": [], "nobody": [], "somebody": []}
    with contextlib.closing(sqlite3.connect(demo.database, isolation_level=None)) as store:
        for number in range(4 * GUESSES // 2):
            account = list(times)[number % 4]
            store.execute("delete from failed_login")
            start = time.perf_counter()
            with contextlib.suppress(OSError):  # what an error is to it
                caller.call("login", api=SIGN_IN, account=account, password="wrong")
            times[account].append(time.perf_counter() - start)
    known, unknown = times["alice"] + times["bob"], times["nobody"] + times["somebody"]
    print(f"wrong password, median of {GUESSES}: known {1e3 * statistics.median(known):.2f} ms, "
          f"unknown {1e3 * statistics.median(unknown):.2f} ms")
    known.sort()
    later = sum(bisect.bisect(known, each) for each in unknown) / len(known) / len(unknown)
    report("how often an unknown account's answer takes longer", later, "0.45 to 0.55")


def main(build):
    os.environ["VELT_BUILD"] = build
    demo = Demo()
    try:
        with tempfile.TemporaryDirectory() as folder:
            os.chmod(folder, 0o755)
            named = Named(demo, folder)
            try:
                measure(demo, named)
            finally:
                named.stop()
    finally:
        demo.stop()


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: bench/http/signin.py BUILD-FOLDER")
    converse() if sys.argv[1] == "--converse" else main(os.path.abspath(sys.argv[1]))
