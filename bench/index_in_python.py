#!/usr/bin/python3
"""Writes the same index of a folder as quen-io, in Python, as JSON Lines.

The driver's index is tested against this walk, entry for entry.
"""

import argparse
import json
import os
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "driver"))

import index_agreement_test


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("folder")
    parser.add_argument("output", type=pathlib.Path)
    options = parser.parse_args()
    with options.output.open("w", encoding="utf-8") as output:
        for entry in index_agreement_test.entries(os.fsencode(options.folder)):
            for key in {"path", "target"} & set(entry):
                entry[key] = entry[key].decode(errors="replace")
            output.write(json.dumps(entry) + "\n")


if __name__ == "__main__":
    main()
