#!/usr/bin/env python3
"""Generates the driver's table of entry points from the header that declares them.

    entry_table.py entry_points.h entry_rows.cpp

Every declaration becomes one row: names, signature, parameter names, the comment above it, and the
function itself, whose type determines by template deduction how arguments are converted.
"""

import json
import sys
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parents[1] / "runtime"))

from entry_points import read_header


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
        parameters = ", ".join(
            f"{{{literal(name)}, {'true' if name in each['filled'] else 'false'}}}"
            for name in each["parameters"]
        )
        yield f"      entryPoint(&::{each['name']}, {literal(each['name'])}, {literal(each['short'])},"
        yield f"                 {literal(each['signature'])}, {{{{{parameters}}}}},"
        yield f"                 {literal(each['summary'])}, {literal(each['help'])}),"
    yield "  };"
    yield "  return all;"
    yield "}"
    yield ""
    yield "}  // namespace quen::driver"


def main(header, output):
    Path(output).write_text("\n".join(cpp_rows(read_header(header))) + "\n", encoding="utf-8")


if __name__ == "__main__":
    main(*sys.argv[1:])
