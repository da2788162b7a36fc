"""The file tree that the demonstration's programs see. Runs in a mount namespace of our own, with which it vanishes.

A tmpfs that holds the machine's programs, libraries and settings, with the appliance's fixed folders and
account files taken from the state folder. People's homes and the machine's own data are not in it.
"""

import os
import subprocess

_PROGRAMS = ("/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32")
_SOCKETS = "/usr/velt/var/run"


def build(root, state):
    """Mounts the tree at the empty folder `root`; raises RuntimeError when the system refuses a mount."""
    _mount("-t", "tmpfs", "-o", "mode=0755", "velt", root)
    for path in _PROGRAMS + tuple("/usr/" + name for name in os.listdir("/usr") if name != "velt"):
        if os.path.islink(path):
            os.makedirs(os.path.dirname(root + path), exist_ok=True)
            os.symlink(os.readlink(path), root + path)
        elif os.path.isdir(path):
            _bind(path, root + path)
    for path in ("/dev", "/proc", "/etc"):
        _bind(path, root + path)
    for path in ("/usr/velt", "/etc.defaults"):
        _bind(state + "/root" + path, root + path)
    for name in os.listdir(state + "/etc"):
        # A machine without such a file uses the same built-in default.
        if os.path.exists(root + "/etc/" + name):
            _mount("--bind", f"{state}/etc/{name}", f"{root}/etc/{name}")
    for path in ("/run", "/var"):
        os.mkdir(root + path)
    os.symlink("/run", root + "/var/run")
    os.mkdir(root + "/tmp")
    os.chmod(root + "/tmp", 0o1777)
    if os.path.exists("/run/systemd/journal"):  # where /dev/log leads
        _bind("/run/systemd/journal", root + "/run/systemd/journal")
    os.makedirs(root + _SOCKETS, exist_ok=True)
    _mount("-t", "tmpfs", "-o", "mode=0755", "velt", root + _SOCKETS)


def _bind(source, target):
    os.makedirs(target, exist_ok=True)
    _mount("--rbind", source, target)


def _mount(*arguments):
    done = subprocess.run(["mount", *arguments], stderr=subprocess.PIPE, text=True, check=False)
    if done.returncode:
        raise RuntimeError(done.stderr.strip() or f"mount {' '.join(arguments)} failed")
