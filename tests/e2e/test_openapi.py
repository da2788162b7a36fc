"""The description of the API: valid, shown as a page, and true of the running service.

Requests are generated from it: for each parameter values that it allows and others that it doesn't, and calls with
several of either, from a fixed seed. The service must take the ones and refuse the others as described.
"""

import json
import os
import random
import unittest
import urllib.parse

import jsonschema

from demo import REPOSITORY, Demo
from webdriver import Browser

CALL = ("api", "version", "method")
# Of every type, for the parameters that are of another.
OF_EACH_TYPE = (None, True, 7, 1.5, "text", [], [1], {}, {"a": [1]})
TEXTS = ("", "bob", "a b&c=d+%41", "'; drop table link; --", "Ünïcödé 名前 \U0001f517", "../../etc/passwd",
         "x" * 5000)
MIXED_CALLS = 12  # of each operation
WRONG_TYPE_OR_VALUE, UNUSABLE, NOT_ALLOWED, NOT_STORED = 120, 101, 105, 117
UNEXPECTED = (100, 106)


def setUpModule():
    global DEMO, DESCRIPTION
    DEMO = Demo()
    unittest.addModuleCleanup(DEMO.stop)
    DESCRIPTION = DEMO.request("GET", "/webapi/openapi.json").json


def operations():
    return [Operation(path, verbs["post"]) for path, verbs in DESCRIPTION["paths"].items() if "post" in verbs]


def accepts(schema, value):
    """Whether the schema, whose references lead into the description, allows the value."""
    resolver = jsonschema.RefResolver("", DESCRIPTION)
    return jsonschema.Draft202012Validator(schema, resolver=resolver).is_valid(value)


class Operation:
    """One operation of the description, ready to be called."""

    def __init__(self, path, description):
        self.address, _, self.name = path.partition("#")
        self.responses = description["responses"]
        content = description["requestBody"]["content"]
        self.is_raw = "application/octet-stream" in content
        self.schema = {} if self.is_raw else content["application/json"]["schema"]
        self.parameters = {name: schema for name, schema in self.schema.get("properties", {}).items()
                           if name not in CALL}
        self.example = {} if self.is_raw else content["application/json"]["example"]
        self.is_owners = self.address == "/webapi/entry.cgi"
        self.is_judged = WRONG_TYPE_OR_VALUE in self.codes()
        self._visitor = None

    def codes(self):
        refusal = self.responses["413"]["content"]["application/json"]["schema"]
        return {code["const"] for code in refusal["properties"]["error"]["properties"]["code"]["oneOf"]}

    def call_with(self, **values):
        """The example's call, of what there is, with these values; `...` leaves one out."""
        call = dict(self.example)
        if "sharing_id" in call:
            call["sharing_id"] = DEMO.create() if self.name.endswith("delete") else self.link()
        call |= values
        return {name: value for name, value in call.items() if value is not ...}

    def link(self):
        files = {True: "inbox", False: "files"}["upload" in self.name]
        return DEMO.links[files if "Files" in self.name else "open"]

    def send(self, call, form=False):
        body, headers = json.dumps(call), {"Content-Type": "application/json"}
        if form:
            texts = {name: value if isinstance(value, str) else json.dumps(value) for name, value in call.items()}
            body, headers = urllib.parse.urlencode(texts), {"Content-Type": "application/x-www-form-urlencoded"}
        if self.is_owners:
            if self.name.endswith(("SignIn.logout", "SignIn.login")):
                DEMO.forget_session("alice")
            return DEMO.request("POST", self.address, body, headers, "alice")
        if self._visitor is None or self.name.endswith("logout"):
            self._visitor = DEMO.visitor(self.link())
            assert self._visitor.login()["success"]
        return self._visitor.request("POST", self.address.removeprefix("/sharing/{link}"), body, headers)


class Described(unittest.TestCase):
    def test_is_valid(self):
        with open(os.path.join(REPOSITORY, "tests/e2e/openapi-3.1.schema.json"), encoding="utf-8") as file:
            jsonschema.Draft202012Validator(json.load(file)).validate(DESCRIPTION)
        for verbs in DESCRIPTION["paths"].values():
            operation, = verbs.values()
            for part in (operation["requestBody"], *operation["responses"].values()):
                for content in part.get("content", {}).values():
                    jsonschema.Draft202012Validator.check_schema(content["schema"])

    def test_the_page_calls_a_method(self):
        if DEMO.request("GET", "/webapi/docs/swagger-ui.css").status == 404:
            self.skipTest("built without the viewer")
        with Browser() as browser:
            browser.open(DEMO.url + "/webapi/docs/#/VELT.Core.Sharing/user.VELT.Core.Sharing.set", DEMO.login("alice"))
            browser.wait_for(".opblock.is-open .try-out__btn").click()
            browser.wait_for(".opblock.is-open .execute").click()
            browser.wait_text('"success": true', ".opblock.is-open .live-responses-table")
            self.assertEqual([], browser.console())


class Service(unittest.TestCase):
    """Answers to generated requests."""

    def ask(self, operation, call, form=False):
        """Sends the call and returns the answer's code, 0 for success, after a look at what every answer must be."""
        answer = operation.send(call, form)
        told = (f"{operation.address} {operation.name} {json.dumps(call)[:300]} form={form}: "
                f"{answer.status} {answer.body[:300]}")
        self.assertLess(answer.status, 500, told)
        self.assertIn(str(answer.status), operation.responses, told)
        content = operation.responses[str(answer.status)]["content"]
        kind = answer.headers["content-type"].partition(";")[0]
        self.assertTrue(kind in content or "*/*" in content, told)
        if kind != "application/json":
            return 0, told
        self.assertTrue(accepts(content[kind]["schema"], answer.json), told)
        return (0, told) if answer.json["success"] else (answer.json["error"]["code"], told)

    def check(self, operation, call, form=False):
        """The service takes the call just when the description does."""
        code, told = self.ask(operation, call, form)
        if operation.is_owners and operation.name.endswith("Sharing.logout"):
            self.assertIn(code, (UNUSABLE, UNEXPECTED[0]), told)
        # A visitor's address has the last word on its link.
        elif code == NOT_ALLOWED:
            self.assertFalse(operation.is_owners, told)
            self.assertNotIn(call["sharing_id"], ("", operation.link()), told)
        elif accepts(operation.schema, call):
            self.assertNotIn(code, (WRONG_TYPE_OR_VALUE, UNUSABLE, *UNEXPECTED), told)
        elif operation.is_judged:
            # A text's form is judged by the store.
            has_form = any("pattern" in operation.parameters.get(name, {}) for name in call)
            self.assertIn(code, (WRONG_TYPE_OR_VALUE, NOT_STORED) if has_form else (WRONG_TYPE_OR_VALUE,), told)

    def test_good_and_bad_values_of_each_parameter(self):
        for operation in operations():
            for name, schema in operation.parameters.items():
                calls = [(operation.call_with(**{name: value}), False)
                         for value in (*values_of(schema), *OF_EACH_TYPE, ...)]
                # In a form every value is a text to begin with.
                calls += [(operation.call_with(**{name: value}), True)
                          for value in values_of(schema) if accepts(schema, value)]
                if schema.get("type", "string") != "string":
                    calls.append((operation.call_with(**{name: "no JSON"}), True))
                for call, form in calls:
                    with self.subTest(operation.name, parameter=name, value=str(call.get(name))[:40], form=form):
                        self.check(operation, call, form)

    def test_mixed_calls(self):
        choose = random.Random(20300131)
        for operation in operations():
            for _ in range(MIXED_CALLS * bool(operation.parameters)):
                values = {name: choose.choice((..., ..., *values_of(schema), *values_of(schema), *OF_EACH_TYPE))
                          for name, schema in operation.parameters.items() if name != "sharing_id"}
                with self.subTest(operation.name):
                    self.check(operation, operation.call_with(**values))

    def test_what_is_no_call(self):
        for operation in operations():
            if operation.is_raw:
                continue
            for code, wrong in ((102, {"api": "None"}), (104, {"version": 2}), (104, {"version": "1.0"}),
                                (103, {"method": "none"}), (102, {"api": 1}), (103, {"method": None})):
                with self.subTest(operation.name, **wrong):
                    self.assertEqual(code, self.ask(operation, operation.call_with(**wrong))[0])


def values_of(schema):
    """Values at and beyond the limits of a parameter, good and bad."""
    kind = schema.get("type")
    if "enum" in schema:
        return (*schema["enum"], schema["enum"][0].swapcase(), " ".join(schema["enum"]), "")
    if "pattern" in schema:
        return ("", "2030-01-31 12:00:00", "2030-1-31 12:00:00", "2030-01-31", "2030-01-31 12:00:00 ", "tomorrow")
    if kind == "integer":
        limits = [schema["minimum"], schema.get("maximum", (1 << 63) - 1)]
        return (*limits, limits[0] - 1, limits[1] + 1, 0, 1, -1, 1 << 70, 2.0)
    return {"string": TEXTS, "boolean": (True, False, "true"), "array": ([], ["bob"], ["bob", 3], [None], ["x"] * 300),
            "object": ({}, {"a": {"b": [1, "é"]}})}.get(kind, TEXTS)


if __name__ == "__main__":
    unittest.main()
