#!/usr/bin/env python3
"""Measures files by link against floors of the same run: bench/http/files.py BUILD-FOLDER

Each figure is the median of rounds in which the service and the floor alternate. The floor of a download is the same
file served statically by the same lighttpd. The floor of an archive is a FastCGI program that sends the same bytes
through another lighttpd with the same configuration. The floor of a listing is readdir(3) alone on the folder. Needs
wrk and curl, and 5 GB of disk.
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
import webserver  # noqa: E402

ROUNDS = 5
LINK = "VELT.Files.Link"


def query(link, method, **params):
    return f"/sharing/{link}/webapi?" + urllib.parse.urlencode({"api": LINK, "version": 1, "method": method, **params})


def fetch(url, cookie=""):
    """Seconds of a whole download."""
    command = ["curl", "-sf", "-o", "/dev/null", "-w", "%{time_total}", "-H", "Cookie: " + cookie, url]
    return float(subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout)


def rate(url, cookie=""):
    """Requests a second over sixteen connections."""
    out = subprocess.run(["wrk", "-t", "2", "-c", "16", "-d", "4", "-H", "Cookie: " + cookie, url], check=True,
                         stdout=subprocess.PIPE, text=True).stdout
    assert "Non-2xx" not in out, out
    return float(re.search(r"Requests/sec:\s+([\d.]+)", out)[1])


def report(what, ratios, bound):
    print(f"{what:<62} {statistics.median(ratios):6.3f}  ({bound}; {min(ratios):.3f} to {max(ratios):.3f})", flush=True)


def write(path, size):
    with open(path, "wb") as file:
        block = os.urandom(1 << 20)
        for _ in range(max(1, size >> 20)):
            file.write(block[:size])


class Cat:
    """The files' bytes through a lighttpd of its own."""

    def __init__(self, build, demo, folder, paths):
        self.port = free_port()
        socket = os.path.join(folder, "cat.sock")
        text = webserver.configuration(self.port, None)
        for old, new in ((webserver.SOCKET, socket), ("/usr/velt/", demo.path("/usr/velt/"))):
            text = text.replace(old, new)
        # Without the owners' login, which needs the demonstration's accounts.
        text = re.sub(r'(?s)auth\.backend.*?\n\n', "", text.replace('"mod_auth", "mod_authn_pam", ', ""))
        text = re.sub(r'(?m)^ *auth\.require = .*$', "", text)
        path = os.path.join(folder, "cat.conf")
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        self.processes = [subprocess.Popen([os.path.join(build, "bin/files-floors"), "cat", socket, *paths]),
                          subprocess.Popen(["/usr/sbin/lighttpd", "-D", "-f", path])]
        self.url = f"http://127.0.0.1:{self.port}/sharing/x"
        while subprocess.run(["curl", "-sf", "-r", "0-1", "-o", "/dev/null", "-m", "1", f"http://127.0.0.1:{self.port}/"],
                             check=False).returncode == 7:
            time.sleep(0.05)

    def stop(self):
        for process in self.processes:
            process.terminate()
            process.wait()


def prepare(demo):
    home = demo.path("/usr/velt/var/files/alice")
    owner = os.stat(home)
    os.makedirs(home + "/bench/many")
    os.makedirs(home + "/bench/two")
    write(home + "/bench/large.bin", 1 << 30)
    write(home + "/bench/small.bin", 4096)
    for number in range(2):
        write(home + f"/bench/two/{number}.bin", 1 << 30)
    for number in range(100000):
        with open(home + f"/bench/many/a name of some length {number:06}.txt", "wb"):
            pass
    subprocess.run(["chown", "-R", f"{owner.st_uid}:{owner.st_gid}", home + "/bench"], check=True)
    for name in ("large.bin", "small.bin"):
        os.chmod(f"{home}/bench/{name}", 0o644)
        os.link(f"{home}/bench/{name}", demo.path("/usr/velt/web/" + name))
    return home


def measure(demo, build, folder):
    home = prepare(demo)
    link = demo.create(project_name="files", app={"root": "home", "items": ["bench"]}, enable_match_ip=False)
    visitor = demo.visitor(link)
    assert visitor.login()["success"]
    cookie = "; ".join(f"{name}={value}" for name, value in visitor.cookies.items())
    # The cost of a small file is that of an API call, which is several times that of a static file.
    for name, measured, bound, what in (("large.bin", fetch, "at least 0.95", "1 GiB"),
                                        ("small.bin", rate, "wanted: 0.5", "4 KiB files")):
        ours, floor = demo.url + query(link, "get", path="0/" + name), f"{demo.url}/{name}"
        measured(ours, cookie)
        pairs = [(measured(ours, cookie), measured(floor)) for _ in range(ROUNDS)]
        ratios = [floor / ours if measured is fetch else ours / floor for ours, floor in pairs]
        report(f"speed, download of {what} / served statically", ratios, bound)

    cat = Cat(build, demo, folder, [home + "/bench/two/0.bin", home + "/bench/two/1.bin"])
    try:
        archive = demo.url + query(link, "zip", paths='["0/two"]')
        fetch(cat.url)
        pairs = [(fetch(archive, cookie), fetch(cat.url)) for _ in range(ROUNDS)]
        report("speed, archive of 2 GiB / its files' bytes alone", [b / a for a, b in pairs], "at least 0.9")
    finally:
        cat.stop()

    ratios = []
    for _ in range(ROUNDS * 3):
        floor = subprocess.run([os.path.join(build, "bin/files-floors"), "readdir", home + "/bench/many"], check=True,
                               stdout=subprocess.PIPE, text=True).stdout.split()
        ratios.append(1e6 * fetch(demo.url + query(link, "list", path="0/many"), cookie) / float(floor[0]))
    report("first page of a folder of 100,000 / reading it", ratios, "at most 3")


def main(build):
    os.environ["VELT_BUILD"] = build
    demo = Demo()
    with tempfile.TemporaryDirectory() as folder:
        try:
            measure(demo, build, folder)
        finally:
            demo.stop()


if __name__ == "__main__":
    main(os.path.abspath(sys.argv[1]))
