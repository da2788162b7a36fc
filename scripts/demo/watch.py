"""A build folder whose files are installed again whenever they have changed."""

import os
import re
import subprocess


class Watched:
    """`folder` is CMake's; it may be empty, or be made later."""

    def __init__(self, folder):
        self._folder = folder
        self._seen = self._installed = None

    def __str__(self):
        return self._folder

    def is_there(self):
        return os.path.exists(os.path.join(self._folder, "cmake_install.cmake"))

    def has_changed(self):
        """Whether what it installs is another than at the last install(), and whole: a linker may be at work on it."""
        seen = self._look()
        is_quiet = seen == self._seen
        self._seen = seen
        return is_quiet and seen != self._installed and bool(seen)

    def install(self, prefix):
        """Returns the installed files that are new, and what went wrong, or an empty text."""
        self._installed = self._seen
        done = subprocess.run(["cmake", "--install", self._folder, "--prefix", prefix], text=True, check=False,
                              capture_output=True)
        return re.findall("^-- Installing: (.*)$", done.stdout, re.M), done.stderr.strip() if done.returncode else ""

    def _look(self):
        """{file: (inode, size, time)} of all that CMake's scripts for the folder install; empty before all is there."""
        seen = {}
        scripts = [os.path.join(self._folder, "cmake_install.cmake")]
        try:
            while scripts:
                with open(scripts.pop(), encoding="utf-8") as file:
                    text = file.read()
                scripts += re.findall(r'include\("([^"]+)"\)', text)
                for names in re.findall(r'file\(INSTALL\b[^)]*?\bFILES((?:\s+"[^"]+")+)', text):
                    for name in re.findall(r'"([^"]+)"', names):
                        below = [os.path.join(place, each) for place, _, files in os.walk(name) for each in files]
                        for path in below or [name]:
                            status = os.stat(path)
                            seen[path] = status.st_ino, status.st_size, status.st_mtime_ns
        except OSError:
            return {}
        return seen
