"""The table of what can be found after a crash, and its place between markers in docs/durability.md.

Results are sets of words by (row, file system). A row is (operation, when).
"""

from operations import TEMPORARY, WORDS

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


def table(results):
    """The lines of the table. The order of rows and columns is that of the results."""
    rows = list(dict.fromkeys(row for row, _ in results))
    systems = list(dict.fromkeys(system for _, system in results))
    lines = [["operation", "when the power fails", *systems], ["---"] * (2 + len(systems))]
    for row in rows:
        lines.append([*row, *(cell(results.get((row, system), ())) for system in systems)])
    return "".join(f"| {' | '.join(line)} |\n" for line in lines)


def cell(words):
    return ", ".join(sorted(words, key=place))


def place(word):
    return ORDER.index(word) if word in ORDER else len(ORDER)


def section(text):
    """What stands between the markers."""
    if text.count(BEGIN) != 1 or text.count(END) != 1:
        raise SystemExit(f"expected once each: {BEGIN} and {END}")
    return text.split(BEGIN)[1].split(END)[0]


def documented(text):
    """The results that the table of the document tells."""
    lines = [line for line in section(text).splitlines() if line.startswith("| ")]
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
    before, after = text.split(BEGIN)[0], text.split(END)[1]
    return f"{before}{BEGIN}\n\n{table(results)}\n{END}{after}"
