#!/usr/bin/env python3
"""scripts/release: its steps are the commands of docs/testing.md, and it stops where it should."""

import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]


def documented_commands():
    """The commands in the table of docs/testing.md: of ctest and cmake with their arguments, else the program."""
    table = (ROOT / "docs/testing.md").read_text().split("\n## ")[0]
    cells = re.findall(r"^\| (`.*?) \| ", table, re.MULTILINE)
    spans = [span.replace("\\|", "|") for cell in cells for span in re.findall(r"`([^`]+)`", cell)]
    return {name for span in spans if (name := name_of(span))}


def release_commands():
    lines = (ROOT / "scripts/release_steps.txt").read_text().splitlines()
    return [line.split(maxsplit=2)[2] for line in lines if line and not line.startswith("#")]


def name_of(command):
    """A word without a slash is an argument that several commands share, such as a preset."""
    program = command.split()[0]
    if program in ("ctest", "cmake"):
        return command
    return program if "/" in program else None


class Steps(unittest.TestCase):
    def test_are_the_commands_of_the_document(self):
        documented = documented_commands()
        self.assertGreater(len(documented), 30)
        run = {name_of(command) for command in release_commands()}

        self.assertEqual(documented - run, set())

    def test_exist(self):
        for command in release_commands():
            program = command.split()[0]
            if "/" in program and not program.startswith("build/"):
                self.assertTrue((ROOT / program).is_file(), program)


class Release(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="quen-io-release-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        (self.folder / "scripts").mkdir()
        shutil.copy(ROOT / "scripts/release", self.folder / "scripts")
        for name, text in {
            "tracked": "before\n",
            ".gitignore": "build/\n",
            "CMakeLists.txt": "project(quen_io VERSION 1.2.3 LANGUAGES CXX)\n",
            "CHANGELOG.md": "# Changelog\n\n## 1.2.3\n",
        }.items():
            (self.folder / name).write_text(text)

    def prepare(self, *steps):
        (self.folder / "scripts/release_steps.txt").write_text("# a comment\n" + "\n".join(steps) + "\n")
        self.git("init", "--quiet")
        self.git("add", ".")
        self.git("-c", "user.name=a", "-c", "user.email=b", "commit", "--quiet", "--message", "all")

    def git(self, *arguments):
        subprocess.run(["git", *arguments], cwd=self.folder, check=True)

    def run_it(self, *arguments):
        return subprocess.run(
            [self.folder / "scripts/release", *arguments], capture_output=True, text=True, timeout=60
        )

    def test_runs_every_step_and_shows_the_last_line_of_each(self):
        self.prepare("one - echo first; echo '3 passed | 0 failed'", "two - true")
        done = self.run_it()

        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertRegex(done.stdout, r"\| 0 s \| 3 passed \\\| 0 failed \|\n\| `true` \| 0 s \|  \|\n$")

    def test_stops_at_a_failure_and_continues_from_there(self):
        self.prepare("one - echo >>build/ran", "two - test -e build/mended", "three - touch build/end")
        stopped = self.run_it()

        self.assertEqual(stopped.returncode, 1)
        self.assertIn("two failed with 1", stopped.stderr)
        self.assertIn("Continue with scripts/release --from two", stopped.stderr)
        self.assertFalse((self.folder / "build/end").exists())

        (self.folder / "build/mended").touch()
        self.assertEqual(self.run_it("--from", "two").returncode, 0)
        self.assertTrue((self.folder / "build/end").exists())
        self.assertEqual((self.folder / "build/ran").read_text(), "\n")

    def test_stops_at_a_difference_unless_the_step_is_to_write_the_file(self):
        self.prepare("one tracked echo after >tracked", "two - true")
        self.assertEqual(self.run_it().returncode, 0)

        self.git("checkout", "--quiet", "tracked")
        self.prepare_again("one - echo after >tracked", "two - touch build/end")
        stopped = self.run_it()
        self.assertEqual(stopped.returncode, 1)
        self.assertIn("one changed tracked", stopped.stderr)
        self.assertFalse((self.folder / "build/end").exists())

    def prepare_again(self, *steps):
        shutil.rmtree(self.folder / ".git")
        self.prepare(*steps)

    def test_documents_are_those_of_a_release(self):
        self.prepare("one - true")
        self.assertEqual(self.run_it("--check-documents").returncode, 0)

        (self.folder / "CHANGELOG.md").write_text("# Changelog\n\n## Unreleased\n\n## 1.2.3\n")
        done = self.run_it("--check-documents")
        self.assertEqual(done.returncode, 1)
        self.assertIn('CHANGELOG.md begins with "Unreleased"', done.stdout)
        self.assertIn("CHANGELOG.md is not committed", done.stdout)

    def test_an_unknown_step_is_a_usage_error(self):
        self.prepare("one - true")
        self.assertEqual(self.run_it("--from", "none").returncode, 2)


if __name__ == "__main__":
    unittest.main()
