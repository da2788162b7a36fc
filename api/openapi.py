"""Writes the OpenAPI 3.1 description of the API: openapi.py VERSION OUTPUT DECLARATION..."""

import http
import json
import sys

import declaration

OWNER, VISITOR, STREAM = "/webapi/entry.cgi", "/sharing/{link}/webapi", "/sharing/{link}/stream"
FILE = "/sharing/{link}/{name}"
# A path stands for one operation of each verb, but all calls go to a few addresses. The part after the # only
# distinguishes the operations: no client sends it.
ADDRESSES = {OWNER: "user", VISITOR: "visitor", STREAM: "visitor", FILE: "visitor"}
TEXT = {"type": "string"}
KEYWORDS = ("type", "default", "enum", "pattern", "minLength", "maxLength", "minItems", "maxItems", "format", "minimum",
            "maximum", "description")
LIMITS = {"int32": (-1 << 31, (1 << 31) - 1), "int64": (0, (1 << 63) - 1)}


def record(optional=(), **members):
    """An object of exactly these members."""
    return {"type": "object", "properties": members, "required": [name for name in members if name not in optional],
            "additionalProperties": False}


def closed(schema):
    """The declared schema, in which an object has exactly the members that it names."""
    if isinstance(schema, list):
        return [closed(each) for each in schema]
    if not isinstance(schema, dict):
        return schema
    if isinstance(schema.get("properties"), dict):
        members = {name: closed(each) for name, each in schema["properties"].items()}
        return record(schema.get("optional", ()), **members)
    return {name: closed(each) for name, each in schema.items()}


def schema_of(parameter):
    schema = {name: parameter[name] for name in KEYWORDS if name in parameter}
    if schema.get("type") == "array":
        schema["items"] = TEXT
    if schema.get("type") == "integer":
        least, most = LIMITS[schema.setdefault("format", "int32")]
        schema = {**schema, "minimum": schema.get("minimum", least), "maximum": schema.get("maximum", most)}
    return schema


def request_of(method):
    """The schema of a call's body, and an example."""
    example = {name: method[name] for name in ("api", "version", "method")}
    properties = {name: {"const": value, "default": value} for name, value in example.items()}
    rules = []
    for parameter in method["parameters"]:
        name = parameter["name"]
        properties[name] = schema_of(parameter)
        if parameter.get("required"):
            example[name] = parameter["examples"][0]
        for other, value in parameter.get("needed_with", {}).items():
            rules.append({"if": {"properties": {other: {"const": value}}, "required": [other]},
                          "then": {"properties": {name: {"minLength": 1}}, "required": [name]}})
    schema = {"type": "object", "properties": properties, "required": list(example)}
    return schema | ({"allOf": rules} if rules else {}), example


def body_of(method, schema, example):
    if "raw_body" in method:
        raw = {"type": "string", "format": "binary", "maxLength": method["raw_body"]}
        return {"required": True, "content": {"application/octet-stream": {"schema": raw}}}
    content = {"application/json": {"schema": schema, "example": example},
               "application/x-www-form-urlencoded": {"schema": schema, "example": example}}
    # In a form, what is no text is written as JSON.
    encoded = {name: {"contentType": "application/json"} for name, value in schema["properties"].items()
               if "const" not in value and value.get("type") != "string"}
    if encoded:
        content["application/x-www-form-urlencoded"]["encoding"] = encoded
    return {"required": True, "content": content}


def failure(codes, errors):
    code = {"oneOf": [{"const": code, "description": errors[code]} for code in sorted(codes)]}
    error = {"type": "object", "properties": {"code": code, "errors": {"description": "the detail"}},
             "required": ["code", "errors"], "additionalProperties": False}
    return record(error=error, success={"const": False})


def responses_of(method, address, declared):
    result = closed(method["result"])
    refused = failure({*declared.common_codes, *method["codes"]}, declared.errors)
    refusal = {"application/json": {"schema": refused}}
    if isinstance(result, str):
        answer = {"description": "What was asked for, or why not.", "content": {result: {"schema": TEXT}, **refusal}}
    else:
        data = record(("data",) if result == {"type": "null"} else (), data=result, success={"const": True})
        answer = {"description": "The answer, or why there is none.",
                  "content": {"application/json": {"schema": {"oneOf": [data, refused]}}}}
    if "sets_cookie" in method:
        answer["headers"] = {"Set-Cookie": {"description": method["sets_cookie"], "schema": TEXT}}
    responses = {"200": answer}
    for status in method.get("statuses", ()):
        responses[str(status)] = {"description": http.HTTPStatus(status).phrase, "content": refusal}
    if address == OWNER:
        responses["401"] = {"description": "No account, or a wrong password."}
    responses["413"] = {"description": "Much too large.", "content": refusal}
    responses["500"] = {"description": "The worker died."}
    responses["504"] = {"description": "It took too long."}
    return responses


def security_of(method, address):
    if address == OWNER:
        ways = [{"session": []}, {"token": []}, {"account": []}]
        return [*ways, {}] if "anyone" in method["access"] else ways
    return [{"visit": []}] if "visitor" not in method["access"] else [{"visit": []}, {}]


def put_of(method):
    """The operation of a file that is sent whole, whose answers are lines of text."""
    parts = {"link": "the link's id"} | {row["name"]: row["description"] for row in method["parameters"]}
    return {
        "tags": [method["api"]], "operationId": f"{ADDRESSES[FILE]}.{method['api']}.{method['method']}",
        "summary": f"{method['api']} {method['method']}", "description": method["summary"],
        "security": [{"visit": []}, {"account": []}, {}],
        "parameters": [{"name": name, "in": "path", "required": True, "schema": TEXT, "description": description}
                       for name, description in parts.items()],
        "requestBody": {"required": True, "content": {"*/*": {"schema": {"type": "string", "format": "binary"}}}},
        "responses": {str(status): {"description": http.HTTPStatus(status).phrase,
                                    "content": {method["result"]: {"schema": TEXT}}}
                      for status in method["statuses"]}}


def operation_of(method, address, declared):
    if address == FILE:
        return put_of(method)
    schema, example = request_of(method)
    notes = [method["summary"],
             "Needs POST." if method.get("post_only") else "GET with the parameters in the query does as well."]
    if "raw_body" in method:
        names = ", ".join(f"`{name}`" for name in schema["properties"])
        notes.append(f"The parameters are in the query: {names}.")
    operation = {
        "tags": [method["api"]], "operationId": f"{ADDRESSES[address]}.{method['api']}.{method['method']}",
        "summary": f"{method['api']} {method['method']}", "description": "\n\n".join(notes),
        "security": security_of(method, address), "requestBody": body_of(method, schema, example),
        "responses": responses_of(method, address, declared)}
    if address != OWNER:
        operation["parameters"] = [{"name": "link", "in": "path", "required": True, "schema": TEXT,
                                    "description": "the link's id"}]
    return operation


def addresses_of(method):
    if {"anyone", "user"} & set(method["access"]):
        yield OWNER
    if "put" in method:
        yield FILE
    elif {"visitor", "token"} & set(method["access"]):
        yield STREAM if method.get("pool") == "stream" else VISITOR


def describe(declared, version):
    return {
        "openapi": "3.1.0",
        "info": {"title": "Share links", "version": version, "description": declared.description,
                 "license": {"name": "Apache-2.0", "identifier": "Apache-2.0"}},
        "servers": [{"url": "/"}],
        # Links first, since they are what most programs are for.
        "tags": [{"name": api} for api in sorted(dict.fromkeys(method["api"] for method in declared.methods),
                                                 key=lambda api: api != "VELT.Core.Sharing")],
        "paths": {f"{address}#{method['api']}.{method['method']}": {
                      "put" if address == FILE else "post": operation_of(method, address, declared)}
                  for method in declared.methods for address in addresses_of(method)},
        "components": {"schemas": closed(declared.schemas), "securitySchemes": {
            "session": {"type": "apiKey", "in": "cookie", "name": "velt_owner_sid", "description": "set by login"},
            "token": {"type": "http", "scheme": "bearer", "description": "made by token_create"},
            "account": {"type": "http", "scheme": "basic", "description": "where it is switched on"},
            "visit": {"type": "apiKey", "in": "cookie", "name": "sharing_sid", "description": "set by login"}}},
    }


def main(version, output, *paths):
    description = describe(declaration.Declarations(paths), version)
    declaration.write(output, json.dumps(description, indent=1, ensure_ascii=False))


if __name__ == "__main__":
    main(*sys.argv[1:])
