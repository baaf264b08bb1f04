"""The rounds of a workload: how many there are, how long an answer takes, and in how many processes."""

import time

import figures
import implementations

SHORTEST = 5_000_000  # nanoseconds of an answer: the switch to its process costs some microseconds
LONGEST = 6  # seconds of a workload, unless one process takes longer


class Rounds:
    """In a round every implementation answers once (A B C A B C ...). Processes without a just-in-time compiler
    are started again after some rounds: how fast they are depends also on the addresses that a process gets.
    """

    def __init__(self, workload, everybody):
        self.workload = workload
        self.everybody = [each for each in everybody if workload.only is None or each.name in workload.only]
        self.iterations = {}
        self.allocations = {}  # of an iteration
        self.times = {}  # of each implementation, by process, the nanoseconds of an iteration in each round

    def measure(self):
        """Until the fastest rounds are confirmed, or the time is over. False when the module gives no answer."""
        end = time.monotonic() + LONGEST
        while not self.are_confirmed():
            restart(self.everybody)
            takes_part = [each for each in self.everybody if self.warm_up(each)]
            if "module" not in self.iterations:
                return False
            for each in takes_part:
                self.times.setdefault(each.name, []).append([])
            for _ in range(self.workload.rounds):
                for each in takes_part:
                    self.ask(each)
            if time.monotonic() > end:
                break
        return True

    def are_confirmed(self):
        return bool(self.times) and all(map(figures.is_confirmed, self.times.values()))

    def warm_up(self, implementation):
        """Whether the implementation knows the workload. The first answers of a process fill caches and let
        just-in-time compilers work; the second of all tells how many iterations take long enough.
        """
        name = implementation.name
        count = self.iterations.get(name, self.workload.iterations)
        answer = implementation.ask(self.workload, count)
        if answer is not None and name not in self.iterations:
            answer = implementation.ask(self.workload, count)
            self.iterations[name] = count * max(1, SHORTEST // max(1, answer.nanoseconds))
        return answer is not None

    def ask(self, implementation):
        name = implementation.name
        count = self.iterations[name]
        answer = implementation.ask(self.workload, count)
        self.times[name][-1].append(answer.nanoseconds / count)
        self.allocations[name] = None if answer.allocations is None else answer.allocations / count

    def result(self):
        return figures.result_of(
            self.workload.name,
            {name: [time for process in times for time in process] for name, times in self.times.items()},
            self.workload.targets,
            self.workload.curve,
            self.allocations["module"],
        )


def restart(everybody):
    """Ends those processes that are started again by the next request."""
    for each in everybody:
        if each.name in implementations.RESTARTED:
            each.close()
