#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Measures clips of a server on loopback, beside other players' libraries: network.py BUILD CLIPS"""
import os
import subprocess
import sys
import tempfile

from peers import FASTER, NOT_BEHIND, Peers
from run import LONG_CLIPS, MAIN_CLIPS
from slow_server import SlowServer

ROUND_TRIP, RATE = 0.050, 10e6
REPETITIONS = 5
REMOTE_PLAYERS, LOOP_SECONDS = 16, 25


class NetworkPeers(Peers):
    def __init__(self, build, clips, scratch):
        super().__init__(build, clips)
        self.scratch = scratch

    def first_pictures(self, url, server):
        """Of each library: the median time, and the requests and bytes until then."""
        results = {}
        for name in self.names:
            runs = [run for run in (self.first_picture(name, url, server)
                                    for _ in range(REPETITIONS)) if run]
            if runs:
                results[name] = sorted(runs, key=lambda run: run["first"])[len(runs) // 2]
        return results

    def first_picture(self, name, url, server):
        requests, sent = server.requests, server.bytes
        result = self.attempt(name, ["first", url])
        if result:
            result["requests"] = server.requests - requests
            result["KiB"] = (server.bytes - sent) / 1024
        return result

    def add_first_pictures(self, what, name):
        server = SlowServer(self.scratch, ROUND_TRIP, RATE)
        results = self.first_pictures(server.url(name), server)
        server.close()
        self.add(f"{what}: first picture", results, "first", "ms", 0.6)
        self.add(f"{what}: requests until then", results, "requests", "", NOT_BEHIND)
        self.add(f"{what}: fetched until then", results, "KiB", "KiB", NOT_BEHIND)

    def run(self):
        clip = os.path.join(self.clips, MAIN_CLIPS[0])
        make(clip, ["-movflags", "+faststart"], os.path.join(self.scratch, "front.mp4"))
        make(clip, [], os.path.join(self.scratch, "end.mp4"))
        make(clip, ["-f", "hls", "-hls_time", "2", "-hls_playlist_type", "vod",
                    "-hls_segment_filename", os.path.join(self.scratch, "s%d.ts")],
             os.path.join(self.scratch, "stream.m3u8"))
        self.add_first_pictures("index in front", "front.mp4")
        self.add_first_pictures("index at the end", "end.mp4")
        self.add_first_pictures("HLS", "stream.m3u8")
        self.add_loop()
        self.add_many()

    def add_loop(self):
        """Bytes fetched while a clip plays round after round, by the clip's own."""
        size = os.path.getsize(os.path.join(self.scratch, "front.mp4"))
        results = {}
        for name in self.names:
            server = SlowServer(self.scratch)
            if self.attempt(name, ["loop", str(LOOP_SECONDS), server.url("front.mp4")]):
                results[name] = {"times": server.bytes / size}
            server.close()
        self.add(f"a loop of {LOOP_SECONDS} s: fetched, by the clip's bytes", results, "times", "",
                 FASTER)

    def add_many(self):
        """Ours alone: what remote players cost beyond local ones."""
        local = [os.path.join(self.clips, name) for name in LONG_CLIPS]
        server = SlowServer(self.clips)
        remote = [server.url(name) for name in LONG_CLIPS]
        for what, clips in (("local", local), ("remote", remote)):
            use = self.attempt("zaffo", ["memory", str(REMOTE_PLAYERS), *clips])
            play = self.attempt("zaffo", ["play", "8", *clips])
            if use and play:
                print(f"{REMOTE_PLAYERS} {what} players: {use['threads']} threads, each further one "
                      f"{use['each']:.2f} MiB; 8 playing: {play['cores']:.3f} cores")
        server.close()


def make(clip, options, file):
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-i", clip, "-c", "copy", *options, file],
                   check=True)


def main():
    with tempfile.TemporaryDirectory() as scratch:
        peers = NetworkPeers(sys.argv[1], sys.argv[2], scratch)
        peers.run()
        peers.table()


if __name__ == "__main__":
    main()
