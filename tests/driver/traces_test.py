"""The driver's output equals the call traces of tests/traces, so each can be reproduced by hand."""

import os
import re
import subprocess
import tempfile
import unittest
from pathlib import Path

from support import DRIVER

TRACES = Path(__file__).resolve().parents[1] / "traces"
# Commands that only the replaying program has: another runtime, and one process for several calls.
IN_ONE_PROCESS = re.compile(r"^\$ (runtime|cd|export) |_(write|flush|close)Handle [1-9]", re.MULTILINE)


def printed_by(command, folder):
    environment = {name: value for name, value in os.environ.items() if name not in ("HOME", "QUEN_HOME")}
    environment |= {"PATH": f"{DRIVER.resolve().parent}:{os.environ['PATH']}", "LC_ALL": "C.UTF-8"}
    result = subprocess.run(
        ["bash", "-c", command],
        cwd=folder,
        env=environment,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        timeout=60,
    )
    return result.stdout.decode().replace(folder, "$PWD").splitlines()


def replayed(transcript):
    """The transcript with the present output of its commands, each run separately."""
    with tempfile.TemporaryDirectory() as scratch:
        for line in transcript.splitlines():
            if not line or line.startswith(("#", "$ ")):
                yield line
            if line.startswith("$ "):
                yield from printed_by(line.removeprefix("$ "), os.path.realpath(scratch))


class Traces(unittest.TestCase):
    maxDiff = None

    def test_print_what_the_files_show(self):
        shown = {path.stem: path.read_text() for path in sorted(TRACES.glob("*/*.trace"))}
        alone = {name: text for name, text in shown.items() if not IN_ONE_PROCESS.search(text)}
        self.assertTrue(alone)
        for name, text in alone.items():
            with self.subTest(name):
                self.assertEqual(list(replayed(text)), text.splitlines())


if __name__ == "__main__":
    unittest.main()
