#!/usr/bin/env python3
"""Mixed traffic on a store with many links, and each method against its floor in the same run:

    bench/load/load.py BUILD-FOLDER [--database sqlite|postgresql] [--minutes 10] [--links 1000000]

First each method alone takes turns with its floor. Then all run at once for the given time: throughput, percentiles,
errors, and the memory and descriptors of the workers. Ends with 1 when a request failed or the workers grew. Needs wrk.
docs/performance.md says how to read the figures.
"""

import argparse
import contextlib
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path[:0] = [os.path.join(TOP, "bench/http"), os.path.join(TOP, "tests/e2e"), os.path.join(TOP, "scripts/demo")]

from bench import Constant, Floors  # noqa: E402
from demo import Demo  # noqa: E402
from processes import children, descriptors, memory, name_of  # noqa: E402
from test_postgresql import PROGRAMS, Server  # noqa: E402
from fill import fill_postgresql, fill_sqlite  # noqa: E402
from traffic import ENTRY, SHARING, Caller, Changing, Same  # noqa: E402

FEW = 1000  # links of the store with which the full one is compared
ROUNDS = 5
PAGE = 50
FAR = 10_000


class Store:
    """The database under the demonstration: how it is filled, and what the writes of a create take by hand."""

    def __init__(self, kind, folder):
        self.server = None
        if kind == "postgresql":
            if os.geteuid() == 0:
                shutil.chown(folder, "postgres", "postgres")
            self.server = Server(folder, "data")
            self.server.make()
            self.server.start()
            self.server.sql("create database velt", "postgres")

    @property
    def options(self):
        if not self.server:
            return ()
        return "--database", f"postgresql host=127.0.0.1 port={self.server.port} user=velt dbname=velt"

    def fill(self, demo, count, owner):
        if self.server:
            fill_postgresql(self.server, count, owner)
        else:
            fill_sqlite(demo.database, count, owner)

    def writes(self, floors, folder):
        """Seconds that an insert and an update of a link take, each committed."""
        if not self.server:
            return floors.seconds("create")
        columns = self.server.sql("select string_agg(column_name, ', ') from information_schema.columns where "
                                  "table_name = 'link' and column_name not in ('id', 'hash')")
        names = " ".join(columns)
        script = os.path.join(folder, "create.sql")
        with open(script, "w", encoding="ascii") as file:
            file.write(f"insert into link (hash, {names}) select md5(random()::text), {names} from link "
                       "where id = 1;\nupdate link set enabled = 1 - enabled, revision = revision + 1 "
                       "where id = (select max(id) from link);\n")
        out = subprocess.run([os.path.join(PROGRAMS, "pgbench"), "-n", "-f", script, "-t", "20", "-h", "127.0.0.1",
                              "-p", str(self.server.port), "-U", "velt", "velt"], check=True, capture_output=True,
                             text=True).stdout
        return float(re.search(r"latency average = ([\d.]+) ms", out)[1]) / 1e3

    def stop(self):
        if self.server:
            self.server.stop()


def report(what, value, bound=""):
    print(f"{what:<66} {value:8.3f}  {bound}", flush=True)


class Run:
    def __init__(self, demo, constant, floors, store, folder):
        self.demo, self.constant, self.floors, self.store, self.folder = demo, constant, floors, store, folder
        self.alice = demo.signed_in("alice")
        self.admin = demo.signed_in("admin")
        self.link = demo.create()
        self.links = [demo.create() for _ in range(20)]
        self.api = f"/sharing/{self.link}/webapi"
        self.script = f"{self.api}?api={SHARING}.Session&version=1&method=get&sharing_id={self.link}"

    def owner(self, port=None):
        return Caller(port or self.demo.port, self.alice)

    def administrator(self):
        return Caller(self.demo.port, self.admin)

    def pages(self):
        """Seconds of a page in several orders, of the same far behind, and of a total; for everybody's links."""
        caller, took = self.administrator(), {}
        for name, params in (("total", {"limit": 0}), ("page by created_at", {"limit": PAGE, "sort_by": "created_at"}),
                             ("page by protect_title, downwards",
                              {"limit": PAGE, "sort_by": "protect_title", "sort_direction": "DESC"}),
                             ("page by visits", {"limit": PAGE, "sort_by": "visits"})):
            for far in ((False,) if name == "total" else (False, True)):
                wanted = {"all_entry": True, **params, **({"offset": FAR if self.full else FEW - PAGE} if far else {})}
                caller.call("list", **wanted)
                took[name + (", far behind" if far else "")] = statistics.median(
                    caller.seconds("list", **wanted) for _ in range(31 if name == "total" else ROUNDS))
        return took

    full = False

    def alone(self):
        """Each method by itself, in turns with its floor."""
        refused = {"api": SHARING, "version": 1, "method": "set"}
        for name, path, want, body, bound in (
                ("refused by its pre-check", ENTRY, '"success"', refused, "at least 0.8"),
                ("session script", self.script, "", None, "at least 0.9"),
                ("link page", f"/sharing/{self.link}", "", None, "")):
            ratios = []
            for _ in range(ROUNDS):
                given = {"body": body, "headers": self.alice if body else None, "connections": 16}
                ours = Same(self.demo.port, path, want, **given).per_second(2)
                ratios.append(ours / Same(self.constant.port, path, want, **given).per_second(2))
            report(f"throughput, {name} / constant answer", statistics.median(ratios), bound)

        owner, constant = self.owner(), self.owner(self.constant.port)
        times = []
        for _ in range(100):
            parts = [owner.seconds("set", project_name="load"), self.floors.seconds("qrcode"),
                     self.store.writes(self.floors, self.folder)]
            start = time.perf_counter()
            with contextlib.suppress(OSError):  # it is an error's text
                constant.call("set")
            times.append([*parts, time.perf_counter() - start])
        took, qrcode, writes, answer = (statistics.median(column) for column in zip(*times))
        print(f"set {1e6 * took:.0f} us, bare qrencode {1e6 * qrcode:.0f} us, its two commits {1e6 * writes:.0f} us, "
              f"constant answer {1e6 * answer:.0f} us")
        report("set / (qrencode + commits + constant answer)", took / (qrcode + writes + answer), "at most 1.2")

        lister = self.administrator()
        ratios = [lister.seconds("list", limit=200, all_entry=True) / self.floors.seconds("qrcode", 200)
                  for _ in range(ROUNDS)]
        report("list of 200 with images / 200 bare qrencode one after another", statistics.median(ratios),
               "at most 0.6")

    def mix(self):
        """The traffic, by name."""
        visitor_get = [(f"/sharing/{link}/webapi", link) for link in self.links]

        def visit(number):
            path, link = visitor_get[number % len(visitor_get)]
            yield "login", path, "login", {"api": SHARING + ".Login", "sharing_id": link}
            for _ in range(5):
                yield "get (visitor)", path, "get", {"sharing_id": link}

        def look(number):
            yield "get (owner)", ENTRY, "get", {"sharing_id": self.links[number % len(self.links)]}

        def page(number):
            yield "list of 50", ENTRY, "list", {"all_entry": True, "limit": PAGE, "offset": number * PAGE % FAR,
                                                "sort_by": ("created_at", "protect_title", "visits")[number % 3]}

        def write(number):
            if number % 2:
                yield "set (create)", ENTRY, "set", {"project_name": "load"}
            else:
                yield "set (change)", ENTRY, "set", {"project_name": "album", "protect_title": str(number),
                                                     "sharing_id": self.links[number % len(self.links)]}

        return {"page": Same(self.demo.port, f"/sharing/{self.link}", ""),
                "session script": Same(self.demo.port, self.script, ""),
                "visits": Changing(lambda: Caller(self.demo.port), visit), "look": Changing(self.owner, look),
                "pages": Changing(self.administrator, page), "writes": Changing(self.owner, write)}

    def workers(self):
        """The most memory, in KiB, and the most descriptors that a worker has, and how many there are."""
        host = next(pid for pid in children(self.demo.pid) if name_of(pid) == "velt-webapid")
        found = []
        for pid in children(host):
            with contextlib.suppress(OSError):
                found.append((memory(pid), len(descriptors(pid))))
        return max(size for size, _ in found), max(count for _, count in found), len(found)

    def together(self, seconds):
        """All at once. False when a request failed or the workers grew."""
        senders = self.mix()
        for sender in senders.values():
            sender.start(seconds)
        samples, end = [], time.monotonic() + seconds
        while time.monotonic() < end:
            time.sleep(min(5, max(0.0, end - time.monotonic())))
            samples.append(self.workers())
        print(f"\n{'together':<18} {'a second':>9} {'p50 ms':>9} {'p95 ms':>9} {'p99 ms':>9} {'errors':>7}")
        errors = 0
        for name, sender in senders.items():
            result = sender.result()
            for method, figures in ({name: result} if "count" in result else result).items():
                errors += figures["errors"]
                print(f"{method:<18} {figures['count'] / figures['seconds']:9.1f} {figures['p50']:9.2f} "
                      f"{figures['p95']:9.2f} {figures['p99']:9.2f} {figures['errors']:7}")
                if figures.get("first error"):
                    print("   first:", figures["first error"])
        quarter = max(1, len(samples) // 4)
        before, after = samples[quarter:2 * quarter] or samples, samples[-quarter:]
        sizes = [max(sample[0] for sample in part) for part in (before, after)]
        # Those that are open for a moment, for a program for instance, are in some samples only.
        counts = [min(sample[1] for sample in part) for part in (before, after)]
        print(f"largest worker: {sizes[0]} KiB in the second quarter, {sizes[1]} in the last; most descriptors, "
              f"always: {counts[0]} and {counts[1]}; at most {max(sample[2] for sample in samples)} workers")
        grew = sizes[1] > sizes[0] * 1.05 + 1024 or counts[1] > counts[0]
        print("errors:", errors, "- the workers", "grew" if grew else "stayed as they were")
        return errors == 0 and not grew


def measure(run, store, arguments):
    uid = int(run.demo.data(SHARING, "get", {"sharing_id": run.link})["owner_uid"])
    store.fill(run.demo, FEW, uid)
    few = run.pages()
    start = time.monotonic()
    store.fill(run.demo, arguments.links, uid)
    print(f"{arguments.links} links more took {time.monotonic() - start:.0f} s")
    run.full = True
    for name, took in run.pages().items():
        report(f"{name}, {arguments.links} links / {FEW} links ({1e3 * took:.2f} ms)", took / few[name], "at most 1.5")
    run.alone()
    return run.together(int(60 * arguments.minutes))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--database", choices=("sqlite", "postgresql"), default="sqlite")
    parser.add_argument("--minutes", type=float, default=10)
    parser.add_argument("--links", type=int, default=1_000_000)
    arguments = parser.parse_args()
    build = os.environ["VELT_BUILD"] = os.path.abspath(arguments.build)
    with contextlib.ExitStack() as stack:
        folder = stack.enter_context(tempfile.TemporaryDirectory(prefix="velt-load-"))
        data = stack.enter_context(tempfile.TemporaryDirectory(prefix="velt-load-data-"))
        os.chmod(folder, 0o755)
        store = Store(arguments.database, data)
        stack.callback(store.stop)
        demo = Demo(options=store.options)
        stack.callback(demo.stop)
        constant = Constant(demo, build, folder)
        stack.callback(constant.stop)
        # The writes by hand of a create need a link that they copy.
        demo.create()
        floors = Floors(build, demo)
        stack.callback(floors.stop)
        if not measure(Run(demo, constant, floors, store, folder), store, arguments):
            sys.exit(1)


if __name__ == "__main__":
    main()
