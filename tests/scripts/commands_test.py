#!/usr/bin/env python3
"""The commands around the code: each starts in a tree without a build folder and explains itself."""

import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]


class Scratch(unittest.TestCase):
    """A test with a folder of its own."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="quen-io-commands-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def copy_of_the_tree(self):
        copy = self.folder / "tree"
        shutil.copytree(ROOT, copy, symlinks=True, ignore=shutil.ignore_patterns("build", ".git"))
        return copy


def listed():
    """The commands of scripts/shortest.txt, each as its words."""
    lines = (ROOT / "scripts/shortest.txt").read_text().splitlines()
    return [shlex.split(line) for line in lines if not line.startswith("#")]


def commands_of_the_tree():
    found = [ROOT / "run", ROOT / "test", *ROOT.glob("tests/*/run*")]
    for folder in ("scripts", "bench", "fuzz"):
        found += (ROOT / folder).rglob("*")
    # A program that another one starts, such as those of the peers, is not executable by itself.
    return {str(path.relative_to(ROOT)) for path in found if path.is_file() and os.access(path, os.X_OK)}


class Commands(Scratch):
    def test_are_all_started_on_a_bare_system(self):
        started = {os.path.normpath(words[0]) for words in listed()}

        self.assertEqual(commands_of_the_tree() - started, set(), "not in scripts/shortest.txt")
        self.assertEqual([name for name in started if not (ROOT / name).is_file()], [])

    def test_explain_themselves_and_build_and_install_nothing(self):
        tree = self.copy_of_the_tree()
        before = sorted(tree.rglob("*"))
        nothing = self.folder / "nothing"  # an apt-get that is called would be noticed
        nothing.mkdir()
        for name in ("apt-get", "sudo", "cmake", "debootstrap"):
            (nothing / name).write_text("#!/bin/sh\necho called: $0 >&2\nexit 1\n")
            (nothing / name).chmod(0o755)
        environment = os.environ | {"PATH": f"{nothing}:{os.environ['PATH']}"}
        # bench/peers/build is called by bench/run alone.
        for name in sorted({words[0] for words in listed()} - {"bench/peers/build", "tests/consumer/run.sh"}):
            with self.subTest(name):
                first, second = (tree / name).read_text().splitlines()[:2]
                # Without its site folders, Python knows nothing that a package would bring.
                python = ["/usr/bin/python3", "-S", "-B"] if "python" in first else []
                done = subprocess.run(
                    [*python, tree / name, "--help"],
                    cwd=self.folder,
                    env=environment,
                    capture_output=True,
                    text=True,
                    timeout=60,
                )

                self.assertEqual((done.returncode, done.stderr), (0, ""))
                self.assertIn(second.lstrip('# "'), done.stdout)
        self.assertEqual(sorted(tree.rglob("*")), before)

    def test_the_index_in_python_is_written_without_a_build(self):
        tree = self.copy_of_the_tree()
        (self.folder / "indexed").mkdir()
        (self.folder / "indexed/file").write_text("text")

        subprocess.run(
            [tree / "bench/index_in_python.py", self.folder / "indexed", self.folder / "index"],
            check=True,
            timeout=60,
        )

        self.assertIn('"path": "file"', (self.folder / "index").read_text())

    def test_mutants_without_git_are_the_same_ones_each_time(self):
        tree = self.copy_of_the_tree()

        lists = [
            subprocess.run(
                [tree / "tests/mutants/run.py", "--list", "--changed", "8"],
                check=True,
                capture_output=True,
                text=True,
                timeout=60,
            ).stdout
            for _ in range(2)
        ]

        self.assertEqual(len(lists[0].splitlines()), 8)
        self.assertEqual(lists[0], lists[1])


class Run(Scratch):
    def test_interrupted_leaves_no_temporary_file(self):
        tree = self.copy_of_the_tree()
        temporary, tools = self.folder / "temporary", self.folder / "tools"
        temporary.mkdir()
        tools.mkdir()
        started = self.folder / "started"
        os.mkfifo(started)
        # It tells that it runs, and then reads what never comes.
        (tools / "cmake").write_text(f"#!/bin/sh\necho some output\necho >{started}\nexec cat {started}\n")
        (tools / "cmake").chmod(0o755)
        environment = os.environ | {"TMPDIR": str(temporary), "PATH": f"{tools}:{os.environ['PATH']}"}

        running = subprocess.Popen(
            [tree / "run", self.folder],
            env=environment,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            start_new_session=True,
        )
        started.read_text()
        os.killpg(running.pid, signal.SIGINT)

        self.assertEqual(running.wait(timeout=60), -signal.SIGINT)
        self.assertEqual(list(temporary.iterdir()), [])


PROJECT = """cmake_minimum_required(VERSION 3.25)
project(some LANGUAGES NONE)
enable_testing()
add_test(NAME passes COMMAND true)
add_test(NAME waits COMMAND sh -c "echo skipped: the moon is not full; exit 77")
set_tests_properties(waits PROPERTIES SKIP_RETURN_CODE 77)
add_test(NAME fails COMMAND sh -c "exit ${FAILURE}")
"""
PRESETS = """{"version": 6,
 "configurePresets": [{"name": "some", "generator": "Ninja", "binaryDir": "${sourceDir}/build"}],
 "testPresets": [{"name": "some", "configurePreset": "some"}]}
"""


class Ctest(Scratch):
    def report(self, failure):
        (self.folder / "scripts").mkdir()
        shutil.copy(ROOT / "scripts/ctest", self.folder / "scripts")
        (self.folder / "CMakeLists.txt").write_text(PROJECT)
        (self.folder / "CMakePresets.json").write_text(PRESETS)
        subprocess.run(
            ["cmake", "--preset", "some", f"-DFAILURE={failure}"],
            cwd=self.folder,
            check=True,
            capture_output=True,
        )
        done = subprocess.run([self.folder / "scripts/ctest", "some"], capture_output=True, text=True)
        return done.returncode, done.stdout

    def test_names_what_is_skipped_and_ends_with_the_summary(self):
        status, printed = self.report(failure=0)

        self.assertEqual(status, 0)
        self.assertIn("\nSkipped:\n  waits: the moon is not full\n", printed)
        self.assertEqual(printed.splitlines()[-1], "100% tests passed, 0 tests failed out of 3")

    def test_fails_when_a_test_does_and_names_it(self):
        status, printed = self.report(failure=1)

        self.assertNotEqual(status, 0)
        self.assertRegex(printed, r"The following tests FAILED:\n\s*3 - fails")
        self.assertTrue(re.fullmatch(r"\d+% tests passed, 1 tests failed out of 3", printed.splitlines()[-1]))


if __name__ == "__main__":
    unittest.main()
