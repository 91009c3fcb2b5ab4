# SPDX-License-Identifier: Apache-2.0
"""The command line of tools/mutate, and what it does."""
import argparse
import os
import random
import signal
import subprocess
import sys
import threading
import time

from mutation.changes import changes_of
from mutation.known import read_known, row
from mutation.workshop import Failed, Processes, Stopped, Workshop

KNOWN = os.path.join("tests", "README.md")
DESCRIPTION = """\
Changes one operator, constant or statement of a folder at a time, builds, runs the folder's test
program, and lists the changes that no test noticed: survivors. Each names something that the code
does and no test asks for, or that need not be there.

It works in copies under build/mutate, which it keeps to be quick the next time, and never touches
the checkout; what is not committed yet is looked at too. A mutant that runs on is ended and counts
as caught. Survivors that tests/README.md names with a reason are counted apart."""
EPILOG = """\
examples:
  tools/mutate src/pool
  tools/mutate src/pool --file PlayerManager.cpp --line 90..140
  nice tools/mutate src/fast --sample 50 --seed 1

exit status: 0 when nothing survived but what is known, 1 when something did, 2 when there was
nothing to test or the tests fail without any change, 130 when it was interrupted"""


def main(root, arguments):
    options = _parse(arguments)
    try:
        return _run(os.path.realpath(root), options)
    except Failed as error:
        print(f"tools/mutate: {error}", file=sys.stderr)
        return 2
    except (Stopped, KeyboardInterrupt):
        print("tools/mutate: interrupted", file=sys.stderr)
        return 130


def _parse(arguments):
    parser = argparse.ArgumentParser(
        prog="tools/mutate", description=DESCRIPTION, epilog=EPILOG,
        formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", help="of the sources to change: src/pool, src/platform/media")
    parser.add_argument("--file", action="append", metavar="F", default=[],
                        help="only this file of the folder; may be given several times")
    parser.add_argument("--line", metavar="N[..M]", type=_lines,
                        help="only these lines of the file")
    parser.add_argument("--jobs", metavar="N", type=int, default=1,
                        help="mutants at a time, each in a copy of its own (default: 1)")
    parser.add_argument("--sample", metavar="N", type=int, help="only N of the changes, at random")
    parser.add_argument("--seed", metavar="N", type=int, help="makes the same choice again")
    parser.add_argument("--time-limit", metavar="SECONDS", type=float,
                        help="for the tests of one mutant (default: 10, and four times what they "
                             "take)")
    parser.add_argument("--list", action="store_true", help="prints the changes and makes none")
    parser.add_argument("--verbose", action="store_true", help="tells what became of each mutant")
    options = parser.parse_args(arguments)
    if options.line and len(options.file) != 1:
        parser.error("--line goes with one --file")
    return options


def _lines(text):
    first, _, last = text.partition("..")
    return range(int(first), int(last or first) + 1)


def _run(root, options):
    folder = os.path.relpath(os.path.join(root, options.folder), root)
    everything = _changes(root, _files(root, folder, options))
    changes = _chosen(everything, folder, options)
    if options.list:
        for change in changes:
            print(f"{change.file}:{change.line}: {change.what}")
        print(f"{len(changes)} changes")
        return 0
    target = _test_program(root, folder)
    with open(os.path.join(root, KNOWN), encoding="utf-8") as file:
        known = read_known(file.read())
    for entry in known:
        # A file that is read here, and no change of it that the row speaks of.
        if entry.file in {change.file for change in everything} and not any(
                entry.covers(change) for change in everything):
            print(f"out of date in {KNOWN}: {entry.file}: {entry.code}: {entry.what}")
    return _Session(root, target, changes, known, options).run()


def _files(root, folder, options):
    listed = subprocess.run(
        ["git", "ls-files", "--cached", "--others", "--exclude-standard", "--", folder + "/"],
        cwd=root, check=True, capture_output=True, text=True).stdout.split("\n")
    files = [name for name in set(listed)
             if os.path.dirname(name) == folder and name.endswith((".cpp", ".h"))]
    # Headers last: each of their changes builds all that includes them.
    files.sort(key=lambda name: (name.endswith(".h"), name))
    if options.file:
        wanted = {os.path.basename(name) for name in options.file}
        strange = wanted - {os.path.basename(name) for name in files}
        if strange:
            raise Failed(f"{folder} has no {', '.join(sorted(strange))}")
        files = [name for name in files if os.path.basename(name) in wanted]
    return files


def _changes(root, files):
    changes = []
    for name in files:
        with open(os.path.join(root, name), encoding="utf-8") as file:
            changes += changes_of(name, file.read())
    return changes


def _chosen(changes, folder, options):
    changes = [change for change in changes if not options.line or change.line in options.line]
    if not changes:
        raise Failed(f"there is nothing to change in {folder}")
    if options.sample and options.sample < len(changes):
        seed = options.seed if options.seed is not None else random.SystemRandom().randrange(10000)
        print(f"{options.sample} of {len(changes)} changes "
              f"(--sample {options.sample} --seed {seed})")
        # Sorted again: what changes the same file one after the other builds little else.
        picked = random.Random(seed).sample(range(len(changes)), options.sample)
        changes = [changes[index] for index in sorted(picked)]
    return changes


def _test_program(root, folder):
    """src/platform/media and its rooms are tested by tests/platform/media, in test-platform-media."""
    tests = folder if folder.split(os.sep)[0] == "app" else os.path.relpath(folder, "src")
    if not os.path.isdir(os.path.join(root, "tests", tests)):
        raise Failed(f"there are no tests for {folder}: no tests/{tests}")
    while _has_tests(root, os.path.dirname(tests)):
        tests = os.path.dirname(tests)
    return "test-" + tests.replace(os.sep, "-")


def _has_tests(root, folder):
    return folder != "" and any(name.endswith("Test.cpp")
                                for name in os.listdir(os.path.join(root, "tests", folder)))


class _Session:
    def __init__(self, root, target, changes, known, options):
        self._root = root
        self._target = target
        self._changes = changes
        self._known = known
        self._options = options
        self._processes = Processes()
        self._mutex = threading.Lock()
        self._limit = options.time_limit
        self._outcomes = {"failed": [], "late": [], "unbuilt": [], "passed": []}
        self._trouble = []
        self._ended = threading.Semaphore(0)

    def run(self):
        before = signal.signal(signal.SIGTERM, signal.default_int_handler)
        workers = [threading.Thread(target=self._guarded, args=(self._prepare_and_work, share))
                   for share in self._shares()]
        try:
            for worker in workers:
                worker.start()
            # Not join(): a thread whose join is interrupted counts as ended from then on.
            for _ in workers:
                self._ended.acquire()
        except KeyboardInterrupt:
            self._processes.stop()
            for worker in workers:
                worker.join()
            self._report()
            raise
        finally:
            signal.signal(signal.SIGTERM, before)
        if self._trouble:
            raise self._trouble[0]
        return self._report()

    def _shares(self):
        """A run of the changes for each worker: the fewer files it changes, the less it builds."""
        count = max(1, min(self._options.jobs, len(self._changes)))
        bounds = [len(self._changes) * index // count for index in range(count + 1)]
        return [self._changes[first:last] for first, last in zip(bounds, bounds[1:])]

    def _guarded(self, work, *arguments):
        try:
            work(*arguments)
        except Exception as error:  # told by the main thread
            with self._mutex:
                self._trouble.append(error)
            self._processes.stop()
        finally:
            self._ended.release()

    def _prepare_and_work(self, share):
        workshop = Workshop(self._root, self._processes)
        try:
            workshop.prepare(self._target, self._options.jobs)
            outcome, output, seconds = workshop.test(self._target, ["*"], 3600)
            if outcome != "passed":
                raise Failed(f"{self._target} fails without any change:\n{output}")
            limit = self._limit or 10 + 4 * seconds
            print(f"{self._target} takes {seconds:.1f} s; {len(share)} changes, each for "
                  f"{limit:.0f} s at most, in {os.path.relpath(workshop.folder, self._root)}",
                  flush=True)
            for change in share:
                self._try(workshop, change, limit)
        finally:
            workshop.close()

    def _try(self, workshop, change, limit):
        begin = time.monotonic()
        outcome, output = "unbuilt", ""
        if workshop.make_changed(change, self._target):
            # Most are noticed by the tests that bear the name of the file.
            named = f"*{os.path.splitext(os.path.basename(change.file))[0]}*"
            outcome, output, _ = workshop.test(self._target, [named, f"-{named}"], limit)
        with self._mutex:
            self._outcomes[outcome].append(change)
            self._tell(change, outcome, output, time.monotonic() - begin)

    def _tell(self, change, outcome, output, seconds):
        if outcome == "passed" and not self._why(change):
            print(f"survived: {change.file}:{change.line}: {change.what}\n    {change.code}",
                  flush=True)
        elif self._options.verbose:
            failed = [line for line in output.splitlines() if "[  FAILED  ]" in line][:1]
            if outcome == "failed" and not failed:
                failed = ["by a crash"]
            word = {"passed": "survived, known", "failed": "caught",
                    "late": "caught by the time limit", "unbuilt": "does not compile"}[outcome]
            print(f"{word}: {change.file}:{change.line}: {change.what} ({seconds:.1f} s)",
                  *failed, flush=True)

    def _why(self, change):
        return next((entry.why for entry in self._known if entry.covers(change)), None)

    def _report(self):
        survivors = self._outcomes["passed"]
        strange = [change for change in survivors if not self._why(change)]
        caught = self._outcomes["failed"] + self._outcomes["late"]
        tried = sum(len(changes) for changes in self._outcomes.values())
        for entry in self._known:
            if any(entry.covers(change) for change in caught) and not any(
                    entry.covers(change) for change in survivors):
                print(f"caught now, though {KNOWN} names it: {entry.file}: {entry.code}: "
                      f"{entry.what}")
        print(f"\n{tried} of {len(self._changes)} changes tried: {len(caught)} caught "
              f"({len(self._outcomes['late'])} by the time limit), "
              f"{len(self._outcomes['unbuilt'])} did not compile, {len(survivors)} survived "
              f"({len(survivors) - len(strange)} known)")
        if strange:
            print(f"\nFor {KNOWN}, where a test would say nothing that matters:")
            print("\n".join(row(change) for change in strange))
        return 1 if strange else 0
