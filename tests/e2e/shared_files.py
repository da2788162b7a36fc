"""Files and links of files in a running demonstration, for tests."""

import contextlib
import glob
import json
import os
import subprocess
import urllib.parse

FILES, LINK = "VELT.Files", "VELT.Files.Link"


class Shared:
    """The files and links of the demonstration's account `alice`. `home` is her folder."""

    def __init__(self, demo):
        self.demo = demo
        self.home = demo.path("/usr/velt/var/files/alice")

    def path(self, *names):
        return os.path.join(self.home, *names)

    def put(self, path, content=b"content", mode=0o640):
        """Writes a file that the web server may read; `path` is below the folder."""
        full = os.path.join(os.fsencode(self.home), os.fsencode(path))
        os.makedirs(os.path.dirname(full), exist_ok=True)
        with open(full, "wb") as file:
            file.write(content)
        os.chmod(full, mode)
        folder = os.stat(self.home)
        while full != os.fsencode(self.home):
            if os.geteuid() == 0:
                os.chown(full, folder.st_uid, folder.st_gid)
            full = os.path.dirname(full)

    def share(self, *items, upload=None, account="alice", **fields):
        """Makes a link of the items and returns its id."""
        app = {"root": "home", "items": list(items), **({} if upload is None else {"upload": upload})}
        return self.demo.create(account, project_name="files", **{"app": app, **fields})

    def visit(self, *items, **fields):
        """A visitor who is logged in to a new link of the items."""
        visitor = self.demo.visitor(self.share(*items, **fields))
        assert visitor.login()["success"]
        return visitor


class SmallDisk(contextlib.AbstractContextManager):
    """A disk of 64 MiB, for as long as this lasts with the spool and the folder `home` that `files`' account shares."""

    def __init__(self, files):
        self.path = "/usr/velt/var/small"
        self.seen = f"/proc/{files.demo.pid}/root{self.path}"  # from the tests
        self._inside = ["nsenter", "-t", str(files.demo.pid), "-m", "-r", "--wdns=/"]
        self._configuration = files.demo.path("/usr/velt/etc/files.json")
        with open(self._configuration, encoding="utf-8") as file:
            self._before = file.read()
        owner = os.stat(files.home)
        self.run(f"mkdir -p {self.path} && mount -t tmpfs -o size=64m none {self.path} && cd {self.path} && "
                 f"mkdir -m 711 home spool && chown {owner.st_uid}:{owner.st_gid} home")
        self.configure()

    def run(self, script):
        return subprocess.check_output([*self._inside, "sh", "-c", script], cwd="/", text=True)

    def configure(self, **members):
        with open(self._configuration, "w", encoding="utf-8") as file:
            json.dump({"roots": [{"name": "home", "path": self.path + "/home"}], "spool": self.path + "/spool",
                       **members}, file)

    def fill(self, mebibytes):
        self.run(f"head -c {mebibytes}M /dev/zero >{self.path}/other")

    def free(self):
        return int(self.run(f"stat -f -c %a {self.path}")) * 4096

    def __exit__(self, *_):
        with open(self._configuration, "w", encoding="utf-8") as file:
            file.write(self._before)
        subprocess.run([*self._inside, "umount", "-l", self.path], check=False)


def files_of(demo, what, inside="/usr/velt/var/spool/files"):
    """The files that the spool has of an upload or a link."""
    return [path for part in ("open", "in/*") for path in glob.glob(demo.path(f"{inside}/{part}/*")) if what in path]


def code(answer):
    return 0 if answer["success"] else answer["error"]["code"]


def ask(visitor, method, **params):
    return visitor.call(LINK, method, params)


def query(method, **params):
    door = "/stream?" if method == "zip" else "/webapi?"
    return door + urllib.parse.urlencode({"api": LINK, "version": 1, "method": method, **params})


def get(visitor, path, method="get", headers=None, **params):
    return visitor.request("GET", query(method, path=path, **params), headers=headers)


def listed(visitor, path, **params):
    return [entry["name"] for entry in ask(visitor, "list", path=path, **params)["data"]["entries"]]
