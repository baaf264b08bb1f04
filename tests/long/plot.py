#!/usr/bin/python3
"""Draws the course of a long run: plot.py LOAD.csv PLOT.svg"""

import csv
import sys

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt

rows = list(csv.DictReader(open(sys.argv[1], encoding="utf-8")))
seconds = [int(row["second"]) for row in rows]
figure, panels = plt.subplots(3, 1, sharex=True, figsize=(7, 6), layout="constrained")
for panel, column in zip(panels, ["calls", "resident KiB", "descriptors"]):
    panel.plot(seconds, [int(row[column]) for row in rows])
    panel.set(ylabel=column, ylim=(0, None))
panels[-1].set(xlabel="seconds")
figure.savefig(sys.argv[2], metadata={"Date": None})
