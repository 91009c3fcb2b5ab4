#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What waits for the real clock gets a second try, and nothing that a sanitizer spoke in."""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

RUNNER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "run_ctest.py")
RACE = """
#include <thread>
int shared = 0;
int main(int count, char**) {
  if (count > 1) return 0;
  std::thread other([] { shared = 1; });
  shared = 2;
  other.join();
}
"""


class RunCTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)
        self.tests, self.output = [], ""

    def add(self, name, first, label="real-time"):
        """A test that does `first` when it runs for the first time, and passes from then on."""
        script = os.path.join(self.folder, name)
        with open(script, "w", encoding="utf-8") as file:
            file.write(f'#!/bin/bash\necho run >>"$0.runs"\n'
                       f'[ "$(wc -l <"$0.runs")" -gt 1 ] || {{ {first}; }}\n')
        os.chmod(script, 0o755)
        self.tests.append(f'add_test("{name}" "{script}")\n'
                          f'set_tests_properties("{name}" PROPERTIES LABELS "some;{label}")\n')

    def run_all(self, *arguments, **variables):
        with open(os.path.join(self.folder, "CTestTestfile.cmake"), "w", encoding="utf-8") as file:
            file.writelines(self.tests)
        done = subprocess.run([sys.executable, RUNNER, self.folder, *arguments],
                              env=dict(os.environ, **variables), capture_output=True, text=True)
        self.output = done.stdout + done.stderr
        return done.returncode

    def runs_of(self, name):
        with open(os.path.join(self.folder, f"{name}.runs"), encoding="utf-8") as file:
            return len(file.readlines())

    def test_what_waits_for_the_clock_may_fail_once(self):
        self.add("late", "exit 1")
        self.add("fine", "true")
        self.assertEqual(0, self.run_all("--second-try"), self.output)
        self.assertEqual([2, 1], [self.runs_of("late"), self.runs_of("fine")])
        self.assertIn("A second try", self.output)

    def test_not_when_nobody_asks_for_a_second_try(self):
        self.add("late", "exit 1")
        self.assertNotEqual(0, self.run_all())
        self.assertEqual(1, self.runs_of("late"))

    def test_what_fails_twice_has_failed(self):
        self.add("wrong", 'rm "$0.runs"; exit 1')
        self.assertNotEqual(0, self.run_all("--second-try"))

    def test_what_does_not_wait_for_the_clock_fails_at_once(self):
        self.add("wrong", "exit 1", label="real-time-like")
        self.assertNotEqual(0, self.run_all("--second-try"))
        self.assertEqual(1, self.runs_of("wrong"))
        self.assertIn("wrong does not wait for the real clock", self.output)

    def test_nothing_is_tried_again_beside_what_has_failed_for_good(self):
        self.add("late", "exit 1")
        self.add("wrong", "exit 1", label="other")
        self.assertNotEqual(0, self.run_all("--second-try"))
        self.assertEqual(1, self.runs_of("late"))

    def test_that_stacks_are_changed_is_no_report(self):
        said = ("==7==WARNING: ASan doesn't fully support makecontext/swapcontext functions and may "
                "produce false positives in some cases!")
        report = os.path.join(self.folder, "sanitizer-reports", "report.7")
        self.add("fibers", f'echo "{said}" >"{report}"')
        self.assertEqual(0, self.run_all(), self.output)
        self.add("fibers-and-more", f'echo "{said}" >"{report}"; echo more >>"{report}"')
        self.assertNotEqual(0, self.run_all())

    def test_a_crash_is_not_tried_again(self):
        self.add("crash", "kill -SEGV $$")
        self.assertNotEqual(0, self.run_all("--second-try"))
        self.assertEqual(1, self.runs_of("crash"))

    def test_a_report_that_the_test_prints_is_not_tried_again(self):
        self.add("spoken", "echo WARNING: ThreadSanitizer: data race; exit 66")
        self.assertNotEqual(0, self.run_all("--second-try"))
        self.assertEqual(1, self.runs_of("spoken"))

    def test_a_report_to_the_file_is_not_tried_again_and_is_printed(self):
        self.add("spoken", self.report("TSAN_OPTIONS") + "; exit 66")
        self.assertNotEqual(0, self.run_all("--second-try"))
        self.assertEqual(1, self.runs_of("spoken"))
        self.assertIn("said something", self.output)

    def test_a_report_in_a_test_that_passes_fails_the_run(self):
        for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS"):
            with self.subTest(name):
                self.tests.clear()
                self.add(name, self.report(name))
                self.assertNotEqual(0, self.run_all(**{name: "halt_on_error=1"}))

    def test_a_report_of_the_second_try_fails_the_run(self):
        self.add("late", "exit 1")
        with open(os.path.join(self.folder, "late"), "a", encoding="utf-8") as file:
            file.write(f'[ "$(wc -l <"$0.runs")" -lt 2 ] || {{ {self.report("TSAN_OPTIONS")}; }}\n')
        self.assertNotEqual(0, self.run_all("--second-try"))

    def test_reports_of_a_run_before_are_forgotten(self):
        self.add("spoken", self.report("TSAN_OPTIONS"))
        self.assertNotEqual(0, self.run_all())
        self.assertEqual(0, self.run_all())

    def test_a_race_that_shows_once_in_a_child_that_nobody_asks_fails_the_run(self):
        source, program = os.path.join(self.folder, "race.cpp"), os.path.join(self.folder, "a.out")
        with open(source, "w", encoding="utf-8") as file:
            file.write(RACE)
        built = subprocess.run(["g++", "-fsanitize=thread", source, "-o", program],
                               capture_output=True)
        if built.returncode != 0:
            self.skipTest("g++ has no thread sanitizer here")
        self.add("race", f"{program} || true")
        self.add("again", f"{program}; exit 1")
        self.assertNotEqual(0, self.run_all("--second-try", TSAN_OPTIONS="halt_on_error=1"))
        self.assertEqual([1, 1], [self.runs_of("race"), self.runs_of("again")])
        self.assertIn("data race", self.output)

    @staticmethod
    def report(variable):
        """What a sanitizer's runtime does with the last log_path: it adds the process's number."""
        return (f'path=$(grep -o "log_path=\'[^\']*" <<<"${variable}" | '
                f'tail -n 1 | cut -d "\'" -f 2); '
                'echo said something >"$path.$$"')


if __name__ == "__main__":
    unittest.main()
