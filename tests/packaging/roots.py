"""Debian roots to install the packages in, each with a network and processes of its own, and what is done there."""

import contextlib
import json
import os
import re
import shutil
import socket
import subprocess
import tempfile
import time

BUILD = os.environ["VELT_BUILD"]
SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
CONFIG = "/etc/velt-sharing/webapid.conf"
PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
PATIENCE = 60  # seconds
KEPT = 3 * 86400  # seconds that a clean root is used again: mirrors forget the packages that it knows
ENTRY, SIGN_IN = "/webapi/entry.cgi", "VELT.Core.SignIn"
# The account of the owner.
OWNER, PASSWORD = "alice", "correct horse"
# What owners share, where the unit may write and so that it is on one file system with the spool.
HOMES = "/var/lib/velt-sharing/homes"
# A copy of this machine that forgets what is done in it. The layer of changes may not lie below the other.
COPY = """
mount -t tmpfs none "$1"
mkdir "$1/upper" "$1/work" "$1/root"
mount -t overlay -o "lowerdir=/,upperdir=$1/upper,workdir=$1/work" overlay "$1/root"
"""


def packages(folder):
    """Makes the packages of the build folder and returns their paths, the service's first."""
    subprocess.run(["cpack", "--config", f"{BUILD}/CPackConfig.cmake", "-B", folder], check=True,
                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    found = {name.split("_")[0]: os.path.join(folder, name) for name in os.listdir(folder) if name.endswith(".deb")}
    return found["velt-sharing"], found["velt-sharing-dev"]


def with_version(package, version, folder):
    """Makes a package of the same contents with another version."""
    content = os.path.join(folder, "content")
    subprocess.run(["dpkg-deb", "-R", package, content], check=True)
    control = os.path.join(content, "DEBIAN", "control")
    with open(control, encoding="utf-8") as file:
        lines = [f"Version: {version}\n" if line.startswith("Version:") else line for line in file]
    with open(control, "w", encoding="utf-8") as file:
        file.writelines(lines)
    made = os.path.join(folder, f"velt-sharing_{version}_{package.rsplit('_', 1)[-1]}")
    subprocess.run(["dpkg-deb", "-b", content, made], check=True, stdout=subprocess.DEVNULL)
    shutil.rmtree(content)
    return made


def clean_root():
    """Returns the archive of a minimal root of this machine's release, with a web server, and the folder for the
    packages that are downloaded later. They are kept for some days. None when no mirror of Debian answers."""
    archive, cache = os.path.join(BUILD, "clean-root.tar"), os.path.join(BUILD, "clean-root.packages")
    os.makedirs(cache, exist_ok=True)
    with contextlib.suppress(FileNotFoundError):
        if time.time() - os.stat(archive).st_mtime < KEPT:
            return archive, cache
        shutil.rmtree(cache)
        os.makedirs(cache)
    sources = subprocess.run(
        ["apt-get", "indextargets", "--format", "deb $(SITE)/ $(RELEASE) $(COMPONENT)", "Created-By: Packages",
         "Origin: Debian"], check=True, stdout=subprocess.PIPE, text=True).stdout.splitlines()
    with open("/etc/os-release", encoding="utf-8") as file:
        release = dict(line.rstrip().split("=", 1) for line in file)["VERSION_CODENAME"]
    with tempfile.TemporaryDirectory() as folder:
        made, listed = os.path.join(folder, "root.tar"), os.path.join(folder, "sources.list")
        with open(listed, "w", encoding="utf-8") as file:
            file.write("\n".join(sorted(set(sources))) + "\n")
        done = subprocess.run(
            ["mmdebstrap", "--mode=root", "--variant=apt", "--skip=cleanup/apt/lists", "--dpkgopt=force-unsafe-io",
             "--include=curl,dbus,libnginx-mod-http-auth-pam,nginx,openssl,systemd-sysv", release, made, listed],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, check=False)
        if done.returncode != 0:
            return None
        shutil.move(made, archive)
    return archive, cache


class Place:
    """A root in which things are done. `_inside` is the number of a process in it."""

    def __init__(self):
        self._folder = tempfile.TemporaryDirectory(prefix="velt-root-", ignore_cleanup_errors=True)
        self._holder = self._inside = None

    def close(self):
        if self._holder:
            self._holder.kill()
            self._holder.wait()
        self._folder.cleanup()

    def path(self, path):
        """Where the tests find a file of the root."""
        return f"/proc/{self._inside}/root{path}"

    def enter(self, *command, network=False):
        """The command that runs another in it. `network`: with the machine's."""
        own = [] if network else ["--net"]
        return ["nsenter", "--target", self._inside, "--mount", "--pid", "--root", *own,
                "env", "-i", "--chdir=/", "HOME=/root", "PATH=" + PATH, "DEBIAN_FRONTEND=noninteractive",
                "LC_ALL=C.UTF-8", *command]

    def run(self, *command, network=False, check=True):
        """Runs a program in it and returns what it printed."""
        done = subprocess.run(self.enter(*command, network=network), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, check=False, timeout=600)
        text = done.stdout.decode(errors="replace")
        assert not check or done.returncode == 0, f"{command} gave {done.returncode}:\n{text}"
        return text

    def shell(self, script, **options):
        return self.run("sh", "-ec", script, **options)

    def write(self, path, text):
        with open(self.path(path), "w", encoding="utf-8") as file:
            file.write(text)

    def take(self, file):
        """Copies a file into its /tmp and returns its path there."""
        shutil.copy(file, self.path("/tmp"))
        return "/tmp/" + os.path.basename(file)


class Booted(Place):
    """A clean Debian that systemd runs, as on a machine of its own. `clean` is what clean_root gave."""

    def __init__(self, clean):
        super().__init__()
        archive, cache = clean
        root = os.path.join(self._folder.name, "root")
        os.mkdir(root)
        subprocess.run(["tar", "-C", root, "-xf", archive], check=True)
        log = os.path.join(self._folder.name, "log")
        with open(log, "wb") as output:
            self._holder = subprocess.Popen(
                ["systemd-nspawn", "--quiet", "--boot", "--register=no", "--keep-unit", "--private-network",
                 "--console=pipe", "--resolv-conf=copy-host", f"--bind={cache}:/var/cache/apt/archives",
                 f"--directory={root}"], stdin=subprocess.DEVNULL, stdout=output, stderr=output)
        try:
            self._await_boot()
        except RuntimeError as error:
            self.close()
            with open(log, encoding="utf-8", errors="replace") as told:
                raise RuntimeError(f"no container can be started: {told.read().strip() or error}") from None

    def _await_boot(self):
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end and self._holder.poll() is None:
            with open(f"/proc/{self._holder.pid}/task/{self._holder.pid}/children", encoding="ascii") as file:
                self._inside = (file.read().split() or [None])[0]
            if self._inside and self.run("systemctl", "is-system-running", check=False).strip() == "running":
                return
            time.sleep(0.1)
        raise RuntimeError("it does not come up")

    def close(self):
        # systemd-nspawn ends what runs inside, and its own mounts.
        self._holder.terminate()
        with contextlib.suppress(subprocess.TimeoutExpired):
            self._holder.wait(PATIENCE)
        super().close()


class Root(Place):
    """`make` is shell that makes the folder "$1/root". What runs in it ends with it, and so do mounts. No systemd runs
    there; the service is started as its unit says."""

    def __init__(self, make):
        super().__init__()
        self._notices = None
        script = make + """
        mount --rbind /dev "$1/root/dev"
        mount -t proc proc "$1/root/proc"
        for folder in run tmp; do mount -t tmpfs -o mode=1777 none "$1/root/$folder"; done
        chmod 755 "$1/root/run"
        mkdir "$1/root/run/lock"
        cp -L /etc/resolv.conf "$1/resolv.conf"
        [ ! -e "$1/root/etc/resolv.conf" ] || mount --bind "$1/resolv.conf" "$1/root/etc/resolv.conf"
        printf '#!/bin/sh\\nexit 101\\n' >"$1/root/usr/sbin/policy-rc.d"
        chmod 755 "$1/root/usr/sbin/policy-rc.d"
        ip link set lo up
        exec chroot "$1/root" sh -c 'echo ready; exec sleep infinity'
        """
        self._holder = subprocess.Popen(
            ["unshare", "--mount", "--net", "--pid", "--fork", "--kill-child", "sh", "-ec", script, "sh",
             self._folder.name], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        if self._holder.stdout.readline() != "ready\n":
            self.close()
            raise RuntimeError("no root could be made")
        with open(f"/proc/{self._holder.pid}/task/{self._holder.pid}/children", encoding="ascii") as file:
            self._inside = file.read().split()[0]

    def close(self):
        if self._notices:
            self._notices.close()
        self._holder.stdout.close()
        super().close()

    def start_service(self):
        """Starts the service with its unit's sandbox and waits until it is ready."""
        if self._notices is None:
            self._notices = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
            self._notices.settimeout(PATIENCE)
            self._notices.bind(self.path("/run/notify"))
        sandbox = self.take(os.path.join(os.path.dirname(os.path.abspath(__file__)), "sandbox.py"))
        self.shell(f"""
            NOTIFY_SOCKET=/run/notify setsid unshare --mount /usr/bin/python3 -B {sandbox} \
              /lib/systemd/system/velt-webapid.service --log-stderr </dev/null >>/var/log/webapid.log 2>&1 &
            echo $! >/run/webapid.pid""")
        self.await_notice("READY=1")

    def await_notice(self, text):
        while not (notice := self._notices.recv(4096).decode()).startswith(text):
            assert "STOPPING" not in notice, self.shell("cat /var/log/webapid.log")

    def signal_service(self, name):
        self.shell(f"kill -{name} $(cat /run/webapid.pid)")

    def stop_service(self):
        self.signal_service("TERM")
        self.await_notice("STOPPING=1")
        # Nobody here buries the dead, which have no program any more.
        self.shell("timeout 30 sh -c 'while [ -e /proc/$(cat /run/webapid.pid)/exe ]; do sleep 0.1; done'")

    def lay_out(self):
        """Makes the owner, with something to share, and a certificate."""
        self.shell(f"""
            useradd -m {OWNER}
            echo '{OWNER}:{PASSWORD}' | chpasswd
            mkdir /etc/velt-sharing/tls
            openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=localhost -out \
              /etc/velt-sharing/tls/fullchain.pem -keyout /etc/velt-sharing/tls/privkey.pem 2>/dev/null
            install -d -m 2750 -o {OWNER} -g www-data {HOMES} {HOMES}/{OWNER} {HOMES}/{OWNER}/inbox
            chmod 755 {HOMES}
            seq 100000 >{HOMES}/{OWNER}/numbers.txt
            qrencode -o {HOMES}/{OWNER}/picture.png picture
            chown {OWNER}:www-data {HOMES}/{OWNER}/*.*
            chmod 640 {HOMES}/{OWNER}/*.*""")
        self.write("/etc/velt-sharing/files.json", json.dumps(
            {"roots": [{"name": "home", "title": "My files", "path": HOMES + "/{user}"}],
             "spool": "/var/lib/velt-sharing/files"}))


class Answer:
    def __init__(self, head, body):
        lines = head.decode().split("\r\n")
        self.protocol, self.status = lines[0].split()[0], int(lines[0].split()[1])
        self.headers = {}
        for name, _, value in (line.partition(": ") for line in lines[1:]):
            self.headers.setdefault(name.lower(), value)
        self.body = body

    @property
    def json(self):
        return json.loads(self.body)

    @property
    def code(self):
        return 0 if self.json["success"] else self.json["error"]["code"]


class Client:
    """A browser in the root: curl, which takes the certificate as it is and speaks HTTP/2 where the server does."""

    def __init__(self, root):
        self.root = root
        self.session = None  # the owner's cookie, NAME=VALUE

    def get(self, path, *options, data=None, headers=()):
        url = path if "://" in path else "https://localhost" + path
        # In the clear, an upgrade to HTTP/2 would be an answer of its own.
        version = "--http2" if url.startswith("https:") else "--http1.1"
        command = ["curl", "-ski", version, "--max-time", str(PATIENCE), *options, url]
        for header in headers:
            command += ["-H", header]
        if data is not None:
            command += ["--data-binary", "@-", "-H", "Expect:"]
        # As bytes: what is downloaded need not be text.
        done = subprocess.run(self.root.enter(*command), input=data, stdout=subprocess.PIPE, check=False)
        assert done.returncode == 0, f"{path}: curl gave {done.returncode}"
        head, _, body = done.stdout.partition(b"\r\n\r\n")
        return Answer(head, body)

    def call(self, path, api, method, *options, **parameters):
        body = json.dumps({"api": api, "version": 1, "method": method, **parameters}).encode()
        return self.get(path, *options, data=body, headers=["Content-Type: application/json"])

    def sign_in(self, *options, account=OWNER, password=PASSWORD):
        answer = self.call(ENTRY, SIGN_IN, "login", *options, account=account, password=password)
        if answer.code == 0:
            self.session = re.search(r"__Host-velt_owner_sid=[^;]+", answer.headers["set-cookie"])[0]
        return answer

    def own(self, method, *options, api="VELT.Core.Sharing", **parameters):
        """Calls a method as the owner, who signs in the first time."""
        if not self.session:
            assert (answer := self.sign_in()).code == 0, answer.body
        return self.call(ENTRY, api, method, "-b", self.session, *options, **parameters)

    def account(self, *options, headers=()):
        """Who the service takes the caller for; "" for nobody."""
        answer = self.get(f"{ENTRY}?api={SIGN_IN}&version=1&method=get", *options, headers=headers)
        assert answer.code == 0, answer.body
        return answer.json["data"]["account"]

    def create(self, **fields):
        answer = self.own("set", **{"project_name": "demo", **fields})
        assert answer.code == 0, answer.body
        return answer.json["data"]["sharing_id"]
