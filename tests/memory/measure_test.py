#!/usr/bin/env python3
"""No peak of memory is above its bound, with small inputs; a peak that is would be noticed.

    measure_test.py PROBE DRIVER
"""

import dataclasses
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True

import measure

PROBE = measure.Probe(*(pathlib.Path(argument).resolve() for argument in sys.argv[1:3]))


def row_of(case, **changed):
    return dataclasses.replace(next(row for row in measure.ROWS if row.case == case), **changed)


def text_row(**changed):
    return row_of("text", quick=(8 * measure.MIB,), **changed)


class Peaks(unittest.TestCase):
    maxDiff = None

    def test_are_within_their_bounds(self):
        shown = []

        results, skipped = measure.measure_all(
            measure.ROWS, PROBE, True, lambda result: shown.append(result.line()[:-1])
        )

        self.assertEqual(len(results) + len(skipped), sum(len(row.quick) for row in measure.ROWS))
        self.assertGreater(len(results), len(skipped))
        self.assertEqual([result.line() for result in results if result.broken], [], shown)

    def test_above_a_bound_are_noticed(self):
        once_only = text_row(factor=1)

        results, skipped = measure.measure_all([once_only], PROBE, True, lambda result: None)

        self.assertEqual(([result.broken for result in results], skipped), ([True], []))
        self.assertGreater(results[0].peak, 1.9 * 8 * measure.MIB)

    def test_of_calls_that_do_something_else_are_refused(self):
        for row in (text_row(make=measure.not_utf8), text_row(gives=lambda size: size + 1)):
            with self.assertRaisesRegex(ValueError, "a whole text"):
                measure.measure_all([row], PROBE, True, lambda result: None)

    def test_that_the_machine_has_no_room_for_are_skipped(self):
        huge = row_of("text", quick=(1 << 50,))

        results, skipped = measure.measure_all([huge], PROBE, True, lambda result: None)

        self.assertEqual((results, len(skipped)), ([], 1))
        self.assertIn("of memory", skipped[0][2])


class Cases(unittest.TestCase):
    def test_are_all_measured(self):
        names = subprocess.run([PROBE.probe, "--names"], capture_output=True, text=True, check=True)

        measured = {row.case for row in measure.ROWS if not row.case.startswith("quen-io")}
        self.assertEqual(measured, set(names.stdout.splitlines()))


class Document(unittest.TestCase):
    def test_has_a_line_for_every_row_and_says_that_none_is_broken(self):
        page = measure.DOCUMENT
        _, table, _ = measure.document.split(page.read_text(), measure.BEGIN, measure.END, page)

        wanted = {(row.name, measure.amount(size, row.unit)) for row in measure.ROWS for size in row.sizes}
        lines = [line.split(" | ") for line in table.splitlines() if line.startswith("| ")][2:]
        self.assertEqual({(line[0].removeprefix("| "), line[2]) for line in lines}, wanted)
        self.assertNotIn("BROKEN", table)

    def test_is_changed_between_the_markers_only(self):
        results = [measure.Result(row_of("text"), measure.MIB, 4 * measure.MIB)]
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "memory.md")
            path.write_text(f"before\n{measure.BEGIN}\nold\n{measure.END}\nafter\n")

            measure.write(results, path)

            text = path.read_text()
        self.assertTrue(text.startswith(f"before\n{measure.BEGIN}\n\n"))
        self.assertTrue(text.endswith(f"\n{measure.END}\nafter\n"))
        self.assertNotIn("old", text)
        self.assertIn("| 1 MiB | 4 MiB | 4.00 x | 2 x BROKEN |", text)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
