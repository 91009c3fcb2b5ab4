#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Prints the sources of the library and the application that a change may have touched, for checks
that are too slow to look at everything each time, what changed last first: changed_sources.py

What changed is what differs from where the branch left `main`, or from 20 commits ago where it is
`main` itself, and what is not committed. For a header, which is looked at wherever it is included,
stands the source of its name, or one that includes it. When the settings of the checks changed, or
there is no history, it is all of them."""
import os
import re
import subprocess

SETTINGS = (".clang-tidy",)
COMMITS = 20
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)


def git(*arguments):
    done = subprocess.run(["git", *arguments], capture_output=True, text=True)
    return done.stdout.splitlines() if done.returncode == 0 else []


def base():
    head = git("rev-parse", "HEAD")
    for main in ("origin/main", "main", "origin/master", "master"):
        left = git("merge-base", "HEAD", main)
        if left and left != head:
            return left[0]
    earlier = git("rev-parse", f"HEAD~{COMMITS}")
    return earlier[0] if earlier else None


def files():
    return [name for name in git("ls-files", "src/*.cpp", "src/*.h", "app/*.cpp", "app/*.h")
            if os.path.exists(name)]


def includers(names):
    """Who includes each file, as the paths are written: from src or app, or beside the file."""
    found = {name: set() for name in names}
    for name in names:
        with open(name, encoding="utf-8") as file:
            for written in INCLUDE.findall(file.read()):
                for path in ("src/" + written, "app/" + written,
                             os.path.join(os.path.dirname(name), written)):
                    if path in found:
                        found[path].add(name)
    return found


def touched(changed, includers_of):
    """The sources among what changed, and one for each header."""
    chosen = set()
    for name in changed:
        if name.endswith(".cpp") and name in includers_of:
            chosen.add(name)
        elif name in includers_of:
            chosen.add(source_for(name, includers_of))
    return chosen - {None}


def source_for(header, includers_of):
    own = os.path.splitext(header)[0] + ".cpp"
    if own in includers_of:
        return own
    waiting, seen = [header], set()
    while waiting:
        name = waiting.pop(0)
        if name.endswith(".cpp"):
            return name
        if name not in seen:
            seen.add(name)
            waiting += sorted(includers_of[name])
    return None


def ages(since):
    """How long ago each file was changed: 0 if that is not committed, 1 if it was the last time."""
    named = git("log", "--format=/", "--name-only", f"{since}..HEAD")
    found, age = {}, 0
    for name in named:
        age += name == "/"
        found.setdefault(name, age)
    return {**found, **dict.fromkeys(git("diff", "--name-only", "HEAD"), 0)}


def main():
    os.chdir(git("rev-parse", "--show-toplevel")[0])
    names, since = files(), base()
    chosen, age = set(names), {}
    if since:
        changed = [*git("diff", "--name-only", since),
                   *git("ls-files", "--others", "--exclude-standard")]
        age = ages(since)
        if not set(changed) & set(SETTINGS):
            chosen = touched(changed, includers(names))
    never = len(age)
    for name in sorted((name for name in chosen if name.endswith(".cpp")),
                       key=lambda name: (age.get(name, never), name)):
        print(name)


if __name__ == "__main__":
    main()
