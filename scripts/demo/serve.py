"""Serves the demonstration in the foreground.

./run starts it in a mount namespace of its own, where /usr/velt, /etc.defaults and the account files come from
the state folder. What is mounted here vanishes with the namespace.
"""

import argparse
import contextlib
import fcntl
import json
import os
import pwd
import re
import shlex
import shutil
import signal
import socket
import subprocess
import sys
import time

import files
import links
import webserver
from accounts import Accounts, write_private
from watch import Watched

START_SECONDS = 30
STOP_SECONDS = 15
WATCH_SECONDS = 0.3  # between two looks
LOG_BYTES = 8 << 20  # of each log, and as much of what was in it before
DATA = "/usr/velt/var/sharing"
LOGS = "/usr/velt/var/log"
SOCKETS = "/usr/velt/var/run"
SETTINGS = "/usr/velt/etc/webapid.conf"  # further options of velt-webapid, from the user
NOTIFY = "/usr/velt/etc/notify.conf"  # OPTIONS="..." of velt-sharing notify, in place of ours


class Failure(Exception):
    """The demonstration can't go on; the text is for the user."""


class Stopped(Exception):
    """Ctrl-C or SIGTERM."""


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("--port", type=int, required=True)
    arguments.add_argument("--state", required=True)
    arguments.add_argument("--build", required=True)
    arguments.add_argument("--database")
    arguments.add_argument("--watch", action="append", default=[])
    options = arguments.parse_args()
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, _stop)
    os.umask(0o022)
    try:
        demonstration = Demonstration(options.state, options.port, options.build, options.database)
        watched = [Watched(folder) for folder in options.watch]
        try:
            demonstration.start()
            demonstration.announce()
            demonstration.watch(watched)
        finally:
            demonstration.stop()
    except Stopped:
        return 0
    except (Failure, OSError, ValueError) as error:
        print(f"./run: {error}", file=sys.stderr)
        return 1


def _stop(_number, _frame):
    # A second signal must not break off the stopping.
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, signal.SIG_IGN)
    raise Stopped


class Demonstration:
    def __init__(self, state, port, build, database):
        self.state = state
        self.port = port
        self.build = build
        self.database = database
        self.programs = {}
        # In a user namespace of its own there is only the account root, which is the caller outside.
        self.account = ("www-data", "www-data") if _owns_every_id() else None
        self.lock = open(self._path("lock"), "w", encoding="utf-8")  # held until we end
        try:
            fcntl.flock(self.lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise Failure(f"another demonstration runs on {state}") from None
        self._forget()

    def _path(self, *names):
        return os.path.join(self.state, *names)

    def _forget(self):
        try:
            os.unlink(self._path("demo.json"))
        except FileNotFoundError:
            pass

    def start(self):
        with socket.socket() as probe:
            probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            try:
                probe.bind(("127.0.0.1", self.port))
            except OSError as error:
                raise Failure(f"port {self.port}: {error.strerror}") from None
        self._lay_out()
        self._run_service()
        self._run("lighttpd", "lighttpd", "-D", "-f", webserver.CONFIGURATION)
        self.owner = links.Client(self.port, ("alice", self.accounts.passwords["alice"]))
        self._wait_ready()
        self._run_notify()

    def _run_service(self):
        options = ["--user", self.account[0], "--group", self.account[1]] if self.account else []
        named = False
        if os.path.exists(SETTINGS):
            options += ["--config", SETTINGS]
            with open(SETTINGS, encoding="utf-8", errors="replace") as file:
                named = re.search(r"^\s*database\s*=", file.read(), re.MULTILINE)
        # What is given here goes before the file.
        if self.database or not named:
            options += ["--database", self.database or f"sqlite3 {DATA}/sharing.db"]
        self._run("velt-webapid", "/usr/velt/bin/velt-webapid", "--socket", webserver.SOCKET, "--registry",
                  "/usr/velt/lib/webapi.d", "--log-stderr", "--owner-basic", *options)
        self.tool = ["/usr/velt/bin/velt-sharing", *options]

    def _run_notify(self):
        further = ["--private-webhooks", "--wait=10", "--external-url", f"http://127.0.0.1:{self.port}"]
        if os.path.exists(NOTIFY):
            with open(NOTIFY, encoding="utf-8") as file:
                further = shlex.split(shlex.split(file.read())[0].partition("=")[2])
        self._run("velt-notify", *self.tool, "notify", *further)

    def _lay_out(self):
        """Fills the appliance's folders, and keeps what the user has put there."""
        for path in (webserver.FOLDER, "/usr/velt/etc.defaults/sharing", "/usr/velt/var/packages",
                     "/usr/velt/lib/sharing", DATA, LOGS, SOCKETS):
            os.makedirs(path, exist_ok=True)
        os.chmod(DATA, 0o700)
        # The sockets vanish with the namespace, even if this program is killed.
        _mount_empty(SOCKETS)
        done = subprocess.run(["cmake", "--install", self.build, "--prefix", "/usr/velt"], stdout=subprocess.DEVNULL,
                              stderr=subprocess.PIPE, text=True, check=False)
        if done.returncode:
            raise Failure(f"{self.build} can't be installed: {done.stderr.strip()}")
        self.accounts = Accounts(self.state)
        files.lay_out(self.accounts.passwords, self.account)
        write_private(webserver.CONFIGURATION, webserver.configuration(self.port, self.account))
        if self.account:
            user = pwd.getpwnam(self.account[0])
            for path in (DATA, *(entry.path for entry in os.scandir(DATA))):
                os.chown(path, user.pw_uid, user.pw_gid)

    def _run(self, name, *command):
        path = f"{LOGS}/{name}.log"
        with open(os.open(path, os.O_WRONLY | os.O_CREAT | os.O_APPEND | os.O_CLOEXEC, 0o600), "ab") as log:
            # A session of its own, so that Ctrl-C reaches only this program, which ends the others in order.
            self.programs[name] = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                                   start_new_session=True, cwd="/")

    def _wait_ready(self):
        deadline = time.monotonic() + START_SECONDS
        while time.monotonic() < deadline:
            self._check_programs()
            try:
                # Any answer of the API is enough; this one needs no database.
                if "success" in self.owner.own(""):
                    return
            except (OSError, ValueError):
                pass
            time.sleep(0.05)
        raise Failure(f"no answer after {START_SECONDS} s; see {self._path('root') + LOGS}")

    def _check_programs(self):
        for name, program in self.programs.items():
            # Links work without messages about them.
            if program.poll() is not None and name != "velt-notify":
                raise Failure(f"{name} has ended; see {self._path('root')}{LOGS}/{name}.log")

    def announce(self):
        """Makes the links, writes demo.json and says where to begin."""
        ids, failures = links.ensure(self.owner, self.port, self.state)
        url = f"http://127.0.0.1:{self.port}"
        about = {"url": url, "pid": os.getpid(), "accounts": self.accounts.describe(), "links": ids,
                 "passwords": {"password": links.PASSWORD}}
        write_private(self._path("demo.json"), json.dumps(about, indent=2) + "\n")
        for failure in failures:
            print(f"This link could not be made: {failure}")
        self._print_addresses(url, ids)

    def _print_addresses(self, url, ids):
        alice, bob, admin = (f"{name}, password {self.accounts.passwords[name]}" for name in ("alice", "bob", "admin"))
        shown = [f"  {links.title_of(kind):<25} {url}/sharing/{link}" for kind, link in ids.items()]
        call = (f"curl -su alice:{self.accounts.passwords['alice']} {url}/webapi/entry.cgi "
                "-d api=VELT.Core.Sharing -d version=1")
        print(f"\nBegin here, as an owner: {url}/\n"
              f"  sign in as {alice}\n  or as      {bob}\n  or as      {admin} (sees everybody's links)\n\n"
              f"What visitors see; the password is \"{links.PASSWORD}\":\n" + "\n".join(shown) +
              f"\n\nThe API: {url}/webapi/docs/\n  {call} -d method=set -d project_name=demo\n"
              f"  {call} -d method=list -d sort_by=created_at -d sort_direction=DESC\n\n"
              f"Settings, plugins and logs are in {self._path('root')}\nPress Ctrl-C to stop.", flush=True)

    def watch(self, watched):
        """Installs what is `watched` when it changes. Never returns: raises Stopped, or Failure when a program ends."""
        for folder in watched:
            if not folder.is_there():
                print(f"{folder} is no build folder of CMake yet; it is installed when it is one.", flush=True)
        while True:
            self._check_programs()
            self._bound_logs()
            for folder in watched:
                if folder.has_changed():
                    self._install(folder)
            time.sleep(WATCH_SECONDS)

    def _bound_logs(self):
        for name in self.programs:
            path = f"{LOGS}/{name}.log"
            with contextlib.suppress(OSError):  # removed, or the disk is full
                if os.path.getsize(path) > LOG_BYTES:
                    shutil.copy(path, path + ".1")
                    os.truncate(path, 0)  # the program goes on to append to it

    def _install(self, folder):
        files, failure = folder.install("/usr/velt")
        # A worker may keep a plugin's library although it has closed it (dlclose(3)), and modules anyway. The service's
        # own program and libraries need a new process.
        libraries = [path for path in files if path.endswith(".so") or path.startswith("/usr/velt/bin/")]
        if any(os.path.dirname(path) != "/usr/velt/lib/sharing" for path in libraries):
            for name in ("velt-notify", "velt-webapid"):
                self._stop_program(name)
            self._run_service()
            self._run_notify()
        elif libraries:
            self.programs["velt-webapid"].send_signal(signal.SIGHUP)
        names = ", ".join(os.path.relpath(path, "/usr/velt") for path in files if not os.path.isdir(path))
        if failure or names:
            print(f"{time.strftime('%T')} {failure or 'the next page has ' + names}", flush=True)

    def stop(self):
        self._forget()
        # The web server first: it accepts nothing more and lets the workers finish.
        for name in ("velt-notify", "lighttpd", "velt-webapid"):
            self._stop_program(name)

    def _stop_program(self, name):
        program = self.programs.get(name)
        if program is None:
            return
        program.send_signal(signal.SIGTERM if name == "velt-webapid" else signal.SIGINT)
        try:
            program.wait(STOP_SECONDS)
        except subprocess.TimeoutExpired:
            os.killpg(program.pid, signal.SIGKILL)  # its workers too
            program.wait()


def _mount_empty(path):
    done = subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=0755", "velt", path], stderr=subprocess.PIPE, text=True,
                          check=False)
    if done.returncode:
        raise Failure(done.stderr.strip())


def _owns_every_id():
    """False in a user namespace that maps the caller's own id alone (user_namespaces(7))."""
    with open("/proc/self/uid_map", encoding="ascii") as file:
        return sum(int(line.split()[2]) for line in file) > 65535


if __name__ == "__main__":
    sys.exit(main())
