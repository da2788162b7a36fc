"""The files that the demonstration's accounts can share: a folder with some files for each account."""

import json
import os
import pwd
import struct
import zlib

from accounts import write_private

HOMES = "/usr/velt/var/files"
SPOOL = "/usr/velt/var/spool/files"
_CONFIGURATION = "/usr/velt/etc/files.json"
_NOTE = """The tide table for the week.

Monday     low 06:10   high 12:25
Tuesday    low 06:55   high 13:10
Wednesday  low 07:40   high 13:55
"""


def lay_out(names, service):
    """Makes the folders that are missing; `service` is (user, group) of the workers and the web server, or None."""
    os.makedirs(HOMES, exist_ok=True)
    os.makedirs(SPOOL, exist_ok=True)
    os.chmod(SPOOL, 0o711)
    for name in names:
        folder = os.path.join(HOMES, name)
        if not os.path.exists(folder):
            _fill(folder, pwd.getpwnam(name).pw_uid if service else None, service and pwd.getpwnam(service[0]).pw_gid)
    if not os.path.exists(_CONFIGURATION):
        roots = [{"name": "home", "title": "My files", "path": HOMES + "/{user}"}]
        write_private(_CONFIGURATION, json.dumps({"roots": roots, "spool": SPOOL}, indent=2) + "\n", 0o644)


def _fill(folder, uid, gid):
    contents = {"Coast/Tide table.txt": _NOTE.encode(), "Coast/Read me first.txt": b"Pictures of the coast.\n",
                **{f"Coast/{name}.png": picture(hue) for name, hue in [("Dawn", 0), ("Noon", 1), ("Dusk", 2)]}}
    os.makedirs(os.path.join(folder, "Coast"))
    os.makedirs(os.path.join(folder, "Inbox"))
    for name, content in contents.items():
        with open(os.path.join(folder, name), "wb") as file:
            file.write(content)
    # The web server's group may read the files, nobody else may. New files get the folder's group.
    for place, _, files in os.walk(folder):
        for path, mode in [(place, 0o2750)] + [(os.path.join(place, name), 0o640) for name in files]:
            if uid is not None:
                os.chown(path, uid, gid)
            os.chmod(path, mode)


def picture(hue, width=640, height=420):
    """A PNG image of a sky over the sea."""
    sky = [(244, 178, 132), (132, 190, 232), (196, 120, 150)][hue]
    rows = []
    for y in range(height):
        light = 0.55 + 0.45 * y / height if y < height * 0.6 else 0.5 - 0.3 * y / height
        base = sky if y < height * 0.6 else (60, 110, 150)
        rows.append(b"\0" + bytes(min(255, int(part * light)) for part in base) * width)

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)) +
            chunk(b"IDAT", zlib.compress(b"".join(rows))) + chunk(b"IEND", b""))
