"""Reads the declarations of APIs, the files webapi.d/*.json of the modules (CONTRIBUTING.md describes them)."""

import json
import os


def read(path):
    with open(path, encoding="utf-8") as file:
        return json.load(file)


def write(path, text):
    with open(path + ".new", "w", encoding="utf-8") as file:
        file.write(text)
    os.replace(path + ".new", path)


class Declarations:
    """Several declarations, and what is common to all calls, as one."""

    def __init__(self, paths):
        framework = read(os.path.join(os.path.dirname(os.path.abspath(__file__)), "framework.json"))
        self.description, self.common_codes = framework["description"], framework["codes"]
        self.methods, self.schemas, self.errors = [], {}, {}
        for part in (framework, *map(read, paths)):
            self.methods += part.get("methods", [])
            for whole, more in ((self.schemas, part.get("schemas", {})), (self.errors, part.get("errors", {}))):
                if twice := whole.keys() & more.keys():
                    raise SystemExit(f"declared twice: {sorted(twice)}")
                whole |= more
        self.errors = {int(code): text for code, text in sorted(self.errors.items(), key=lambda row: int(row[0]))}
        for method in self.methods:
            if unknown := set(method["codes"]) - self.errors.keys():
                raise SystemExit(f"{method['api']} {method['method']} has codes that no \"errors\" tells of: {unknown}")
