#!/usr/bin/env python3
"""What the service itself takes, idle and with visitors, and how long it takes to start: bench/http/service.py
BUILD-FOLDER

Prints the memory of the service's processes: RSS counts what processes share in each of them, PSS (proc(5),
smaps_rollup) divides it among them, so that the sum is what the service takes. Then the time from starting the service
to its first session script through a web server that runs already, in rounds. Needs ab (Debian: apache2-utils).
"""

import os
import re
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time
import urllib.request

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path[:0] = [os.path.join(TOP, "tests/e2e"), os.path.join(TOP, "scripts/demo")]

from demo import SHARING, Demo, free_port  # noqa: E402
import webserver  # noqa: E402

VISITORS = 200
ROUNDS = 9


def children(pid):
    with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
        return [int(child) for child in file.read().split()]


def descendants(pid):
    return [pid] + [each for child in children(pid) for each in descendants(child)]


def command_of(pid):
    with open(f"/proc/{pid}/cmdline", "rb") as file:
        return file.read().decode().split("\0")[:-1]


def memory_of(pid):
    """RSS and PSS in KiB."""
    with open(f"/proc/{pid}/smaps_rollup", encoding="ascii") as file:
        found = dict(re.findall(r"^(Rss|Pss):\s+(\d+)", file.read(), re.MULTILINE))
    return int(found["Rss"]), int(found["Pss"])


class Service:
    """The demonstration's running service."""

    def __init__(self, demo):
        self.supervisor = next(pid for pid in descendants(demo.pid) if command_of(pid)[0].endswith("velt-webapid"))
        self.command = command_of(self.supervisor)

    def print_memory(self, when):
        rows = [("supervisor", *memory_of(self.supervisor))]
        rows += [("worker", *memory_of(pid)) for pid in descendants(self.supervisor)[1:]]
        for kind in ("supervisor", "worker"):
            rss = [row[1] for row in rows if row[0] == kind]
            pss = [row[2] for row in rows if row[0] == kind]
            print(f"{when:<14} {len(rss):3} {kind:<10}  RSS {min(rss):6} to {max(rss):6} KiB  "
                  f"PSS {min(pss):6} to {max(pss):6} KiB")
        print(f"{when:<14} all: PSS {sum(row[2] for row in rows) / 1024:.1f} MiB", flush=True)


def visit(demo, links):
    """`VISITORS` at once: each logs in, reads the page, the script and the list of a link."""
    for link in links:
        assert demo.visitor(link).login()["success"]
        for path in ("", f"/webapi?api={SHARING}.Session&version=1&method=get&sharing_id={link}"):
            subprocess.run(["ab", "-q", "-k", "-c", str(VISITORS), "-n", "4000", f"{demo.url}/sharing/{link}{path}"],
                           check=True, stdout=subprocess.DEVNULL)


def first_answer(path, url):
    """The web server is asked once the service listens: it doesn't ask a backend again for a second after it has
    found it missing."""
    while True:
        with socket.socket(socket.AF_UNIX) as probe:
            if probe.connect_ex(path) == 0:
                break
        time.sleep(0.001)
    with urllib.request.urlopen(url) as answer:
        assert b"sharing_id" in answer.read()


def start_times(demo, service, folder):
    """Milliseconds. Each round starts the service anew, with a socket of its own, behind a web server that waits."""
    port, listener = free_port(), os.path.join(folder, "start.sock")
    path = os.path.join(folder, "start.conf")
    with open(path, "w", encoding="utf-8") as file:
        file.write(webserver.configuration(port, None).replace(webserver.SOCKET, listener))
    link = demo.create()
    url = f"http://127.0.0.1:{port}/sharing/{link}/webapi?api={SHARING}.Session&version=1&method=get&sharing_id={link}"
    inside = [os.path.join(TOP, "scripts/in-namespace"), demo.path("/")]
    times = []
    for _ in range(ROUNDS):
        server = subprocess.Popen([*inside, "/usr/sbin/lighttpd", "-D", "-f", path], stderr=subprocess.DEVNULL)
        command = [listener if part == webserver.SOCKET else part for part in service.command]
        process = subprocess.Popen([*inside, "sh", "-c", 'read go && exec "$@"', "sh", *command],
                                   stdin=subprocess.PIPE, stderr=subprocess.DEVNULL)
        time.sleep(1)  # for the namespaces of both
        begin = time.monotonic()
        process.stdin.write(b"go\n")
        process.stdin.close()
        first_answer(listener, url)
        times.append(1000 * (time.monotonic() - begin))
        for each in (process, server):
            each.send_signal(signal.SIGTERM)
            each.wait()
    return times


def main(build):
    os.environ["VELT_BUILD"] = build
    demo = Demo()
    with tempfile.TemporaryDirectory() as folder:
        try:
            service = Service(demo)
            service.print_memory("idle")
            visit(demo, [demo.create() for _ in range(3)])
            service.print_memory(f"{VISITORS} visitors")
            os.chmod(folder, 0o777)
            times = start_times(demo, service, folder)
            print(f"start to the first answer: {statistics.median(times):.0f} ms "
                  f"({min(times):.0f} to {max(times):.0f}; at most 150)")
        finally:
            demo.stop()


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: bench/http/service.py BUILD-FOLDER")
    main(os.path.abspath(sys.argv[1]))
