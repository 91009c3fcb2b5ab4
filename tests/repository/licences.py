#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Every source, script and build file names its licence in its first two lines: licences.py ROOT"""

import pathlib
import subprocess
import sys

LINE = "SPDX-License-Identifier: Apache-2.0"
SUFFIXES = {".c", ".cpp", ".h", ".S", ".py", ".cmake"}


def wants_licence(root, name):
    """What a person writes as code; data, prose and what a format gives no comment are left out."""
    path = root / name
    if name.startswith("tests/fuzz/seeds/") or not path.is_file():
        return False
    if path.suffix in SUFFIXES or path.name == "CMakeLists.txt":
        return True
    with open(path, "rb") as file:
        return file.read(2) == b"#!"


def names_licence(path):
    with open(path, encoding="utf-8") as file:
        return LINE in file.readline() + file.readline()


def main():
    root = pathlib.Path(sys.argv[1])
    listed = subprocess.run(["git", "-C", root, "ls-files", "-z", "--cached", "--others",
                             "--exclude-standard"], capture_output=True, text=True)
    if listed.returncode:
        print("skipped: not a git repository")
        return 77
    missing = [name for name in listed.stdout.split("\0")
               if wants_licence(root, name) and not names_licence(root / name)]
    for name in missing:
        print(f"{name}: no line '{LINE}'")
    return 1 if missing else 0


if __name__ == "__main__":
    sys.exit(main())
