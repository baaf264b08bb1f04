#!/usr/bin/env python3
"""The conformance kit notices every mistake of a runtime, and each requirement notices one."""

import os
import re
import subprocess
import unittest
from concurrent.futures import ThreadPoolExecutor

PROGRAM = os.environ["QUEN_IO_BROKEN_RUNTIME"]
TEMPLATE = os.environ["QUEN_IO_CONFORMANCE_TEMPLATE"]
LINE = re.compile(r"(met     |NOT MET |skipped ) (.*)")


class Run:
    """What the kit says of a runtime with the mistake, or with none."""

    def __init__(self, mistake=None, program=PROGRAM):
        environment = {**os.environ, "QUEN_IO_BROKEN": mistake} if mistake else None
        result = subprocess.run([program], capture_output=True, env=environment, timeout=300)
        self.mistake = mistake
        self.status = result.returncode
        self.errors = result.stderr.decode()
        *self.lines, self.summary = result.stdout.decode().splitlines() or [""]

    def all(self, status):
        """The words of the lines that begin with the status."""
        return [match[2] for match in map(LINE.fullmatch, self.lines)
                if match and match[1].strip() == status]


class Kit(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        names = subprocess.run([PROGRAM, "--broken"], capture_output=True, check=True).stdout
        cls.right = Run()
        with ThreadPoolExecutor(os.cpu_count()) as pool:
            cls.broken = list(pool.map(Run, names.decode().splitlines()))

    def assert_told(self, run, exit_status):
        """Every requirement has its line, the summary counts them, and nothing else happened."""
        unmet = len(run.all("NOT MET"))
        self.assertEqual(run.status, exit_status, run.errors)
        self.assertEqual(run.errors, "")
        self.assertEqual(len(run.lines), len(self.right.lines))
        self.assertEqual(run.summary.split(", skipped")[0].split(", ")[:2],
                         [f"{len(run.lines)} requirements", f"{unmet} not met"])

    def test_accepts_a_runtime_without_a_mistake(self):
        self.assertGreaterEqual(len(self.right.lines), 40)
        self.assertEqual(self.right.all("met"), [line[9:] for line in self.right.lines])
        self.assert_told(self.right, 0)

    def test_notices_every_mistake(self):
        self.assertGreaterEqual(len(self.broken), 20)
        for run in self.broken:
            with self.subTest(run.mistake):
                self.assertNotEqual(run.all("NOT MET"), [])
                self.assert_told(run, 1)

    def test_has_no_requirement_that_every_mistake_meets(self):
        requirements = set(self.right.all("met"))
        for run in self.broken:
            requirements &= set(run.all("met"))
        self.assertEqual(requirements, set())

    def test_is_not_met_by_the_template_as_it_stands(self):
        template = Run(program=TEMPLATE)

        self.assertNotEqual(template.all("skipped"), [])
        self.assert_told(template, 1)


if __name__ == "__main__":
    unittest.main()
