#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the benchmarks and prints one table: run.py BUILD CLIPS [quick]"""
import json
import os
import statistics
import subprocess
import sys
import tempfile

MAIN_CLIPS = ["01-testsrc.mp4", "02-mandelbrot.mp4"]  # one easy, one hard to decode
LONG_CLIPS = ["01-testsrc.mp4", "02-mandelbrot.mp4", "03-life.mp4", "05-gradients.mp4",
              "06-waves.mp4", "09-bars.mp4", "11-carpet.mp4", "12-noise.mp4"]  # 5 s and more
PLAY_SECONDS = 4.5
LOOP_SECONDS = 60
SEAMS = 25
SWIPES = 200
HEAVY_PAGES = 4
HEAVY_SECONDS = 10


class Bench:
    def __init__(self, build, clips, quick):
        self.build, self.clips, self.quick = build, clips, quick
        self.rows = []

    def program(self, *path):
        return os.path.join(self.build, *path)

    def clip(self, name):
        return os.path.join(self.clips, name)

    def add(self, what, beside, library, unit, digits=2, target=""):
        ratio = f"{library / beside:.2f}" if beside else ""
        show = lambda value: "" if value is None else f"{value:.{digits}f} {unit}"
        self.rows.append((what, show(beside), show(library), ratio, target))

    def latency(self, program, clip, other):
        """Median milliseconds of each of a program's latency benchmarks on a clip."""
        with tempfile.NamedTemporaryFile(suffix=".json") as out:
            command = [self.program("bench", program), self.clip(clip),
                       self.clip(other), f"--benchmark_out={out.name}",
                       "--benchmark_out_format=json",
                       # Floor and library take turns: what else the machine does hits both.
                       "--benchmark_enable_random_interleaving=true"]
            subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
            runs = json.load(out)["benchmarks"]
        times = {}
        for run in runs:
            if run.get("run_type") == "iteration":
                if run.get("error_occurred"):
                    raise SystemExit(f"{run['name']}: {run['error_message']}")
                times.setdefault(run["run_name"].split("/iterations")[0], []).append(run["real_time"])
        return {name: statistics.median(values) for name, values in times.items()}

    def run_once(self, program, *arguments):
        out = subprocess.run([self.program("bench", program), *arguments], check=True,
                             capture_output=True, text=True)
        return json.loads(out.stdout)

    def load(self, mode, count, *rest):
        """Medians of repeated runs of the load benchmark, each in a fresh process."""
        runs = [self.run_once("zaffo-bench-load", mode, str(count), *rest)
                for _ in range(1 if self.quick else 3)]
        return {key: statistics.median(run[key] for run in runs) for key in runs[0]}

    def latencies(self):
        for clip, other in (MAIN_CLIPS, MAIN_CLIPS[::-1])[:1 if self.quick else 2]:
            times = self.latency("zaffo-bench-latency", clip, other)
            name = clip.split(".")[0]
            for key, text, target in (
                    ("cold", "cold: URL to first frame, sound ready too", "1.3 x floor"),
                    ("cold-picture", "cold: URL to first frame, picture alone", ""),
                    ("switch", "pooled player, loaded item to first frame", "1.2 x floor"),
                    ("rewind", "rewind of an idle player", "1 ms"),
                    ("seek", "exact seek to 3.37 s", "1.0 x floor")):
                floor = times[f"{key.removesuffix('-picture')}/floor"]
                self.add(f"{text} ({name})", floor, times[f"{key}/library"], "ms",
                         target=target)
            self.add(f"warm request, synchronous ({name})", None, times["warm/library"] * 1000,
                     "us", 1, "20 us")
            self.add(f"each seek of a drag to the next picture ({name})", None,
                     times["scrub/library"], "ms", target="20 ms")
            for state in ("loaded", "playing"):
                self.add(f"destroying a {state} player, caller's time ({name})", None,
                         times[f"destroy-{state}/library"], "ms", 3, "0.1 ms")

    def memory(self):
        clips = [self.clip(name) for name in sorted(os.listdir(self.clips)) if name.endswith("mp4")]
        for count in (8, 16):
            floor = self.load("floor-memory", count, *clips)
            ours = self.load("memory", count, *clips)
            each = lambda run: (run["private_mib"] - run["one_private_mib"]) / (count - 1)
            if count == 8:
                self.add("private memory with 1 loaded idle player", floor["one_private_mib"],
                         ours["one_private_mib"], "MiB", 1)
                self.add("threads with 1 loaded idle player", floor["one_threads"],
                         ours["one_threads"], "", 0)
            self.add(f"private memory of each further one, {count} loaded", each(floor),
                     each(ours), "MiB", 2, "3 MiB")
            self.add(f"threads with {count} loaded idle players", floor["threads"],
                     ours["threads"], "", 0, "0 more")

    def cpu(self):
        clips = [self.clip(name) for name in LONG_CLIPS]
        for count in (1, 8):
            floor = self.load("floor-play", count, str(PLAY_SECONDS), *clips)["cores"]
            for mode, text, target in (("play", "no output", "1.2 x floor"),
                                       ("play-window", "the offscreen window", "")):
                run = self.load(mode, count, str(PLAY_SECONDS), *clips)
                if mode == "play-window":
                    text += f" ({run['shown']:.0f} shown, {run['dropped']:.0f} dropped)"
                self.add(f"CPU, {count} playing with sound to {text}", floor, run["cores"],
                         "cores", 3, target)

    def swipes(self, *options):
        """What zaffo-feed measured while it was swiped through the clips, and how many swipes."""
        with tempfile.TemporaryDirectory() as folder:
            stats, script = os.path.join(folder, "stats.json"), os.path.join(folder, "script")
            swipes = 40 if self.quick else SWIPES
            with open(script, "w", encoding="utf-8") as file:
                file.write("wait-frame\n" + "next; wait-frame; wait 0.1\n" * swipes + "quit\n")
            command = [self.program("app", "zaffo-feed"), "--headless", "--no-sound", *options,
                       "--script", script, "--stats", stats] + [self.clips] * (swipes // 12 + 2)
            subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
            with open(stats, encoding="utf-8") as file:
                return json.load(file), swipes

    def feed(self):
        for kind, options, target in (("", [], "2 ms"), (", fast players", ["--fast"], "1 ms")):
            run, swipes = self.swipes(*options)
            self.add(f"longest main-thread block in {swipes} swipes{kind}", None,
                     run["longest_main_thread_block_ms"], "ms", target=target)
            for key, text in (("work", "of it work"), ("queued", "ready to run while others ran"),
                              ("asleep", "waiting for locks, files or memory")):
                self.add(f"main thread, most of one turn: {text}{kind}", None,
                         run[f"most_main_thread_{key}_ms"], "ms")
            first = [s["request_to_first_frame_ms"] for s in run["swipes"]
                     if s["request_to_first_frame_ms"] is not None]
            self.add(f"swipe to first frame on screen, {swipes} swipes{kind}", None,
                     statistics.median(first), "ms")

    def fast(self):
        """The fast player beside the native one and beside raw FFmpeg without sound."""
        for clip, other in (MAIN_CLIPS, MAIN_CLIPS[::-1])[:1 if self.quick else 2]:
            times = self.latency("zaffo-bench-fast", clip, other)
            name = clip.split(".")[0]
            for text, beside, key, target in (
                    ("request to first frame beside a key frame", "key-frame/floor", "switch",
                     "1.1 x floor"),
                    ("request to first frame beside the native player", "switch/native", "switch",
                     ""),
                    ("exact seek beside the native player", "seek/native", "seek", "1.0 x native"),
                    ("seek to zero after the end beside a key frame", "restart/floor", "restart",
                     "1.2 x floor")):
                self.add(f"fast: {text} ({name})", times[beside], times[f"{key}/fast"], "ms",
                         target=target)
            self.add(f"fast: time on the main thread in a request ({name})", None,
                     times["start/fast"], "ms", 3, "0.5 ms")
        clips = [self.clip(name) for name in LONG_CLIPS]
        bytes_at_least = self.load("floor-bytes", 8, *clips)["each_mib"]
        ours = self.load("fast-memory", 8, *clips)
        self.add("fast: memory of each further player beside the bytes it holds", bytes_at_least,
                 (ours["private_mib"] - ours["one_private_mib"]) / 7, "MiB", 2, "1.25 x bytes")
        floor = self.load("floor-play-picture", 8, str(PLAY_SECONDS), *clips)["cores"]
        ours = self.load("fast-play", 8, str(PLAY_SECONDS), *clips)["cores"]
        self.add("fast: CPU, 8 playing to no output", floor, ours, "cores", 3, "1.05 x floor")

    def loops(self):
        clip = self.clip(MAIN_CLIPS[0])
        self.add("loop: building an item from a loaded asset", None,
                 self.run_once("zaffo-bench-loops", "build", clip)["build"], "ms", 3, "0.2 ms")
        cold = self.run_once("zaffo-bench-loops", "cold", clip)
        self.add("loop: cold first frame beside the plain item's", cold["single"], cold["endless"],
                 "ms", 2, "1.05 x plain")
        seconds = str(10 if self.quick else LOOP_SECONDS)
        for kind, floor, target in (("", "floor-play", "1.15 x floor"),
                                    ("fast-", "floor-play-picture", "1.05 x floor")):
            flat = self.run_once("zaffo-bench-load", floor, "1", seconds, clip)["cores"]
            ours = self.run_once("zaffo-bench-load", kind + "loop-play", "1", seconds, clip)["cores"]
            text = "without sound, fast player" if kind else "with sound"
            self.add(f"loop: CPU, one playing {seconds} s {text}", flat, ours, "cores", 4, target)
        clips = [self.clip(name) for name in LONG_CLIPS]
        each = lambda run: (run["private_mib"] - run["one_private_mib"]) / 7
        self.add("loop: memory of each further player beside the plain one's",
                 each(self.load("memory", 8, *clips)), each(self.load("loop-memory", 8, *clips)),
                 "MiB", 2, "0.3 MiB more")
        self.seams(clip)

    def seams(self, clip):
        """In real time, with one core kept busy by something else."""
        busy = subprocess.Popen([sys.executable, "-c", "while True: pass"])
        try:
            for kind in ("native", "fast"):
                run = self.run_once("zaffo-bench-loops", "seams", kind, str(SEAMS), clip)
                self.add(f"loop: lateness after {run['seams']} seams, {kind}: the median", None,
                         run["late"], "ms")
                self.add(f"loop: lateness after {run['seams']} seams, {kind}: the most", None,
                         run["worst"], "ms", target=f"{run['frame'] / 2:.1f} ms")
                self.add(f"loop: pictures missing over {run['seams']} seams, {kind}", None,
                         run["missing"], "", 0, "0")
        finally:
            busy.kill()
            busy.wait()

    def host(self):
        """What the application notices; with sound where there is a sound server."""
        clip, seconds = self.clip(MAIN_CLIPS[0]), "3" if self.quick else "10"
        run = self.run_once("zaffo-bench-host", "wake-ups", seconds, clip)
        for state, target in (("drawn", "150"), ("hidden", "50"), ("idle", "0")):
            self.add(f"wake-ups a second, one playing: {state}", None, run[state]["per_second"], "",
                     1, target)
        run = self.run_once("zaffo-bench-host", "heap", "300", clip)
        self.add("longest small allocation beside a torn heap of 300 MiB, after playing",
                 run["calm_ms"], run["idle_ms"], "ms")

        run = self.run_once("zaffo-bench-host", "freeze", "5" if self.quick else "60",
                            self.lasting_clip())
        for kind in ("native", "fast"):
            self.add(f"right picture after a minute's freeze, beside an exact seek, {kind}",
                     run[kind]["seek_ms"], run[kind]["right_ms"], "ms", target="1.3")

    def lasting_clip(self):
        """A minute and a half of 720p, made once."""
        name = os.path.join(self.build, "lasting.mp4")
        if not os.path.exists(name):
            partial = os.path.join(self.build, ".lasting.mp4")
            subprocess.run(
                ["ffmpeg", "-nostdin", "-loglevel", "error", "-y", "-f", "lavfi", "-i",
                 "testsrc2=size=1280x720:rate=30", "-f", "lavfi", "-i",
                 "sine=frequency=300:sample_rate=48000", "-t", "90", "-pix_fmt", "yuv420p", "-c:v",
                 "libx264", "-preset", "veryfast", "-g", "60", "-c:a", "aac", partial], check=True)
            os.rename(partial, name)
        return name

    def heavy_clips(self):
        """4K HEVC with a key frame every ten seconds, made once."""
        folder = os.path.join(self.build, "heavy-clips")
        os.makedirs(folder, exist_ok=True)
        names = [os.path.join(folder, f"heavy-{n}.mp4") for n in range(HEAVY_PAGES)]
        for number, name in enumerate(names):
            if os.path.exists(name):
                continue
            partial = os.path.join(folder, f".partial-{number}.mp4")
            picture = f"mandelbrot=size=3840x2160:rate=30:start_x=-0.7{number}"
            subprocess.run(
                ["ffmpeg", "-nostdin", "-loglevel", "error", "-y", "-f", "lavfi", "-i", picture,
                 "-f", "lavfi", "-i", f"sine=frequency={220 * (number + 1)}:sample_rate=48000",
                 "-t", str(HEAVY_SECONDS), "-pix_fmt", "yuv420p", "-c:v", "libx265", "-preset",
                 "ultrafast", "-x265-params", "keyint=300:min-keyint=300:log-level=error", "-tag:v",
                 "hvc1", "-c:a", "aac", partial], check=True)
            os.rename(partial, name)
        return names

    def starve(self):
        """What heavy pages take away from a light one and from other queues."""
        light, heavy = self.clip(LONG_CLIPS[0]), self.heavy_clips()
        for mode, count, text in (("play", 2, "two 4K pages playing"),
                                  ("play", HEAVY_PAGES, "four 4K pages playing"),
                                  ("seek", 2, "exact seeks in two 4K pages")):
            run = self.run_once("zaffo-bench-starve", mode, "5", light, *heavy[:count])
            for key, what, target in (("serial_ms", "a serial queue's longest wait", "20 ms"),
                                      ("global_ms", "the global queue's longest wait", "20 ms"),
                                      ("silence_ms", "longest silence in a light page's sound", "0")):
                self.add(f"{text}: {what}", None, run[key], "ms", 1, target)
            seen = run["light_shown"] + run["light_dropped"]
            self.add(f"{text}: pictures that a light page drops", None,
                     100 * run["light_dropped"] / max(seen, 1), "%", 1, "5 %")

    def table(self):
        rows = [("", "beside", "library", "ratio", "target")] + self.rows
        widths = [max(len(row[i]) for row in rows) for i in range(5)]
        for row in rows:
            cells = [row[0].ljust(widths[0])] + [c.rjust(w) for c, w in zip(row[1:], widths[1:])]
            print("| " + " | ".join(cells) + " |")
            if row is rows[0]:
                print("|" + "|".join("-" * (w + 2) for w in widths) + "|")


def main():
    bench = Bench(sys.argv[1], sys.argv[2], "quick" in sys.argv[3:])
    for measure in (bench.latencies, bench.memory, bench.cpu, bench.fast, bench.loops, bench.feed,
                    bench.host, bench.starve):
        measure()
    print("Medians, beside libavformat and libavcodec alone (the floor: one thread, the same clips)"
          " unless the row says otherwise.\n")
    bench.table()


if __name__ == "__main__":
    main()
