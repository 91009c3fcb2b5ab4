#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""tools/mutate changes what is code, lists what its tests do not notice, and leaves no trace."""
import contextlib
import io
import os
import signal
import subprocess
import sys
import tempfile
import textwrap
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
sys.path.insert(0, os.path.join(ROOT, "tools"))

from mutation.changes import changes_of  # noqa: E402
from mutation.command import main  # noqa: E402
from mutation.known import read_known, row  # noqa: E402

HEADER = "| File | Function | Line | Change | Why |\n|---|---|---|---|---|\n"


def changes_in(code):
    return changes_of("src/sample/Sample.cpp", textwrap.dedent(code))


def told(code):
    return [change.what for change in changes_in(code)]


def results(code):
    code = textwrap.dedent(code)
    return [change.applied_to(code) for change in changes_of("src/sample/Sample.cpp", code)]


class Changes(unittest.TestCase):
    def test_comments_strings_includes_and_assertions_of_the_compiler_are_no_code(self):
        self.assertEqual([], told(r'''
            #include <a> // 1 + 1
            #define TWO \
              1 + 1
            /* if (a < b) call(); */
            static_assert(sizeof(int) == 4, "true");
            [[deprecated("0")]] const char* kText = "1 == 2 // \" true";
            const char* kRaw = R"x(a == 1 ")x";
            const char kLetter = '0';
            '''))

    def test_types_templates_and_declarations_are_left_alone(self):
        self.assertEqual([], told('''
            template <int N = 1, typename T = std::vector<std::vector<int>>>
            class Sample final : public Base<T> {
             public:
              explicit Sample(T&& value);
              Sample& operator=(const Sample&) = default;
              bool operator<(const Sample& other) const;
              virtual void call(int* pointer) const = 0;
              void other();
            };
            void f(const T& a, T* b) {
              const Sample first(a);
              auto& second = first;
              std::map<int, T> third;
              using Other = T;
            }
            '''))

    def test_operators_become_their_neighbours(self):
        self.assertEqual(["bool x = a <= b;", "bool x = a >= b;"], results("bool x = a < b;"))
        self.assertEqual(["`&&` becomes `||`"], told("bool x = a && b;"))
        self.assertEqual(["`-` becomes `+`", "`*` becomes `/`"], told("int x = a - b * c;"))
        self.assertEqual(["`!` is left out"], told("bool x = !a;"))
        self.assertEqual(["`++` becomes `--`"], told("int x = ++a;"))
        self.assertEqual(["`min` becomes `max`"], told("int x = std::min(a, b);"))

    def test_signs_and_addresses_are_not_taken_for_operators(self):
        self.assertEqual([], told("int* x = &a; int y = -b; int z = *c; auto&& w = d;"))

    def test_constants_become_others(self):
        self.assertEqual(["int x = 1;"], results("int x = 0;"))
        self.assertEqual(["auto x = 1U;"], results("auto x = 0U;"))
        self.assertEqual(["auto x = 0;"], results("auto x = 1;"))
        self.assertEqual(["auto x = 8;"], results("auto x = 7;"))
        self.assertEqual(["auto x = (2 * 1'000'000);"], results("auto x = 1'000'000;"))
        self.assertEqual(["auto x = 1.0;"], results("auto x = 0.0;"))
        self.assertEqual(["auto x = (2 * 2.5e-3);"], results("auto x = 2.5e-3;"))
        self.assertEqual(["bool x = false;"], results("bool x = true;"))

    def test_conditions_are_negated(self):
        self.assertIn("void f() { if (!(a)) return; }", results("void f() { if (a) return; }"))
        self.assertIn("void f() { if (!(a && b)) return; }",
                      results("void f() { if (a && b) return; }"))
        self.assertIn("void f() { if (auto a = b(); !a) return; }",
                      results("void f() { if (auto a = b()) return; }"))
        self.assertEqual(["`a ?` is negated"], told("int x = a ? b : c;"))
        self.assertIn("int x = call(1, !(a(2).b) ? c : d);",
                      results("int x = call(1, a(2).b ? c : d);"))

    def test_a_condition_of_one_operator_is_negated_once(self):
        self.assertEqual(["`==` becomes `!=`", "`return;` is left out"],
                         told("void f() { if (a == b) return; }"))
        self.assertEqual(["`!` is left out", "`return;` is left out"],
                         told("void f() { if (!a) return; }"))

    def test_calls_and_assignments_are_left_out(self):
        code = """
            Sample::Sample(int a) : a_(a), b_{a} {
              first();
            }
            void Sample::g() const {
              a_ = b;
              this->call<T>(b)->other();
              queue_->async([this, b] {
                if (b) inner();
                else
                  otherwise();
              });
              for (auto& c : d) c.go();
              ++count_;
              switch (b) {
                case kOne: one(); break;
              }
              const auto lambda = [](int c) -> std::vector<int> { made(c); return {}; };
              return;
            }
            """
        self.assertEqual(
            ["first();", "a_ = b;", "this->call<T>(b)->other();",
             "queue_->async([this, b] { if (b) inner(); else otherwise() …", "inner();",
             "otherwise();", "c.go();", "++count_;", "one();", "made(c);"],
            [what[1:-len("` is left out")] for what in told(code) if what.endswith("is left out")])

    def test_an_exit_is_left_out_only_where_something_follows(self):
        self.assertIn("int f() { if (a == b) ; return c; }",
                      results("int f() { if (a == b) return d; return c; }"))
        self.assertEqual([], told("int f() { return c; }"))
        self.assertIn("`return d;` is left out", told("int f() { if (a) { return d; } return c; }"))

    def test_a_change_knows_its_function(self):
        code = """
            constexpr int kOne = 1;
            Sample::Sample(int a) : a_(a), b_{0} { c_ = 7; }
            std::vector<int> Sample::get(int a) const {
              if (a == 2) return {};
              return call([a] { return a + 3; });
            }
            class Other { int inside() const { return 4; } int outside = 5; };
            """
        self.assertEqual(
            {"1": "", "0": "Sample", "7": "Sample", "==": "get", "2": "get", "+": "get",
             "3": "get", "4": "inside", "5": ""},
            {change.what[1:change.what.index("`", 1)]: change.function
             for change in changes_in(code) if "becomes" in change.what})

    def test_a_change_is_known_by_its_line_and_what_it_does(self):
        change = changes_in("bool x = a || b;")[0]
        self.assertEqual(r"| `src/sample/Sample.cpp` | | `bool x = a \|\| b;` | `\|\|` becomes `&&` | |",
                         row(change))
        table = HEADER + row(change)[:-1] + "same |"
        self.assertTrue(read_known(table)[0].covers(change))
        self.assertFalse(read_known(table)[0].covers(changes_in("bool y = a || b;")[0]))
        anywhere = HEADER + "| `src/*` | | | `\\|\\|` becomes `&&` | x |"
        self.assertTrue(read_known(anywhere)[0].covers(change))


COMMAND = f"""
import sys
sys.path.insert(0, {os.path.join(ROOT, 'tools')!r})
from mutation.command import main
sys.exit(main(sys.argv[1], sys.argv[2:]))
"""
PROJECT = {
    "CMakeLists.txt": """
        cmake_minimum_required(VERSION 3.16)
        project(sample CXX)
        add_executable(test-sample src/sample/Sample.cpp tests/sample/SampleTest.cpp)
        set_target_properties(test-sample PROPERTIES RUNTIME_OUTPUT_DIRECTORY tests)
        """,
    "src/sample/Sample.cpp": """
        int clamped(int value) {
          if (value > 9) return 9;
          return value;
        }
        int doubled(unsigned value) {
          volatile int sum = 0;
          for (unsigned long long count = 0; count != value; ++count) sum = sum + 2;
          return sum;
        }
        """,
    "tests/sample/SampleTest.cpp": """
        #include <cstdlib>
        int clamped(int);
        int doubled(unsigned);
        int main() {
          if (std::getenv("SAMPLE_FAILS")) return 1;
          return clamped(5) == 5 && clamped(10) == 9 && doubled(3) == 6 ? 0 : 1;
        }
        """,
    "tests/README.md": HEADER,
    ".gitignore": "/build/\n",
}
SAME = ("| `src/sample/Sample.cpp` | `clamped` | `if (value > 9) return 9;` | `>` becomes `>=` "
        "| Nine is nine. |\n")
# Says who it is when something was changed, and never ends.
ENDLESS = """
#include <unistd.h>
#include <fstream>
int doubled(unsigned);
int main() {
  if (doubled(3) == 6) return 0;
  std::ofstream("%s") << getpid();
  for (;;) pause();
}
"""


class Mutate(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.root = folder.name
        subprocess.run(["git", "init", "--quiet"], cwd=cls.root, check=True)

    def setUp(self):
        for name, text in PROJECT.items():
            self.write(name, textwrap.dedent(text).lstrip())

    def write(self, name, text, mode="w"):
        path = os.path.join(self.root, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, mode, encoding="utf-8") as file:
            file.write(text)

    def mutate(self, *arguments):
        output = io.StringIO()
        with contextlib.redirect_stdout(output), contextlib.redirect_stderr(output):
            status = main(self.root, ["src/sample", *arguments])
        self.output = output.getvalue()
        return status

    def files(self):
        found = {}
        for folder in ("src", "tests"):
            for path, _, names in os.walk(os.path.join(self.root, folder)):
                for name in names:
                    with open(os.path.join(path, name), encoding="utf-8") as file:
                        found[os.path.relpath(os.path.join(path, name), self.root)] = file.read()
        return found

    def test_what_no_test_notices_is_listed_and_the_checkout_stays_as_it_is(self):
        before = self.files()
        self.assertEqual(1, self.mutate("--time-limit", "2", "--jobs", "2"), self.output)
        self.assertIn("survived: src/sample/Sample.cpp:2: `>` becomes `>=`", self.output)
        self.assertIn("For tests/README.md", self.output)
        # Counting down from zero to three takes longer than the limit.
        self.assertIn("12 of 12 changes tried: 11 caught (1 by the time limit), 0 did not compile, "
                      "1 survived (0 known)", self.output)
        self.assertEqual(before, self.files())

        self.write("tests/README.md", SAME, "a")
        self.assertEqual(0, self.mutate("--line", "2", "--file", "Sample.cpp"), self.output)
        self.assertIn("1 survived (1 known)", self.output)

    def test_what_is_known_to_survive_and_does_not_or_is_gone_is_told(self):
        self.write("tests/README.md", SAME.replace("`>=`", "`<=`"), "a")
        self.write("tests/README.md", SAME.replace("9", "8"), "a")
        self.mutate("--line", "2", "--file", "Sample.cpp")
        self.assertIn("out of date in tests/README.md: src/sample/Sample.cpp: if (value > 8) return 8;",
                      self.output)
        self.assertIn("caught now, though tests/README.md names it", self.output)

    def test_a_list_and_a_sample_that_can_be_had_again(self):
        self.assertEqual(0, self.mutate("--list", "--sample", "3", "--seed", "4"))
        first = self.output
        self.assertEqual(0, self.mutate("--list", "--sample", "3", "--seed", "4"))
        self.assertEqual(first, self.output)
        self.assertIn("3 changes", first)

    def test_nothing_can_be_told_where_there_is_nothing_to_change_or_to_test(self):
        self.assertEqual(2, self.mutate("--list", "--file", "Other.cpp"))
        self.assertEqual(2, self.mutate("--list", "--file", "Sample.cpp", "--line", "400..500"))
        self.assertEqual(2, main(self.root, ["src/other", "--list"]))

    def test_nothing_can_be_told_where_the_tests_fail_anyway(self):
        os.environ["SAMPLE_FAILS"] = "1"
        self.addCleanup(os.environ.pop, "SAMPLE_FAILS")
        self.assertEqual(2, self.mutate("--sample", "1"))
        self.assertIn("fails without any change", self.output)

    def test_an_interrupted_run_ends_what_it_started_and_restores_its_copy(self):
        pipe = os.path.join(self.root, "pipe")
        os.mkfifo(pipe)
        self.write("tests/sample/SampleTest.cpp", ENDLESS % pipe)
        running = subprocess.Popen(
            [sys.executable, "-c", COMMAND, self.root, "src/sample", "--file", "Sample.cpp",
             "--line", "6", "--time-limit", "600"],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        with open(pipe, encoding="utf-8") as file:
            endless = int(file.read())
        running.send_signal(signal.SIGTERM)
        self.assertEqual(130, running.wait(timeout=60))
        self.assertFalse(os.path.exists(f"/proc/{endless}"))
        copy = os.path.join(self.root, "build/mutate/1/source/src/sample/Sample.cpp")
        with open(copy, encoding="utf-8") as file:
            self.assertEqual(self.files()["src/sample/Sample.cpp"], file.read())


if __name__ == "__main__":
    unittest.main()
