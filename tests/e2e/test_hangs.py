"""Programs, PAM and plugins that hang in twenty calls at once: they are ended in time and delay no other request."""

import contextlib
import json
import os
import shutil
import subprocess
import tempfile
import unittest
from concurrent.futures import ThreadPoolExecutor

from demo import BUILD, SHARING, Demo, wait_until

CALLS = 20
DEMO = None


def setUpModule():
    global DEMO
    DEMO = Demo()
    unittest.addModuleCleanup(lambda: DEMO.stop())
    with open(DEMO.path("/usr/velt/etc/webapid.conf"), "w", encoding="utf-8") as file:
        file.write("request-timeout=8\nprogram-timeout=1\nlogin-timeout=1\n"
                   f"workers={CALLS + 4}\n")
    DEMO.restart()


def log():
    with open(DEMO.path("/usr/velt/var/log/velt-webapid.log"), encoding="utf-8") as file:
        return file.read()


class Hangs(unittest.TestCase):
    def while_hanging(self, call):
        """Makes `call` many times at once, checks that others are served meanwhile, and returns its answers."""
        with ThreadPoolExecutor(CALLS) as pool:
            calls = [pool.submit(call) for _ in range(CALLS)]
            served = 0
            while not all(each.done() for each in calls):
                visitor = DEMO.visitor(DEMO.links["open"])
                self.assertEqual(200, visitor.page().status)
                self.assertTrue(visitor.login()["success"])
                served += 1
        self.assertGreater(served, 0)
        return [each.result() for each in calls]

    @contextlib.contextmanager
    def program(self, path, text):
        """Replaces the program `path`, in the demonstration's namespace only, by one with this text."""
        enter = ["nsenter", "--mount", "--root", "--target", str(DEMO.pid)]
        if os.geteuid():
            enter[1:1] = ["--user", "--preserve-credentials"]
        with tempfile.NamedTemporaryFile("w", dir=DEMO.path("/usr/velt/bin"), delete=False) as file:
            file.write(text)
        os.chmod(file.name, 0o755)
        inside = "/usr/velt/bin/" + os.path.basename(file.name)
        subprocess.run([*enter, "mount", "--bind", inside, path], check=True)
        try:
            yield
        finally:
            subprocess.run([*enter, "umount", path], check=True)

    def test_a_program(self):
        for _ in range(5):
            DEMO.create("bob")
        with self.program("/usr/bin/qrencode", "#!/bin/sh\necho half a picture; sleep 60\n"):
            for method, params in (("set", {"project_name": "album"}), ("list", {"project_name": "album"})):
                answers = self.while_hanging(lambda m=method, p=params: DEMO.data(SHARING, m, p, "bob"))
                self.assertNotIn("qrcode", json.dumps(answers))
        self.assertIn("program /usr/bin/qrencode took too long and was ended", log())
        wait_until(lambda: "qrcode" in DEMO.data(SHARING, "set", {"project_name": "album"}))

    def test_pam(self):
        link = DEMO.create(protect_type="user", protect_users=["bob"])
        login = {"mosk_username": "bob", "mosk_password": DEMO.accounts["bob"]}
        owner = {"account": "bob", "password": DEMO.accounts["bob"]}
        basic = {"Authorization": DEMO.authorization("bob")}
        form = f"api={SHARING}&version=1&method=list"
        for service, call, code in (
                ("velt-sharing", lambda: DEMO.visitor(link).login(**login), 117),
                ("velt-owner", lambda: DEMO.call("VELT.Core.SignIn", "login", owner, account=None), 3006),
                ("velt-owner", lambda: DEMO.request("GET", f"/webapi/entry.cgi?{form}", headers=basic).json, 100)):
            with self.subTest(service, code=code):
                path = DEMO.path("/etc/pam.d/" + service)
                with open(path, encoding="utf-8") as file:
                    before = file.read()
                try:
                    with open(path, "w", encoding="utf-8") as file:
                        file.write("auth required pam_exec.so quiet /bin/sleep 60\n" + before)
                    answers = self.while_hanging(call)
                finally:
                    with open(path, "w", encoding="utf-8") as file:
                        file.write(before)
                self.assertEqual([code] * CALLS, [answer["error"]["code"] for answer in answers])
                wait_until(lambda again=call: again()["success"])

    def test_a_plugin(self):
        library = "/usr/velt/lib/sharing/hangs.so"
        shutil.copy(os.path.join(BUILD, "tests/plugins/libs/hangs.so"), DEMO.path(library))
        with open(DEMO.path("/usr/velt/etc.defaults/sharing/hangs"), "w", encoding="utf-8") as file:
            json.dump({"plugins": [{"name": "custom_page", "params": {"lib": library}}]}, file)
        link = DEMO.create(project_name="hangs")
        self.assertEqual([504] * CALLS, [answer.status for answer in self.while_hanging(DEMO.visitor(link).page)])
        self.assertIn(f"took too long over a request in {library} and was ended", log())


if __name__ == "__main__":
    unittest.main()
