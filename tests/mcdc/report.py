#!/usr/bin/env python3
"""Reports modified condition/decision coverage (MC/DC) of the module from the export of llvm-cov.

    tests/mcdc/report.py EXPORT

Prints each condition whose independence pair no test shows: two executions of its decision that differ in the
decision's outcome, and in no condition but this one (masking MC/DC: conditions that are not evaluated count as
equal). A decision of one condition is covered when it was both true and false. Instantiations of a template are
the same decision; a condition is covered if it is in one of them. Fails for a condition that is neither covered
nor named with its reason in unreachable.py, and for an entry there that names no uncovered condition.
"""

import argparse
import collections
import json
import pathlib
import sys

from unreachable import UNREACHABLE

ROOT = pathlib.Path(__file__).resolve().parents[2]
MODULE = "src/"
# Of llvm/ProfileData/Coverage/CoverageMapping.h: a condition alone, and one of several in a decision.
BRANCH, MCDC_BRANCH = 4, 6


class Source:
    """The text of a file, by regions: first line and column, and last line and column after its end."""

    def __init__(self, path):
        self.lines = path.read_text().splitlines()

    def text(self, region):
        first, column, last, end = region
        lines = self.lines[first - 1 : last]
        lines[-1] = lines[-1][: end - 1]
        lines[0] = lines[0][column - 1 :]
        return " ".join(" ".join(lines).split())

    def whole_lines(self, region):
        return " ".join(" ".join(self.lines[region[0] - 1 : region[2]]).split())


class Condition:
    """A condition of a decision, merged over all instantiations."""

    def __init__(self, file, line, text, context):
        self.file, self.line, self.text, self.context = file, line, text, context
        self.covered, self.true, self.false = False, 0, 0

    def add(self, covered, true, false):
        self.covered |= covered
        self.true += true
        self.false += false

    def is_named_by(self, entry):
        file, decision, condition, _ = entry
        return self.file == file and self.text == condition and decision in self.context

    def __str__(self):
        shown = f"true {self.true} times, false {self.false} times"
        return f"{self.file}:{self.line}: {self.context}\n    {self.text} ({shown})"


def within(inner, outer):
    return outer[:2] <= inner[:2] and inner[2:4] <= outer[2:4]


def conditions_of(function):
    """The conditions of each decision of a function: (region of the decision, [(region, covered, true, false)])."""
    branches = sorted(function["branches"], key=lambda each: each[:4])
    for record in function["mcdc_records"]:
        region, covered = record[:4], record[-1]
        parts = [each for each in branches if each[-1] == MCDC_BRANCH and within(each, region)]
        if len(parts) != len(covered):
            sys.exit(
                f"{function['filenames'][0]}:{region[0]}: a condition is constant, or has a decision in it"
            )
        yield region, [(part[:4], shown, *part[4:6]) for part, shown in zip(parts, covered)]
    for branch in branches:
        if branch[-1] == BRANCH:
            true, false = branch[4:6]
            yield branch[:4], [(branch[:4], true > 0 and false > 0, true, false)]


def decisions_of(export, root):
    """The decisions of the module in the order of the source, each as the list of its conditions."""
    sources, merged = {}, collections.defaultdict(dict)
    for function in export["data"][0]["functions"]:
        path = pathlib.Path(function["filenames"][0])
        if not path.is_relative_to(root / MODULE):
            continue
        file = str(path.relative_to(root))
        source = sources.setdefault(file, Source(path))
        for region, conditions in conditions_of(function):
            decision = merged[file, *region]
            for part, *shown in conditions:
                line, text = part[0], source.text(part)
                condition = decision.setdefault(
                    tuple(part), Condition(file, line, text, source.whole_lines(region))
                )
                condition.add(*shown)
    return [list(merged[key].values()) for key in sorted(merged)]


def failures(decisions, unreachable):
    """What the report fails for, as lines."""
    uncovered = [condition for each in decisions for condition in each if not condition.covered]
    for condition in uncovered:
        reasons = [entry for entry in unreachable if condition.is_named_by(entry)]
        if not reasons:
            yield f"not covered: {condition}"
    for entry in unreachable:
        named = [condition for condition in uncovered if condition.is_named_by(entry)]
        if len(named) != 1:
            yield f"names {len(named)} uncovered conditions instead of one: {', '.join(entry)}"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("export", type=pathlib.Path)
    options = parser.parse_args()
    decisions = decisions_of(json.loads(options.export.read_text()), ROOT)
    found = list(failures(decisions, UNREACHABLE))

    for file, decision, condition, reason in UNREACHABLE:
        print(f"{file}: {decision}\n    {condition}: {reason}")
    compound = sum(len(each) > 1 for each in decisions)
    conditions = [condition for each in decisions for condition in each]
    covered = sum(condition.covered for condition in conditions)
    print(
        f"{len(decisions)} decisions, {compound} of several conditions; {len(conditions)} conditions, "
        f"{covered} covered, {len(UNREACHABLE)} named as unreachable"
    )
    print(*found, sep="\n", end="\n" if found else "", file=sys.stderr)
    sys.exit(1 if found or not conditions else 0)


if __name__ == "__main__":
    main()
