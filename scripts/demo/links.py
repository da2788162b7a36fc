"""Makes one link of each kind, through the API, as alice."""

import base64
import http.client
import json
import os

from accounts import read_texts, write_private

PASSWORD = "open sesame"
_API = "VELT.Core.Sharing"
_NO_SUCH_LINK = 1005
_KINDS = {
    "open": {"protect_title": "Open to everybody"},
    "password": {"protect_title": "Behind a password", "protect_type": "password", "protect_password": PASSWORD},
    "user": {"protect_title": "For bob", "protect_type": "user", "protect_users": ["bob"]},
    "expired": {"protect_title": "Expired", "expire_at": "2020-01-01 00:00:00"},
    "used_up": {"protect_title": "Used up", "expire_times": 1},
    "disabled": {"protect_title": "Switched off", "enabled": False},
    "pending": {"protect_title": "Not yet started", "start_at": "2099-01-01 00:00:00"},
    "redirect": {"protect_title": "Leads elsewhere", "redirect_type": "always",
                 "redirect_uri": "/pkg/photo-album/photos/lighthouse.svg"},
    "plugin": {"protect_title": "A photo album", "project_name": "photo-album",
               "app": {"title": "On the coast", "photos": ["harbour", "lighthouse"]}},
    "files": {"protect_title": "Files from the coast", "project_name": "files",
              "app": {"root": "home", "items": ["Coast"]}},
    "inbox": {"protect_title": "Upload files for alice", "project_name": "files",
              "app": {"root": "home", "items": ["Inbox"],
                      "upload": {"only": True, "max_size": 1 << 30, "max_files": 1000}}},
}


class Client:
    """Calls the API as one account, or as a visitor when none is given."""

    def __init__(self, port, account=None):
        self._port = port
        self._headers = {"Content-Type": "application/json"}
        if account:
            self._headers["Authorization"] = "Basic " + base64.b64encode(":".join(account).encode()).decode()

    def call(self, path, api, method, **params):
        """Returns the answer's JSON; OSError or ValueError when there is none."""
        connection = http.client.HTTPConnection("127.0.0.1", self._port, timeout=30)
        try:
            body = json.dumps({"api": api, "version": 1, "method": method, **params})
            connection.request("POST", path, body, self._headers)
            return json.loads(connection.getresponse().read())
        finally:
            connection.close()

    def own(self, method, **params):
        return self.call("/webapi/entry.cgi", _API, method, **params)


def title_of(kind):
    return _KINDS[kind]["protect_title"]


def ensure(owner, port, state):
    """Makes the links that are missing. Returns the ids by kind, and a list of failures."""
    path = os.path.join(state, "links.json")
    ids = read_texts(path) or {}
    failures = []
    for kind, fields in _KINDS.items():
        answer = owner.own("get", sharing_id=ids.get(kind, ""))
        if not answer["success"] and answer["error"]["code"] == _NO_SUCH_LINK:
            answer = owner.own("set", **{"project_name": "demo", **fields})
            if answer["success"]:
                ids[kind] = answer["data"]["sharing_id"]
                if kind == "used_up":
                    answer = Client(port).call(f"/sharing/{ids[kind]}/webapi", _API + ".Login", "login",
                                               sharing_id=ids[kind])
        if not answer["success"]:
            failures.append(f"{kind}: {answer['error']}")
    write_private(path, json.dumps(ids))
    return ids, failures
