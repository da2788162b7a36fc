"""The demonstration's accounts: an administrator and two users, which exist in its own /etc only.

As a program, with the state folder as argument: writes the files that replace the machine's in /etc.
"""

import hashlib
import json
import os
import secrets
import string
import subprocess
import sys

_NAMES = ("admin", "alice", "bob")
_ADMINISTRATOR = "admin"
_FIRST_UID = 70001
_USERS_GID = 100  # Debian's group "users"
_ADMINISTRATORS_GID = 70000


class Accounts:
    """Passwords are made at the first start of a state folder and kept in its accounts.json."""

    def __init__(self, state):
        path = os.path.join(state, "accounts.json")
        self.passwords = read_texts(path)
        if self.passwords is None:
            letters = string.ascii_letters + string.digits
            self.passwords = {name: "".join(secrets.choice(letters) for _ in range(20)) for name in _NAMES}
            write_private(path, json.dumps(self.passwords))
        if set(self.passwords) != set(_NAMES):
            raise ValueError(f"{path} is damaged: it must name {', '.join(_NAMES)}")
        self._hashes = {name: _hash(password) for name, password in self.passwords.items()}

    def describe(self):
        return [{"name": name, "password": password, "administrator": name == _ADMINISTRATOR}
                for name, password in self.passwords.items()]

    def write_etc(self, folder):
        """Writes account files with the machine's system accounts and ours, and the PAM services of both sides."""
        users = [f"{name}:x:{_FIRST_UID + i}:{_USERS_GID}::/nonexistent:/usr/sbin/nologin"
                 for i, name in enumerate(_NAMES)]
        groups = [f"administrators:x:{_ADMINISTRATORS_GID}:{_ADMINISTRATOR}"]
        system = _system_entries("/etc/passwd")
        hashes = {row.split(":")[0]: "*" for row in system} | self._hashes
        shadow = [f"{name}:{hashed}:20000::::::" for name, hashed in hashes.items()]
        pam = "auth required pam_unix.so nodelay\naccount required pam_unix.so\n"
        os.makedirs(os.path.join(folder, "pam.d"), exist_ok=True)
        for name, text in {
            "passwd": _lines(system + users),
            "group": _lines(_system_entries("/etc/group") + groups),
            "shadow": _lines(shadow),
            "nsswitch.conf": "passwd: files\ngroup: files\nshadow: files\nhosts: files\n",
            "pam.d/velt-sharing": pam,
            "pam.d/velt-owner": pam,
            "pam.d/other": "auth required pam_deny.so\naccount required pam_deny.so\n",
        }.items():
            write_private(os.path.join(folder, name), text, 0o600 if name == "shadow" else 0o644)


def read_texts(path):
    """The object of texts that a state file holds, None without one; ValueError names a file that is damaged."""
    try:
        with open(path, encoding="utf-8") as file:
            texts = json.load(file)
    except FileNotFoundError:
        return None
    except ValueError as error:
        raise ValueError(f"{path} is damaged: {error}") from None
    if not isinstance(texts, dict) or not all(isinstance(text, str) for text in texts.values()):
        raise ValueError(f"{path} is damaged: it must hold an object of texts")
    return texts


def write_private(path, text, mode=0o600):
    """Writes or replaces a file. Unless `mode` says otherwise, nobody else can read it at any time."""
    new = path + ".new"
    with open(os.open(new, os.O_WRONLY | os.O_CREAT | os.O_TRUNC | os.O_CLOEXEC, mode), "w", encoding="utf-8") as file:
        os.fchmod(file.fileno(), mode)
        file.write(text)
    os.replace(new, path)


def _hash(password):
    # SHA-512 crypt at its lowest cost: 119 random bits need no more. The salt follows from the password, so that a
    # restart looks like no change of it, which would end sessions.
    salt = "rounds=1000$" + hashlib.sha256(password.encode()).hexdigest()[:16]
    return subprocess.run(["openssl", "passwd", "-6", "-salt", salt, "-stdin"], input=password, text=True, check=True,
                          stdout=subprocess.PIPE).stdout.strip()


def _system_entries(path):
    """The lines of the machine's system accounts (www-data, nobody), without those of people."""
    with open(path, encoding="utf-8", errors="surrogateescape") as file:
        rows = [line.rstrip("\n") for line in file if line.count(":") >= 3]
    taken = _NAMES + ("administrators",)
    return [row for row in rows
            if row.split(":")[0] not in taken and (int(row.split(":")[2]) < 1000 or row.startswith("nobody:"))]


def _lines(rows):
    return "".join(row + "\n" for row in rows)


if __name__ == "__main__":
    try:
        Accounts(sys.argv[1]).write_etc(os.path.join(sys.argv[1], "root", "etc"))
    except (OSError, ValueError) as reason:
        sys.exit(f"./run: {reason}")
