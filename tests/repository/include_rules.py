#!/usr/bin/env python3
"""Checks who includes whom: include_rules.py REPOSITORY. Prints each offence, fails if any."""
import os
import re
import sys

# Which folders of src/ a folder may include, besides itself and the files directly in
# src/platform. "pool/Player.h" is the player contract, "pool/ZFMediaQueue.h" the media queue.
PUBLIC_PLATFORM = {"platform/foundation", "platform/dispatch", "platform/coremedia",
                   "platform/uikit", "platform/avfoundation"}
ALLOWED = {
    "platform": set(),
    "platform/foundation": set(),
    "platform/coremedia": set(),
    "platform/dispatch": {"platform/foundation"},
    "platform/uikit": {"platform/foundation", "platform/coremedia"},
    "platform/media": PUBLIC_PLATFORM - {"platform/avfoundation"},
    "platform/avfoundation": PUBLIC_PLATFORM | {"platform/media"},
    "platform/window": PUBLIC_PLATFORM - {"platform/avfoundation"},
    "companion": PUBLIC_PLATFORM,
    "loading": PUBLIC_PLATFORM | {"companion", "pool/ZFMediaQueue.h"},
    "native": PUBLIC_PLATFORM | {"companion", "pool/Player.h"},
    "fast": PUBLIC_PLATFORM | {"companion", "pool/Player.h"},
    "pool": PUBLIC_PLATFORM | {"companion"},
    "": PUBLIC_PLATFORM | {"companion", "loading", "native", "fast", "pool",
                           "platform/window/Window.h"},
}

# What media and avfoundation share lies between the folders, and stands on some of them.
SHARED = {
    "platform/AVAssetTrack.h": {"platform/coremedia", "platform/uikit"},
    "platform/AVCompositionTrackSegment.h": {"platform/coremedia"},
}

# Headers of a library, and the only places that may name them.
LIBRARIES = [
    (re.compile(r"libav|libsw|libpostproc"), ("src/platform/media/", "bench/Floor")),
    (re.compile(r"cubeb"), ("src/platform/media/",)),
    (re.compile(r"asio"), ("src/platform/dispatch/",)),
    (re.compile(r"SDL"), ("src/platform/window/", "app/", "examples/")),
]

INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]')


def sources(root, folder):
    for path, _, names in os.walk(os.path.join(root, folder)):
        for name in sorted(names):
            if name.endswith((".h", ".cpp")):
                yield os.path.relpath(os.path.join(path, name), root)


def includes(root, file):
    with open(os.path.join(root, file), encoding="utf-8") as lines:
        for number, line in enumerate(lines, 1):
            match = INCLUDE.match(line)
            if match:
                yield number, match.group(1), match.group(2)


def offence_of_library(file, name):
    for pattern, places in LIBRARIES:
        if pattern.match(name) and not file.startswith(places):
            return f"<{name}> belongs to {' and '.join(places)}"
    return None


def offence_of_folder(file, name):
    """What is wrong with `file` of src/ including `name`, both written from src/."""
    folder, target = os.path.dirname(file), os.path.dirname(name)
    if target == folder or target == "platform":
        return None
    if folder not in ALLOWED:
        return f"the rules do not know the folder {folder}"
    allowed = ALLOWED[folder] | SHARED.get(file, set())
    if target in allowed or name in allowed:
        return None
    return f"{folder or 'src'} must not include {target or 'src'}"


def cycles(graph):
    """Each circle of files, once, as a list that ends where it starts."""
    done, path = set(), []

    def visit(file):
        if file in path:
            yield path[path.index(file):] + [file]
            return
        if file in done:
            return
        path.append(file)
        for other in graph.get(file, ()):
            yield from visit(other)
        path.pop()
        done.add(file)

    for file in sorted(graph):
        yield from visit(file)


def folders_of(graph):
    """The folders of src/ and those that each includes. The files directly in src/ stand above all
    of them, and those directly in src/platform between them."""
    folders = {}
    for file, names in graph.items():
        folder = os.path.dirname(file)
        others = {os.path.dirname(name) for name in names} - {folder, "platform"}
        if folder not in ("", "platform"):
            folders.setdefault(folder, set()).update(others)
    return {folder: sorted(others) for folder, others in folders.items()}


def check_library(root):
    graph = {}
    for path in sources(root, "src"):
        file = os.path.relpath(path, "src")
        graph[file] = []
        for number, mark, name in includes(root, path):
            where = f"{path}:{number}: "
            offence = offence_of_library(path, name)
            if not offence and mark == '"':
                if not os.path.exists(os.path.join(root, "src", name)):
                    offence = f'"{name}" is not written from src/'
                else:
                    graph[file].append(name)
                    offence = offence_of_folder(file, name)
            if offence:
                yield where + offence
    for circle in [*cycles(graph), *cycles(folders_of(graph))]:
        yield "a circle: " + " -> ".join(circle)


def check_users(root):
    """Programs over the library stand on its public headers only."""
    for folder in ("app", "examples", "bench"):
        for path in sources(root, folder):
            for number, _, name in includes(root, path):
                offence = offence_of_library(path, name)
                if "platform/media/" in name:
                    offence = "platform/media is private"
                if offence:
                    yield f"{path}:{number}: {offence}"


def main():
    root = sys.argv[1]
    offences = list(check_library(root)) + list(check_users(root))
    print("\n".join(offences))
    return 1 if offences else 0


if __name__ == "__main__":
    sys.exit(main())
