#!/usr/bin/python3
"""The soak passes for the module, and notices each mistake of a form that has one:

    soak_test.py SOAK FAULTY_FORM CARELESS_FORM
"""

import os
import re
import subprocess
import sys
import unittest

# Programs of these numbers call every entry point and meet every kind of fault.
PROGRAMS, SEED = "6", "6"
SKIPPED = 77


def soak(*arguments, module=None, mistake=None):
    """Runs the soak with the module or another form. Returns its status and what it says."""
    environment = dict(os.environ)
    if module:
        environment["QUEN_IO_MODULE"] = module
    if mistake:
        environment["QUEN_IO_MISTAKE"] = mistake
    process = subprocess.run(
        [SOAK, *arguments], env=environment, capture_output=True, text=True, errors="replace", check=False
    )
    return process.returncode, process.stdout, process.stderr


class Soak(unittest.TestCase):
    def test_passes_for_the_module(self):
        status, table, summary = soak("--programs", PROGRAMS, SEED)

        self.assertEqual(status, 0, summary)
        self.assertIn("no difference", summary)
        self.assertGreater(len(table.splitlines()), 1)

    def test_shows_how_to_repeat_a_difference_which_then_occurs_again(self):
        status, _, summary = soak("--programs", "1", SEED, module=FAULTY_FORM)

        self.assertEqual(status, 1, summary)
        program = re.search(r"repeat it with: tests/soak/run (--repeat \d+)", summary)
        self.assertIsNotNone(program, summary)
        status, _, difference = soak(*program[1].split(), module=FAULTY_FORM)
        self.assertEqual(status, 1, difference)
        self.assertRegex(difference, "plain form|stay open")

    def test_shrinks_a_difference(self):
        _, _, summary = soak("--programs", "1", SEED, module=FAULTY_FORM)
        program = re.search(r"shrink it with: tests/soak/run (--shrink \d+)", summary)
        status, _, shrunk = soak(*program[1].split(), module=FAULTY_FORM)

        self.assertEqual(status, 1, shrunk)
        sizes = re.search(r"shrunk from (\d+) bytes to (\d+) in \d+ runs", shrunk)
        self.assertLess(int(sizes[2]), int(sizes[1]))

    def test_notices_that_the_rest_of_a_short_write_is_lost(self):
        status, _, summary = soak("--programs", PROGRAMS, SEED, module=CARELESS_FORM, mistake="short")

        self.assertEqual(status, 1, summary)
        self.assertRegex(summary, r"size \d+ in the plain form's folder|module:")

    def test_notices_descriptors_that_stay_open(self):
        status, _, summary = soak("--programs", "2", SEED, module=CARELESS_FORM, mistake="descriptors")

        self.assertEqual(status, 1, summary)
        self.assertIn("descriptors stay open", summary)
        self.assertRegex(summary, r"descriptors before the run, \d+ after it")

    def test_notices_growing_memory(self):
        status, _, summary = soak("--programs", "3", SEED, module=CARELESS_FORM, mistake="memory")

        self.assertEqual(status, 1, summary)
        self.assertIn("resident KiB grew", summary)

    def test_finds_no_difference_in_the_careless_form_without_a_mistake(self):
        _, _, summary = soak("--programs", "2", SEED, module=CARELESS_FORM)

        self.assertNotIn("repeat it with", summary)

    def test_notices_a_repeated_program_that_ends_differently(self):
        status, _, summary = soak("--drifting", "3", SEED)

        self.assertEqual(status, 1, summary)
        self.assertIn("ended differently when it was repeated", summary)

    def test_names_what_did_not_occur(self):
        status, _, summary = soak("--programs", "1", SEED)

        self.assertEqual(status, 1, summary)
        self.assertRegex(summary, "was not called|no error of")
        self.assertIn("no program was repeated", summary)


if __name__ == "__main__":
    SOAK, FAULTY_FORM, CARELESS_FORM = sys.argv[1:]
    first_status, first_output, _ = soak("--repeat", "1")
    if first_status == SKIPPED:
        print(first_output, end="")
        sys.exit(SKIPPED)
    unittest.main(argv=sys.argv[:1])
