#!/usr/bin/env python3
"""Reads the entry points from the header that declares them: the one source of every table of them.

    entry_points.py         prints their names, one a line

Each is a dictionary of names, signature, parameter names, the comment above it and that of its group.
A parameter that the comment calls "into the Byte[] `name`" is one that the call fills.
A line that cannot be read, a declaration without a comment and two entry points with one short name
are refused.
"""

import re
import sys
from pathlib import Path

RESULT = r"void\*|void|bool|std::int64_t"
PARAMETER = r"(?:void\*|const char\*|std::int64_t|std::int32_t) (\w+)"
DECLARATION = re.compile(rf"(?:{RESULT}) (\w+)\((.*)\);")
AROUND = re.compile(r'#.*|extern "C" \{|\}  // extern "C"|')
HEADER = Path(__file__).resolve().parent / "include" / "quen" / "io" / "entry_points.h"


class Unreadable(Exception):
    pass


def declarations(header):
    """Each declaration of the header in one line, with the comment right above it and its group's."""
    group, comment, declaration = [], [], ""
    for number, line in enumerate(header.splitlines(), 1):
        if declaration or re.match(rf"(?:{RESULT}) ", line):
            declaration = f"{declaration} {line.strip()}".strip()
            if declaration.endswith(";"):
                yield number, declaration, comment, group
                comment, declaration = [], ""
        elif line.startswith("//"):
            comment.append(line[2:].strip())
        elif AROUND.fullmatch(line):
            group, comment = comment or group, []
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


def row(declaration, comment, group):
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

    text = " ".join(comment)
    filled = re.findall(r"into the Byte\[\] `(\w+)`", text)
    if not set(filled) <= set(parameters):
        raise Unreadable(f"no parameter '{filled[0]}' of {name}")
    summary = re.match(r'.*?\.(?= [A-Z"]|$)', text)
    if not summary:
        raise Unreadable(f"no sentence in the comment above {name}")
    forwards = re.fullmatch(r"(?:Behaves|[^.]*: behaves) as (\w+)\.", text)
    return {
        "name": name,
        "short": short_name(name),
        "signature": declaration.removesuffix(";"),
        "parameters": parameters,
        "filled": filled,
        "summary": summary[0],
        "help": "\n".join(comment),
        "group": " ".join(group),
        "forwards_to": forwards[1] if forwards else None,
    }


def read_rows(header):
    rows, by_short_name = [], {}
    for number, declaration, comment, group in declarations(header):
        try:
            made = row(declaration, comment, group)
        except Unreadable as problem:
            raise Unreadable(f"{number}: {problem}") from None
        other = by_short_name.setdefault(made["short"], made["name"])
        if other != made["name"]:
            raise Unreadable(f"{number}: {made['name']} and {other} are both {made['short']}")
        rows.append(made)
    if not rows:
        raise Unreadable("1: no entry points")
    return rows


def read_header(path=HEADER):
    """The rows of a header; ends the program with the line that cannot be read."""
    try:
        return read_rows(Path(path).read_text(encoding="utf-8"))
    except Unreadable as problem:
        sys.exit(f"{path}:{problem}")


if __name__ == "__main__":
    print(*(each["name"] for each in read_header()), sep="\n")
