#!/usr/bin/env python3
"""Counts the broken runtimes that the checked library notices while a program does ordinary work.

    count.py [--at-least COUNT] PROGRAM

PROGRAM takes an empty folder to work in, and a mistake of its runtime from QUEN_IO_BROKEN. Prints for each
mistake what was reported first. Exits 1 if a runtime without a mistake is reported too, or if fewer than
COUNT mistakes are noticed.
"""

import argparse
import os
import pathlib
import re
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

BROKEN_RUNTIME = pathlib.Path(__file__).resolve().parents[1] / "conformance" / "broken_runtime.cpp"


def mistakes():
    """The names in the table of the broken runtimes."""
    table = re.search(r"kMistakes = [^{]*\{(.*?)\}\);", BROKEN_RUNTIME.read_text(), re.DOTALL)
    return re.findall(r'"([^"]+)"', table[1])


def findings(program, mistake=None):
    """The lines of findings while the program works; it may crash or hang afterwards."""
    with tempfile.TemporaryDirectory() as folder:
        log, work = pathlib.Path(folder, "log"), pathlib.Path(folder, "work")
        log.touch()
        work.mkdir()
        environment = os.environ | {"QUEN_IO_CHECKED_LOG": str(log)}
        if mistake:
            environment["QUEN_IO_BROKEN"] = mistake
        try:
            done = subprocess.run([program, work], env=environment, capture_output=True, timeout=15)
        except subprocess.TimeoutExpired:
            done = None
        if not mistake and (done is None or done.stdout != b"done\n"):
            sys.exit(f"{program} did not do its work")
        lines = log.read_text(errors="replace").splitlines()
        return [
            line.removeprefix("quen_io_checked: ")
            for line in lines
            if not line.startswith("quen_io_checked: findings: ")
        ]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("--at-least", type=int, default=0, metavar="COUNT")
    parser.add_argument("program", metavar="PROGRAM")
    options = parser.parse_args()

    false_alarms = findings(options.program)
    names = mistakes()
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        found = list(pool.map(lambda name: findings(options.program, name), names))
    for name, lines in zip(names, found):
        print(f"{name}\n    {lines[0] if lines else 'not noticed'}")
    noticed = sum(map(bool, found))
    print(f"{noticed} of {len(names)} mistakes noticed, {len(false_alarms)} findings without a mistake")
    print(*false_alarms, sep="\n", end="")
    sys.exit(1 if false_alarms or noticed < options.at_least else 0)


if __name__ == "__main__":
    main()
