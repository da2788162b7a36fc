"""The request log and the metrics of velt-webapid."""

import contextlib
import http.client
import json
import os
import re
import signal
import socket
import tempfile
import unittest

from webapid import PATIENCE, Host, free_port, scrape, wait_until

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SECRETS = {"HTTP_COOKIE": "sharing_sid=planted", "HTTP_REFERER": "http://planted/", "REMOTE_ADDR": "198.51.100.7",
           "HTTP_X_REQUEST_ID": "planted"}
LINK = "Abcdef7890123456789012"
VISITOR = {**SECRETS, "SCRIPT_NAME": f"/sharing/{LINK}", "PATH_INFO": "/webapi", "REMOTE_USER": ""}


def fields(line):
    return dict(field.split("=", 1) for field in line.split())


class RequestLines(unittest.TestCase):
    def read(self, path):
        try:
            with open(path, encoding="ascii") as file:
                return [fields(line) for line in file]
        except FileNotFoundError:
            return []

    def test_every_request_leaves_one_line_whatever_becomes_of_it(self):
        with Host("--request-log", "{}/requests", "--request-timeout", "1") as host:
            fifo = os.path.join(host.folder.name, "fifo")
            os.mkfifo(fifo)
            seen = []

            def check(name, answer, status, code, method="-", pool="front", link="-", told=True):
                wait_until(lambda: len(self.read(host.folder.name + "/requests")) > len(seen))
                line = self.read(host.folder.name + "/requests")[-1]
                seen.append(line["request"])
                self.assertEqual([line[each] for each in ("status", "code", "method", "pool", "link")],
                                 [str(status), str(code), method, pool, link], name)
                self.assertRegex(line["request"], "^[0-9a-f]{16}$")
                if told:
                    self.assertEqual(dict(answer.headers)["X-Request-Id"], line["request"], name)

            forged = "x\nrequest=0 planted"
            for name, call, expected in [
                ("success", lambda: host.call("echo", SECRETS, value="planted"), (200, 0, "echo")),
                ("visitor", lambda: host.call("echo", VISITOR, value="planted"), (200, 0, "echo", "front", "Abcdef")),
                ("printed", lambda: host.call("raw"), (200, 0, "raw")),
                ("no status", lambda: host.call("raw", value="Status: 0"), (502, 0, "raw")),
                ("unknown method", lambda: host.call(forged), (200, 103)),
                ("malformed", lambda: host.ask({}, b"a=%4"), (200, 106)),
                ("not allowed", lambda: host.call("for_token", VISITOR), (200, 105, "for_token", "front", "Abcdef")),
                ("too large", lambda: host.ask({}, b"x" * (2 << 20)), (200, 106)),
                ("pre-check", lambda: host.call("hang"), (200, 120, "hang")),
                ("exception", lambda: host.call("throw"), (200, 100, "throw")),
                ("no address", lambda: host.ask({"SCRIPT_NAME": "/planted"}), (404, 0)),
                ("page", lambda: host.ask({"SCRIPT_NAME": "/sharing/" + LINK}), (405, 0, "page", "front", "Abcdef")),
                ("handed over", lambda: host.call("touch", value=fifo + "2"), (200, 0, "touch", "long")),
                ("stream", lambda: host.call("stream", value=9), (200, 0, "stream", "stream")),
                ("half a stream", lambda: host.call("stream", value=9, end="throw"), (500, 100, "stream", "stream")),
                ("time is over", lambda: host.call("hang", value=fifo), (504, 0, "hang")),
            ]:
                check(name, call(), *expected)
            check("dead worker", host.call("crash"), 500, 0, "crash", told=False)
            with host.begin("stream", value=500) as leaving:
                leaving.recv(1)
            check("client that left", None, 499, 0, "stream", "stream", told=False)
            self.assertEqual(len(set(seen)), len(seen))
            with open(host.folder.name + "/requests", encoding="ascii") as file:
                self.assertNotRegex(file.read(), "planted|198.51|" + LINK[:7])

    def test_hangup_begins_a_new_file(self):
        with Host("--request-log", "{}/requests") as host:
            path = host.folder.name + "/requests"
            host.call("echo")
            wait_until(lambda: len(self.read(path)) == 1)
            os.rename(path, path + ".1")
            host.signal(signal.SIGHUP)
            wait_until(lambda: host.call("echo") and self.read(path))
            self.assertEqual(os.stat(path).st_mode & 0o777, 0o640)

    def test_a_log_that_takes_nothing_stops_nothing(self):
        port = free_port()
        for name in ("/dev/full", "/nowhere/requests"):
            with self.subTest(name), Host("--request-log", name, "--metrics", f"127.0.0.1:{port}") as host:
                self.assertEqual([host.call("echo").code for _ in range(3)], [0] * 3)
                wait_until(lambda: scrape(port)["velt_request_lines_lost_total",] == 3)

    def test_the_journal_gets_fields(self):
        namespace = ["unshare", "--mount"] if os.geteuid() == 0 else ["unshare", "--user", "--map-root-user", "--mount"]
        with tempfile.TemporaryDirectory() as folder, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as journal:
            journal.bind(folder + "/journal")
            journal.settimeout(PATIENCE)
            script = ("mount -t tmpfs none /run && mkdir -p /run/systemd/journal && touch /run/systemd/journal/socket "
                      f'&& mount --bind {folder}/journal /run/systemd/journal/socket && exec "$@"')
            with Host("--request-log", "journal", under=[*namespace, "sh", "-c", script, "sh"]) as host:
                answer = host.call("echo")
                entry = dict(line.split("=", 1) for line in journal.recv(4096).decode().splitlines())
        self.assertEqual((entry["VELT_REQUEST"], entry["VELT_METHOD"], entry["VELT_STATUS"], entry["PRIORITY"]),
                         (dict(answer.headers)["X-Request-Id"], "echo", "200", "6"))
        self.assertEqual(fields(entry["MESSAGE"])["request"], entry["VELT_REQUEST"])


class Metrics(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.port = free_port()

    def host(self, *options, **more):
        return Host("--metrics", f"127.0.0.1:{self.port}", *options, **more)

    def test_no_count_is_lost_with_a_worker(self):
        with self.host("--program-timeout", "1") as host:
            for method in ["echo"] * 20 + ["crash"] + ["echo"] * 20 + ["crash"]:
                host.call(method)
            host.call("program", value="exit")
            host.call("program", value="sleep 100")
            api = "Test.Host"
            expected = {
                ("velt_requests_total", "0", "1", "200", api, "echo"): 40,
                ("velt_requests_total", "0", "1", "500", api, "crash"): 2,
                ("velt_request_duration_seconds_count", "1", api, "echo"): 40,
                ("velt_request_duration_seconds_bucket", "+Inf", "1", api, "echo"): 40,
                ("velt_request_duration_seconds_bucket", "0.5", "1", api, "program"): 1,
                ("velt_request_duration_seconds_bucket", "1", "2.5", api, "program"): 2,
                ("velt_worker_deaths_total", "front", "signal"): 2,
                ("velt_worker_starts_total", "front"): 3,
                ("velt_child_runs_total", "program"): 2,
                ("velt_child_timeouts_total", "program"): 1,
            }
            wait_until(lambda: scrape(self.port)["velt_request_duration_seconds_count", "1", api, "program"] == 2)
            samples = scrape(self.port)
            self.assertEqual({key: samples.get(key) for key in expected}, expected)
            self.assertLess(1, samples["velt_request_duration_seconds_sum", "1", api, "program"])

    def test_busy_workers_and_what_waits_for_them_are_seen(self):
        with self.host() as host:
            host.call("echo")
            path = host.folder.name + "/wait"
            with open(path, "wb"):
                slow = [host.begin("wait", value=path) for _ in range(4)]
            wait_until(lambda: scrape(self.port)["velt_queue_length", "long"] == 3)
            samples = scrape(self.port)
            self.assertEqual((samples["velt_workers", "busy", "long"], samples["velt_workers_limit", "long"]), (1, 1))
            os.unlink(path)
            self.assertEqual([host.finish(each).code for each in slow], [0] * 4)
            wait_until(lambda: scrape(self.port)["velt_workers", "idle", "long"] == 1)
            self.assertEqual(scrape(self.port)["velt_queue_length", "long"], 0)

    def test_readers_that_hang_and_an_end_of_the_metrics_stop_nothing(self):
        with self.host() as host, contextlib.ExitStack() as hung:
            host.call("echo")
            for sent in [b"", b"GET /metrics", b"GET /metrics HTTP/1.1\r\n\r\n"] * 8:
                client = hung.enter_context(socket.create_connection(("127.0.0.1", self.port)))
                client.sendall(sent)
            host.call("crash")
            self.assertEqual(host.call("echo").code, 0)
            self.assertIn(("velt_worker_deaths_total", "front", "signal"), scrape(self.port))
            server, = host.children("velt-metrics")
            os.kill(server, signal.SIGHUP)
            scrape(self.port)
            self.assertEqual(host.children("velt-metrics"), [server], "SIGHUP is for the supervisor only")
            os.kill(server, signal.SIGKILL)
            host.wait_for_log("the metrics server ended")
            self.assertEqual(host.call("echo").code, 0)
            scrape(self.port)

    def test_the_board_and_the_alerts_ask_for_metrics_that_exist(self):
        with open(f"{TOP}/config/grafana/velt-sharing.json", encoding="utf-8") as file:
            asked = [target["expr"] for panel in json.load(file)["panels"] for target in panel["targets"]]
        with open(f"{TOP}/config/prometheus/velt-sharing.rules.yml", encoding="utf-8") as file:
            asked += re.findall(r"^ +expr: (.*?)^ +(?:for|labels):", file.read(), re.DOTALL | re.MULTILINE)
        self.assertGreater(len(asked), 15)
        with self.host() as host:
            host.call("echo")
            wait_until(lambda: any(name == "velt_requests_total" for name, *_ in scrape(self.port)))
            names = {name for name, *_ in scrape(self.port)}
        for expression in asked:
            used = set(re.findall(r"\bvelt_[a-z_]+", expression))
            self.assertTrue(used and used <= names, expression)

    def test_only_this_machine_reads_and_only_metrics(self):
        for address in ["0.0.0.0:9464", "192.0.2.1:9464", "[::]:9464", "[2001:db8::1]:9464", "localhost:9464", ":9464",
                        "127.0.0.1", "127.0.0.1:", "127.0.0.1:http", "metrics", "/" + "x" * 200]:
            with self.subTest(address), Host("--metrics", address) as host:
                self.assertNotEqual(host.wait(), 0)
                self.assertIn("loopback address", "".join(host.log))
        with Host("--metrics", "{}/metrics") as host:
            path = host.folder.name + "/metrics"
            wait_until(lambda: os.path.exists(path))
            self.assertEqual(os.stat(path).st_mode & 0o777, 0o660)
            for request, status in [(b"GET /metrics HTTP/1.1", 200), (b"GET / HTTP/1.0", 404),
                                    (b"POST /metrics HTTP/1.1", 405), (b"GET /metrics", 400), (b"GET  HTTP/1.1", 404)]:
                with self.subTest(request), socket.socket(socket.AF_UNIX) as client:
                    client.connect(path)
                    client.sendall(request + b"\r\nHost: x\r\n\r\n")
                    answer = http.client.HTTPResponse(client)
                    answer.begin()
                    self.assertEqual((answer.status, answer.getheader("Connection")), (status, "close"))


if __name__ == "__main__":
    unittest.main()
