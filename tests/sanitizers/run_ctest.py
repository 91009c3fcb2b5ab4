#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs ctest: run_ctest.py BUILD [--second-try] [ctest's arguments]

A sanitizer's report in whatever process of a test fails the run, also where the test passes: a
program that a test started may end as if nothing were. Reports go to BUILD/sanitizer-reports, and
are printed in the end.

--second-try: tests labelled `real-time`, which wait for the real clock, may be left without a
processor for too long where a sanitizer makes all ten times slower, or the machine serves others
too. What failed runs once more if all of it bears that label, and never after a report or a crash:
neither is a matter of time."""
import json
import os
import re
import shutil
import subprocess
import sys

LABEL = "real-time"
OPTIONS = ("ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS")
SPOKEN = re.compile(r"(Address|Leak|Memory|Thread|UndefinedBehavior)Sanitizer: |: runtime error: ")
# It is told of each change of stacks (media/source/Fiber), and says this all the same.
HARMLESS = re.compile(r"==\d+==WARNING: ASan doesn't fully support makecontext/swapcontext .*\n")
FAILED = re.compile(r"^\s+\d+ - (.+) \(([\w* ]+)\)", re.MULTILINE)  # in ctest's summary
TIMELY = ("Failed", "Timeout")  # other ways to fail are signals, or no program to run


def main():
    build = os.path.abspath(sys.argv[1])
    arguments = sys.argv[2:]
    may_try_again = "--second-try" in arguments
    arguments = [word for word in arguments if word != "--second-try"]

    reports = os.path.join(build, "sanitizer-reports")
    shutil.rmtree(reports, ignore_errors=True)
    os.makedirs(reports)
    environment = with_reports_in(reports)

    status = run(build, arguments, environment)
    if status != 0 and may_try_again and not reports_in(reports):
        status = second_try(build, arguments, environment, status)
    return print_reports(reports) or status


def with_reports_in(folder):
    environment = dict(os.environ)
    for name in OPTIONS:
        given = [environment[name]] if environment.get(name) else []
        # That a suppression was used is no report.
        environment[name] = ":".join(
            [*given, f"log_path='{os.path.join(folder, 'report')}'", "print_suppressions=0"])
    return environment


def run(build, arguments, environment):
    return subprocess.call(
        ["ctest", "--test-dir", build, "--output-on-failure", "--output-log", log_of(build),
         *arguments], env=environment)


def log_of(build):
    return os.path.join(build, "Testing", "run_ctest.log")


def second_try(build, arguments, environment, status):
    with open(log_of(build), encoding="utf-8", errors="replace") as file:
        failed, hindrances = judge(file.read(), tests_with_label(build))
    if not failed or hindrances:
        print("\nNo second try:", *hindrances, sep="\n  ", flush=True)
        return status
    print("\nA second try, alone, for what waits for the real clock:", *failed, sep="\n  ",
          flush=True)
    return run(build, [*arguments, "--rerun-failed", "-j", "1"], environment)


def judge(log, labelled):
    """The tests that failed, and what forbids to try them again."""
    _, _, summary = log.rpartition("The following tests FAILED:")
    failed = FAILED.findall(summary)
    hindrances = ["a sanitizer has spoken"] if SPOKEN.search(log) else []
    for name, how in failed:
        if how not in TIMELY:
            hindrances.append(f"{name} ended by {how}")
        elif name not in labelled:
            hindrances.append(f"{name} does not wait for the real clock")
    return [name for name, _ in failed], hindrances


def tests_with_label(build):
    shown = subprocess.run(
        ["ctest", "--test-dir", build, "--show-only=json-v1", "-L", f"^{LABEL}$"],
        check=True, capture_output=True, text=True).stdout
    return {test["name"] for test in json.loads(shown)["tests"]}


def print_reports(folder):
    """Says what the sanitizers said; 1 when they said something."""
    reports = reports_in(folder)
    for name, text in reports.items():
        print(f"\n{name}:\n{text}")
    if reports:
        print(f"{len(reports)} reports of sanitizers in {folder}", flush=True)
    return 1 if reports else 0


def reports_in(folder):
    """The texts of all that say something, by name."""
    reports = {}
    for name in sorted(os.listdir(folder)):
        with open(os.path.join(folder, name), encoding="utf-8", errors="replace") as file:
            reports[name] = HARMLESS.sub("", file.read())
    return {name: text for name, text in reports.items() if text.strip()}


if __name__ == "__main__":
    sys.exit(main())
