#!/usr/bin/env python3
"""Writes the driver's table of entry points from the header that declares them.

    entry_table.py entry_points.h entry_rows.cpp

Every declaration gets one row: names, signature, parameter names, the comment above it, and the
function itself, from whose type the compiler takes what is marshalled. A line that cannot be read,
a declaration without a comment and two entry points with one short name end the build.
"""

import json
import re
import sys
from pathlib import Path

RESULT = r"void\*|void|bool|std::int64_t"
PARAMETER = r"(?:void\*|const char\*|std::int64_t|std::int32_t) (\w+)"
DECLARATION = re.compile(rf"(?:{RESULT}) (\w+)\((.*)\);")
AROUND = re.compile(r'#.*|extern "C" \{|\}  // extern "C"|')


class Unreadable(Exception):
    pass


def declarations(header):
    """Each declaration of the header in one line, with the comment right above it."""
    comment, declaration = [], ""
    for number, line in enumerate(header.splitlines(), 1):
        if declaration or re.match(rf"(?:{RESULT}) ", line):
            declaration = f"{declaration} {line.strip()}".strip()
            if declaration.endswith(";"):
                yield number, declaration, comment
                comment, declaration = [], ""
        elif line.startswith("//"):
            comment.append(line[2:].strip())
        elif AROUND.fullmatch(line):
            comment = []
        else:
            raise Unreadable(f"{number}: neither comment nor declaration: {line}")
    if declaration:
        raise Unreadable(f"{number}: no end of declaration: {declaration}")


def short_name(name):
    """Path.normalize, Path._normalizePath, Path.get.exists: the class, a dot, the member."""
    getter = name.startswith("__quen_propget_")
    member = re.fullmatch(r"quen(?:_[a-z]+)+_([A-Z]\w*?)_(\w+)", name.removeprefix("__quen_propget_"))
    if member:
        return f"{member[1]}.get.{member[2]}" if getter else f"{member[1]}.{member[2]}"
    function = re.fullmatch(r"Quen_(\w+)", name)
    if function:
        return function[1]
    raise Unreadable(f"no short name can be made of {name}")


def row(declaration, comment):
    match = DECLARATION.fullmatch(declaration)
    if not match:
        raise Unreadable(f"cannot read: {declaration}")
    name, parameter_list = match.groups()
    if not comment:
        raise Unreadable(f"no comment above {name}")

    parameters = []
    for parameter in parameter_list.split(", ") if parameter_list else []:
        parameter_match = re.fullmatch(PARAMETER, parameter)
        if not parameter_match:
            raise Unreadable(f"cannot read parameter '{parameter}' of {name}")
        parameters.append(parameter_match[1])

    summary = re.match(r'.*?\.(?= [A-Z"]|$)', " ".join(comment))
    if not summary:
        raise Unreadable(f"no sentence in the comment above {name}")
    return {
        "name": name,
        "short": short_name(name),
        "signature": declaration.removesuffix(";"),
        "parameters": parameters,
        "summary": summary[0],
        "help": "\n".join(comment),
    }


def read_rows(header):
    rows, by_short_name = [], {}
    for number, declaration, comment in declarations(header):
        try:
            made = row(declaration, comment)
        except Unreadable as problem:
            raise Unreadable(f"{number}: {problem}") from None
        other = by_short_name.setdefault(made["short"], made["name"])
        if other != made["name"]:
            raise Unreadable(f"{number}: {made['name']} and {other} are both {made['short']}")
        rows.append(made)
    if not rows:
        raise Unreadable("1: no entry points")
    return rows


def cpp_rows(rows):
    literal = json.dumps
    yield "// Made by driver/entry_table.py from quen/io/entry_points.h."
    yield '#include "driver/entry_table.h"'
    yield '#include "quen/io/entry_points.h"'
    yield ""
    yield "namespace quen::driver {"
    yield ""
    yield "const std::vector<EntryPoint>& entryPoints() {"
    yield "  static const std::vector<EntryPoint> all = {"
    for each in rows:
        parameters = ", ".join(literal(name) for name in each["parameters"])
        yield f"      entryPoint(&::{each['name']}, {literal(each['name'])}, {literal(each['short'])},"
        yield f"                 {literal(each['signature'])}, {{{parameters}}},"
        yield f"                 {literal(each['summary'])}, {literal(each['help'])}),"
    yield "  };"
    yield "  return all;"
    yield "}"
    yield ""
    yield "}  // namespace quen::driver"


def main(header, output):
    try:
        rows = read_rows(Path(header).read_text(encoding="utf-8"))
    except Unreadable as problem:
        sys.exit(f"{header}:{problem}")
    Path(output).write_text("\n".join(cpp_rows(rows)) + "\n", encoding="utf-8")


if __name__ == "__main__":
    main(*sys.argv[1:])
