#!/usr/bin/env python3
"""The checked entry points, from the header that declares them.

    wrappers.py HEADER SOURCE RENAMES

Writes a C++ source that defines every entry point as a call of the module's own, with the arguments and
what the module does looked at, and the new names of the module's entry points, one pair a line, as
"objcopy --redefine-syms" reads them (objcopy(1)).
"""

import pathlib
import re
import sys

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1]))

from entry_points import read_header

# The parameters of type void* that take a path text as well as an object.
OBJECT_OR_TEXT = {"operand"}

HEAD = """// Made by runtime/checked/wrappers.py from quen/io/entry_points.h.

#include "quen/io/entry_points.h"

#include "runtime/checked/call.h"

using quen::checked::Call;
"""


def symbol(name):
    """The linker's name: "Quen_..." alone has C++ linkage, and one parameter of type const char*."""
    return f"_Z{len(name)}{name}PKc" if name.startswith("Quen_") else name


def own_name(name):
    """The name that the module's own entry point gets. A leading underscore is left out."""
    return f"module_{name.lstrip('_')}"


def checked(row):
    """The definitions that belong to one entry point, line by line."""
    name, signature = row["name"], row["signature"]
    yield ""
    yield f'extern "C" {signature.replace(name, own_name(name), 1)};'
    yield f"{signature} {{"
    yield f'  Call call("{name}");'
    types = re.findall(r"(void\*|const char\*|std::int\d+_t) \w+[,)]", signature)
    for kind, parameter in zip(types, row["parameters"], strict=True):
        if kind == "const char*":
            yield f'  call.takesText("{parameter}", {parameter});'
        elif kind == "void*" and parameter not in OBJECT_OR_TEXT:
            yield f'  call.takesObject("{parameter}", {parameter});'
    yield f"  return call.run({', '.join([own_name(name), *row['parameters']])});"
    yield "}"


def main():
    header, source, renames = sys.argv[1:]
    rows = read_header(header)
    lines = [line for row in rows for line in checked(row)]
    pathlib.Path(source).write_text("\n".join([HEAD.rstrip(), *lines, ""]))
    pairs = [f"{symbol(row['name'])} {own_name(row['name'])}\n" for row in rows]
    pathlib.Path(renames).write_text("".join(pairs))


if __name__ == "__main__":
    main()
