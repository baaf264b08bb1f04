#!/usr/bin/python3
"""Draws calls, memory and descriptors of a long run over time: plot.py LOAD.csv PLOT.png"""

import csv
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "bench"))

from plots import plt, save

rows = list(csv.DictReader(open(sys.argv[1], encoding="utf-8")))
seconds = [int(row["second"]) for row in rows]
figure, panels = plt.subplots(3, 1, sharex=True, figsize=(7, 6), layout="constrained")
for panel, column in zip(panels, ["calls", "resident KiB", "descriptors"]):
    panel.plot(seconds, [int(row[column]) for row in rows])
    panel.set(ylabel=column, ylim=(0, None))
panels[-1].set(xlabel="seconds")
save(figure, sys.argv[2])
