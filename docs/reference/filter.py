#!/usr/bin/env python3
"""Prints a header with its comments marked for Doxygen: filter.py HEADER

The first comment is that of the file. One before a blank line is the heading of what follows. Every
other is that of the declaration below it, or of each that shares it. Comments behind code stay.
"""

import itertools
import pathlib
import sys

HEADING, OPEN, CLOSE = "/// @name", "///@{", "///@}"


def marked(comment):
    return [line.replace("//", "///", 1).replace("<", r"\<") for line in comment]


def repeated(comment, code):
    """The code with the comment before each declaration up to the next blank line."""
    for line, before in zip(code, [";", *code]):
        if not line.strip():
            comment = []
        if before.endswith(";"):
            yield from comment
        yield line


def with_headings(lines):
    """Closes each heading before the next, and before a brace at the margin that ends its scope."""
    is_open = False
    for line in lines:
        ends_scope = line.startswith("}") and not line.startswith("};")
        if is_open and (line.startswith(HEADING) or ends_scope):
            yield CLOSE
            is_open = False
        is_open = is_open or line == OPEN
        yield line


def filtered(lines):
    comment, is_first = [], True
    for is_comment, run in itertools.groupby(lines, lambda line: line.lstrip().startswith("//")):
        block = list(run)
        if is_comment:
            comment = marked(block)
        elif is_first:
            yield from ["/// @file", *comment, *block]
            is_first = False
        elif not block[0].strip():
            title, *text = comment
            yield from [title.replace("///", HEADING, 1).rstrip("."), *text, OPEN, *block]
        else:
            yield from repeated(comment, block)


if __name__ == "__main__":
    lines = pathlib.Path(sys.argv[1]).read_text().splitlines()
    print("\n".join(with_headings(filtered(lines))))
