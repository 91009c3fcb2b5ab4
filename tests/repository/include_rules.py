#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks who includes whom: include_rules.py REPOSITORY. Prints each offence, fails if any."""
import os
import re
import sys

# Which folders of src/ a folder may include, besides itself and the files directly in
# src/platform. "pool/Player.h" is the player contract, "pool/ZFMediaQueue.h" the media queue; an
# asset's tracks and a composition's segments are what the engine has of the interface above it.
BASE = {"platform/foundation", "platform/dispatch", "platform/coremedia", "platform/uikit"}
PUBLIC_PLATFORM = BASE | {"platform/avfoundation"}
MEDIA = "platform/media"
MEDIA_BASE = BASE | {MEDIA, "platform/avfoundation/AVAssetTrack.h",
                     "platform/avfoundation/AVCompositionTrackSegment.h"}
CODEC, SOURCE, VIDEO = f"{MEDIA}/codec", f"{MEDIA}/source", f"{MEDIA}/video"
SOUNDTRACK, OUTPUT, PLAYBACK = f"{MEDIA}/soundtrack", f"{MEDIA}/output", f"{MEDIA}/playback"
ALLOWED = {
    "platform": set(),
    "platform/foundation": set(),
    "platform/coremedia": set(),
    "platform/dispatch": {"platform/foundation"},
    "platform/uikit": {"platform/foundation", "platform/coremedia"},
    "platform/avfoundation": BASE,
    MEDIA: MEDIA_BASE,
    CODEC: MEDIA_BASE,
    SOURCE: MEDIA_BASE | {CODEC},
    VIDEO: MEDIA_BASE | {CODEC, SOURCE},
    OUTPUT: MEDIA_BASE,
    SOUNDTRACK: MEDIA_BASE | {CODEC, SOURCE, OUTPUT},
    PLAYBACK: MEDIA_BASE | {CODEC, SOURCE, VIDEO, SOUNDTRACK, OUTPUT},
    "platform/avfoundation/engine": PUBLIC_PLATFORM | {MEDIA, CODEC, SOURCE, VIDEO, SOUNDTRACK,
                                                       OUTPUT, PLAYBACK, "platform/network",
                                                       "platform/streaming"},
    # Bytes of the network are a source of bytes to the engine, which finds no more than that.
    "platform/network": {"platform/foundation", "platform/dispatch",
                         f"{MEDIA}/Checksums.h", f"{MEDIA}/MappedMemory.h",
                         f"{SOURCE}/ByteSource.h",
                         f"{SOURCE}/WantHandler.h"},
    "platform/streaming": {"platform/foundation", "platform/dispatch", "platform/coremedia",
                           f"{MEDIA}/CodecConfig.h", f"{MEDIA}/Outcome.h", SOURCE, CODEC,
                           "platform/avfoundation/AVAssetTrack.h", "platform/network"},
    "platform/window": BASE,
    "companion": PUBLIC_PLATFORM,
    "loading": PUBLIC_PLATFORM | {"companion", "pool/ZFMediaQueue.h"},
    "native": PUBLIC_PLATFORM | {"companion", "pool/Player.h"},
    "fast": PUBLIC_PLATFORM | {"companion", "pool/Player.h"},
    "pool": PUBLIC_PLATFORM | {"companion"},
    "clip": PUBLIC_PLATFORM | {"companion", "loading", "pool"},
    "": PUBLIC_PLATFORM | {"companion", "loading", "native", "fast", "pool", "clip",
                           "platform/window/Window.h"},
}

# The same of the application's folders, from app/.
ALLOWED_IN_APP = {
    "": {"feed", "cell", "overlay", "text", "script", "figures"},
    "figures": set(),
    "script": set(),
    "text": set(),
    "feed": {"figures", "text"},
    "cell": {"feed", "figures"},
    "overlay": {"feed", "text", "figures"},
}

# Headers of a library, and the only places that may name them.
LIBRARIES = [
    (re.compile(r"libav|libsw|libpostproc"), ("src/platform/media/", "bench/Floor")),
    (re.compile(r"cubeb"), ("src/platform/media/",)),
    (re.compile(r"asio"), ("src/platform/dispatch/",)),
    (re.compile(r"curl"), ("src/platform/network/",)),
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
    if target in (folder, "platform"):
        return None
    if folder not in ALLOWED:
        return f"the rules do not know the folder {folder}"
    if target in ALLOWED[folder] or name in ALLOWED[folder]:
        return None
    return f"{folder or 'src'} must not include {target or 'src'}"


def circles(graph):
    """Each circle once, as a list that ends where it starts."""
    done, path = set(), []

    def visit(node):
        if node in path:
            yield path[path.index(node):] + [node]
            return
        if node in done:
            return
        path.append(node)
        for other in sorted(graph.get(node, ())):
            yield from visit(other)
        path.pop()
        done.add(node)

    for node in sorted(graph):
        yield from visit(node)


def between_folders(graph):
    """The graph of folders that one of files makes."""
    folders = {}
    for file, included in graph.items():
        folder = os.path.dirname(file)
        targets = folders.setdefault(folder, set())
        targets.update({os.path.dirname(name) for name in included} - {folder})
    return folders


def circles_in(graph):
    for circle in circles(graph):
        yield "a circle: " + " -> ".join(circle)
    for circle in circles(between_folders(graph)):
        yield "a circle of folders: " + " -> ".join(folder or "." for folder in circle)


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
    yield from circles_in(graph)


def check_application(root):
    """The application's own folders, and their includes of each other."""
    graph = {}
    for path in sources(root, "app"):
        file = os.path.relpath(path, "app")
        folder = os.path.dirname(file)
        graph[file] = []
        for number, mark, name in includes(root, path):
            if mark == "<" or not os.path.exists(os.path.join(root, "app", name)):
                continue
            graph[file].append(name)
            target = os.path.dirname(name)
            if target != folder and target not in ALLOWED_IN_APP.get(folder, ()):
                yield f"{path}:{number}: app/{folder} must not include app/{target}"
    yield from circles_in(graph)


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
    offences = list(check_library(root))
    offences += list(check_users(root)) + list(check_application(root))
    print("\n".join(offences))
    return 1 if offences else 0


if __name__ == "__main__":
    sys.exit(main())
