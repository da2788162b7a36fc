"""Workers have the same size after 100,000 requests as after 20,000."""

import json
import os
import subprocess
import tempfile
import unittest

from demo import SHARING, Demo
from processes import children, descriptors, memory, name_of

WARM_UP, REST = 20_000, 80_000

# wrk itself can only limit the time, so the script ends it after a number of answers.
SCRIPT = """
local left, at, statuses, requests = %d, 0, {}, {}
function init() requests = { %s } end
function request() at = at %% #requests + 1 return requests[at] end
function response(status)
  statuses[status] = (statuses[status] or 0) + 1
  left = left - 1
  if left > 0 then return end
  for status, count in pairs(statuses) do print(status, count) end
  io.flush()
  os.exit(0)
end
"""


class Endurance(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.demo = Demo()
        cls.addClassCleanup(cls.demo.stop)
        cls.folder = cls.enterClassContext(tempfile.TemporaryDirectory())

    def requests(self):
        """Lua for each of a hundred requests."""
        def request(verb, path, account=None, body=None):
            headers = '["Content-Type"]="application/json"'
            if account:
                headers += f', ["Cookie"]="{self.demo.signed_in(account)["Cookie"]}"'
            return f"wrk.format('{verb}', '{path}', {{{headers}}}, '{json.dumps(body) if body else ''}')"

        def call(method, account="alice", path="/webapi/entry.cgi", api=SHARING, **params):
            return request("POST", path, account, {"api": api, "version": 1, "method": method, **params})

        links = self.demo.links
        script = f"/webapi?api={SHARING}.Session&version=1&method=get&sharing_id="
        mix = []
        for kind in ("open", "plugin", "expired"):
            link = f"/sharing/{links[kind]}"
            mix += [request("GET", link)] * 10 + [request("GET", link + script + links[kind])] * 10
            mix += [call("get", None, link + "/webapi", SHARING + ".Initdata")] * 2
        visitor = f"/sharing/{links['open']}/webapi"
        mix += [call("login", None, visitor, SHARING + ".Login", sharing_id=links["open"])] * 3
        mix += [call("get", sharing_id=links["open"]), call("list", limit=1)]
        mix += [call("set")] * 15 + [call("nothing")] * 7 + [call("get", sharing_id="x" * 22)] * 7
        self.assertEqual(100, len(mix))
        return mix

    def send(self, count):
        path = os.path.join(self.folder, "mix.lua")
        with open(path, "w", encoding="utf-8") as file:
            file.write(SCRIPT % (count, ",\n".join(self.requests())))
        output = subprocess.run(["wrk", "-t1", "-c8", "-d240", "-s", path, self.demo.url], text=True, check=True,
                                stdout=subprocess.PIPE).stdout
        statuses = dict(map(int, line.split()) for line in output.splitlines() if line[0].isdigit())
        # One of ten is the page of a link that has ended.
        self.assertEqual({200: count * 9 // 10, 410: count // 10}, statuses, output)

    def workers(self):
        """The most memory, in KiB, and the most descriptors that a worker has."""
        host = next(pid for pid in children(self.demo.pid) if name_of(pid) == "velt-webapid")
        return tuple(max(map(what, children(host))) for what in (memory, lambda pid: len(descriptors(pid))))

    def test_workers_stay_as_they_are(self):
        self.send(WARM_UP)
        size, opened = self.workers()
        self.send(REST)
        size_now, opened_now = self.workers()
        self.assertLess(size_now, size + 1024)
        self.assertLessEqual(opened_now, opened + 1)  # the last connection


if __name__ == "__main__":
    unittest.main()
