#!/usr/bin/env python3
"""Hundreds of visitors as in life, and two owners who work meanwhile:

    bench/load/life.py BUILD-FOLDER [--database sqlite|postgresql] [--visitors 500] [--minutes 10] [--faults]

Each visitor opens a link, reads the page and its script, logs in, lists a folder, looks at thumbnails, fetches a small
and a large file, an archive, and leaves a file, with a pause of one to three seconds before each. Prints for each kind
how many there were, p50, p99, the slowest, and errors with their reasons, and the memory and descriptors of the
service. With --faults the service is reloaded every thirty seconds, a worker is killed each second, and PostgreSQL is
restarted twice. Without, it ends with 1 when anything failed or the service grew.
"""

import argparse
import collections
import contextlib
import functools
import http.client
import json
import os
import random
import shutil
import signal
import sys
import tempfile
import threading
import time
import urllib.parse

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path[:0] = [os.path.join(TOP, "tests/e2e"), os.path.join(TOP, "scripts/demo")]

from demo import SHARING, Demo  # noqa: E402
from load import Store  # noqa: E402
from processes import children, descriptors, memory, name_of  # noqa: E402
from shared_files import Shared  # noqa: E402

LINK = "VELT.Files.Link"
PASSWORD = "for the guests"
PICTURES = 8
LARGE = 1 << 20
LEFT = 16 << 10
START = 20  # seconds within which they begin, about as long as a visit


class Figures:
    """Times and errors by kind, of all threads."""

    def __init__(self):
        self._lock = threading.Lock()
        self.times = collections.defaultdict(list)
        self.errors = collections.defaultdict(collections.Counter)

    def add(self, kind, took, error):
        with self._lock:
            self.times[kind].append(took)
            if error:
                self.errors[kind][error] += 1

    def print(self):
        print(f"{'':<16} {'count':>7} {'p50 ms':>8} {'p99 ms':>8} {'slowest':>8} {'errors':>7}")
        for kind, times in sorted(self.times.items()):
            times.sort()
            print(f"{kind:<16} {len(times):7} {1e3 * times[len(times) // 2]:8.1f} "
                  f"{1e3 * times[len(times) * 99 // 100]:8.1f} {1e3 * times[-1]:8.0f} "
                  f"{sum(self.errors[kind].values()):7}")
            for reason, count in self.errors[kind].most_common(4):
                print(f"    {count} x {reason}")


class Client:
    """One keep-alive connection, with the cookies that it was given, from a network of its own."""

    def __init__(self, port, figures, number, headers=None):
        self.figures, self.headers = figures, dict(headers or {})
        self.connection = http.client.HTTPConnection("127.0.0.1", port, timeout=60,
                                                     source_address=(f"127.{1 + number // 250}.{number % 250}.1", 0))

    def request(self, kind, method, path, body=None, headers=None, least=1):
        """True when it was answered well, with `least` bytes."""
        error, begin = None, time.monotonic()
        try:
            self.connection.request(method, path, body, {**self.headers, **(headers or {})})
            answer = self.connection.getresponse()
            content = answer.read()
            for cookie in answer.headers.get_all("Set-Cookie") or []:
                self.headers["Cookie"] = cookie.split(";", 1)[0]
            if answer.status not in (200, 201):
                error = f"{answer.status} {content[:80]!r}"
            elif len(content) < least:
                error = f"{len(content)} bytes of {least}"
            elif b'"success" : false' in content or b'"success":false' in content:
                error = content[:80].decode(errors="replace")
        except (OSError, http.client.HTTPException) as fault:
            error = type(fault).__name__
            self.connection.close()
        self.figures.add(kind, time.monotonic() - begin, error)
        return error is None

    def call(self, kind, door, api, method, **params):
        return self.request(kind, "POST", door, json.dumps({"api": api, "version": 1, "method": method, **params}),
                            {"Content-Type": "application/json"})


class World:
    """The files and links that everybody uses."""

    def __init__(self, demo):
        self.demo = demo
        files = Shared(demo)
        with open(files.path("Coast/Dawn.png"), "rb") as file:
            picture = file.read()
        for number in range(PICTURES):
            files.put(f"life/{number}.png", picture)
            files.put(f"life/part {number}.bin", os.urandom(256 << 10), 0o644)
        files.put("life/small.txt", b"s" * 4096, 0o644)
        files.put("life/large.bin", os.urandom(LARGE), 0o644)
        files.put("inbox/.keep")
        self.links = [files.share("life", enable_match_ip=False) for _ in range(8)]
        self.links += [files.share("life", protect_type="password", protect_password=PASSWORD)]
        self.owned = {account: demo.create(account) for account in ("alice", "bob")}
        self.inbox = files.share("inbox", upload={"max_size": 1 << 30, "max_total": 1 << 40, "max_files": 1 << 20})

    def visit(self, client, pause):
        link = random.choice(self.links)
        at = f"/sharing/{link}"
        door = at + "/webapi"

        def url(method, door=door, **params):
            return f"{door}?" + urllib.parse.urlencode({"api": LINK, "version": 1, "method": method, **params})

        client.headers.pop("Cookie", None)
        client.request("page", "GET", at)
        client.request("script", "GET", f"{door}?api={SHARING}.Session&version=1&method=get&sharing_id={link}")
        pause()
        if not client.call("login", door, SHARING + ".Login", "login", sharing_id=link, password=PASSWORD):
            return
        client.call("list", door, LINK, "list", path="0", limit=100)
        for number in range(4):
            client.request("thumbnail", "GET", url("thumbnail", path=f"0/{number}.png"), least=100)
        pause()
        client.request("small file", "GET", url("get", path="0/small.txt"), least=4096)
        pause()
        client.request("1 MiB", "GET", url("get", path="0/large.bin"), least=LARGE)
        pause()
        parts = json.dumps([f"0/part {number}.bin" for number in range(PICTURES)])
        client.request("archive", "GET", url("zip", at + "/stream", paths=parts), least=PICTURES << 18)
        pause()
        name = f"{random.getrandbits(64):x}.bin"
        client.request("upload", "PUT", f"/sharing/{self.inbox}/{name}", os.urandom(LEFT), least=0)
        pause()

    def work(self, account, client, pause):
        """What an owner does."""
        entry = "/webapi/entry.cgi"
        client.call("owner: list", entry, SHARING, "list", limit=50, sort_by="created_at", sort_direction="DESC")
        pause()
        client.call("owner: change", entry, SHARING, "set", sharing_id=self.owned[account],
                    project_name="album", protect_title=str(random.random()))
        pause()
        client.call("owner: create", entry, SHARING, "set", project_name="album")
        pause()


class Faults(threading.Thread):
    """Reloads, kills and restarts until `until`."""

    def __init__(self, host, server, until):
        super().__init__()
        self.host, self.server, self.begin, self.until = host, server, time.monotonic(), until

    def run(self):
        restarts = [self.begin + (self.until - self.begin) * part for part in (0.33, 0.66)] if self.server else []
        second = 0
        while time.monotonic() < self.until:
            time.sleep(1)
            second += 1
            if second % 30 == 0:
                os.kill(self.host, signal.SIGHUP)
            with contextlib.suppress(ProcessLookupError, IndexError):
                os.kill(random.choice(children(self.host)), signal.SIGKILL)
            if restarts and time.monotonic() > restarts[0]:
                restarts.pop(0)
                self.server.stop()
                self.server.start()


def people(world, figures, visitors, until):
    """A thread for each."""
    def live(step, number, headers, longest):
        def pause():
            end = time.monotonic() + random.uniform(1, longest)
            if end > until:
                sys.exit()  # of the thread
            time.sleep(end - time.monotonic())

        time.sleep(random.uniform(0, START))
        client = Client(world.demo.port, figures, number, headers)
        while True:
            step(client, pause)

    owners = [(functools.partial(world.work, account), visitors + number, world.demo.signed_in(account), 2)
              for number, account in enumerate(world.owned)]
    return [threading.Thread(target=live, args=args)
            for args in owners + [(world.visit, number, None, 3) for number in range(visitors)]]


def usage(host):
    """Memory of all in KiB, the most descriptors that one has, and how many there are."""
    sizes, counts = [], []
    for pid in [host, *children(host)]:
        with contextlib.suppress(OSError):
            sizes.append(memory(pid))
            counts.append(len(descriptors(pid)))
    return sum(sizes), max(counts), len(sizes)


def run(demo, server, arguments):
    world, figures = World(demo), Figures()
    host = next(pid for pid in children(demo.pid) if name_of(pid) == "velt-webapid")
    until = time.monotonic() + 60 * arguments.minutes
    threads = people(world, figures, arguments.visitors, until)
    if arguments.faults:
        threads.append(Faults(host, server, until))
    for thread in threads:
        thread.start()
    samples = []
    while time.monotonic() < until:
        time.sleep(min(5, max(0.1, until - time.monotonic())))
        samples.append(usage(host))
    for thread in threads:
        thread.join()
    figures.print()
    quarter = max(1, len(samples) // 4)
    before, after = samples[quarter:2 * quarter] or samples, samples[-quarter:]
    sizes = [min(sample[0] for sample in part) for part in (before, after)]
    counts = [min(sample[1] for sample in part) for part in (before, after)]
    print(f"memory of all {sizes[0]} KiB in the second quarter, {sizes[1]} in the last; most descriptors of one "
          f"{counts[0]} and {counts[1]}; processes {min(s[2] for s in samples)} to {max(s[2] for s in samples)}")
    grew = sizes[1] > sizes[0] * 1.05 + 1024 or counts[1] > counts[0]
    print("the service", "grew" if grew else "stayed as it was")
    return not grew and not any(figures.errors.values())


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--database", choices=("sqlite", "postgresql"), default="sqlite")
    parser.add_argument("--visitors", type=int, default=500)
    parser.add_argument("--minutes", type=float, default=10)
    parser.add_argument("--faults", action="store_true")
    arguments = parser.parse_args()
    os.environ["VELT_BUILD"] = os.path.abspath(arguments.build)
    data = tempfile.mkdtemp(prefix="velt-life-", dir="/tmp")
    store = Store(arguments.database, data)
    try:
        demo = Demo(options=store.options)
        try:
            good = run(demo, store.server, arguments)
        finally:
            demo.stop()
    finally:
        store.stop()
        shutil.rmtree(data)
    sys.exit(0 if good or arguments.faults else 1)


if __name__ == "__main__":
    main()
