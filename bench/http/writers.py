#!/usr/bin/env python3
"""Sixteen writers at once on SQLite, on a slow disk that stalls: bench/http/writers.py BUILD-FOLDER [SECONDS]

Each `fdatasync` takes 50 ms (SlowDisk.cpp), and every ten seconds none returns for three. Prints how many changes were
made, which failed, and how long they took. Ends with 1 when one failed or took longer than a stall and one turn of all
the others need.
"""

import collections
import os
import sys
import tempfile
import threading
import time

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path[:0] = [os.path.join(TOP, "tests/e2e"), os.path.join(TOP, "scripts/demo")]

from demo import SHARING, Demo  # noqa: E402

WRITERS = 16
SYNC = 0.05
STALL, EVERY = 3, 10
SYNCS = 2  # of a change, with the checkpoints


class Writer(threading.Thread):
    def __init__(self, demo, until):
        super().__init__()
        self.demo, self.until = demo, until
        self.link = demo.create()
        self.times, self.answers = [], collections.Counter()

    def run(self):
        while time.monotonic() < self.until:
            begin = time.monotonic()
            answer = self.demo.call(SHARING, "set", {"sharing_id": self.link, "project_name": "album",
                                                     "protect_title": str(begin)})
            self.times.append(time.monotonic() - begin)
            self.answers["made" if answer["success"] else str(answer["error"])] += 1


def stalls(path, until):
    while time.monotonic() + EVERY < until:
        time.sleep(EVERY - STALL)
        with open(path, "w", encoding="ascii"):  # stalled
            time.sleep(STALL)
        os.unlink(path)


def main(build, seconds):
    os.environ["VELT_BUILD"] = build
    with tempfile.TemporaryDirectory() as state:
        os.makedirs(f"{state}/root/usr/velt/etc")
        with open(f"{state}/root/usr/velt/etc/webapid.conf", "w", encoding="ascii") as file:
            file.write(f"workers = {WRITERS + 4}\n")
        stall = f"{state}/stall"
        demo = Demo(state=state, under=("env", f"LD_PRELOAD={build}/lib/libslow-disk.so", f"VELT_STALL={stall}",
                                        f"VELT_SYNC_US={SYNC * 1e6:.0f}"))
        try:
            until = time.monotonic() + seconds
            writers = [Writer(demo, until) for _ in range(WRITERS)]
            for writer in writers:
                writer.start()
            stalls(stall, until)
            for writer in writers:
                writer.join()
        finally:
            demo.stop()
    times = sorted(took for writer in writers for took in writer.times)
    answers = sum((writer.answers for writer in writers), collections.Counter())
    print(f"{WRITERS} writers, {SYNC * 1000:.0f} ms a sync, {STALL} s of each {EVERY} stalled, {seconds} s: "
          f"{dict(answers)}, p50 {times[len(times) // 2]:.2f} s, p99 {times[len(times) * 99 // 100]:.2f} s, "
          f"slowest {times[-1]:.2f} s")
    return set(answers) != {"made"} or times[-1] > STALL + 2 * WRITERS * SYNCS * SYNC


if __name__ == "__main__":
    if len(sys.argv) not in (2, 3):
        sys.exit("usage: bench/http/writers.py BUILD-FOLDER [SECONDS]")
    sys.exit(main(os.path.abspath(sys.argv[1]), float(sys.argv[2]) if len(sys.argv) > 2 else 60))
