#!/usr/bin/python3
"""Draws calls, memory, descriptors and faults of a soak over time: plot.py SOAK.csv PLOT.png"""

import csv
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "bench"))

from plots import plt, save

# The panels from top to bottom, and the columns of each. Those of GROWING are totals of which the plot shows
# the number per second.
PANELS = {
    "calls per second": ["calls", "raised"],
    "resident KiB": ["resident KiB", "file system KiB"],
    "descriptors": ["descriptors", "file system descriptors"],
    "threads": ["threads"],
    "faults per second": ["errors", "midway", "interruptions", "short", "delays"],
}
GROWING = {"calls per second", "faults per second"}


def per_second(rows, column):
    """The growth of a total between two rows, for each row."""
    before = [{"second": 0, column: 0}, *rows]
    return [
        (int(row[column]) - int(last[column])) / (float(row["second"]) - float(last["second"]))
        for last, row in zip(before, rows)
    ]


def main():
    rows = list(csv.DictReader(open(sys.argv[1], encoding="utf-8")))
    seconds = [float(row["second"]) for row in rows]
    figure, panels = plt.subplots(len(PANELS), 1, sharex=True, figsize=(7, 9), layout="constrained")
    for panel, (label, columns) in zip(panels, PANELS.items()):
        for column in columns:
            growing = label in GROWING
            values = per_second(rows, column) if growing else [int(row[column]) for row in rows]
            panel.plot(seconds, values, label=column)
        panel.set(ylabel=label)
        if label == "faults per second":
            panel.set(yscale="symlog")
        else:
            panel.set_ylim(0, None)
        panel.legend(loc="lower right", fontsize="small", ncols=len(columns))
    panels[-1].set(xlabel="seconds")
    save(figure, sys.argv[2])


if __name__ == "__main__":
    main()
