"""Writes the OpenAPI 3.1 description of the API: openapi.py PARAMETERS API-PAGE VERSION OUTPUT REGISTRY...

The methods and their callers come from the registry files, the parameters from PARAMETERS (the output of the program
velt-openapi-parameters), and the texts from docs/api.md. Only the answers are described here; a test compares them with
those of the running service.
"""

import json
import os
import re
import sys

OWNER, VISITOR = "/webapi/entry.cgi", "/sharing/{link}/webapi"
# A path stands for one operation of each verb, but all calls go to two addresses. The part after the # only
# distinguishes the operations: no client sends it.
ADDRESSES = {OWNER: "user", VISITOR: "visitor"}
COMMON_CODES = (100, 101, 102, 103, 104, 105, 106)

TEXT, FLAG, NUMBER = {"type": "string"}, {"type": "boolean"}, {"type": "integer"}
TEXTS = {"type": "array", "items": TEXT}
LINK_ANSWER = {"$ref": "#/components/schemas/Link"}
FILE_ANSWER = {"$ref": "#/components/schemas/File"}


def record(optional=(), **members):
    """An object of exactly these members."""
    return {"type": "object", "properties": members, "required": [name for name in members if name not in optional],
            "additionalProperties": False}


def rows(**members):
    return {"type": "array", "items": record(**members)}


UPLOAD_RULE = record(("max_size", "max_files"), only=FLAG, max_size=NUMBER, max_files=NUMBER)
FILE = dict(name=TEXT, path=TEXT, type={"enum": ["folder", "file"]}, time=NUMBER, size=NUMBER,
            kind={"enum": ["image", "pdf", "text", "audio", "video", ""]})
SCHEMAS = {
    "Link": record(
        ("qrcode",), sharing_id=TEXT, project_name=TEXT, owner_uid=NUMBER, owner_user=TEXT, enabled=FLAG, auto_gc=FLAG,
        enable_match_ip=FLAG, start_at=TEXT, expire_at=TEXT, expire_times=NUMBER, visits=NUMBER,
        protect_type={"enum": ["none", "password", "user"]}, protect_title=TEXT, has_password=FLAG, protect_users=TEXTS,
        protect_groups=TEXTS, redirect_type={"enum": ["none", "url_param", "always"]}, redirect_uri=TEXT,
        app={"type": "object"}, created_at=TEXT,
        status={"enum": ["active", "pending", "disabled", "expired", "used_up"]}, url=TEXT, qrcode=TEXT),
    "File": record(("size", "kind"), **FILE),
}
LISTING = dict(total=NUMBER, entries={"type": "array", "items": FILE_ANSWER})
OF_A_VISIT = (1000, 1006, 1008, 2003, 2009)
OF_A_FILE = (*OF_A_VISIT, 2001, 2002)
OF_AN_UPLOAD = (*OF_A_VISIT, 2001, 2004, 2005, 2006)
# What a method answers with, and the codes of its own; of a file, the HTTP statuses of its errors.
ANSWERS = {
    "VELT.Core.Sharing": {
        "set": (record(("qrcode",), sharing_id=TEXT, url=TEXT, qrcode=TEXT), (117, 120, 1005, 1007, 1009, 1010, 1011)),
        "get": (LINK_ANSWER, (117, 120, 1005, 1006, 1007)),
        "delete": ({"const": ""}, (117, 120, 1005, 1007)),
        "list": (record(total=NUMBER, offset=NUMBER, limit=NUMBER, sharings={"type": "array", "items": LINK_ANSWER}),
                 (117, 120)),
        "trigger_gc": ({"const": ""}, (117, 120)),
        "logout": ({"type": "null"}, (1004,)),
    },
    "VELT.Core.Sharing.Login": {
        "login": (record(sharing_sid=TEXT, private={"description": "of the application's plugin"}),
                  (117, 120, 1000, 1001, 1002, 1003, 1008, 1012)),
    },
    # The script calls itself application/javascript; web servers may correct that.
    "VELT.Core.Sharing.Session": {"get": ("text/javascript", ())},
    "VELT.Core.Sharing.Initdata": {"get": ({"type": "object"}, (120,))},
    "VELT.Visits": {
        "list": (record(visits={"type": "object", "additionalProperties": {
            "type": "array", "items": NUMBER, "minItems": 90, "maxItems": 90}}), (117, 120)),
    },
    "VELT.Files": {
        "roots": (record(roots=rows(name=TEXT, title=TEXT)), (2000, 2009)),
        "list": (record(**LISTING), (120, 2000, 2001, 2002, 2009)),
        "describe": (record(("upload",), root=TEXT, title=TEXT, upload=UPLOAD_RULE,
                            items=rows(optional=("type", "time", "size", "kind"), missing=FLAG, **FILE)),
                     (120, 1000, 1005, 1007, 2000, 2003, 2009)),
    },
    "VELT.Files.Link": {
        "list": (record(upload={"oneOf": [UPLOAD_RULE, {"type": "null"}]}, **LISTING), (120, *OF_A_FILE)),
        "get": ("*/*", (120, *OF_A_FILE, 1012)),
        "zip": ("application/zip", (120, *OF_A_FILE, 1012)),
        "thumbnail": ("image/jpeg", (120, *OF_A_FILE, 2010)),
        "upload_begin": (record(("upload", "name"), upload=TEXT, offset=NUMBER, name=TEXT), (120, *OF_AN_UPLOAD)),
        "upload_piece": (record(("name",), offset=NUMBER, name=TEXT), (120, *OF_AN_UPLOAD, 2007, 2008)),
        "upload_state": (record(("name",), offset=NUMBER, size=NUMBER, name=TEXT), (120, *OF_A_VISIT, 2004, 2008)),
    },
}
FILE_STATUSES = {"403": "No visit.", "404": "Nothing there.", "410": "The link's visits are used up.",
                 "503": "Files can't be sent."}
# Conditions of values that no parameter list can say: see SharingAPIChecks.cpp.
PASSWORD_IS_NEEDED = {
    "if": {"properties": {"protect_type": {"const": "password"}}, "required": ["protect_type"]},
    "then": {"properties": {"protect_password": {"minLength": 1}}, "required": ["protect_password"]}}


class Page:
    """The words of docs/api.md."""

    def __init__(self, path):
        self.methods, self.parameters, self.errors = {}, {}, {}
        api = heading = None
        with open(path, encoding="utf-8") as file:
            for line in file:
                if line.startswith("#"):
                    title = line.lstrip("#").strip()
                    name, _, method = title.partition(", ")
                    api = api if line.startswith("###") else name
                    heading = (api, title if line.startswith("###") else method)
                elif line.startswith("|"):
                    self._read_row(heading, [cell.strip() for cell in line.strip().strip("|").split("|")])
                elif line.strip() and heading:
                    self.methods[heading] = f"{self.methods.get(heading, '')}{line}"
                elif heading in self.methods:
                    self.methods[heading] += "\n"

    def _read_row(self, heading, cells):
        if cells[0][:3].isdigit():
            for code in re.findall(r"\d+", cells[0]):
                self.errors[int(code)] = cells[1]
        elif len(cells) == 4:
            for name in re.findall(r"`(\w+)`", cells[0]):
                self.parameters[*heading, name] = cells[3]


def schema_of(parameter):
    kinds = {"text": TEXT, "flag": FLAG, "number": NUMBER, "object": {"type": "object"}, "texts": TEXTS, "any": {}}
    schema = dict(kinds[parameter["type"]])
    if "choices" in parameter:
        schema["enum"] = parameter["choices"]
    if "form" in parameter:
        schema["pattern"] = "^(" + parameter["form"].replace("d", "[0-9]") + ")?$"
    if "least" in parameter:
        schema |= {"format": "int64" if parameter["most"] >> 31 else "int32", "minimum": parameter["least"],
                   "maximum": parameter["most"]}
    elif "most" in parameter:
        schema["maxItems"] = parameter["most"]
    if "default" in parameter:
        schema["default"] = parameter["default"]
    return schema


def request_of(api, version, method, parameters, page):
    """The schema of a call's body."""
    properties = {name: {"const": value, "default": value}
                  for name, value in (("api", api), ("version", version), ("method", method))}
    for parameter in parameters:
        name = parameter["name"]
        properties[name] = schema_of(parameter)
        words = page.parameters.get((api, method, name))
        if words:
            properties[name]["description"] = words
    needed = [parameter["name"] for parameter in parameters if parameter["required"]]
    schema = {"type": "object", "properties": properties, "required": ["api", "version", "method", *needed]}
    if (api, method) == ("VELT.Core.Sharing", "set"):
        properties["project_name"]["minLength"] = 1
        schema |= PASSWORD_IS_NEEDED
    example = {"api": api, "version": version, "method": method, **{name: example_of(name) for name in needed}}
    return schema, example


def example_of(name):
    return {"project_name": "demo", "sharing_id": "LINK", "sharing_ids": ["LINK"], "path": "0", "name": "note.txt",
            "size": 5, "offset": 0, "upload": "UPLOAD"}[name]


def body_of(row, schema, example):
    properties = schema["properties"]
    # In a form, what is no text is written as JSON.
    encoded = {name: {"contentType": "application/json"} for name, value in properties.items()
               if "const" not in value and value.get("type") != "string"}
    content = {"application/json": {"schema": schema, "example": example},
               "application/x-www-form-urlencoded": {"schema": schema, "example": example}}
    if encoded:
        content["application/x-www-form-urlencoded"]["encoding"] = encoded
    if "raw_body" in row:
        content = {"application/octet-stream": {"schema": {"type": "string", "format": "binary",
                                                           "maxLength": row["raw_body"]}}}
    return {"required": True, "content": content}


def failure(codes, page):
    code = {"oneOf": [{"const": code, "description": page.errors.get(code, "")} for code in sorted(set(codes))]}
    error = {"type": "object", "properties": {"code": code, "errors": {"description": "the detail"}},
             "required": ["code", "errors"], "additionalProperties": False}
    return record(error=error, success={"const": False})


def responses_of(row, address, page):
    unknown = ({}, tuple(page.errors))
    answer, codes = ANSWERS.get(row["api"], {}).get(row["method"], unknown)
    refused = failure((*COMMON_CODES, *codes), page)
    refusal = {"application/json": {"schema": refused}}
    responses = {}
    if isinstance(answer, str):
        responses["200"] = {"description": "What was asked for, or why not.",
                            "content": {answer: {"schema": TEXT}, **refusal}}
        if "javascript" not in answer:
            responses |= {status: {"description": text, "content": refusal} for status, text in FILE_STATUSES.items()}
    else:
        data = record(("data",) if answer == {"type": "null"} else (), data=answer, success={"const": True})
        responses["200"] = {"description": "The answer, or why there is none.",
                            "content": {"application/json": {"schema": {"oneOf": [data, refused]}}}}
    if row["method"] == "login":
        responses["200"]["headers"] = {"Set-Cookie": {"description": "the visit", "schema": TEXT}}
    if address == OWNER:
        responses["401"] = {"description": "No account, or a wrong password."}
    responses["413"] = {"description": "Much too large.", "content": refusal}
    responses["500"] = {"description": "The worker died."}
    responses["504"] = {"description": "It took too long."}
    return responses


def security_of(row, address):
    if address == OWNER:
        return [{"account": []}]
    return [{"visit": []}] if "visitor" not in row["access"] else [{"visit": []}, {}]


def operation_of(row, address, parameters, page):
    api, method = row["api"], row["method"]
    schema, example = request_of(api, row["version"], method, parameters, page)
    words = page.methods.get((api, method), "").strip()
    notes = ["Needs POST." if row.get("post_only") else "GET with the parameters in the query does as well."]
    if "raw_body" in row:
        notes.append("The parameters are in the query: " + ", ".join(f"`{name}`" for name in schema["properties"])
                     + ".")
    operation = {
        "tags": [api], "operationId": f"{ADDRESSES[address]}.{api}.{method}", "summary": f"{api} {method}",
        "description": "\n\n".join([*filter(None, [words]), *notes]), "security": security_of(row, address),
        "requestBody": body_of(row, schema, example), "responses": responses_of(row, address, page)}
    if address == VISITOR:
        operation["parameters"] = [{"name": "link", "in": "path", "required": True, "schema": TEXT,
                                    "description": "the link's id"}]
    return operation


def addresses_of(row):
    if "user" in row["access"]:
        yield OWNER
    if "visitor" in row["access"] or "token" in row["access"]:
        yield VISITOR


def tag_of(api, page):
    words = page.methods.get((api, ""), "").strip()
    return {"name": api, "description": words} if words else {"name": api}


def describe(parameters, page, version, registry):
    paths = {}
    for row in registry:
        try:
            read = parameters[row["api"]][row["method"]]
        except KeyError:
            sys.exit(f"openapi.py: {row['api']} {row['method']} is missing in tools/openapi/Parameters.cpp")
        for address in addresses_of(row):
            paths[f"{address}#{row['api']}.{row['method']}"] = {"post": operation_of(row, address, read, page)}
    return {
        "openapi": "3.1.0",
        "info": {"title": "Share links", "version": version,
                 "license": {"name": "Apache-2.0", "identifier": "Apache-2.0"},
                 "description": page.methods.get(("The web API", ""), "").strip() + "\n\nThe part after the # of a "
                 "path only distinguishes the methods: it is not sent."},
        "servers": [{"url": "/"}],
        "tags": [tag_of(api, page) for api in dict.fromkeys(row["api"] for row in registry)],
        "paths": paths,
        "components": {"schemas": SCHEMAS, "securitySchemes": {
            "account": {"type": "http", "scheme": "basic", "description": "an account of the appliance"},
            "visit": {"type": "apiKey", "in": "cookie", "name": "sharing_sid", "description": "set by login"}}},
    }


def read(path):
    with open(path, encoding="utf-8") as file:
        return json.load(file)


def main(parameters, page, version, output, *registry):
    methods = [row for path in registry for row in read(path)["methods"]]
    description = describe(read(parameters), Page(page), version, methods)
    with open(output + ".new", "w", encoding="utf-8") as file:
        json.dump(description, file, indent=1, ensure_ascii=False)
    os.replace(output + ".new", output)


if __name__ == "__main__":
    main(*sys.argv[1:])
