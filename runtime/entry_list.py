#!/usr/bin/env python3
"""Writes the two headers that list the entry points for generators of bindings, from entry_points.h.

    entry_list.py           writes runtime/include/quen/io/entry_list.h and entry_help.h
    entry_list.py --check   fails when one of them is not what would be written
"""

import re
import sys

from entry_points import HEADER, read_header

LIST_HEAD = """\
// Each entry point of entry_points.h, in its order, as
//
//   QUEN_IO_ENTRY(name, result, parameters...)
//
// for programs that make a binding from a table. Define the macro, include this header as often as
// needed, and undefine it again. An entry point without parameters has an empty one.
//
//   #define QUEN_IO_ENTRY(name, result, ...) {#name, #__VA_ARGS__, &binding<&name>},
//   constexpr Binding kBindings[] = {
//   #include <quen/io/entry_list.h>
//   };
//   #undef QUEN_IO_ENTRY
//
// Written by runtime/entry_list.py.

#ifndef QUEN_IO_ENTRY
#error "Define QUEN_IO_ENTRY(name, result, ...) before including this header."
#endif

// clang-format off
"""

HELP_HEAD = """\
// The short name, the names of the parameters and the description of each entry point of
// entry_points.h, in its order, as
//
//   QUEN_IO_ENTRY_HELP(name, shortName, parameterNames, description)
//
// with string literals for the last three. Short names are those of the language's classes and
// members, as in "Path.normalize"; those of property getters have "get" in between, as in
// "Path.get.exists". To be used like entry_list.h.
//
// Written by runtime/entry_list.py.

#ifndef QUEN_IO_ENTRY_HELP
#error "Define QUEN_IO_ENTRY_HELP(name, shortName, parameterNames, description) first."
#endif

// clang-format off
"""


def listed(row):
    result, parameters = re.fullmatch(r"(\S+) \w+\((.*)\)", row["signature"]).groups()
    return f"QUEN_IO_ENTRY({row['name']}, {result}, {parameters})\n"


def described(row):
    names = ", ".join(row["parameters"])
    return f'QUEN_IO_ENTRY_HELP({row["name"]}, "{row["short"]}", "{names}", R"({row["help"]})")\n'


def headers():
    """The text of each header by its path."""
    rows = read_header()
    return {
        HEADER.with_name("entry_list.h"): LIST_HEAD + "".join(map(listed, rows)),
        HEADER.with_name("entry_help.h"): HELP_HEAD + "".join(map(described, rows)),
    }


def outdated():
    """The headers that are not what would be written."""
    return [path for path, text in headers().items() if not path.exists() or path.read_text("utf-8") != text]


if __name__ == "__main__":
    if sys.argv[1:] == ["--check"]:
        sys.exit("\n".join(f"{path} is not what runtime/entry_list.py writes" for path in outdated()) or 0)
    for path, text in headers().items():
        path.write_text(text, encoding="utf-8")
