#!/usr/bin/env python3
"""bench/run writes its tables between the markers of the document, and nothing else; marks what scatters, puts
machines side by side and compares runs. All figures are made up."""

import pathlib
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "bench"))
sys.dont_write_bytecode = True

import document
import figures
import machine


def result(name, nanoseconds, ratios, allocations=None, curve=None, scatter=0.0):
    return {
        "name": name,
        "nanoseconds": {"module": {"minimum": nanoseconds, "scatter": scatter}},
        "allocations": allocations,
        "ratios": {
            peer: {"minima": minima, "target": target, "scatter": scattering[0] if scattering else 0.1}
            for peer, (minima, target, *scattering) in ratios.items()
        },
        "curve": curve,
    }


def run(processor, results):
    return {"date": "2026-01-01", "machine": {"processor": processor, "load": 0.0}, "results": results}


def point(name, kind, size, units, module, scatter=0.0, **more):
    curve = {"name": name, "kind": kind, "size": size, "units": units}
    return result(f"{name} {size}", module, {}, curve=curve, scatter=scatter) | more


RESULTS = [
    result("met", 9.31, {"plain": (0.5, 1.0), "rust": (2.004, None)}, allocations=2),
    result("missed", 2_500_000, {"go": (1.25, 1.0)}, curve={"name": "list", "kind": "plot", "size": 10}),
    result("only in a plot", 1, {"plain": (1.0, None)}, curve={"name": "list", "kind": "plot", "size": 20}),
    result("scattered", 1, {"plain": (1.0, 1.0, 0.26), "limit": (1.0, None, 0.25)}, scatter=0.3),
]
GROWTH = [
    point("listing", "growth", 1000, 1000, 5_000_000, peak=None),
    point("listing", "growth", 100, 100, 400_000, peak=None),
    point("reading", "growth", 10, 10, 100, peak=2.0, scatter=0.3),
    point("writing", "threads", 1, 1, 100, waited=0.0),
    point("writing", "threads", 2, 2, 160, waited=0.25),
]

HEADER = """\
| workload | module | allocations | plain | limit | limit_at_boundary | narrow \
| rust | go | node | python | java | boost | c_library |
| --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- |
"""
TABLE = (
    HEADER
    + """\
| met | 9.31 ns | 2 | 0.50 ok |  |  |  | 2.00 |  |  |  |  |  |  |
| missed | 2.5 ms |  |  |  |  |  |  | 1.25 ! |  |  |  |  |  |
| scattered | 1 ns ~ |  | 1.00 ok ~ | 1.00 |  |  |  |  |  |  |  |  |  |
"""
)


class TheTable(unittest.TestCase):
    def test_shows_times_ratios_whether_targets_are_met_and_what_scatters(self):
        section = document.results_section([run("One", RESULTS)])

        self.assertEqual(section, f"- 2026-01-01: processor One, load 0.0\n\n{TABLE}\n{document.LEGEND}")

    def test_has_a_column_for_each_of_several_machines(self):
        one = run("Same", [result("both", 10, {"plain": (0.5, 1.0)}), result("first", 20, {})])
        two = run("Same", [result("second", 30, {}), result("both", 40, {"plain": (2.0, 1.0)})])

        self.assertEqual(
            document.table([one, two], ["module", "plain"]),
            [
                ["workload", "module Same (1)", "module Same (2)", "plain Same (1)", "plain Same (2)"],
                ["both", "10 ns", "40 ns", "0.50 ok", "2.00 !"],
                ["first", "20 ns", "", "", ""],
                ["second", "", "30 ns", "", ""],
            ],
        )

    def test_of_several_machines_names_all_of_them(self):
        section = document.results_section([run("One", RESULTS), run("Two", RESULTS)])

        self.assertTrue(
            section.startswith("- 2026-01-01: processor One, load 0.0\n- 2026-01-01: processor Two,")
        )
        self.assertIn("| workload | module One | module Two | allocations One |", section)
        self.assertIn("| workload | rust One | rust Two | go One |", section)


class TheTablesOfGrowth(unittest.TestCase):
    def test_relate_the_cost_of_a_unit_to_that_at_the_smallest_size(self):
        self.assertEqual(
            document.growth_table(run("One", GROWTH)),
            [
                ["growth of", "size", "one unit", "relative", "limit", "limit_at_boundary", "peak of memory"],
                ["listing", "100", "4 µs", "1.00", "", "", ""],
                ["listing", "1,000", "5 µs", "1.25", "", "", ""],
                ["reading", "10", "10 ns ~", "1.00", "", "", "2.00 x"],
            ],
        )

    def test_mark_what_deviates_on_either_side(self):
        points = [point("listing", "growth", 1, 1, 100), point("listing", "growth", 2, 1, 126)]
        points.append(point("listing", "growth", 3, 1, 74))

        found = [line[3] for line in document.growth_table(run("One", points))]

        self.assertEqual(found, ["relative", "1.00", "1.26 !", "0.74 !"])

    def test_relate_throughput_to_that_of_one_thread(self):
        self.assertEqual(
            document.threads_table(run("One", GROWTH)),
            [["on threads", "1", "2"], ["writing, module", "1.00 (0%)", "1.25 (25%)"]],
        )


class Writing(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.page = pathlib.Path(folder.name, "page.md")

    def test_replaces_what_stands_between_the_markers(self):
        d = document
        self.page.write_text(
            f"before\n{d.BEGIN}\nan older table\n{d.END}\nbetween\n{d.BEGIN_GROWTH}\n{d.END_GROWTH}\nafter\n"
        )
        runs = [run("One", RESULTS + GROWTH)]

        document.write(runs, self.page)
        document.write(runs, self.page)

        self.assertEqual(
            self.page.read_text(),
            f"before\n{d.BEGIN}\n\n{d.results_section(runs)}\n{d.END}\n"
            f"between\n{d.BEGIN_GROWTH}\n\n{d.growth_section(runs)}\n{d.END_GROWTH}\nafter\n",
        )

    def test_leaves_a_page_without_all_markers_alone(self):
        text = f"before\n{document.BEGIN}\n{document.END}\n{document.BEGIN_GROWTH}\n"
        self.page.write_text(text)

        self.assertRaises(SystemExit, document.write, [run("One", RESULTS)], self.page)

        self.assertEqual(self.page.read_text(), text)


class Figures(unittest.TestCase):
    def test_scatter_by_the_interquartile_range_as_a_share_of_the_median(self):
        self.assertEqual(figures.scatter([8, 9, 10, 11, 100]), 0.2)
        self.assertFalse(figures.is_scattered({"scatter": 0.25}))
        self.assertTrue(figures.is_scattered({"scatter": 0.251}))

    def test_of_a_ratio_are_taken_within_a_round_and_of_the_fastest_rounds(self):
        made = figures.result_of("one", {"module": [10, 20, 40], "go": [20, 20, 40]}, {"go": 1.0})

        self.assertEqual(
            made["ratios"], {"go": {"median": 1.0, "minima": 0.5, "scatter": 0.25, "target": 1.0}}
        )
        self.assertEqual(made["nanoseconds"]["module"], {"minimum": 10, "median": 20, "scatter": 0.75})

    def test_of_a_later_run_replace_the_earlier_ones(self):
        earlier = run("One", [result("a", 1, {}), result("b", 2, {})])
        later = run("One", [result("c", 3, {}), result("b", 4, {})])
        earlier["machine"]["load"] = 0.7

        both = figures.added(earlier, later)

        found = [(each["name"], each["nanoseconds"]["module"]["minimum"]) for each in both["results"]]
        self.assertEqual(found, [("a", 1), ("b", 4), ("c", 3)])
        self.assertEqual(both["machine"]["load"], 0.7)
        self.assertEqual(figures.added(None, later), later)

    def test_of_two_runs_are_compared_row_by_row(self):
        first = [
            result("same", 1, {"go": (1.0, None), "rust": (1.0, None)}),
            result("other", 1, {"go": (1.0, None), "rust": (2.0, None)}),
            result("only here", 1, {}),
        ]
        second = [
            result("same", 9, {"go": (1.1, None)}),
            result("other", 9, {"go": (0.9, None), "rust": (2.1, None)}),
        ]

        self.assertEqual(
            figures.compare(first, second),
            ["1 of 2 rows agree within 10%", "  other: go 1.00 and 0.90"],
        )


class TheMachine(unittest.TestCase):
    def test_is_described_on_a_line(self):
        described = machine.describe(pathlib.Path("/missing"))

        self.assertEqual(described["compiler"], "not visible")
        self.assertTrue(machine.line(described).startswith(f"processor {described['processor']}, CPUs "))

    def test_is_warned_of_when_it_is_busy(self):
        self.assertIsNone(machine.warning({"load": 0.1}))
        self.assertIn("other work uses 0.11 processors", machine.warning({"load": 0.11}))

    def test_has_settings_of_which_one_is_selected(self):
        self.assertEqual(machine.selected("always [madvise] never"), "madvise")
        self.assertEqual(machine.selected("not visible"), "not visible")


class TheDocument(unittest.TestCase):
    def test_has_a_table_of_the_same_form(self):
        page = ROOT / "docs/performance.md"
        _, section, _ = document.split(page.read_text(), document.BEGIN, document.END, page)

        tables = [line for line in section.splitlines() if line.startswith("| workload |")]

        if len(tables) == 1:
            self.assertEqual(tables, HEADER.splitlines()[:1])
        else:
            self.assertEqual([line.split()[3] for line in tables], [document.OWN[0], document.PEERS[0]])
        self.assertTrue(section.endswith(f"\n{document.LEGEND}\n"))


if __name__ == "__main__":
    unittest.main()
