#!/usr/bin/env python3
"""Puts one small mistake after the other into a copy of the module and runs the tests against it.

Prints what happened to each and, at the end, which survived: mistakes that no test noticed. Exits 0
only when there are none. With words as arguments, only the mutants of files that contain one of them
are run.

    tests/mutants/run.py            all of them
    tests/mutants/run.py writers    those of src/writers/file_writers.cpp
"""

import concurrent.futures
import pathlib
import queue
import shutil
import subprocess
import sys

from mutants import MUTANTS

ROOT = pathlib.Path(__file__).resolve().parents[2]
WORK = ROOT / "build" / "mutants"
WORKERS = 2
TEST_SECONDS = 300
# Programs, arguments, and the files that they look at, where it is not all. The quick ones come first:
# most mistakes are noticed there.
TESTS = [
    ("quen_io_recorded_tests", [], None),
    ("quen_io_tests", [], None),
    ("quen_io_internal_tests", [], {"src/contents/utf8.cpp", "src/conventions.cpp"}),
    ("quen_io_races", ["--gtest_filter=Races.OfWriters*"], {"src/writers/file_writers.cpp"}),
]
SOURCES = ["CMakeLists.txt", "cmake", "src", "runtime", "conformance", "examples", "tests"]


class Copy:
    """A copy of the sources with a build of its own."""

    def __init__(self, number):
        self.source = WORK / f"source-{number}"
        self.build = WORK / f"build-{number}"

    def prepare(self):
        shutil.rmtree(self.source, ignore_errors=True)
        self.source.mkdir(parents=True)
        for name in SOURCES:
            if (ROOT / name).is_dir():
                shutil.copytree(ROOT / name, self.source / name, copy_function=shutil.copy)
            else:
                shutil.copy(ROOT / name, self.source / name)
        # Copies are new, so that nothing is left in the build of a run that was interrupted.
        # A mistake may leave something unused, which is not what the tests are to notice.
        self.run("cmake", "-S", self.source, "-B", self.build, "-G", "Ninja",
                 "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS=-O1",
                 "-DQUEN_IO_DRIVER=OFF", "--compile-no-warning-as-error")
        self.make()
        failed = self.failing_test()
        if failed:
            sys.exit(f"{failed} fails without any mutant")

    def make(self):
        self.run("cmake", "--build", self.build, "--target", "quen_io",
                 *(program for program, _, _ in TESTS))

    def run(self, *command):
        done = subprocess.run([str(part) for part in command], capture_output=True, text=True)
        if done.returncode != 0:
            raise RuntimeError(done.stdout + done.stderr)

    def failing_test(self, file=None):
        """The first program of tests that fails, or None; of those that look at the file."""
        for program, arguments, files in TESTS:
            if file is not None and files is not None and file not in files:
                continue
            try:
                done = subprocess.run([self.build / "tests" / program, "--gtest_brief=1",
                                       "--gtest_fail_fast", *arguments],
                                      capture_output=True, timeout=TEST_SECONDS, check=False)
            except subprocess.TimeoutExpired:
                return program
            if done.returncode != 0:
                return program
        return None

    def noticed(self, mutant):
        """Which tests notice the mutant: None when it survives."""
        file, before, after = mutant
        path = self.source / file
        text = path.read_text()
        if text.count(before) != 1:
            raise RuntimeError(f"{file}: found {text.count(before)} times: {before}")
        try:
            path.write_text(text.replace(before, after))
            try:
                self.make()
            except RuntimeError as failure:
                raise SystemExit(f"does not build: {title(mutant)}\n{failure}")
            return self.failing_test(file)
        finally:
            path.write_text(text)


def title(mutant):
    file, before, after = mutant
    return f"{file}: {' '.join(before.split())[:60]}  =>  {' '.join(after.split())[:60] or 'nothing'}"


def main():
    words = sys.argv[1:]
    chosen = [each for each in MUTANTS if not words or any(word in each[0] for word in words)]
    copies = queue.Queue()
    with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
        made = [Copy(number) for number in range(WORKERS)]
        list(pool.map(Copy.prepare, made))
        for copy in made:
            copies.put(copy)

        def examine(mutant):
            copy = copies.get()
            try:
                return mutant, copy.noticed(mutant)
            finally:
                copies.put(copy)

        survivors = []
        for mutant, test in pool.map(examine, chosen):
            print(f"{'noticed ' if test else 'SURVIVED'}  {title(mutant)}", flush=True)
            if not test:
                survivors.append(mutant)

    print(f"\n{len(chosen)} mutants, {len(chosen) - len(survivors)} noticed, "
          f"{len(survivors)} survived")
    for mutant in survivors:
        print(f"  survived: {title(mutant)}")
    sys.exit(1 if survivors or not chosen else 0)


if __name__ == "__main__":
    main()
