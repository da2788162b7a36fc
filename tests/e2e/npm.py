"""Programs of the tests that come from npm."""

import filecmp
import os
import shutil
import subprocess

HERE = os.path.dirname(os.path.abspath(__file__))


def install(name):
    """Installs what the lock file in the folder `name` says, once for each build folder. Returns where it is."""
    folder = os.path.join(os.path.abspath(os.environ.get("VELT_BUILD", f"{HERE}/../../build/release")), name)
    os.makedirs(folder, exist_ok=True)
    changed = not os.path.exists(f"{folder}/node_modules")
    for file in os.listdir(f"{HERE}/{name}"):
        wanted, present = f"{HERE}/{name}/{file}", f"{folder}/{file}"
        if not os.path.exists(present) or not filecmp.cmp(wanted, present, shallow=False):
            changed = True
            shutil.copy(wanted, folder)
    if changed:
        subprocess.run(["npm", "ci", "--ignore-scripts", "--no-audit", "--no-fund"], cwd=folder, check=True,
                       stdout=subprocess.DEVNULL)
    return folder
