#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What changed is found, on a small repository of its own."""
import os
import subprocess
import sys
import tempfile
import unittest

SCRIPT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "changed_sources.py")
FILES = {
    "src/pool/A.h": "", "src/pool/A.cpp": '#include "pool/A.h"\n',
    "src/pool/Shared.h": "", "src/pool/Between.h": '#include "pool/Shared.h"\n',
    "src/pool/B.cpp": '#include "pool/Between.h"\n', "app/C.cpp": "", ".clang-tidy": "",
    "tests/pool/ATest.cpp": "",
}


class ChangedSources(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = folder.name
        self.git("init", "--quiet", "--initial-branch", "main")
        self.write(FILES)
        self.commit()

    def git(self, *arguments):
        subprocess.run(["git", "-c", "user.name=n", "-c", "user.email=e", *arguments],
                       cwd=self.root, check=True, capture_output=True)

    def write(self, files):
        for name, text in files.items():
            path = os.path.join(self.root, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)

    def commit(self):
        self.git("add", "--all")
        self.git("commit", "--quiet", "--allow-empty", "--message", "m")

    def changed(self):
        return subprocess.run([sys.executable, SCRIPT], cwd=self.root, check=True, text=True,
                              capture_output=True).stdout.split()

    def test_without_history_it_is_everything(self):
        self.assertEqual(["app/C.cpp", "src/pool/A.cpp", "src/pool/B.cpp"], self.changed())

    def test_a_branch_counts_from_where_it_left_main(self):
        self.write({"app/C.cpp": "// on main\n"})
        self.commit()
        self.git("checkout", "--quiet", "-b", "work")
        self.write({"src/pool/A.cpp": "// committed\n"})
        self.commit()
        self.write({"src/pool/B.cpp": "// not committed\n", "src/pool/New.cpp": ""})
        self.git("add", "src/pool/New.cpp")
        self.assertEqual(["src/pool/B.cpp", "src/pool/New.cpp", "src/pool/A.cpp"], self.changed(),
                         "what changed last comes first")

    def test_main_counts_from_twenty_commits_ago(self):
        self.write({"src/pool/A.cpp": "// long ago\n"})
        self.commit()
        self.write({"app/C.cpp": "// of late\n"})
        for _ in range(20):
            self.commit()
        self.assertEqual(["app/C.cpp"], self.changed())

    def test_for_a_header_stands_its_source_or_one_that_includes_it(self):
        self.git("checkout", "--quiet", "-b", "work")
        self.commit()
        self.write({"src/pool/A.h": "// changed\n"})
        self.assertEqual(["src/pool/A.cpp"], self.changed())
        self.write({"src/pool/A.h": "", "src/pool/Shared.h": "// changed\n"})
        self.assertEqual(["src/pool/B.cpp"], self.changed())

    def test_what_is_gone_or_no_source_counts_for_nothing(self):
        self.git("checkout", "--quiet", "-b", "work")
        self.write({"tests/pool/ATest.cpp": "// changed\n"})
        os.remove(os.path.join(self.root, "src/pool/A.cpp"))
        self.commit()
        self.assertEqual([], self.changed())

    def test_other_settings_look_at_everything(self):
        self.git("checkout", "--quiet", "-b", "work")
        self.commit()
        self.write({".clang-tidy": "Checks: more\n"})
        self.assertEqual(3, len(self.changed()))


if __name__ == "__main__":
    unittest.main()
