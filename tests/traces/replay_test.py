#!/usr/bin/env python3
"""The program that replays call traces detects differences and records output.

    replay_test.py PROGRAM
"""

import pathlib
import subprocess
import sys
import tempfile
import unittest

PROGRAM = sys.argv.pop(1)
CALL = "$ quen-io call --trace Path.name path:a\n"
SHOWN = """Quen_filePathFromObject(Path "a") -> "a"
Quen_runtimeFsPath("a")
Quen_allocPathString("a", true)
"a"
"""


class Replay(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.trace = pathlib.Path(folder.name) / "a.trace"

    def run_on(self, transcript, *options):
        self.trace.write_text(transcript)
        return subprocess.run([PROGRAM, *options, self.trace], capture_output=True, text=True)

    def test_accepts_what_is_printed(self):
        self.assertEqual(self.run_on(CALL + SHOWN).returncode, 0)

    def test_shows_calls_in_another_order_as_a_diff(self):
        first, second, *rest = SHOWN.splitlines(keepends=True)
        result = self.run_on(CALL + "".join([second, first, *rest]))

        self.assertEqual(result.returncode, 1)
        self.assertIn(
            '-Quen_runtimeFsPath("a")\n Quen_filePathFromObject(Path "a") -> "a"\n'
            '+Quen_runtimeFsPath("a")\n',
            result.stdout,
        )

    def test_refuses_another_result(self):
        self.assertEqual(self.run_on(CALL + SHOWN.replace('\n"a"', '\n"b"')).returncode, 1)

    def test_refuses_a_trace_without_a_call(self):
        result = self.run_on("$ mkdir a\n")

        self.assertEqual((result.returncode, result.stderr), (1, f"{self.trace}: calls no entry point\n"))

    def test_refuses_a_preparation_that_fails(self):
        result = self.run_on("$ rmdir a\n" + CALL + SHOWN)

        self.assertEqual(result.returncode, 1)
        self.assertIn("fails: rmdir a", result.stderr)

    def test_refuses_a_condition_that_the_runtime_does_not_know(self):
        result = self.run_on("$ runtime sleeps a\n" + CALL + SHOWN)

        self.assertEqual((result.returncode, result.stderr), (1, f"{self.trace}: no condition: sleeps\n"))

    def test_refuses_to_remove_outside_of_its_folder(self):
        result = self.run_on("$ quen-io call --trace FolderPath._removeAllNative /nowhere/at/all\n")

        self.assertEqual(result.returncode, 1)
        self.assertIn("removes below its own folder only", result.stderr)

    def test_records_what_is_printed_and_keeps_comments_and_blank_lines(self):
        self.assertEqual(self.run_on("# Why.\n\n" + CALL + "old\n\n" + CALL, "--record").returncode, 0)

        self.assertEqual(self.trace.read_text(), "# Why.\n\n" + CALL + SHOWN + "\n" + CALL + SHOWN)


if __name__ == "__main__":
    unittest.main()
