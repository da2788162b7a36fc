#!/usr/bin/env python3
"""Measures requests through lighttpd against floors of the same run: bench/http/bench.py BUILD-FOLDER

Every figure is the median of rounds in which the service and the floor alternate, so that a busy machine slows
both equally. The floor of a request is a FastCGI program on the same library that answers with a constant, behind a
second lighttpd with the demonstration's own configuration. Needs ab (Debian: apache2-utils).
"""

import http.client
import json
import os
import re
import statistics
import subprocess
import sys
import tempfile
import time

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path[:0] = [os.path.join(TOP, "tests/e2e"), os.path.join(TOP, "scripts/demo")]

from demo import SHARING, Demo, free_port  # noqa: E402
import webserver  # noqa: E402

ROUNDS = 7


class Constant:
    """The constant answer behind its own lighttpd, with a process for each core."""

    def __init__(self, demo, build, folder):
        self.port = free_port()
        socket = os.path.join(folder, "constant.sock")
        text = webserver.configuration(self.port, None).replace(webserver.SOCKET, socket)
        path = os.path.join(folder, "lighttpd.conf")
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        self.processes = [
            subprocess.Popen([os.path.join(build, "bin/constant-fcgi"), socket, str(os.cpu_count())]),
            # With the demonstration's own accounts and files.
            subprocess.Popen([os.path.join(TOP, "scripts/in-namespace"), demo.path("/"), "lighttpd", "-D", "-f", path])]
        while subprocess.run(["curl", "-fs", "-o", "/dev/null", f"http://127.0.0.1:{self.port}/sharing/x"],
                             check=False).returncode:
            time.sleep(0.05)

    def stop(self):
        for process in self.processes:
            process.terminate()
            process.wait()


class Caller:
    """A keep-alive connection of alice's."""

    def __init__(self, demo, port):
        self.headers = {**demo.signed_in("alice"), "Content-Type": "application/json"}
        self.connection = http.client.HTTPConnection("127.0.0.1", port)

    def seconds(self, method, **params):
        body = json.dumps({"api": SHARING, "version": 1, "method": method, **params})
        start = time.perf_counter()
        self.connection.request("POST", "/webapi/entry.cgi", body, self.headers)
        answer = self.connection.getresponse().read()
        took = time.perf_counter() - start
        assert b"success" in answer, answer
        return took


class Floors:
    """The work of a create done by hand; see bench/module/FloorsMain.cpp."""

    def __init__(self, build, demo):
        self.process = subprocess.Popen([os.path.join(build, "bin/bench-floors"), demo.database], text=True,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def seconds(self, what, count=1):
        print(what, count, file=self.process.stdin, flush=True)
        return float(self.process.stdout.readline()) / 1e6

    def stop(self):
        self.process.stdin.close()
        self.process.wait()


def throughput(port, path, demo=None, body=None):
    """Requests a second over sixteen keep-alive connections."""
    command = ["ab", "-q", "-k", "-c", "16", "-n", "8000"]
    if demo:
        command += ["-C", demo.signed_in("alice")["Cookie"]]
    if body:
        command += ["-p", body, "-T", "application/json"]
    out = subprocess.run([*command, f"http://127.0.0.1:{port}{path}"], check=True, stdout=subprocess.PIPE,
                         text=True).stdout
    assert re.search(r"Failed requests:\s+0|Length: [1-9]", out), out
    return float(re.search(r"Requests per second:\s+([\d.]+)", out)[1])


def report(what, ratios, bound):
    print(f"{what:<62} {statistics.median(ratios):6.3f}  ({bound})", flush=True)


def main(build):
    os.environ["VELT_BUILD"] = build
    demo = Demo()
    with tempfile.TemporaryDirectory() as folder:
        constant = Constant(demo, build, folder)
        try:
            measure(demo, build, folder, constant)
        finally:
            constant.stop()
            demo.stop()


def measure(demo, build, folder, constant):
    ours, floor = Caller(demo, demo.port), Caller(demo, constant.port)
    ours.seconds("set", project_name="bench")

    floors = Floors(build, demo)
    names = ("set", "bare qrencode", "two writes", "constant answer")
    times = [[ours.seconds("set", project_name="bench"), floors.seconds("qrcode"), floors.seconds("create"),
              floor.seconds("set", project_name="bench")] for _ in range(600)]
    took, *parts = (statistics.median(column) for column in zip(*times))
    print(", ".join(f"{name} {1e6 * value:.0f} us" for name, value in zip(names, (took, *parts))))
    report("set / (bare qrencode + its two writes + constant answer)", [took / sum(parts)], "at most 1.2")

    for number in range(200):
        demo.create("bob", project_name="bench", protect_title=str(number))
    lister = Caller(demo, demo.port)
    lister.headers.update(demo.signed_in("bob"))
    lister.seconds("list", limit=1)
    ratios = [lister.seconds("list") / floors.seconds("qrcode", 200) for _ in range(ROUNDS)]
    floors.stop()
    report("list of 200 links / 200 bare qrencode, one after another", ratios, "at most 0.6")

    body = os.path.join(folder, "body.json")
    with open(body, "w", encoding="utf-8") as file:
        json.dump({"api": SHARING, "version": 1, "method": "set"}, file)
    entry = "/webapi/entry.cgi"
    ratios = [throughput(demo.port, entry, demo, body) / throughput(constant.port, entry, demo, body)
              for _ in range(ROUNDS)]
    report("throughput, refused by its pre-check / constant answer", ratios, "at least 0.8")

    link = demo.create()
    script = f"/sharing/{link}/webapi?api={SHARING}.Session&version=1&method=get&sharing_id={link}"
    ratios = [throughput(demo.port, script) / throughput(constant.port, script) for _ in range(ROUNDS)]
    report("throughput, session script / constant answer", ratios, "at least 0.9")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: bench/http/bench.py BUILD-FOLDER")
    main(os.path.abspath(sys.argv[1]))
