#!/usr/bin/python3
"""The index of a folder by an equal walk in Python, as JSON Lines: index_in_python.py FOLDER OUTPUT

It is the walk that the driver's index is tested against, entry for entry.
"""

import json
import os
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "driver"))

import index_agreement_test

with open(sys.argv[2], "w", encoding="utf-8") as output:
    for entry in index_agreement_test.entries(os.fsencode(sys.argv[1])):
        entry["path"] = entry["path"].decode(errors="replace")
        output.write(json.dumps(entry) + "\n")
