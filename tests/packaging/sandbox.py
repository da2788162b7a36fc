"""Starts a unit's program with the unit's own sandbox where no systemd runs: sandbox.py UNIT OPTION..."""

import configparser
import errno
import os
import socket
import stat
import subprocess
import sys

import seccomp
from seccomp import ALLOW, EQ, ERRNO, GE, GT, MASKED_EQ, Arg

WRITE_AND_EXECUTE = 3 << 1  # PROT_WRITE | PROT_EXEC
NAMESPACES = 0x7E020080  # CLONE_NEW*
# Where each system call has the mode of the file that it makes.
MODES = {"chmod": 1, "fchmod": 1, "fchmodat": 2, "mkdir": 1, "mkdirat": 2, "mknod": 1, "mknodat": 2, "creat": 1,
         "open": 2, "openat": 3}


def forbid(rules):
    """`rules`: (system call, error, conditions on arguments...)"""
    filtered = seccomp.SyscallFilter(ALLOW)
    for call, error, *conditions in rules:
        filtered.add_rule(ERRNO(error), call, *conditions)
    filtered.load()


def calls(name):
    """The system calls of a set of systemd's, some of which this architecture may lack."""
    if not name.startswith("@"):
        return {name} if seccomp.resolve_syscall(seccomp.Arch(), name) >= 0 else set()
    listed = subprocess.run(["systemd-analyze", "syscall-filter", name], check=True, stdout=subprocess.PIPE, text=True)
    return set().union(*(calls(line.strip()) for line in listed.stdout.splitlines()[1:] if "#" not in line))


def allow_only(names, error):
    filtered = seccomp.SyscallFilter(ERRNO(error))
    for call in set().union(*map(calls, names.split())) | calls("@default"):
        filtered.add_rule(ALLOW, call)
    filtered.load()


def families(names):
    allowed = {getattr(socket, name) for name in names.split()}
    end = max(allowed) + 1
    forbid([("socket", errno.EAFNOSUPPORT, Arg(0, EQ, family)) for family in set(range(end)) - allowed] +
           [("socket", errno.EAFNOSUPPORT, Arg(0, GE, end))])


def no_namespaces():
    bits = [1 << bit for bit in range(32) if NAMESPACES >> bit & 1]
    forbid([("setns", errno.EPERM), ("clone3", errno.ENOSYS)] +
           [(call, errno.EPERM, Arg(0, MASKED_EQ, bit, bit)) for call in ("clone", "unshare") for bit in bits])


def no_set_ids():
    forbid([("openat2", errno.ENOSYS)] +
           [(call, errno.EPERM, Arg(index, MASKED_EQ, bit, bit))
            for call, index in MODES.items() for bit in (stat.S_ISUID, stat.S_ISGID)])


# Those that are filters of system calls.
FILTERS = {
    "LockPersonality": lambda: forbid([("personality", errno.EPERM, Arg(0, GT, 0))]),
    "MemoryDenyWriteExecute": lambda: forbid(
        [("mmap", errno.EPERM, Arg(2, MASKED_EQ, WRITE_AND_EXECUTE, WRITE_AND_EXECUTE))] +
        [(call, errno.EPERM, Arg(2, MASKED_EQ, 4, 4)) for call in ("mprotect", "pkey_mprotect")]),
    "ProtectClock": lambda: forbid([(call, errno.EPERM) for call in calls("@clock")]),
    "ProtectHostname": lambda: forbid([(call, errno.EPERM) for call in ("sethostname", "setdomainname")]),
    "ProtectKernelLogs": lambda: forbid([("syslog", errno.EPERM)]),
    "ProtectKernelModules": lambda: forbid([(call, errno.EPERM) for call in calls("@module")]),
    "RestrictNamespaces": no_namespaces,
    "RestrictRealtime": lambda: forbid(
        [("sched_setscheduler", errno.EPERM, Arg(1, EQ, policy)) for policy in (1, 2, 6)]),  # FIFO, RR, DEADLINE
    "RestrictSUIDSGID": no_set_ids,
}
WITH_VALUES = {"RestrictAddressFamilies", "SystemCallFilter", "SystemCallErrorNumber", "SystemCallArchitectures"}


def protect_files(service):
    """The system can only be read. Runs in a mount namespace of its own."""
    assert service["ProtectSystem"] == "strict" and service["ProtectHome"] == service["PrivateTmp"] == "yes"
    writable = ["/run/" + service["RuntimeDirectory"], "/var/lib/" + service["StateDirectory"]]
    script = """
        for folder; do mkdir -p "$folder"; mount --bind "$folder" "$folder"; done
        for folder in /home /root /tmp; do mount -t tmpfs -o mode=1777 none $folder; done
        mount -o remount,bind,ro /; mount -o remount,bind,ro /run"""
    subprocess.run(["sh", "-ec", script, "sh", *writable], check=True)


def main(path, *options):
    unit = configparser.ConfigParser(strict=False, interpolation=None)
    unit.optionxform = str
    unit.read(path)
    service = unit["Service"]
    assert service["NoNewPrivileges"] == "yes" and service["Type"] == "notify"
    unknown = {key for key in service if key.startswith(("Restrict", "SystemCall"))} - FILTERS.keys() - WITH_VALUES
    assert not unknown, f"not imitated: {unknown}"
    protect_files(service)
    os.umask(int(service["UMask"], 8))
    for key in FILTERS.keys() & service.keys():
        if service[key] == "yes":
            FILTERS[key]()
    families(service["RestrictAddressFamilies"])
    allow_only(service["SystemCallFilter"], getattr(errno, service["SystemCallErrorNumber"]))
    rights = ["+" + name.removeprefix("CAP_").lower() for name in service["CapabilityBoundingSet"].split()]
    os.execvp("setpriv", ["setpriv", "--no-new-privs", "--inh-caps=-all", "--bounding-set=-all," + ",".join(rights),
                          *service["ExecStart"].split(), *options])


if __name__ == "__main__":
    main(*sys.argv[1:])
