#!/usr/bin/env python3
"""Mutation testing: applies one mutant after the other to the module and runs the tests.

Prints the result of each and finally the survivors, which no test killed. Exits 0 only if there are
none. The tests are those of build/release, which is built first; only the mutated file is compiled
again, with less optimization, and the library linked with it takes the place of the module.

    tests/mutants/run.py                    all of them
    tests/mutants/run.py writers            those in files whose names contain one of the words
    tests/mutants/run.py --changed 12       those in files of the module that changed since the last release,
                                            but at most 12; without a change, 12 from all over the list; the
                                            same ones each time
    tests/mutants/run.py --list ...         only tells which it would run
"""

import argparse
import concurrent.futures
import contextlib
import json
import os
import pathlib
import queue
import re
import shlex
import shutil
import signal
import subprocess
import sys
import threading
import time

from mutants import MUTANTS

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build" / "release"
WORK = ROOT / "build" / "mutants"
WORKERS = 2
OBJECTS = "src/CMakeFiles/quen_io_objects.dir"
GTEST = ["--gtest_brief=1", "--gtest_fail_fast"]
TRACES = [str(trace) for trace in sorted((ROOT / "tests" / "traces").glob("*/*.trace"))]

# The tests of a unit of the module are in the file of the same name below tests/, or in these.
READERS = ["contents/text_reading", "contents/prefix_reading", "contents/byte_reading"]
UNIT_TESTS = {
    "src/conventions.cpp": ["path/resolve", "path/names", "data/toml_input", "contents/byte_reading"],
    "src/system/cancellation.h": ["writers/writer_handles", *READERS],
    "src/system/descriptor.cpp": ["writers/writer_handles", *READERS],
    "src/system/fork.cpp": ["writers/writer_handles"],
    "src/system/huge_pages.cpp": READERS,
    "src/system/open_folder.cpp": ["entries/listing"],
    "src/path/normal_form.cpp": ["path/normalize", "path/generated_paths"],
    "src/contents/utf8.cpp": READERS,
    "src/writers/file_writer.cpp": ["writers/writer_handles"],
    "src/writers/file_writer_registry.h": ["writers/writer_handles"],
}
# What is linked with the objects of the module instead of the library.
INTERNAL_TESTS = {"src/contents/utf8.cpp", "src/conventions.cpp"}
EXHAUSTIVE = "Lead/*"

# A mutant of the guard of recursive removal lets a test remove "/": the tests see a file system in which
# nothing but temporary folders can be written.
SANDBOX = (
    ["bwrap", "--die-with-parent", "--ro-bind", "/", "/"]
    + ["--dev", "/dev", "--dev-bind-try", "/dev/fuse", "/dev/fuse", "--bind", "/proc", "/proc"]
    + ["--tmpfs", "/tmp", "--tmpfs", "/var/tmp", "--ro-bind", str(ROOT), str(ROOT), "--unsetenv", "TMPDIR"]
    + (["--cap-add", "ALL"] if os.geteuid() == 0 else [])
)


def suites_in(test_files):
    """A filter of GoogleTest for the suites of these files below tests/."""
    suites = set()
    for name in test_files:
        file = ROOT / "tests" / f"{name}_test.cpp"
        if file.exists():
            suites |= set(re.findall(r"^TEST\w*\((\w+),", file.read_text(), re.MULTILINE))
    return ":".join(f"{suite}.*:*/{suite}.*" for suite in sorted(suites))


def tests_of(file):
    """The programs and arguments that test a file of the module. Those that kill most mutants in the
    shortest time come first: the tests of its unit before all others."""
    unit = suites_in(UNIT_TESTS.get(file, [file.removeprefix("src/").removesuffix(".cpp")]))
    yield "traces/quen_io_traces", TRACES
    if unit:
        yield "quen_io_tests", [*GTEST, f"--gtest_filter={unit}"]
    if file in INTERNAL_TESTS:
        yield "quen_io_internal_tests", [*GTEST, f"--gtest_filter=-{EXHAUSTIVE}"]
    yield "differential/quen_io_differential_tests", GTEST
    yield "quen_io_limits_tests", GTEST
    yield "quen_io_recorded_tests", GTEST
    if file.startswith("src/writers/"):
        yield "quen_io_races", [*GTEST, "--gtest_filter=Races.OfWriters*"]
    runtime = suites_in(["runtime/small_runtime", "runtime/threads"])
    yield "quen_io_tests", [*GTEST, f"--gtest_filter=-{':'.join(filter(None, [unit, runtime]))}"]
    if file in INTERNAL_TESTS:
        yield "quen_io_internal_tests", [*GTEST, f"--gtest_filter={EXHAUSTIVE}"]


PROGRAMS = {program for file, _, _ in MUTANTS for program, _ in tests_of(file)}


def sandboxed(program, arguments, replacements, seconds):
    """Whether the test program passes. Replacements are shown in the place of built files."""
    binds = [part for built, mutated in replacements.items() for part in ("--ro-bind", mutated, built)]
    command = [*SANDBOX, *binds, BUILD / "tests" / program, *arguments]
    with subprocess.Popen(
        command, cwd=BUILD, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True
    ) as process:
        try:
            return process.wait(seconds) == 0
        except subprocess.TimeoutExpired:
            return False
        finally:
            # Also the children of a test, which a mutant may leave waiting for each other.
            with contextlib.suppress(ProcessLookupError):
                os.killpg(process.pid, signal.SIGKILL)


class Baseline:
    """The tests without a mutant: each has to pass, and shows how long it takes."""

    MOST_SECONDS = 600

    def __init__(self):
        self.lock = threading.Lock()
        self.seconds = {}

    def seconds_of(self, program, arguments):
        key = (program, tuple(arguments))
        with self.lock:
            if key not in self.seconds:
                began = time.monotonic()
                if not sandboxed(program, arguments, {}, self.MOST_SECONDS):
                    raise SystemExit(f"{program} {shlex.join(arguments)} fails without any mutant")
                self.seconds[key] = time.monotonic() - began
            return self.seconds[key]


class Build:
    """The commands by which build/release makes the module from its sources."""

    def __init__(self):
        run("cmake", "--preset", "release")
        run(
            "cmake", "--build", "--preset", "release", "--target", *{name.split("/")[-1] for name in PROGRAMS}
        )
        self.library = (BUILD / "src" / "libquen_io.so").resolve()
        rules = json.loads(run("ninja", "-C", BUILD, "-t", "compdb"))
        self.compile = {
            rule["output"]: rule["command"] for rule in rules if rule["output"].startswith(OBJECTS)
        }
        self.dependencies = {object: self.files_of(object) for object in self.compile}

    def files_of(self, object):
        lines = run("ninja", "-C", BUILD, "-t", "deps", object).splitlines()
        return {(BUILD / line.strip()).resolve() for line in lines[1:] if line.strip()}

    def link(self, target):
        return run("ninja", "-C", BUILD, "-t", "commands", target.relative_to(BUILD)).splitlines()[-1]


class Worker:
    """A folder for a mutated file and what is built of it."""

    def __init__(self, number, build, baseline):
        self.folder = WORK / str(number)
        self.build = build
        self.baseline = baseline

    def make(self, file):
        """Compiles the mutated file, or all sources that include it; what replaces the built objects."""
        made = {}
        for object, files in self.build.dependencies.items():
            if ROOT / file not in files:
                continue
            target = self.folder / "objects" / object
            target.parent.mkdir(parents=True, exist_ok=True)
            source = ROOT / "src" / object.removeprefix(f"{OBJECTS}/").removesuffix(".o")
            mutated = self.folder / source.relative_to(ROOT)
            # A mutant may leave something unused, so there are no warnings.
            command = self.build.compile[object].replace(object, str(target)).replace("-O3", "-O1 -w")
            command = command.replace(f"-c {source}", f"-c {mutated if mutated.exists() else source}")
            run("sh", "-c", command.replace(" -I", f" -I{self.folder / 'src'} -I", 1), cwd=BUILD)
            made[object] = str(target)
        return made

    def linked(self, target, objects):
        """Links a target of the build with the objects in the place of its own."""
        output = self.folder / target.name
        command = self.build.link(target).replace(f"-o {target.relative_to(BUILD)}", f"-o {output}")
        for object, mutated in objects.items():
            command = command.replace(f" {object} ", f" {mutated} ")
        run("sh", "-c", command.split(" && ", 2)[1], cwd=BUILD)
        return output

    def noticed(self, mutant):
        """The test program that kills the mutant, or None if it survives."""
        file, before, after = mutant
        text = (ROOT / file).read_text()
        if text.count(before) != 1:
            raise SystemExit(f"{file}: found {text.count(before)} times: {before}")
        shutil.rmtree(self.folder, ignore_errors=True)
        (self.folder / file).parent.mkdir(parents=True)
        (self.folder / file).write_text(text.replace(before, after))
        try:
            objects = self.make(file)
            library = self.linked(self.build.library, objects)
        except RuntimeError as failure:
            raise SystemExit(f"does not build: {title(mutant)}\n{failure}")
        for program, arguments in tests_of(file):
            seconds = 30 + 10 * self.baseline.seconds_of(program, arguments)
            replaced = {self.build.library: library}
            if program == "quen_io_internal_tests":
                built = BUILD / "tests" / program
                replaced = {built: self.linked(built, objects)}
            if not sandboxed(program, arguments, replaced, seconds):
                return program
        return None


def run(*command, cwd=ROOT):
    done = subprocess.run([str(part) for part in command], cwd=cwd, capture_output=True, text=True)
    if done.returncode != 0:
        raise RuntimeError(done.stdout + done.stderr)
    return done.stdout


def title(mutant):
    file, before, after = mutant
    return f"{file}: {' '.join(before.split())[:60]}  =>  {' '.join(after.split())[:60] or 'nothing'}"


def changed_files():
    """The files of the module that changed since the last release, whose commit set the version; none
    without git's history."""
    release = git("log", "-1", "--format=%H", "-Gquen_io VERSION", "--", "CMakeLists.txt").strip()
    return set(git("diff", "--name-only", release, "--", "src").split()) if release else set()


def git(*arguments):
    try:
        done = subprocess.run(["git", *arguments], cwd=ROOT, capture_output=True, text=True)
    except FileNotFoundError:
        return ""
    return done.stdout if done.returncode == 0 else ""


def spread(mutants, count):
    """So many of them, at equal distances in the list."""
    if len(mutants) <= count:
        return mutants
    return [mutants[place * len(mutants) // count] for place in range(count)]


def choose(options):
    if options.changed is None:
        return [
            each for each in MUTANTS if not options.words or any(word in each[0] for word in options.words)
        ]
    changed = changed_files()
    return spread([each for each in MUTANTS if each[0] in changed] or MUTANTS, options.changed)


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("words", nargs="*")
    parser.add_argument("--changed", type=int, metavar="COUNT")
    parser.add_argument("--list", action="store_true")
    return parser.parse_args()


def install():
    subprocess.run(
        [
            "bash",
            "-c",
            'source scripts/setup.sh; require_packages "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}" bubblewrap',
        ],
        cwd=ROOT,
        check=True,
    )


def main():
    options = parse_arguments()
    chosen = choose(options)
    if options.list:
        print(*map(title, chosen), sep="\n")
        return
    install()
    build = Build()
    baseline = Baseline()
    workers = queue.Queue()
    for number in range(WORKERS):
        workers.put(Worker(number, build, baseline))

    def examine(mutant):
        worker = workers.get()
        try:
            return mutant, worker.noticed(mutant)
        finally:
            workers.put(worker)

    survivors = []
    with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
        for mutant, test in pool.map(examine, chosen):
            print(f"{f'killed by {test}' if test else 'SURVIVED':40}  {title(mutant)}", flush=True)
            if not test:
                survivors.append(mutant)

    print(f"\n{len(chosen)} mutants, {len(chosen) - len(survivors)} killed, {len(survivors)} survived")
    for mutant in survivors:
        print(f"  survived: {title(mutant)}")
    sys.exit(1 if survivors or not chosen else 0)


if __name__ == "__main__":
    main()
