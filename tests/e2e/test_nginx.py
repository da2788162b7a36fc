"""nginx in front of the workers, set up as docs/files.md has it: files that a worker hands over."""

import concurrent.futures
import copy
import json
import os
import re
import subprocess
import unittest

from demo import REPOSITORY, Demo, free_port
from shared_files import Shared, get, listed, query

SPOOL = "/usr/velt/var/spool/files"
NAMES = [b"line\nbreak.txt", b"no\xff\xfeutf8.txt", b"n" * 251 + b".txt", b"100%25?a=b#c.txt", b"..%2f..%2fx", b"...",
         b"+ &;\\\"'.txt"]
CONFIGURATION = """
user www-data; pid {state}/nginx.pid; error_log {state}/nginx.log; worker_processes 2; events {{ }}
http {{
  access_log off; default_type application/octet-stream; sendfile on;
  client_body_temp_path {state}/nginx-body; fastcgi_temp_path {state}/nginx-fastcgi; proxy_temp_path {state}/nginx-p;
  uwsgi_temp_path {state}/nginx-u; scgi_temp_path {state}/nginx-s;
  server {{ listen 127.0.0.1:{port}; root /usr/velt/web; {documented} }}
}}
"""


def setUpModule():
    global DEMO, ALICE
    DEMO = Demo()
    unittest.addModuleCleanup(DEMO.stop)
    ALICE = Shared(DEMO)


@unittest.skipUnless(os.geteuid() == 0, "becomes the web server's account")
class Nginx(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with open(os.path.join(REPOSITORY, "docs/files.md"), encoding="utf-8") as file:
            documented = re.search(r"(?s)```nginx\n(.*?)```", file.read())[1]
        for old, new in (("/volume1/.velt-files", SPOOL), ("/run/velt-sharing/", "/usr/velt/var/run/")):
            assert old in documented
            documented = documented.replace(old, new)
        cls.front = copy.copy(DEMO)
        cls.front.port = free_port()
        path = os.path.join(DEMO.state, "nginx.conf")
        with open(path, "w", encoding="utf-8") as file:
            file.write(CONFIGURATION.format(state=DEMO.state, port=cls.front.port, documented=documented))
        inside = ["nsenter", "-t", str(DEMO.pid), "-m", "-r", "nginx", "-c", path]
        subprocess.run(inside, check=True, cwd="/")
        cls.addClassCleanup(subprocess.run, [*inside, "-s", "stop"], check=True, cwd="/")
        path = DEMO.path("/usr/velt/etc/files.json")
        with open(path, encoding="utf-8") as file:
            rules = json.load(file)
        with open(path, "w", encoding="utf-8") as file:
            json.dump({**rules, "accel_prefix": "/velt-spool/"}, file)

    def visit(self, *items):
        visitor = self.front.visitor(ALICE.share(*items))
        self.assertTrue(visitor.login()["success"])
        return visitor

    def test_names_parts_and_headers(self):
        for number, name in enumerate(NAMES):
            ALICE.put(b"odd/" + name, b"content %d" % number)
        visitor = self.visit("odd")
        self.assertEqual(len(NAMES), len(listed(visitor, "0")))
        contents = set()
        for name in listed(visitor, "0"):
            with self.subTest(name[:20]):
                whole = get(visitor, "0/" + name)
                self.assertEqual((200, "nosniff", "default-src 'none'; sandbox", "no-referrer", "no-store"),
                                 (whole.status, *(whole.headers.get(header) for header in (
                                     "x-content-type-options", "content-security-policy", "referrer-policy",
                                     "cache-control"))))
                self.assertIn("filename*=UTF-8''", whole.headers["content-disposition"])
                self.assertNotIn("x-accel-redirect", whole.headers)
                contents.add(whole.body)
                rest = get(visitor, "0/" + name, headers={"Range": "bytes=8-", "If-Range": whole.headers["etag"]})
                self.assertEqual((206, whole.body[8:]), (rest.status, rest.body))
                changed = get(visitor, "0/" + name, headers={"Range": "bytes=8-", "If-Range": '"other"'})
                self.assertEqual((200, whole.body), (changed.status, changed.body))
                many = get(visitor, "0/" + name, headers={"Range": "bytes=" + ",".join(["0-"] * 1000)})
                self.assertLess(len(many.body), 1000)
                head = visitor.request("HEAD", query("get", path="0/" + name))
                self.assertEqual((200, "9", b""), (head.status, head.headers["content-length"], head.body))
        self.assertEqual({b"content %d" % number for number in range(len(NAMES))}, contents)
        self.assertEqual(200, get(self.visit("Coast"), "0/Dawn.png", "thumbnail").status)
        archive = visitor.request("GET", query("zip"))
        self.assertEqual((200, b"PK"), (archive.status, archive.body[:2]))

    def test_a_name_is_there_for_each_of_many(self):
        ALICE.put("many.bin", os.urandom(1 << 16))
        visitor = self.visit("many.bin")
        with concurrent.futures.ThreadPoolExecutor(16) as pool:
            answers = list(pool.map(lambda _: get(visitor, "0").status, range(800)))
        self.assertEqual([], [status for status in answers if status != 200])

    def test_nobody_else_reaches_the_spool(self):
        with open(DEMO.path(SPOOL + "/out/known"), "wb") as file:
            file.write(b"handed over")
        for path in ("/velt-spool/out/known", "/velt-spool/", "//velt-spool/out/known", "/velt%2Dspool/out/known",
                     "/sharing/../velt-spool/out/known", "/velt-spool/../velt-spool/out/known",
                     "/sharing/%2e%2e/velt-spool/out/known"):
            for headers in ({}, {"X-Accel-Redirect": "/velt-spool/out/known"}):
                answer = self.front.request("GET", path, headers=headers)
                self.assertEqual((404, False), (answer.status, b"handed" in answer.body), path)


if __name__ == "__main__":
    unittest.main()
