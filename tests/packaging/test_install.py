"""The packages' way through a clean Debian: installed, used, upgraded, removed and purged."""

import contextlib
import os
import re
import sys
import tempfile
import threading
import unittest

from roots import CLEAN, CONFIG, OWNER, PASSWORD, Client, Root, clean_root, packages, with_version

PROXY = "ln -sf /etc/velt-sharing/nginx.conf /etc/nginx/sites-enabled/default"
TRACES = r"find / -xdev \( -path /proc -o -path /dev -o -path /tmp \) -prune -o -iname '*velt*' -print"


@unittest.skipUnless(os.geteuid() == 0, "needs root")
class Install(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        clean = clean_root()
        if clean is None:
            print("NO MIRROR OF DEBIAN ANSWERS: installing the packages on a clean root IS NOT TESTED", file=sys.stderr)
            raise unittest.SkipTest("no mirror of Debian answers")
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        cls.new, cls.dev = packages(cls.folder.name)
        cls.old = with_version(cls.new, "0.9.0-1", cls.folder.name)
        cls.root = Root(CLEAN, *clean)
        cls.addClassCleanup(cls.root.close)
        cls.client = Client(cls.root)

    def install(self, *debs):
        self.root.run("apt-get", "-qq", "-y", "--no-install-recommends", "install",
                      *(self.root.take(package) for package in debs), network=True)

    def version(self):
        return self.root.run("dpkg-query", "-W", "-f", "${db:Status-Abbrev}${Version}", "velt-sharing", check=False)

    def login(self, link, **fields):
        return self.client.call(f"/sharing/{link}/webapi", "VELT.Core.Sharing.Login", "login", sharing_id=link,
                                **fields)

    def test_from_install_to_purge(self):
        root, client = self.root, self.client
        self.assertEqual(root.shell(TRACES), "")
        self.install(self.old)
        self.assertEqual(self.version(), "ii 0.9.0-1")
        self.assertIn(" -> ", root.run("ls", "-l", "/etc/systemd/system/multi-user.target.wants/velt-webapid.service"))
        root.lay_out()
        root.start_service()
        root.shell(PROXY + " && nginx")
        self.assertNotIn("failed", root.run("velt-sharing", "check", "--config", CONFIG))

        links = {name: client.create(protect_type=name, **fields) for name, fields in [
            ("none", {}), ("password", {"protect_password": "sesame"}), ("user", {"protect_users": [OWNER]})]}
        self.assertEqual(self.login(links["password"], password="sesame").code, 0)
        # PAM asks for the system's own password, which only root may read.
        self.assertEqual(self.login(links["user"], mosk_username=OWNER, mosk_password=PASSWORD).code, 0)
        self.assertNotEqual(self.login(links["user"], mosk_username=OWNER, mosk_password="wrong").code, 0)
        self.assertEqual(root.run("stat", "-c", "%U %a", "/var/lib/velt-sharing/db/sharing.db"), "velt-sharing 600\n")

        self.check_reload()
        root.shell(f"echo external-url=https://nas.example.com >>{CONFIG}")
        self.install(self.new, self.dev)
        self.assertEqual(self.version(), "ii 1.0.0-1")
        root.stop_service()
        root.start_service()
        self.assertEqual(client.get("/sharing/" + links["none"]).status, 200)
        self.assertEqual(self.login(links["password"], password="sesame").code, 0)
        told = client.own("get", sharing_id=links["none"]).json["data"]
        self.assertTrue(told["url"].startswith("https://nas.example.com/"), told["url"])

        root.stop_service()
        root.run("apt-get", "-qq", "-y", "remove", "velt-sharing", "velt-sharing-dev")
        self.assertEqual(self.version(), "rc 1.0.0-1")
        self.assertNotIn("velt-sharing", root.run("ls", "-l", "/etc/nginx/sites-enabled"))
        gone = "/usr/velt /usr/include/velt* /lib/systemd/system/velt*"
        self.assertEqual(root.shell(f"ls -d {gone} 2>/dev/null || true"), "")
        root.shell(f"test -s /var/lib/velt-sharing/db/sharing.db && grep -q nas.example.com {CONFIG}")
        root.run("rm", "-r", "/etc/velt-sharing/tls", "/srv/velt")
        root.run("apt-get", "-qq", "-y", "purge", "velt-sharing")
        self.assertEqual(root.shell(TRACES), "")
        self.assertNotIn("velt", root.shell("cat /etc/passwd /etc/group /var/lib/dpkg/status"))

    def check_reload(self):
        """As the unit reloads it, while requests come."""
        ended = threading.Event()
        codes = []

        def call():
            while not ended.is_set():
                codes.append(self.client.own("list").code)

        with open(self.root.path("/lib/systemd/system/velt-webapid.service"), encoding="utf-8") as file:
            commands = re.findall(r"^ExecReload=(.*)$", file.read(), re.MULTILINE)
        callers = [threading.Thread(target=call) for _ in range(2)]
        with contextlib.ExitStack() as stack:
            for caller in callers:
                caller.start()
                stack.callback(caller.join)
            stack.callback(ended.set)
            for _ in range(3):
                for command in commands:
                    self.root.shell(f"export MAINPID=$(cat /run/webapid.pid); {command}")
                self.root.await_notice("RELOADING=1")
                self.root.await_notice("READY=1")
        self.assertEqual(set(codes), {0})
        self.assertGreater(len(codes), 5)
