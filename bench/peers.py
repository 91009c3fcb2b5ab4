#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Measures other players' libraries beside this one and prints one table: peers.py BUILD CLIPS"""
import json
import os
import subprocess
import sys

from run import LONG_CLIPS, MAIN_CLIPS, SEAMS

NAMES = ["zaffo", "mpv", "gstreamer", "vlc"]
ATTEMPTS = 3  # some of them, on a busy machine, give no picture now and then
# The least of it that the best other may be behind: ours divided by theirs.
FASTER, CHEAPER, NOT_BEHIND = 0.5, 0.95, 1.0
LOOP_CLIP, LOOP_CLIP_SECONDS = MAIN_CLIPS[0], 10


class Peers:
    def __init__(self, build, clips):
        self.build, self.clips = build, clips
        self.names = [name for name in NAMES if os.path.exists(self.program(name))]
        self.rows = []

    def program(self, name):
        return os.path.join(self.build, "bench", f"zaffo-peer-{name}")

    def measure(self, *arguments):
        """What each program prints for the arguments; nothing of one that failed each time."""
        results = {name: self.attempt(name, arguments) for name in self.names}
        return {name: result for name, result in results.items() if result}

    def attempt(self, name, arguments):
        for _ in range(ATTEMPTS):
            try:
                run = subprocess.run([self.program(name), *arguments], capture_output=True,
                                     text=True, check=True, timeout=300)
                return json.loads(run.stdout.splitlines()[-1])
            except (subprocess.SubprocessError, IndexError, ValueError) as error:
                print(f"{name} {arguments[0]}: {error}", file=sys.stderr)
        return None

    def add(self, text, results, key, unit, target):
        values = {name: result[key] for name, result in results.items()}
        others = [value for name, value in values.items() if name != "zaffo"]
        ratio = f"{values['zaffo'] / min(others):.2f}" if others and "zaffo" in values else ""
        cells = [f"{values[name]:.2f} {unit}" if name in values else "failed"
                 for name in self.names]
        self.rows.append([text, *cells, ratio, f"{target}"])

    def run(self):
        clip = lambda name: os.path.join(self.clips, name)
        for name, other in (MAIN_CLIPS, MAIN_CLIPS[::-1]):
            times = self.measure("latency", clip(name), clip(other))
            short = name.split(".")[0]
            for key, text, target in (
                    ("cold", "a new player: path to first picture", FASTER),
                    ("switch", "a player that has another clip: the same", FASTER),
                    ("seek", "exact seek to 3.37 s", NOT_BEHIND),
                    ("rewind", "seek back to 0", NOT_BEHIND),
                    ("destroy", "destroying a playing player, caller's time", NOT_BEHIND)):
                self.add(f"{text} ({short})", times, key, "ms", target)
        clips = [clip(name) for name in LONG_CLIPS]
        use = self.measure("memory", "8", *clips)
        self.add("private memory with 1 player that stands still", use, "one", "MiB", FASTER)
        self.add("private memory of each further one of 8", use, "each", "MiB", FASTER)
        self.add("threads with 8", use, "threads", "", NOT_BEHIND)
        for count, target in (("1", NOT_BEHIND), ("8", CHEAPER)):
            self.add(f"CPU, {count} playing", self.measure("play", count, *clips), "cores", "cores",
                     target)
        loop = self.measure("loop", str(SEAMS // 5 * LOOP_CLIP_SECONDS), clip(LOOP_CLIP))
        self.add("a loop: longest time without a new picture", loop, "longest", "ms", NOT_BEHIND)

    def table(self):
        rows = [["", *self.names, "ours / best other", "target"], *self.rows]
        widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
        for index, row in enumerate(rows):
            cells = [row[0].ljust(widths[0])] + [c.rjust(w) for c, w in zip(row[1:], widths[1:])]
            print("| " + " | ".join(cells) + " |")
            if index == 0:
                print("|" + "|".join("-" * (width + 2) for width in widths) + "|")


def main():
    peers = Peers(sys.argv[1], sys.argv[2])
    peers.run()
    peers.table()


if __name__ == "__main__":
    main()
