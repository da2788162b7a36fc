"""Writes the C++ header of a declaration's parameters: header.py DECLARATION HEADER"""

import json
import os
import re
import sys

import declaration

HEADER = """\
// Made of {name} by api/header.py.
#pragma once

#include <tuple>

#include "veltapi/Parameters.h"

namespace VELT::params {{
{methods}
using AllMethods = MethodList<{names}>;

}}  // namespace VELT::params
"""
METHOD = """
struct {name} {{
  static constexpr const char* kApi = {api};
  static constexpr int kVersion = {version};
  static constexpr const char* kMethod = {method};
  static constexpr bool kIsChecked = {checked};
{rows}  // In the order in which the pre-check reports them.
  static constexpr auto kAll = std::make_tuple({all});
}};
"""
KINDS = {"string": "Text", "boolean": "Flag", "object": "Object", "array": "Texts", None: "Any"}


def camel(text):
    return "".join(word[:1].upper() + word[1:] for word in re.split(r"[^A-Za-z0-9]", text))


def kind_of(parameter):
    if parameter.get("type") == "integer":
        return "Size" if parameter.get("format") == "int64" else "Number"
    return KINDS[parameter.get("type")]


def literal(value):
    return json.dumps(value, ensure_ascii=False)


def members_of(parameter):
    yield "name", literal(parameter["name"])
    if kind_of(parameter) in ("Text", "Number", "Size", "Flag") and "default" in parameter:
        yield "fallback", literal(parameter["default"])
    if parameter.get("required"):
        yield "required", "true"
    if "minLength" in parameter:
        yield "filled", "true"
    if "enum" in parameter:
        yield "choices", literal(literal(parameter["enum"]))
    for keyword, member in (("minimum", "least"), ("maximum", "most"), ("maxItems", "most")):
        if keyword in parameter:
            yield member, literal(parameter[keyword])
    for other, value in parameter.get("needed_with", {}).items():
        yield "needed_with", literal(other)
        yield "needed_value", literal(value)


def row_of(parameter):
    members = ", ".join(f".{member} = {value}" for member, value in members_of(parameter))
    return f"  static constexpr {kind_of(parameter)} k{camel(parameter['name'])}{{{members}}};\n"


def name_of(method):
    return camel(re.sub(r"^VELT\.(Core\.)?", "", method["api"])) + camel(method["method"])


def method_of(method):
    return METHOD.format(
        name=name_of(method), api=literal(method["api"]), version=method["version"], method=literal(method["method"]),
        checked=literal(not method.get("unchecked", False)), rows="".join(map(row_of, method["parameters"])),
        all=", ".join("k" + camel(parameter["name"]) for parameter in method["parameters"]))


def main(path, header):
    methods = declaration.read(path)["methods"]
    declaration.write(header, HEADER.format(name=os.path.basename(path), methods="".join(map(method_of, methods)),
                                            names=", ".join(map(name_of, methods))))


if __name__ == "__main__":
    main(*sys.argv[1:])
