#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Each line of the README's C++ stands in the example that it is taken from, in order:
readme_example.py REPOSITORY"""
import os
import re
import sys


def lines_of(text):
    return [line.strip() for line in text.splitlines() if line.strip()]


def main():
    root = sys.argv[1]
    with open(os.path.join(root, "README.md"), encoding="utf-8") as file:
        blocks = re.findall(r"```cpp\n(.*?)```", file.read(), re.DOTALL)
    with open(os.path.join(root, "examples/ten-lines.cpp"), encoding="utf-8") as file:
        compiled = iter(lines_of(file.read()))
    shown = lines_of("".join(blocks))
    # A search in an iterator goes on where the last one ended.
    strays = [line for line in shown if line not in compiled]
    if not shown or strays:
        print("the README shows what the example has not:", *strays[:1], sep="\n  ")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
