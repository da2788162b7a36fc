"""Puts what the declarations say into a page, between the lines "<!-- declared: API METHOD -->" and "<!-- end -->":
reference.py [--check] PAGE DECLARATION...

"schema NAME" and "errors" can stand there too. A method without a place gets one. With --check nothing is written; the
status is 1 if the page is not what it would be.
"""

import json
import re
import sys

import declaration

CALLERS = {"anyone": "whoever calls", "user": "owners", "visitor": "visitors", "token": "visitors with a visit"}
TYPES = {"string": "text", "integer": "number", "array": "array of texts", None: "any value"}
PLACE = re.compile(r"(<!-- declared: (.*?) -->\n)(.*?)(<!-- end -->)", re.S)


def table(*rows):
    head, *rest = (f"| {' | '.join(cells)} |".replace("|  |", "| |") for cells in rows)
    return "\n".join([head, "|---" * len(rows[0]) + "|", *rest])


def listing(words):
    return ", ".join(f"`{word}`" if word else '`""`' for word in words)


def type_of(schema):
    if "$ref" in schema:
        return f"`{schema['$ref'].rpartition('/')[2]}`"
    if "enum" in schema:
        return listing(schema["enum"])
    if "pattern" in schema:
        return listing(schema["examples"])
    if schema.get("type") == "array" and "items" in schema:
        return f"array of {type_of(schema['items'])}s"
    return TYPES.get(schema.get("type"), schema.get("type"))


def default_of(parameter):
    if parameter.get("required"):
        return "needed"
    default = parameter["default"]
    return f"`{default if default and isinstance(default, str) else json.dumps(default)}`"


def note_of(parameter):
    limits = [f"at most {parameter[keyword]}" for keyword in ("maximum", "maxItems") if keyword in parameter]
    limits += ["not empty"] * ("minLength" in parameter)
    return "; ".join(filter(None, [parameter.get("description"), *limits]))


def answer_of(result):
    if isinstance(result, str):
        return f"The answer is of the type `{result}`."
    if "properties" not in result:
        return f"The answer is a {type_of(result)}." if "$ref" in result else ""
    if not result["properties"]:
        return "The answer is empty."
    optional = result.get("optional", [])
    answer = f"The answer has {listing(name for name in result['properties'] if name not in optional)}"
    return answer + (f", and where there is one {listing(optional)}." if optional else ".")


def text_of_method(method):
    who = "For " + " and ".join(CALLERS[level] for level in method["access"])
    who += ", at `/sharing/<id>/stream`" * (method.get("pool") == "stream")
    if "put" in method:
        who += ", by PUT at `/sharing/<id>/<name>`"
    about = f"{who}{', by POST only' * method.get('post_only', False)}. {answer_of(method['result'])}"
    if "raw_body" in method:
        about += (f" The body is at most {method['raw_body']} bytes (`application/octet-stream`), "
                  "the parameters are in the query.")
    parts = [method["summary"], f"{about.strip()} Errors: {', '.join(map(str, method['codes'])) or 'none of its own'}."]
    if method["parameters"]:
        parts.append(table(("parameter", "type", "default", ""), *(
            (f"`{row['name']}`", type_of(row), default_of(row), note_of(row)) for row in method["parameters"])))
    return "\n\n".join(parts)


def text_of(place, declared):
    if place == "errors":
        return table(("code", ""), *((str(code), text) for code, text in declared.errors.items()))
    name, _, method = place.partition(" ")
    if name == "schema":
        rows = declared.schemas[method]["properties"].items()
        return table(("member", "type", ""), *((f"`{member}`", type_of(schema), schema.get("description", ""))
                                               for member, schema in rows))
    return text_of_method(next(row for row in declared.methods if (row["api"], row["method"]) == (name, method)))


def with_places(page, declared):
    """The page with a section before the last one for each method that has no place."""
    places = {place[2] for place in PLACE.finditer(page)}
    names = (f"{row['api']} {row['method']}" for row in declared.methods)
    new = [f"## {name.replace(' ', ', ')}\n\n<!-- declared: {name} -->\n<!-- end -->\n\n" for name in names
           if name not in places]
    head, heading, tail = page.rpartition("## ")
    return "".join([head, *new, heading, tail])


def main(*arguments):
    check = arguments[0] == "--check"
    page, *paths = arguments[check:]
    declared = declaration.Declarations(paths)
    with open(page, encoding="utf-8") as file:
        old = file.read()
    new = PLACE.sub(lambda place: f"{place[1]}{text_of(place[2], declared)}\n{place[4]}", with_places(old, declared))
    if not check:
        declaration.write(page, new)
    elif new != old:
        sys.exit(f"{page} is not what the declarations say. Call api/reference.py without --check.")


if __name__ == "__main__":
    main(*sys.argv[1:])
