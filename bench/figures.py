"""What the rounds of a workload amount to, and how far two runs agree."""

import statistics

SCATTERED = 0.25
AGREES = 0.10
CONFIRMS = 1.03
CONFIRMATIONS = 4


def scatter(values):
    """The interquartile range of the values divided by their median."""
    first, median, third = statistics.quantiles(values, n=4, method="inclusive")
    return (third - first) / median


def is_scattered(figure):
    return figure["scatter"] > SCATTERED


def is_confirmed(processes):
    """Whether the fastest round is no accident of one process: others came as close as makes no difference."""
    fastest = min(map(min, processes))
    return sum(min(process) <= CONFIRMS * fastest for process in processes) >= CONFIRMATIONS


def result_of(name, times, targets, curve=None, allocations=None):
    """The result of a workload by the nanoseconds that each implementation took in each round."""
    ratios = {}
    for other, rounds in times.items():
        if other != "module":
            within = [a / b for a, b in zip(times["module"], rounds)]
            ratios[other] = {
                "median": statistics.median(within),
                "minima": min(times["module"]) / min(rounds),
                "scatter": scatter(within),
                "target": targets.get(other),
            }
    return {
        "name": name,
        "nanoseconds": {
            who: {"minimum": min(rounds), "median": statistics.median(rounds), "scatter": scatter(rounds)}
            for who, rounds in times.items()
        },
        "allocations": allocations,
        "ratios": ratios,
        "curve": curve,
    }


def added(earlier, later):
    """The later run with the results of the earlier one, if there is one, that it does not have itself; and with
    the higher load of both.
    """
    if earlier is None:
        return later
    found = {result["name"]: result for result in later["results"]}
    kept = [found.pop(result["name"], result) for result in earlier["results"]]
    load = max(run["machine"]["load"] for run in (earlier, later))
    return later | {"machine": later["machine"] | {"load": load}, "results": kept + list(found.values())}


def compare(first, second):
    """Lines that say how many rows of two runs agree, and list the ratios of those that do not. A row agrees
    when every ratio that both runs have differs by at most 10 %.
    """
    known = {result["name"]: result["ratios"] for result in first}
    both = [
        (result["name"], known[result["name"]], result["ratios"])
        for result in second
        if result["name"] in known
    ]
    differing = {name: differences(before, after) for name, before, after in both}
    differing = {name: found for name, found in differing.items() if found}
    return [
        f"{len(both) - len(differing)} of {len(both)} rows agree within {AGREES:.0%}",
        *(f"  {name}: {', '.join(found)}" for name, found in differing.items()),
    ]


def differences(before, after):
    pairs = {who: (before[who]["minima"], after[who]["minima"]) for who in before if who in after}
    return [
        f"{who} {a:.2f} and {b:.2f}" for who, (a, b) in pairs.items() if max(a, b) > min(a, b) * (1 + AGREES)
    ]
