# SPDX-License-Identifier: Apache-2.0
"""A copy of the checkout to break things in, with a build of its own."""
import fcntl
import os
import shutil
import signal
import subprocess
import threading
import time

# Nothing to read in a debugger; optimised a little, for what the tests of sound and pictures gain
# thereby is more than what the compiler loses.
CONFIGURE = ("-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-O1 -g0 -w",
             "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST", "-DZAFFO_EXAMPLES=OFF")
BUILD_LIMIT = 1800
# What a mutant that asks for memory without end may have.
MEMORY = 8 << 30


class Failed(Exception):
    """Something that is no mutant's doing went wrong."""


class Stopped(Exception):
    """The run was interrupted."""


class Processes:
    """Runs programs, each with its children in a group of its own, and can end them all."""

    def __init__(self):
        self._mutex = threading.Lock()
        self._running = set()
        self._stopped = False

    def run(self, command, limit, **options):
        """The status and output of a program; the status is None when it took longer than `limit`
        seconds and was ended, children and all."""
        with self._mutex:
            if self._stopped:
                raise Stopped
            process = subprocess.Popen(
                command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                start_new_session=True, text=True, errors="replace", **options)
            self._running.add(process)
        try:
            output, _ = process.communicate(timeout=limit)
            status = process.returncode
        except subprocess.TimeoutExpired:
            self._end(process)
            output, _ = process.communicate()
            status = None
        finally:
            self._end(process)  # children that outlived it
            with self._mutex:
                self._running.discard(process)
        if self._stopped:
            raise Stopped
        return status, output

    def stop(self):
        with self._mutex:
            self._stopped = True
            for process in self._running:
                self._end(process)

    @staticmethod
    def _end(process):
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass


class Workshop:
    """One copy, in build/mutate/NUMBER of the checkout; nobody else uses it while it is open."""

    def __init__(self, root, processes):
        self._root = root
        self._processes = processes
        self._changed = None
        self._lock = None
        number = 0
        while self._lock is None:
            number += 1
            self.folder = os.path.join(root, "build", "mutate", str(number))
            self._lock = self._take(self.folder)
        self.source = os.path.join(self.folder, "source")
        self.build = os.path.join(self.folder, "build")
        self._scratch = os.path.join(self.folder, "scratch")

    def close(self):
        self.restore()
        self._lock.close()

    @staticmethod
    def _take(folder):
        os.makedirs(folder, exist_ok=True)
        lock = open(os.path.join(folder, "lock"), "w", encoding="utf-8")
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
            return lock
        except OSError:
            lock.close()
            return None

    def prepare(self, target, jobs):
        """Brings the copy up to the checkout as it is now, and builds `target` in it."""
        self._copy()
        if not os.path.exists(os.path.join(self.build, "build.ninja")):
            self._configure()
        status, output = self._make(target, jobs, dict(os.environ, CCACHE_BASEDIR=self.folder))
        if status != 0:
            raise Failed(f"{target} does not build as it is:\n{output}")

    def _copy(self):
        listed = subprocess.run(
            ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
            cwd=self._root, check=True, capture_output=True, text=True).stdout
        wanted = {name for name in listed.split("\0")
                  if name and os.path.isfile(os.path.join(self._root, name))}
        for folder, _, names in os.walk(self.source):
            for name in names:
                path = os.path.join(folder, name)
                if os.path.relpath(path, self.source) not in wanted:
                    os.remove(path)
        for name in wanted:
            self._copy_file(os.path.join(self._root, name), os.path.join(self.source, name))

    @staticmethod
    def _copy_file(original, copy):
        """Leaves a copy that is the same as it is, with its time, so that it is not built again."""
        with open(original, "rb") as file:
            content = file.read()
        if os.path.isfile(copy):
            with open(copy, "rb") as file:
                if file.read() == content:
                    return
        os.makedirs(os.path.dirname(copy), exist_ok=True)
        shutil.copy(original, copy)
        os.utime(copy)

    def _configure(self):
        quick = ["-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld"] if shutil.which("ld.lld") else []
        if shutil.which("clang++") and "CXX" not in os.environ:
            quick.append("-DCMAKE_CXX_COMPILER=clang++")  # a quarter faster than g++
        real_clips = os.path.join(os.path.dirname(self._root), "shared", "media")
        status, output = self._processes.run(
            ["cmake", "-G", "Ninja", "-S", self.source, "-B", self.build, *CONFIGURE, *quick,
             f"-DZAFFO_REAL_CLIPS={real_clips}"], BUILD_LIMIT)
        if status != 0:
            raise Failed(f"the copy cannot be configured:\n{output}")

    def _make(self, target, jobs, environment):
        return self._processes.run(
            ["cmake", "--build", self.build, "--target", target, "--parallel", str(jobs)],
            BUILD_LIMIT, env=environment)

    def make_changed(self, change, target):
        """Builds `target` with one change and no other; whether that succeeded."""
        if self._changed != change.file:
            self.restore()
        with open(os.path.join(self._root, change.file), encoding="utf-8") as file:
            text = change.applied_to(file.read())
        self._changed = change.file
        with open(os.path.join(self.source, change.file), "w", encoding="utf-8") as file:
            file.write(text)
        # What is built once and thrown away has no place in the cache.
        status, _ = self._make(target, 1, dict(os.environ, CCACHE_DISABLE="1"))
        return status == 0

    def restore(self):
        if self._changed:
            self._copy_file(os.path.join(self._root, self._changed),
                            os.path.join(self.source, self._changed))
            self._changed = None

    def test(self, target, filters, limit):
        """Runs the test program once for each of the filters, as long as nothing fails. Tells how
        that ended ("passed", "failed" or "late"), what failed printed, and the seconds taken."""
        begin = time.monotonic()
        program = os.path.join(self.build, "tests", target)
        for tests in filters:
            shutil.rmtree(self._scratch, ignore_errors=True)
            os.makedirs(self._scratch)
            left = max(0.1, limit - (time.monotonic() - begin))
            status, output = self._processes.run(
                ["prlimit", f"--as={MEMORY}", "--core=0", program, "--gtest_brief=1",
                 "--gtest_fail_fast", f"--gtest_filter={tests}"],
                left, cwd=self._scratch, env=dict(os.environ, TMPDIR=self._scratch))
            if status != 0:
                return ("late" if status is None else "failed"), output, time.monotonic() - begin
        return "passed", "", time.monotonic() - begin
