"""The packages' way through a clean Debian that systemd runs: installed, set up and used as the documents say,
upgraded, removed and purged."""

import contextlib
import email
import functools
import io
import json
import os
import re
import sys
import tempfile
import threading
import unittest
import urllib.parse
import zipfile

from roots import CONFIG, ENTRY, OWNER, PASSWORD, SOURCE, Booted, Client, clean_root, packages, with_version

TRACES = r"find / -xdev \( -path /proc -o -path /dev -o -path /tmp \) -prune -o -iname '*velt*' -print"
LINK = "VELT.Files.Link"
ASKS = 'auth_pam "Share links"; auth_pam_service_name velt-web;'
HOME = f"/volume1/homes/{OWNER}"


def commands(text, heading):
    """The indented and the fenced commands of a document's section."""
    section = re.split(r"\n##+ ", text.split(f"\n## {heading}\n", 1)[1], maxsplit=1)[0]
    blocks = re.findall(r"(?:^ {4,}\S.*\n)+", section, re.MULTILINE) if "```" not in section else \
        re.findall(r"```sh\n(.*?)```", section, re.DOTALL)
    return [re.sub(r"^ +", "", block, flags=re.MULTILINE) for block in blocks]


def document(name):
    with open(f"{SOURCE}/docs/{name}", encoding="utf-8") as file:
        return file.read()


@unittest.skipUnless(os.geteuid() == 0, "needs root")
class Install(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        clean = clean_root()
        try:
            if clean is None:
                raise RuntimeError("no mirror of Debian answers")
            cls.root = Booted(clean)
        except RuntimeError as error:
            print(f"{error}: installing the packages on a clean Debian IS NOT TESTED", file=sys.stderr)
            raise unittest.SkipTest(str(error)) from error
        cls.addClassCleanup(cls.root.close)
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        cls.new, cls.dev = packages(cls.folder.name)
        cls.old = with_version(cls.new, "0.9.0-1", cls.folder.name)
        cls.client = Client(cls.root)

    def install(self, *names):
        names = [self.root.take(name) if name.endswith(".deb") else name for name in names]
        return self.root.run("apt-get", "-qq", "-y", "--no-install-recommends", "install", *names, network=True)

    def version(self):
        return self.root.run("dpkg-query", "-W", "-f", "${db:Status-Abbrev}${Version}", "velt-sharing", check=False)

    def login(self, link, **fields):
        return self.client.call(f"/sharing/{link}/webapi", "VELT.Core.Sharing.Login", "login", "-c", "/tmp/jar",
                                sharing_id=link, **fields)

    def found(self):
        """What `velt-sharing check` finds wrong."""
        told = self.root.shell("velt-sharing check --json 2>/dev/null || true")
        found = {row["subject"]: row["text"] for row in json.loads(told)["checks"] if row["state"] != "ok"}
        return found, told

    def test_from_install_to_purge(self):
        self.assertEqual(self.root.shell(TRACES), "")
        self.install(self.old)
        self.assertEqual(self.version(), "ii 0.9.0-1")
        self.set_up()
        self.check_files()
        self.check_notify()
        self.check_faults()
        links = self.check_logins()
        self.check_reload()
        self.upgrade(links)
        self.check_development()
        self.remove()

    def set_up(self):
        """As docs/operations.md and the first lines of nginx' configuration say."""
        root = self.root
        build, certificate, owner, folders, link = commands(document("operations.md"), "Install")
        self.assertIn("cpack", build)
        root.shell(f"useradd -m {OWNER} && echo '{OWNER}:{PASSWORD}' | chpasswd")
        self.assertIn(f" {OWNER}\n", owner)
        root.shell(certificate + f"printf '%s\\n' '{PASSWORD}' '{PASSWORD}' | setsid -w {owner.replace(OWNER, 'bob')}")
        root.shell(f"""
            install -d -m 2750 -o {OWNER} -g www-data {HOME}/shared {HOME}/shared/inbox
            seq 100000 >{HOME}/shared/numbers.txt
            chown -R {OWNER}:www-data {HOME}
            chmod 640 {HOME}/shared/numbers.txt""")
        root.shell(folders)
        root.write("/etc/velt-sharing/files.json", json.dumps(
            {"roots": [{"name": "home", "path": "/volume1/homes/{user}"}], "spool": "/volume1/.velt-files",
             "accel_prefix": "/velt-spool/"}))
        with open(root.path("/etc/velt-sharing/nginx.conf"), encoding="utf-8") as file:
            enable = re.findall(r"^# {3}(.*)$", file.read(), re.MULTILINE)
        root.shell("sed -i 's|/var/lib/velt-sharing/files/|/volume1/.velt-files/|' /etc/velt-sharing/nginx.conf\n" +
                   "\n".join(enable))
        # A reload returns before nginx has opened its new ports.
        root.run("timeout", "60", "bash", "-c", "until : </dev/tcp/127.0.0.1/443; do sleep 0.1; done 2>/dev/null")
        self.assertEqual(self.client.sign_in(account="bob").code, 0)
        self.client.session = None
        root.run("velt-sharing", "owner", "remove", "bob")
        found, told = self.found()
        self.assertEqual(found, {}, told)
        self.assertIn("files, root home", told)
        root.run("systemctl", "start", "velt-sharing-check")
        self.assertEqual(self.client.get(re.search(r"/sharing/[\w-]+", root.shell(link))[0]).status, 200)

    def check_files(self):
        client = self.client
        link = client.create(project_name="files", app={"root": "home", "items": ["shared"]})

        def query(method, **parameters):
            at = f"/sharing/{link}/{'stream' if method == 'zip' else 'webapi'}"
            return f"{at}?" + urllib.parse.urlencode({"api": LINK, "version": 1, "method": method, **parameters})

        with open(self.root.path(f"{HOME}/shared/numbers.txt"), "rb") as file:
            content = file.read()
        self.login(link)
        whole = client.get(query("get", path="0/numbers.txt"), "-b", "/tmp/jar")
        self.assertEqual((whole.status, whole.body), (200, content))
        archive = client.get(query("zip"), "-b", "/tmp/jar")
        with zipfile.ZipFile(io.BytesIO(archive.body)) as packed:
            self.assertEqual(packed.read("shared/numbers.txt"), content)

        link = client.create(project_name="files", app={"root": "home", "items": ["shared/inbox"], "upload": {}})
        at = f"/sharing/{link}/webapi"
        self.login(link)
        begun = client.call(at, LINK, "upload_begin", "-b", "/tmp/jar", name="left.txt", size=len(content))
        done = client.get(query("upload_piece", offset=0, upload=begun.json["data"]["upload"]), "-b", "/tmp/jar",
                          data=content, headers=["Content-Type: application/octet-stream"])
        self.assertEqual(done.json["data"]["name"], "left.txt")
        self.assertEqual(self.root.shell(f"stat -c '%U:%G %a %s' {HOME}/shared/inbox/left.txt"),
                         f"{OWNER}:www-data 640 {len(content)}\n")
        sent = client.get(f"/sharing/{link}/whole.txt", "-T", f"{HOME}/shared/numbers.txt")
        self.assertEqual((sent.status, sent.body), (201, b"whole.txt\n"))
        self.root.shell(f"cmp {HOME}/shared/numbers.txt {HOME}/shared/inbox/whole.txt")

    def check_notify(self):
        """The unit mails through a mail program with a set-group-ID bit, as docs/notifications.md says."""
        root, own = self.root, functools.partial(self.client.own, api="VELT.Notify")
        root.shell("echo 'postfix postfix/main_mailer_type select Local only' | debconf-set-selections || true")
        self.install("postfix")
        root.shell("postconf -e inet_interfaces=loopback-only mydestination=localhost && systemctl restart postfix")
        root.write("/etc/velt-sharing/notify.conf", 'OPTIONS="--wait=0 --mail-from=\'Links <links@localhost>\'"\n')
        root.run("systemctl", "restart", "velt-sharing-notify")
        self.assertEqual(own("set", kinds=["opened"], mail=f"{OWNER}@localhost", webhook="").code, 0)
        mail = f"timeout 60 sh -c 'until grep -q ^{{}} /var/mail/{OWNER}; do sleep 0.1; done' && cat /var/mail/{OWNER}"
        told = email.message_from_string(root.shell(mail.format("From")))
        code = re.search(r"code is (\w+)", told.get_payload(decode=True).decode())[1]
        self.assertEqual(told["From"], "Links <links@localhost>")
        self.assertEqual(own("confirm", code=code).code, 0)
        self.assertIn("sent", root.run("velt-sharing", "notify", "--test", OWNER))
        process = "/proc/$(systemctl show -p MainPID --value velt-sharing-notify)"
        self.assertEqual(root.shell(f"stat -c %U {process}"), "velt-sharing\n")

    def check_faults(self):
        """What keeps files from being shared is found, by the unit's own check too, and the log says it."""
        root = self.root
        dropin = "/etc/systemd/system/velt-{}.service.d/{}.conf"
        for subject, text, break_it, mend_it in [
                ("files, root home", "Permission denied", "chmod 700 /volume1/homes", "chmod 755 /volume1/homes"),
                ("files, root home", "symbolic link", "mv /volume1/homes /volume1/h && ln -s h /volume1/homes",
                 "rm /volume1/homes && mv /volume1/h /volume1/homes"),
                ("files, spool", "group", "chmod 700 /volume1/.velt-files", "chmod 711 /volume1/.velt-files"),
                ("files, spool", "belongs to root", "chmod 777 /volume1/.velt-files", "chmod 711 /volume1/.velt-files"),
                ("files, spool", "Read-only", f"cd {os.path.dirname(dropin.format('webapid', 'x'))} && mv *.conf .. && "
                 "systemctl daemon-reload && systemctl restart velt-webapid",
                 f"cd {os.path.dirname(dropin.format('webapid', 'x'))} && mv ../*.conf . && "
                 "systemctl daemon-reload && systemctl restart velt-webapid"),
                ("files, configuration", "no JSON", "mv /etc/velt-sharing/files.json /tmp",
                 "mv /tmp/files.json /etc/velt-sharing")]:
            with self.subTest(subject, text=text):
                root.shell(break_it)
                found, told = self.found()
                root.shell(mend_it)
                self.assertIn(text, found.get(subject, ""), told)
        for unit in ("webapid", "sharing-check"):
            root.write(dropin.format(unit, "filter"), "[Service]\nRestrictSUIDSGID=yes\n")
        root.shell("systemctl daemon-reload && systemctl restart velt-webapid")
        roots = self.client.own("roots", api="VELT.Files")
        self.assertEqual(roots.json["data"], {"roots": []})
        root.shell("! systemctl start velt-sharing-check 2>/dev/null")
        for unit in ("webapid", "sharing-check"):
            self.assertIn("openat2 is not to be had", root.run("journalctl", "--no-pager", "-u", f"velt-{unit}"))
            os.unlink(root.path(dropin.format(unit, "filter")))
        root.shell("systemctl daemon-reload && systemctl restart velt-webapid && systemctl start velt-sharing-check")

    def check_logins(self):
        links = {name: self.client.create(protect_type=name, **fields) for name, fields in [
            ("none", {}), ("password", {"protect_password": "sesame"}), ("user", {"protect_users": [OWNER]})]}
        self.assertEqual(self.login(links["password"], password="sesame").code, 0)
        # PAM asks for the system's own password, which only root may read.
        self.assertEqual(self.login(links["user"], mosk_username=OWNER, mosk_password=PASSWORD).code, 0)
        self.assertNotEqual(self.login(links["user"], mosk_username=OWNER, mosk_password="wrong").code, 0)
        self.assertEqual(self.root.run("stat", "-c", "%U %a", "/var/lib/velt-sharing/db/sharing.db"),
                         "velt-sharing 600\n")
        return links

    def check_reload(self):
        """While requests come."""
        ended = threading.Event()
        codes = []

        def call():
            while not ended.is_set():
                codes.append(self.client.own("list").code)

        callers = [threading.Thread(target=call) for _ in range(2)]
        with contextlib.ExitStack() as stack:
            for caller in callers:
                caller.start()
                stack.callback(caller.join)
            stack.callback(ended.set)
            for _ in range(3):
                self.root.run("systemctl", "reload", "velt-webapid")
        self.assertEqual(set(codes), {0})
        self.assertGreater(len(codes), 5)

    def upgrade(self, links):
        """From a package whose nginx asked owners for their passwords, with changed files, which stay."""
        self.root.write("/etc/pam.d/velt-web", "auth required pam_pwdfile.so pwdfile=/etc/velt-sharing/owners\n"
                                               "account required pam_permit.so\n")
        self.root.shell(f"""
            sed -i '/^owner-/d' {CONFIG} && echo external-url=https://nas.example.com >>{CONFIG}
            printf '%s\\n' '{PASSWORD}' '{PASSWORD}' | setsid -w velt-sharing owner password {OWNER}
            chown root:www-data /etc/velt-sharing/owners && chmod 640 /etc/velt-sharing/owners
            sed -i 's|^  location = /webapi/entry.cgi {{|&\\n{ASKS}|; s|^    location ~ .*index.*|&\\n{ASKS}|
                    s|^  fastcgi_param REMOTE_ADDR.*|&\\nfastcgi_param REMOTE_USER $remote_user;|' \\
              /etc/velt-sharing/nginx.conf
            systemctl reload nginx""")
        told = self.install(self.new)
        self.assertIn("nginx.conf of an earlier release still asks owners", told)
        # The dialogue of the browser comes first, then the page.
        dialogue = ["-u", f"{OWNER}:{PASSWORD}"]
        for path in ("/", ENTRY):
            self.assertEqual(self.client.get(path).headers["www-authenticate"], 'Basic realm="Share links"')
        self.assertEqual(self.client.account(*dialogue), "")
        self.client.session = None
        self.assertEqual(self.client.sign_in(*dialogue).code, 0)
        self.assertEqual(self.client.own("list", *dialogue).code, 0)
        self.root.shell(f"echo owner-login=web-server >>{CONFIG} && systemctl restart velt-webapid")
        self.assertEqual(self.client.account(*dialogue), OWNER)
        # As docs/operations.md says.
        self.root.shell(f"""
            sed -i /auth_pam/d /etc/velt-sharing/nginx.conf
            sed -i /^owner-login/d {CONFIG}
            rm /etc/pam.d/velt-web
            systemctl reload nginx && systemctl restart velt-webapid""")
        self.assertEqual(self.client.account("-b", self.client.session), OWNER)
        self.assertEqual(self.version(), "ii 1.0.0-1")
        self.assertEqual(self.client.get("/sharing/" + links["none"]).status, 200)
        self.assertEqual(self.login(links["password"], password="sesame").code, 0)
        told = self.client.own("get", sharing_id=links["none"]).json["data"]
        self.assertTrue(told["url"].startswith("https://nas.example.com/"), told["url"])

    def check_development(self):
        """docs/plugins.md, with the package."""
        text = document("plugins.md")
        copy, build = commands(text, "A working plugin in ten minutes")[0:2]
        self.install(self.dev, *re.search(r"apt install \./velt-sharing-dev_\*\.deb (.*?)`", text)[1].split())
        self.root.shell(copy.replace("examples/", "/usr/share/velt-sharing-dev/") +
                        re.sub(r" -DCMAKE_PREFIX_PATH=\S+", "", build) + """
            cmake --install ~/greeting/build --prefix /usr/velt
            cd ~/greeting
            g++ -std=c++20 -shared -fPIC -DPLUGIN_NAME='"greeting"' $(pkg-config --cflags velt-sharing) Plugin.cpp \
              -o greeting.so $(pkg-config --libs velt-sharing)
            velt-sharing check-plugin greeting.so
            systemctl reload velt-webapid""".replace("\n            ", "\n"))
        link = self.client.create(project_name="greeting")
        self.assertIn(b"/pkg/greeting/plugin.js", self.client.get("/sharing/" + link).body)
        self.root.shell("""
            xargs rm <~/greeting/build/install_manifest.txt
            rm -r ~/greeting /usr/velt/web/pkg/greeting""")

    def remove(self):
        root = self.root
        told = root.run("apt-get", "-qq", "-y", "remove", "velt-sharing", "velt-sharing-dev")
        self.assertNotIn("warning", told)
        self.assertEqual(self.version(), "rc 1.0.0-1")
        self.assertNotIn("velt-sharing", root.run("ls", "-l", "/etc/nginx/sites-enabled"))
        gone = "/usr/velt /usr/include/velt* /lib/systemd/system/velt* /usr/share/doc/velt*"
        self.assertEqual(root.shell(f"ls -d {gone} 2>/dev/null || true"), "")
        root.shell(f"test -s /var/lib/velt-sharing/db/sharing.db && grep -q nas.example.com {CONFIG}")
        told = root.run("apt-get", "-qq", "-y", "purge", "velt-sharing")
        self.assertNotIn("warning", told)
        # What the administrator has made is the administrator's.
        root.shell("rm -r /volume1 /etc/systemd/system/velt-*.service.d")
        self.assertEqual(root.shell(TRACES), "")
        self.assertNotIn("velt", root.shell("cat /etc/passwd /etc/group /var/lib/dpkg/status"))
