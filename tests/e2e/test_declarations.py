"""The declarations of methods and the modules' code say the same. That parameters are refused as declared, and that
answers are as declared, is tested with the description that is made of the declarations (test_openapi.py).
"""

import collections
import ctypes
import glob
import json
import os
import re
import tempfile
import unittest
import urllib.parse

from demo import BUILD, REPOSITORY, Demo, declared_methods, door

# Values with which a handler gets as far as its last parameter.
DEEPER = {**{("VELT.Files", method): {"root": "home"}
             for method in ("list", "upload_begin", "upload_piece", "upload_state")},
          ("VELT.Files.Link", "list"): {"path": "0"},
          ("VELT.Files.Link", "get"): {"path": "0/Read me first.txt"},
          ("VELT.Files.Link", "thumbnail"): {"path": "0/Dawn.png"}}


class Row(ctypes.Structure):
    _fields_ = [("api", ctypes.c_char_p), ("version", ctypes.c_int32), ("method", ctypes.c_char_p),
                ("function", ctypes.c_void_p)]


class CheckRow(ctypes.Structure):
    _fields_ = [*Row._fields_, ("first", ctypes.c_void_p), ("second", ctypes.c_void_p)]


def rows_of(library, symbol, kind):
    function = getattr(library, symbol)
    function.restype = ctypes.POINTER(kind)
    table, found = function(), []
    while table[len(found)].api is not None:
        row = table[len(found)]
        found.append((row.api.decode(), row.version, row.method.decode()))
    return sorted(found)


class Tables(unittest.TestCase):
    def test_each_module_has_just_the_declared_methods(self):
        paths = glob.glob(os.path.join(BUILD, "lib/webapi.d/*.json"))
        self.assertGreater(len(paths), 2)
        for path in paths:
            with self.subTest(os.path.basename(path)):
                with open(path, encoding="utf-8") as file:
                    declared = json.load(file)
                library = ctypes.CDLL(os.path.join(os.path.dirname(path), declared["library"]))
                methods = sorted((row["api"], row["version"], row["method"]) for row in declared["methods"])
                self.assertEqual(methods, rows_of(library, "GetAPITable", Row))
                self.assertEqual(methods, rows_of(library, "GetAPICheckTable", CheckRow))

    def test_each_error_code_of_the_code_is_declared(self):
        codes = re.compile(r"\b(k\w+) = (\d{3,4}),")
        header = os.path.join(REPOSITORY, "platform/webapi/include/veltwebapi/ErrorCodes.h")
        with open(header, encoding="utf-8") as file:
            shared = {name: int(code) for name, code in codes.findall(file.read())}
        for folder in ("module", "apps/*"):
            named, told = set(), set()  # codes in the code, and of methods
            for path in glob.glob(os.path.join(REPOSITORY, folder, "*.[ch]*")):
                with open(path, encoding="utf-8") as file:
                    text = file.read()
                named |= {int(code) for _, code in codes.findall(text)}
                named |= {shared[name] for name in re.findall(r"\bkError\w+", text)}
            for path in glob.glob(os.path.join(REPOSITORY, folder, "webapi.d/*.json")):
                with open(path, encoding="utf-8") as file:
                    told |= {code for method in json.load(file)["methods"] for code in method["codes"]}
            self.assertGreater(len(named), 10)
            # A code of all methods, and the pre-checks', which a method may use too.
            self.assertEqual(told - {120}, named - {101, 120}, folder)


class Reads(unittest.TestCase):
    """The service notes which parameters it reads of calls that carry every declared one."""

    @classmethod
    def setUpClass(cls):
        handle, cls.reads = tempfile.mkstemp(prefix="velt-reads-")
        os.close(handle)
        cls.addClassCleanup(os.remove, cls.reads)
        os.chmod(cls.reads, 0o666)  # the workers have another account
        cls.demo = Demo(under=("env", f"LD_PRELOAD={BUILD}/lib/libnote_reads.so", f"VELT_READS={cls.reads}"))
        cls.addClassCleanup(cls.demo.stop)

    def send(self, method, values):
        call = {**values, **{name: method[name] for name in ("api", "version", "method")}}
        if {"anyone", "user"} & set(method["access"]) and method["method"] != "logout":
            return self.demo.request("POST", "/webapi/entry.cgi", call, account="alice")
        link = self.demo.links["inbox" if "upload" in method["method"] else "files"]
        visitor = self.demo.visitor(link)
        visitor.login()
        if "sharing_id" in call:
            call["sharing_id"] = link
        if "raw_body" not in method:
            return visitor.request("POST", door(call["api"], call["method"]), call)
        return visitor.request("POST", "/webapi?" + urllib.parse.urlencode(call), b"piece",
                               {"Content-Type": "application/octet-stream"})

    def test_what_is_declared_is_read_and_nothing_else(self):
        for method in (row for row in declared_methods() if "put" not in row):
            os.truncate(self.reads, 0)
            values = {row["name"]: value_of(row) for row in method["parameters"]}
            self.send(method, values | DEEPER.get((method["api"], method["method"]), {}))
            with open(self.reads, encoding="utf-8") as file:
                lines = [line.rstrip("\n").rsplit(" ", 2) for line in file]
            found = collections.Counter((name, how) for call, name, how in lines
                                        if call == f"{method['api']} {method['method']}")
            with self.subTest(method["api"], method=method["method"]):
                names = {row["name"] for row in method["parameters"]}
                self.assertEqual(names, {name for name, _ in found})
                for row in method["parameters"]:
                    # The check of a number of 64 bits has no reader of its own.
                    self.assertGreater(found[row["name"], "value"], row.get("format") == "int64", row["name"])
                    checked = not method.get("unchecked") and "type" in row
                    self.assertEqual(checked, found[row["name"], "check"] > 0, row["name"])


def value_of(parameter):
    """One that the check lets pass and with which the handler reads what depends on it."""
    if parameter.get("type") == "boolean":
        return True
    return parameter["examples"][0] if "examples" in parameter else parameter["default"]


if __name__ == "__main__":
    unittest.main()
