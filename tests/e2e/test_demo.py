"""The demonstration itself: restarts, two at the same time, a clean end, and its messages when it can't serve."""

import glob
import os
import re
import socket
import stat
import subprocess
import tempfile
import unittest

from demo import BUILD, REPOSITORY, SHARING, Demo, free_port, wait_until

RUN = os.path.join(REPOSITORY, "run")
IN_NAMESPACE = os.path.join(REPOSITORY, "scripts/in-namespace")
# Runs a command with another uid than root's, and so with the rights of an ordinary user.
ORDINARY = ("unshare", "--user", "--map-user=1000", "--map-group=1000")
KINDS = ("open", "password", "user", "expired", "used_up", "disabled", "pending", "redirect", "plugin",
         "files", "inbox")


def namespace_members(name):
    """Processes in the mount namespace `name`."""
    found = []
    for link in glob.glob("/proc/[0-9]*/ns/mnt"):
        try:
            if os.readlink(link) == name:
                found.append(int(link.split("/")[2]))
        except OSError:  # ended meanwhile
            pass
    return found


def replace_by_itself(path):
    """Replaces a file as installing a package does, with the same text."""
    new = path + ".velt-test"
    subprocess.run(["cp", "--preserve=all", path, new], check=True)
    os.rename(new, path)


class Demonstration(unittest.TestCase):
    def test_it_builds_all_that_it_installs(self):
        with open(RUN, encoding="utf-8") as file:
            targets = re.search(r"--target ([\w/ ]+)", file.read())[1].split()
        commands = subprocess.run(["ninja", "-C", BUILD, "-t", "commands", *targets], check=True, capture_output=True,
                                  text=True).stdout
        installed = set()
        for path in glob.glob(BUILD + "/**/cmake_install.cmake", recursive=True):
            with open(path, encoding="utf-8") as file:
                installed.update(re.findall(rf'"{re.escape(BUILD)}/((?:bin|lib|web)/[^"]*[^"/:])"', file.read()))
        self.assertIn("lib/VELT.Core.Sharing.so", installed)
        self.assertEqual([], [product for product in installed if product not in commands and
                              not product.endswith("/cmake_install.cmake")])

    def test_restart_keeps_accounts_and_links(self):
        demo = Demo()
        self.addCleanup(demo.stop)
        link = demo.create(protect_title="kept")
        self.check_links(demo)
        before = demo.accounts, demo.links, demo.passwords
        demo.restart()
        self.assertEqual(before, (demo.accounts, demo.links, demo.passwords))
        self.assertEqual("kept", demo.data(SHARING, "get", {"sharing_id": link})["protect_title"])

    def check_links(self, demo):
        status = {kind: demo.data(SHARING, "get", {"sharing_id": link})["status"] for kind, link in demo.links.items()}
        ended = {"expired": "expired", "used_up": "used_up", "disabled": "disabled", "pending": "pending"}
        self.assertEqual({kind: ended.get(kind, "active") for kind in KINDS}, status)
        self.assertTrue(demo.visitor(demo.links["password"]).login(password=demo.passwords["password"])["success"])
        files = demo.visitor(demo.links["files"])
        address = "/webapi?api=VELT.Files.Link&version=1&method="
        self.assertIn("tide table", files.request("GET", address + "get&path=0/Tide%20table.txt").text)
        inbox = demo.visitor(demo.links["inbox"])
        inbox.login()
        left = inbox.call("VELT.Files.Link", "upload_begin", {"name": "empty", "size": 0})
        self.assertTrue(left["success"], left)
        bob = {"mosk_username": "bob", "mosk_password": demo.accounts["bob"]}
        self.assertTrue(demo.visitor(demo.links["user"]).login(**bob)["success"])

    @unittest.skipIf(subprocess.run([*ORDINARY, "true"], check=False).returncode, "needs user namespaces")
    def test_as_an_ordinary_user(self):
        demo = Demo(under=ORDINARY)
        self.addCleanup(demo.stop)
        self.check_links(demo)

    @unittest.skipIf(os.geteuid(), "needs the right to install packages")
    def test_installing_packages_removes_no_accounts(self):
        demo = Demo()
        self.addCleanup(demo.stop)
        for path in ("/etc/passwd", "/etc/group"):
            replace_by_itself(path)
        self.check_links(demo)
        if not os.path.exists("/run/nscd"):  # a cache of the machine's accounts
            os.mkdir("/run/nscd")
            self.addCleanup(os.rmdir, "/run/nscd")
        self.assertFalse(os.path.exists(f"/proc/{demo.pid}/root/run/nscd"))

    def test_etc_is_the_machines_with_the_folders_files_in_place(self):
        with tempfile.TemporaryDirectory(prefix="velt-demo-") as folder:
            os.makedirs(folder + "/etc/pam.d")
            for name in ("passwd", "pam.d/other", "pam.d/of-the-folder"):
                with open(f"{folder}/etc/{name}", "w", encoding="ascii") as file:
                    file.write("folder")
            script = """cd /etc; cat passwd pam.d/other pam.d/of-the-folder; echo
                cmp pam.d/common-auth /etc.machine/pam.d/common-auth; cmp hosts /etc.machine/hosts; readlink -e mtab
                touch velt-test pam.d/velt-test; ls /etc.*/velt-test /etc.*/pam.d/velt-test 2>&- | wc -l"""
            for caller in ((), ORDINARY):
                done = subprocess.run([*caller, IN_NAMESPACE, folder, "sh", "-c", script], stdout=subprocess.PIPE,
                                      stderr=subprocess.STDOUT, text=True, check=False)
                self.assertRegex(done.stdout, r"\A(folder){3}\n/proc/\d+/mounts\n0\n\Z", caller)

    def test_two_side_by_side(self):
        one, two = Demo(), Demo()
        self.addCleanup(one.stop)
        self.addCleanup(two.stop)
        self.assertNotEqual(one.accounts, two.accounts)
        link = one.create()
        self.assertEqual(1005, two.call(SHARING, "get", {"sharing_id": link})["error"]["code"])
        with open(one.path("/usr/velt/web/only-here.txt"), "w", encoding="ascii") as file:
            file.write("dropped in")
        self.assertEqual("dropped in", one.request("GET", "/only-here.txt").text)
        self.assertEqual(404, two.request("GET", "/only-here.txt").status)

    def test_the_users_settings_hold_and_logs_stay_small(self):
        demo = Demo()
        self.addCleanup(demo.stop)
        link = demo.create()
        with open(demo.path("/usr/velt/etc/webapid.conf"), "w", encoding="ascii") as file:
            file.write('database="sqlite3 /usr/velt/var/sharing/other.db"\n')
        demo.restart()
        demo.forget_session("alice")  # is in the other database
        self.assertEqual(1005, demo.call(SHARING, "get", {"sharing_id": link})["error"]["code"])
        log = demo.path("/usr/velt/var/log/velt-webapid.log")
        os.truncate(log, 9 << 20)
        wait_until(lambda: os.path.getsize(log) < 1 << 20)
        self.assertEqual(9 << 20, os.path.getsize(log + ".1"))
        demo.visitor(demo.links["open"]).login()
        wait_until(lambda: 0 < os.path.getsize(log) < 1 << 20)

    def test_clean_stop(self):
        with tempfile.TemporaryDirectory(prefix="velt-demo-") as state:
            demo = Demo(state)
            self.addCleanup(demo.stop)
            for name in ("demo.json", "accounts.json"):
                self.assertEqual(0o600, stat.S_IMODE(os.stat(os.path.join(state, name)).st_mode), name)
            namespace = os.readlink(f"/proc/{demo.pid}/ns/mnt")
            self.assertGreaterEqual(len(namespace_members(namespace)), 4)
            self.assertEqual(0, demo.stop())
            self.assertEqual([], namespace_members(namespace))
            with open("/proc/mounts", encoding="utf-8") as mounts:
                self.assertNotIn(state, mounts.read())
            left = [path for path in glob.glob(state + "/**", recursive=True)
                    if stat.S_ISSOCK(os.lstat(path).st_mode)]
            self.assertEqual([], left + glob.glob(state + "/demo.json"))
            with socket.socket() as probe:
                probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
                probe.bind(("127.0.0.1", demo.port))

    def test_it_says_why_it_cannot_serve(self):
        demo = Demo()
        self.addCleanup(demo.stop)
        with tempfile.TemporaryDirectory(prefix="velt-demo-") as state:
            for arguments, status, output in (
                    (["--port", "http"], 2, "./run: no port number: http\n"),
                    (["--port", "65536"], 2, "./run: no port number: 65536\n"),
                    (["--port"], 2, "./run: --port needs a value\n"),
                    (["--state", ""], 2, "./run: --state needs a value\n"),
                    (["--state", demo.output], 1, f"./run: no folder to write to: {demo.output}\n"),
                    (["--port", str(demo.port), "--state", state], 1,
                     f"./run: port {demo.port}: Address already in use\n"),
                    (["--port", "1", "--state", demo.state], 1,
                     f"./run: another demonstration runs on {demo.state}\n")):
                with self.subTest(arguments):
                    done = subprocess.run([RUN, "--no-install", *arguments], stdout=subprocess.PIPE,
                                          stderr=subprocess.STDOUT, text=True, check=False)
                    self.assertEqual((status, output), (done.returncode, done.stdout))

    def test_damaged_state_is_reported_with_its_file(self):
        for name, text in (("accounts.json", "{bad"), ("accounts.json", "[]"), ("accounts.json", '{"alice": "x"}'),
                           ("links.json", "{bad"), ("links.json", '{"open": 5}')):
            with self.subTest(name=name, text=text), tempfile.TemporaryDirectory(prefix="velt-demo-") as state:
                path = os.path.join(state, name)
                with open(path, "w", encoding="ascii") as file:
                    file.write(text)
                done = subprocess.run([RUN, "--no-install", "--port", str(free_port()), "--state", state],
                                      stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
                self.assertEqual(1, done.returncode)
                self.assertRegex(done.stdout, rf"\A\./run: {path} is damaged: .*\n\Z")
                with open(path, encoding="ascii") as file:
                    self.assertEqual(text, file.read())


if __name__ == "__main__":
    unittest.main()
