"""The table of what can be found after a crash, and its place between markers in docs/durability.md.

Results are sets of words by (row, file system). A row is (operation, when).
"""

import pathlib
import sys

from operations import TEMPORARY, WORDS

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "bench"))

import document

DOCUMENT = ROOT / "docs/durability.md"
BEGIN = "<!-- The table of states: tests/crashes/run.py --document writes what stands between these two lines. -->"
END = "<!-- End of the table of states. -->"
ANY_TIME = "at any time"
EXAMINED = ("states examined", "")  # the last row
AFTER = {
    ("text",): "after fsync of the file",
    (".",): "after fsync of the folder",
    ("text", "."): "after fsync of both",
}
ORDER = [*WORDS, TEMPORARY]


def markdown(results):
    """The lines of the table. The order of rows and columns is that of the results."""
    rows = list(dict.fromkeys(row for row, _ in results))
    systems = list(dict.fromkeys(system for _, system in results))
    lines = [["operation", "when the power fails", *systems]]
    for row in rows:
        lines.append([*row, *(cell(results.get((row, system), ())) for system in systems)])
    return document.markdown(lines)


def cell(words):
    return ", ".join(sorted(words, key=place))


def place(word):
    return ORDER.index(word) if word in ORDER else len(ORDER)


def documented(text):
    """The results that the table of the document tells."""
    _, section, _ = document.split(text, BEGIN, END, DOCUMENT)
    lines = [line for line in section.splitlines() if line.startswith("| ")]
    split = [[word.strip() for word in line.strip("| ").split("|")] for line in lines]
    if not split:
        return {}
    systems = split[0][2:]
    return {
        ((operation, when), system): set(filter(None, words.split(", ")))
        for operation, when, *cells in split[2:]
        for system, words in zip(systems, cells)
    }


def merged(earlier, results):
    """The results, and the earlier ones of file systems that these do not have."""
    renewed = {system for _, system in results}
    every = {key: words for key, words in earlier.items() if key[1] not in renewed} | results
    return {key: words for key, words in every.items() if key[0] != EXAMINED} | {
        key: words for key, words in every.items() if key[0] == EXAMINED
    }


def written(text, results):
    """The document with these results."""
    return document.replace(text, BEGIN, END, markdown(results), DOCUMENT)
