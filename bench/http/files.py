#!/usr/bin/env python3
"""Measures files by link against floors of the same run: bench/http/files.py BUILD-FOLDER [NAME...]

Each figure is the median of rounds in which the service and the floor alternate. The floor of a download is the same
file served statically by the same lighttpd. The floors of an archive are a FastCGI program that sends the same bytes
through another lighttpd with the same configuration, a static file, and bsdtar. The floor of a listing is readdir(3)
alone on the folder. Needs wrk and curl, and 5 GB of disk. Names after the build folder choose what is measured: large,
small, archive, small_archive, gallery, listing.
"""

import os
import re
import statistics
import subprocess
import sys
import tempfile
import time
import urllib.parse

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path[:0] = [os.path.join(TOP, "tests/e2e"), os.path.join(TOP, "scripts/demo")]

from demo import Demo, free_port  # noqa: E402
from webdriver import Browser  # noqa: E402
import webserver  # noqa: E402

ROUNDS = 5
LINK = "VELT.Files.Link"


def query(link, method, door="webapi", **params):
    return f"/sharing/{link}/{door}?" + urllib.parse.urlencode({"api": LINK, "version": 1, "method": method, **params})


def fetch(url, cookie="", least=0):
    """Seconds of a whole download, which has `least` bytes."""
    command = ["curl", "-sf", "-o", "/dev/null", "-w", "%{time_total} %{size_download}", "-H", "Cookie: " + cookie, url]
    seconds, size = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout.split()
    assert int(size) >= least, size
    return float(seconds)


def rate(url, cookie=""):
    """Requests a second over sixteen connections."""
    out = subprocess.run(["wrk", "-t", "2", "-c", "16", "-d", "4", "-H", "Cookie: " + cookie, url], check=True,
                         stdout=subprocess.PIPE, text=True).stdout
    assert "Non-2xx" not in out, out
    return float(re.search(r"Requests/sec:\s+([\d.]+)", out)[1])


def report(what, ratios, bound):
    print(f"{what:<62} {statistics.median(ratios):6.3f}  ({bound}; {min(ratios):.3f} to {max(ratios):.3f})", flush=True)


def write(path, size):
    block = os.urandom(min(size, 1 << 20))
    with open(path, "wb") as file:
        for _ in range(-(-size >> 20)):
            file.write(block[:size])


class Floor:
    """A FastCGI program behind a lighttpd of its own, which is configured as the demonstration's. `command` is given
    the socket as its `{socket}`."""

    def __init__(self, bench, *command):
        self.port = free_port()
        demo, folder = bench.demo, bench.folder
        socket = os.path.join(folder, f"{self.port}.sock")
        text = webserver.configuration(self.port, None).replace(webserver.SOCKET, socket)
        path = os.path.join(folder, f"{self.port}.conf")
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        self.processes = [subprocess.Popen([part.replace("{socket}", socket) for part in command]),
                          subprocess.Popen([os.path.join(TOP, "scripts/in-namespace"), demo.path("/"),
                                            "/usr/sbin/lighttpd", "-D", "-f", path])]
        self.url = f"http://127.0.0.1:{self.port}/sharing/x"
        while subprocess.run(["curl", "-sf", "-r", "0-1", "-o", "/dev/null", "-m", "1",
                              f"http://127.0.0.1:{self.port}/"], check=False).returncode == 7:
            time.sleep(0.05)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for process in self.processes:
            process.terminate()
            process.wait()


class Bench:
    """A running demonstration with a link of alice's folder "bench", and a visitor's cookie for it."""

    def __init__(self, demo, build, folder):
        self.demo, self.build, self.folder = demo, build, folder
        self.home = demo.path("/usr/velt/var/files/alice/bench")
        os.makedirs(self.home)
        self.link = demo.create(project_name="files", app={"root": "home", "items": ["bench"]}, enable_match_ip=False)
        visitor = demo.visitor(self.link)
        assert visitor.login()["success"]
        self.cookie = "; ".join(f"{name}={value}" for name, value in visitor.cookies.items())

    def url(self, method, door="webapi", **params):
        return self.demo.url + query(self.link, method, door, **params)

    def program(self, name):
        return os.path.join(self.build, "bin", name)

    def put(self, name, size):
        """A file that the web server may send; returns its path."""
        path = os.path.join(self.home, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        write(path, size)
        os.chmod(path, 0o644)
        return path

    def own(self):
        owner = os.stat(os.path.dirname(self.home))
        subprocess.run(["chown", "-R", f"{owner.st_uid}:{owner.st_gid}", self.home], check=True)


def large(bench):
    os.link(bench.put("large.bin", 1 << 30), bench.demo.path("/usr/velt/web/large.bin"))
    bench.own()
    ours, floor = bench.url("get", path="0/large.bin"), bench.demo.url + "/large.bin"
    fetch(ours, bench.cookie)
    pairs = [(fetch(ours, bench.cookie), fetch(floor)) for _ in range(ROUNDS)]
    report("speed, download of 1 GiB / served statically", [b / a for a, b in pairs], "at least 0.95")


def small(bench):
    """A small file is above all a call. So there is a second floor: a FastCGI program that hands the same file over, to
    everybody and without a look at anything."""
    path = bench.put("small.bin", 4096)
    for folder in (webserver.SPOOL, "/usr/velt/web"):
        os.link(path, bench.demo.path(folder + "/small.bin"))
    bench.own()
    ours, static = bench.url("get", path="0/small.bin"), bench.demo.url + "/small.bin"
    with Floor(bench, bench.program("constant-fcgi"), "{socket}", "16",
               f"X-Sendfile: {webserver.SPOOL}/small.bin") as unasked:
        rate(ours, bench.cookie)
        rounds = [(rate(ours, bench.cookie), rate(unasked.url), rate(static)) for _ in range(ROUNDS)]
    report("speed, 4 KiB files / handed over unasked", [a / b for a, b, _ in rounds], "no bound")
    report("speed, 4 KiB files / served statically", [a / c for a, _, c in rounds], "no bound")
    report("speed, 4 KiB files handed over unasked / served statically", [b / c for _, b, c in rounds], "no bound")


def archive(bench):
    """The floors send the files' bytes alone, through FastCGI, and one file of the same size from the web server."""
    size = 20 * (52 << 20)
    sources = [bench.put(f"twenty/{number}.bin", size // 20) for number in range(20)]
    write(bench.demo.path("/usr/velt/web/archive.bin"), size)
    bench.own()
    ours, static = bench.url("zip", door="stream", paths='["0/twenty"]'), bench.demo.url + "/archive.bin"
    with Floor(bench, bench.program("files-floors"), "cat", "{socket}", *sources) as cat:
        rounds = [(fetch(ours, bench.cookie, size), fetch(cat.url, "", size), fetch(static, "", size))
                  for _ in range(ROUNDS + 1)][1:]
    report("speed, archive of 1 GiB in 20 files / its bytes alone", [b / a for a, b, _ in rounds], "at least 0.9")
    report("speed, archive of 1 GiB in 20 files / served statically", [c / a for a, _, c in rounds], "no bound")
    print(f"the archive at {size / 1e6 / statistics.median(a for a, _, _ in rounds):.0f} MB/s")


def small_archive(bench):
    for number in range(10000):
        bench.put(f"small/{number:05}.bin", 4096)
    bench.own()
    ours = bench.url("zip", door="stream", paths='["0/small"]')
    ratios = []
    for _ in range(ROUNDS + 1):
        begin = time.monotonic()
        subprocess.run(f"bsdtar -cf - -C '{bench.home}' small | cat >/dev/null", shell=True, check=True)
        floor = time.monotonic() - begin
        ratios.append(fetch(ours, bench.cookie, 10000 * 4096) / floor)
    report("time, archive of 10,000 files of 4 KiB / bsdtar", ratios[1:], "at most 1.5")


FIRST_SCREEN = """
    const seen = () => [...document.querySelectorAll('.tile img')].filter(
      (img) => img.getBoundingClientRect().top < innerHeight);
    return new Promise((resolve) => {
      const look = () => seen().length > 0 && seen().every((img) => img.complete && img.naturalWidth) ?
        resolve(performance.now()) : requestAnimationFrame(look);
      look();
    });"""


def gallery(bench):
    """In headless Chromium: from the beginning of the navigation until the first screen's pictures are there."""
    with open(os.path.join(os.path.dirname(bench.home), "Coast/Dawn.png"), "rb") as file:
        picture = file.read()
    links = {}
    for count in (20, 2000):
        folder = os.path.join(bench.home, f"pictures-{count}")
        os.makedirs(folder)
        for number in range(count):
            with open(f"{folder}/{number:04}.png", "wb") as file:
                file.write(picture)
        app = {"root": "home", "items": [f"bench/pictures-{count}"]}
        links[count] = bench.demo.create(project_name="files", app=app)
    bench.own()

    def first_screen(browser, count):
        browser.open("about:blank")
        browser.open(f"{bench.demo.url}/sharing/{links[count]}")
        browser.wait_for(".tile img")
        return browser.script(FIRST_SCREEN)

    with Browser() as browser:
        rounds = [(first_screen(browser, 2000), first_screen(browser, 20)) for _ in range(ROUNDS + 1)][1:]
    report("first screen of 2,000 pictures / of 20", [a / b for a, b in rounds], "at most 1.5")
    print(f"the first screen of 2,000 pictures after {statistics.median(a for a, _ in rounds):.0f} ms")


def listing(bench):
    for number in range(100000):
        bench.put(f"many/a name of some length {number:06}.txt", 0)
    bench.own()
    ratios = []
    for _ in range(ROUNDS * 3):
        floor = subprocess.run([bench.program("files-floors"), "readdir", bench.home + "/many"], check=True,
                               stdout=subprocess.PIPE, text=True).stdout.split()
        ratios.append(1e6 * fetch(bench.url("list", path="0/many"), bench.cookie) / float(floor[0]))
    report("first page of a folder of 100,000 / reading it", ratios, "at most 3")


def main(build, *names):
    os.environ["VELT_BUILD"] = build
    demo = Demo()
    with tempfile.TemporaryDirectory() as folder:
        try:
            bench = Bench(demo, build, folder)
            for measure in (large, small, archive, small_archive, gallery, listing):
                if not names or measure.__name__ in names:
                    measure(bench)
        finally:
            demo.stop()


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit("usage: bench/http/files.py BUILD-FOLDER [large|small|archive|small_archive|gallery|listing]...")
    main(os.path.abspath(sys.argv[1]), *sys.argv[2:])
