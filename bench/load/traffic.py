"""What sends the requests: wrk for those that are always the same, a client of ours for the others."""

import http.client
import json
import multiprocessing
import subprocess
import tempfile
import time

SHARING = "VELT.Core.Sharing"
ENTRY = "/webapi/entry.cgi"

_WRK = """
wrk.method = "%s"
wrk.body = %s
wrk.headers["Content-Type"] = "application/json"
%s
function setup(thread) thread:set("failed", 0) threads = threads or {} table.insert(threads, thread) end
function response(status, headers, body)
  if status ~= 200 or not string.find(body, %s, 1, true) then failed = failed + 1 end
end
function done(summary, latency, requests)
  local bad = summary.errors.connect + summary.errors.read + summary.errors.write + summary.errors.timeout
  for _, thread in ipairs(threads) do bad = bad + thread:get("failed") end
  print(string.format('{"count": %%d, "seconds": %%f, "p50": %%f, "p95": %%f, "p99": %%f, "errors": %%d}',
    summary.requests, summary.duration / 1e6, latency:percentile(50) / 1e3, latency:percentile(95) / 1e3,
    latency:percentile(99) / 1e3, bad))
end
"""


class Same:
    """Requests that are all the same, sent by wrk over some connections. An answer without `want` is an error."""

    def __init__(self, port, path, want, body=None, headers=None, connections=2):
        header = "\n".join(f'wrk.headers["{name}"] = "{value}"' for name, value in (headers or {}).items())
        text = _WRK % ("POST" if body else "GET", json.dumps(json.dumps(body)) if body else "nil", header,
                       json.dumps(want))
        # Open, and so there, as long as this object.
        self.file = tempfile.NamedTemporaryFile("w", suffix=".lua")  # pylint: disable=consider-using-with
        self.file.write(text)
        self.file.flush()
        self.command = ["wrk", "-t1", f"-c{connections}", "--latency", "--timeout", "30s", "-s", self.file.name]
        self.url = f"http://127.0.0.1:{port}{path}"

    def start(self, seconds):
        self.process = subprocess.Popen([*self.command, f"-d{seconds}s", self.url], text=True, stdout=subprocess.PIPE)

    def result(self):
        out = self.process.communicate()[0]
        return json.loads(next(line for line in out.splitlines() if line.startswith("{")))

    def per_second(self, seconds):
        self.start(seconds)
        result = self.result()
        assert result["errors"] == 0, result
        return result["count"] / result["seconds"]


class Caller:
    """One keep-alive connection. A call whose answer is no success raises OSError."""

    def __init__(self, port, headers=None, path=ENTRY):
        self.port, self.path = port, path
        self.headers = {"Content-Type": "application/json", **(headers or {})}
        self.connection = http.client.HTTPConnection("127.0.0.1", port, timeout=60)

    def call(self, method, api=SHARING, **params):
        self.connection.request("POST", self.path, json.dumps({"api": api, "version": 1, "method": method, **params}),
                                self.headers)
        answer = self.connection.getresponse()
        body = answer.read()
        if answer.status != 200 or b'"success":true' not in body.replace(b" ", b""):
            raise OSError(f"{method}: {answer.status} {body[:200]!r}")
        for cookie in answer.headers.get_all("Set-Cookie") or []:
            self.headers["Cookie"] = cookie.split(";", 1)[0]
        return json.loads(body)

    def seconds(self, method, **params):
        start = time.perf_counter()
        self.call(method, **params)
        return time.perf_counter() - start


class Changing:
    """Calls that differ, made in a process of its own; `steps(caller, number)` gives (name, method, parameters)."""

    def __init__(self, make_caller, steps):
        self.make_caller, self.steps = make_caller, steps

    def start(self, seconds):
        self.results, there = multiprocessing.Pipe(duplex=False)
        self.process = multiprocessing.Process(target=self._run, args=(there, seconds))
        self.process.start()

    def _run(self, there, seconds):
        caller, times, errors = self.make_caller(), {}, {}
        begin = time.monotonic()
        number = 0
        while time.monotonic() < begin + seconds:
            for name, path, method, params in self.steps(number):
                caller.path = path
                start = time.perf_counter()
                try:
                    caller.call(method, **params)
                except (OSError, http.client.HTTPException) as error:
                    errors.setdefault(name, []).append(str(error))
                    caller.connection.close()
                times.setdefault(name, []).append(time.perf_counter() - start)
            number += 1
        took = time.monotonic() - begin
        there.send({name: {**summary(values), "seconds": took, "errors": len(errors.get(name, [])),
                           "first error": errors.get(name, [None])[0]} for name, values in times.items()})

    def result(self):
        result = self.results.recv()
        self.process.join()
        return result


def summary(values):
    ordered = sorted(values)
    return {"count": len(ordered), **{f"p{part}": 1e3 * ordered[min(len(ordered) - 1, len(ordered) * part // 100)]
                                      for part in (50, 95, 99)}}
