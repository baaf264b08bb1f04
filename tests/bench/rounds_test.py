#!/usr/bin/env python3
"""How many rounds bench/run measures, in how many processes. The implementations are made up."""

import pathlib
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "bench"))
sys.dont_write_bytecode = True

import figures
from implementations import Answer
from rounds import SHORTEST, Rounds
from workloads import Workload


class Implementation:
    """Takes the nanoseconds of an iteration that its processes have, one after the other."""

    def __init__(self, name, *processes):
        self.name = name
        self.processes = iter(processes)
        self.taken = next(self.processes)
        self.iterations = []

    def ask(self, workload, iterations):
        self.iterations.append(iterations)
        return None if self.taken is None else Answer(self.taken * iterations, 2 * iterations, None)

    def close(self):
        if self.iterations:
            self.taken = next(self.processes, self.taken)


def measured(*implementations, **more):
    rounds = Rounds(Workload("made up", "nothing", [], 10, **more), implementations)
    return rounds if rounds.measure() else None


class TheRounds(unittest.TestCase):
    def test_end_when_four_processes_came_close_to_the_fastest(self):
        rounds = measured(Implementation("module", 1000, 1020, 1300, 1010, 1000, 900))

        self.assertEqual([process[0] for process in rounds.times["module"]], [1000, 1020, 1300, 1010, 1000])

    def test_start_only_processes_that_need_no_warm_up_again(self):
        rounds = measured(Implementation("module", 1000), Implementation("java", 5000, 3000), rounds=2)

        self.assertEqual(rounds.times, {"module": [[1000, 1000]] * 4, "java": [[5000, 5000]] * 4})

    def test_have_as_many_iterations_as_take_long_enough(self):
        short, long = Implementation("module", 1000), Implementation("plain", SHORTEST)
        rounds = measured(short, long)

        self.assertEqual(short.iterations[:3], [10, 10, SHORTEST // 1000])
        self.assertEqual(set(long.iterations), {10})
        self.assertEqual(rounds.result()["allocations"], 2)

    def test_leave_out_who_does_not_know_the_workload(self):
        rounds = measured(Implementation("module", 1000), Implementation("go", None))

        self.assertEqual(list(rounds.times), ["module"])
        self.assertIsNone(measured(Implementation("module", None), Implementation("go", 1000)))

    def test_are_of_those_alone_whom_the_workload_names(self):
        rounds = measured(Implementation("module", 1000), Implementation("go", 1000), only=["module"])

        self.assertEqual(list(rounds.times), ["module"])


class AFastestRound(unittest.TestCase):
    def test_is_confirmed_by_processes_and_not_by_rounds(self):
        self.assertTrue(figures.is_confirmed([[100], [103], [200, 103], [102]]))
        self.assertFalse(figures.is_confirmed([[100], [104], [200, 103], [102]]))
        self.assertFalse(figures.is_confirmed([[100] * 9, [200], [200], [200]]))


if __name__ == "__main__":
    unittest.main()
