"""Compares the includes of all sources with the table in docs/architecture.md: check_includes.py REPOSITORY

A folder may include its own headers and those of the folders that its row names; the rows may form no circle.
"""

import graphlib
import os
import re
import subprocess
import sys

INCLUDE = re.compile(r'^#include "(.+)"', re.MULTILINE)
PUBLIC = ["api", "platform/system", "platform/store", "platform/webapi", "platform/webui", "sharing"]


def arrows_of(page):
    table = page.split("What a folder may include")[1].split("\n\n")[1]
    rows = re.findall(r"^\| `([\w/-]+)` \|(.*)\|$", table, re.MULTILINE)
    return {folder: set(re.findall(r"`([\w/-]+)`", others)) for folder, others in rows}


def folder_of(path, folders):
    return max((folder for folder in folders if path.startswith(folder + "/")), key=len, default=None)


def path_of(include, files):
    places = ["", *(f"{folder}/{kind}/" for folder in PUBLIC for kind in ("include", "include-host"))]
    return next((place + include for place in places if place + include in files), None)


def faults(repository):
    listed = subprocess.run(["git", "-C", repository, "ls-files", "*.h", "*.cpp"], check=True, capture_output=True,
                            text=True).stdout.split()
    with open(os.path.join(repository, "docs/architecture.md"), encoding="utf-8") as file:
        arrows = arrows_of(file.read())
    try:
        graphlib.TopologicalSorter(arrows).prepare()
    except graphlib.CycleError as circle:
        yield "the table has a circle: " + " -> ".join(circle.args[1])
    unused = {(folder, other) for folder, others in arrows.items() for other in others}
    for path in listed:
        folder = folder_of(path, arrows)
        if folder is None:
            continue
        with open(os.path.join(repository, path), encoding="utf-8") as file:
            includes = INCLUDE.findall(file.read())
        for include in includes:
            # What is made of a declaration includes this alone.
            other = path_of("veltapi/Parameters.h" if include.startswith("declared/") else include, listed)
            if other is None:
                yield f"{path}: {include} is no path from the top folder"
            elif (target := folder_of(other, arrows)) != folder:
                unused.discard((folder, target))
                if target not in arrows[folder]:
                    yield f"{path}: {folder} may not include {other}"
    for folder, other in sorted(unused):
        yield f"docs/architecture.md: {folder} includes nothing of {other}"


if __name__ == "__main__":
    found = list(faults(sys.argv[1]))
    print("\n".join(found))
    sys.exit(1 if found else 0)
