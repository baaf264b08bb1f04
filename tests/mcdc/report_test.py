#!/usr/bin/env python3
"""The report of tests/mcdc/run fails for a condition that is neither covered nor named, and for a name that fits
no uncovered condition. The exports are made up."""

import pathlib
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True

import report

SOURCE = """int f(bool a, bool b) {
  if (a &&
      b) return 1;
  return a ? 2 : 3;
}
"""
WHOLE, A, B, LAST = [2, 7, 3, 8], [2, 7, 2, 8], [3, 7, 3, 8], [4, 10, 4, 11]
UNREACHABLE = ("src/f.cpp", "if (a && b) return 1;", "b", "for the test")


class Report(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="quen-io-mcdc-")
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        (self.root / "src").mkdir()
        (self.root / "src/f.cpp").write_text(SOURCE)

    def function(self, shown=(True, True), last=(1, 1), file="src/f.cpp"):
        """An instantiation whose first decision has these conditions covered, and the last one these counts."""
        branches = [[*LAST, *last, 0, 0, report.BRANCH]]
        branches += [[*part, 5, 5, 0, 0, report.MCDC_BRANCH] for part in (B, A)]
        return {
            "filenames": [str(self.root / file)],
            "branches": branches,
            "mcdc_records": [[*WHOLE, 0, 5, list(shown)]],
        }

    def decisions(self, *functions):
        return report.decisions_of({"data": [{"functions": functions}]}, self.root)

    def failures(self, *functions, unreachable=()):
        return list(report.failures(self.decisions(*functions), unreachable))

    def test_counts_decisions_with_their_conditions(self):
        found = self.decisions(self.function())

        self.assertEqual([[each.text for each in decision] for decision in found], [["a", "b"], ["a"]])
        self.assertEqual(self.failures(self.function()), [])

    def test_leaves_out_what_is_not_the_module(self):
        self.assertEqual(self.decisions(self.function(file="tests/f.cpp")), [])

    def test_fails_for_an_uncovered_condition(self):
        [failure] = self.failures(self.function(shown=(True, False)))

        self.assertIn("src/f.cpp:3: if (a && b) return 1;\n    b (true 5 times, false 5 times)", failure)

    def test_fails_for_a_single_condition_with_one_outcome(self):
        for last in ((0, 7), (7, 0)):
            [failure] = self.failures(self.function(last=last))
            self.assertIn("src/f.cpp:4: return a ? 2 : 3;", failure)

    def test_counts_a_condition_that_is_covered_in_one_instantiation(self):
        functions = self.function(shown=(True, False), last=(1, 0)), self.function(
            shown=(False, True), last=(0, 1)
        )

        self.assertEqual(len(self.decisions(*functions)), 2)
        self.assertEqual(
            self.failures(self.function(shown=(True, False)), self.function(shown=(False, True))), []
        )

    def test_accepts_an_uncovered_condition_that_is_named(self):
        self.assertEqual(self.failures(self.function(shown=(True, False)), unreachable=[UNREACHABLE]), [])

    def test_fails_for_a_name_of_a_covered_condition(self):
        self.assertEqual(len(self.failures(self.function(), unreachable=[UNREACHABLE])), 1)

    def test_fails_for_a_name_that_fits_nothing(self):
        for other in (
            ("src/g.cpp", *UNREACHABLE[1:]),
            (*UNREACHABLE[:2], "c", ""),
            ("src/f.cpp", "x", "b", ""),
        ):
            found = self.failures(self.function(shown=(True, False)), unreachable=[UNREACHABLE, other])
            self.assertEqual(len(found), 1, other)

    def test_fails_for_a_name_that_fits_two_conditions(self):
        name = ("src/f.cpp", "", "a", "for the test")

        self.assertEqual(
            len(self.failures(self.function(shown=(False, True), last=(1, 0)), unreachable=[name])), 1
        )

    def test_ends_if_conditions_are_missing_from_the_export(self):
        function = self.function()
        function["branches"].pop()

        with self.assertRaisesRegex(SystemExit, "a condition is constant"):
            self.decisions(function)


if __name__ == "__main__":
    unittest.main()
