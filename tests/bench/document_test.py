#!/usr/bin/env python3
"""bench/run writes its table between the markers of the document, and nothing else. All figures are made up."""

import pathlib
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "bench"))
sys.dont_write_bytecode = True

import document


def result(name, nanoseconds, ratios, allocations=None, curve=None):
    return {
        "name": name,
        "nanoseconds": {"module": {"minimum": nanoseconds}},
        "allocations": allocations,
        "ratios": {peer: {"minima": minima, "target": target} for peer, (minima, target) in ratios.items()},
        "curve": curve,
    }


RESULTS = [
    result("met", 9.31, {"plain": (0.5, 1.0), "rust": (2.004, None)}, allocations=2),
    result("missed", 2_500_000, {"go": (1.25, 1.0)}, curve=["list", 10]),
    result("only in a plot", 1, {"plain": (1.0, None)}, curve=["list", 20]),
]

TABLE = """\
| workload | module | allocations | plain | limit | narrow | rust | go | node | python | java | boost | c_library |
| --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- |
| met | 9.31 ns | 2 | 0.50 ok |  |  | 2.00 |  |  |  |  |  |  |
| missed | 2.5 ms |  |  |  |  |  | 1.25 ! |  |  |  |  |  |
"""


class TheTable(unittest.TestCase):
    def test_shows_times_ratios_and_whether_targets_are_met(self):
        self.assertEqual(document.markdown(RESULTS), TABLE)

    def test_replaces_what_stands_between_the_markers(self):
        with tempfile.TemporaryDirectory() as folder:
            page = pathlib.Path(folder, "page.md")
            page.write_text(f"before\n{document.BEGIN}\nan older table\n{document.END}\nafter\n")

            document.write(RESULTS, page)
            document.write(RESULTS, page)

            self.assertEqual(
                page.read_text(), f"before\n{document.BEGIN}\n\n{TABLE}\n{document.END}\nafter\n"
            )

    def test_leaves_a_page_without_both_markers_alone(self):
        with tempfile.TemporaryDirectory() as folder:
            page = pathlib.Path(folder, "page.md")
            page.write_text(f"before\n{document.BEGIN}\n")

            self.assertRaises(SystemExit, document.write, RESULTS, page)

            self.assertEqual(page.read_text(), f"before\n{document.BEGIN}\n")


class TheDocument(unittest.TestCase):
    def test_has_a_table_of_the_same_form(self):
        _, rest = (ROOT / "docs/performance.md").read_text().split(document.BEGIN)
        lines = rest.split(document.END)[0].strip().splitlines()

        self.assertEqual(lines[:2], TABLE.splitlines()[:2])
        self.assertEqual({line.count("|") for line in lines}, {len(document.HEADER) + 1})


if __name__ == "__main__":
    unittest.main()
