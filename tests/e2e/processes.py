"""Facts about processes from /proc (proc(5))."""

import os
import re


def _read(pid, name):
    with open(f"/proc/{pid}/{name}", encoding="ascii", errors="replace") as file:
        return file.read()


def children(pid):
    return [int(child) for child in _read(pid, f"task/{pid}/children").split()]


def name_of(pid):
    return _read(pid, "comm").strip()


def workers(host):
    """Those of a velt-webapid, which has other children too."""
    return [pid for pid in children(host) if name_of(pid) == "velt-webapid"]


def _stat(pid):
    """The fields of `stat` from the state on."""
    return _read(pid, "stat").rpartition(")")[2].split()


def seconds_old(pid):
    """0 when there is no such process."""
    try:
        return float(_read("", "uptime").split()[0]) - int(_stat(pid)[19]) / os.sysconf("SC_CLK_TCK")
    except (FileNotFoundError, ProcessLookupError):
        return 0


def lives(pid):
    try:
        return _stat(pid)[0] not in "ZX"
    except (FileNotFoundError, ProcessLookupError):
        return False


def descriptors(pid):
    return [int(number) for number in os.listdir(f"/proc/{pid}/fd")]


def memory(pid):
    """Its private memory in KiB."""
    return sum(map(int, re.findall(r"^Private_\w+:\s+(\d+) kB", _read(pid, "smaps_rollup"), re.MULTILINE)))
