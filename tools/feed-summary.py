#!/usr/bin/env python3
"""What a run of zaffo-feed measured, for a person: feed-summary.py STATS.json"""
import json
import statistics
import sys


def median(values):
    return f"{statistics.median(values):.2f} ms" if values else "none"


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        stats = json.load(file)
    swipes = stats["swipes"]
    failed = [s for s in swipes if s["error"]]
    shown = [s for s in swipes if s["request_to_first_frame_ms"] is not None]
    by_start = {start: [s["request_to_first_frame_ms"] for s in shown if s["start"] == start]
                for start in ("cold", "warm")}
    print(f"\n{len(swipes)} pages shown, {len(failed)} with an error; "
          f"{sum(s['frames_shown'] for s in swipes)} frames on screen, "
          f"{sum(s['frames_dropped'] for s in swipes)} dropped.")
    for start, times in by_start.items():
        print(f"  {start} pages: {len(times)}, first frame after {median(times)} (median)")
    print(f"  longest the main thread was blocked: {stats['longest_main_thread_block_ms']:.2f} ms")
    end = stats["end"]
    if end:
        print(f"  at the end: {end['players']} players, {end['threads']} threads, "
              f"{end['file_descriptors']} file descriptors, "
              f"{end['resident_bytes'] / 2**20:.0f} MiB resident")


if __name__ == "__main__":
    main()
