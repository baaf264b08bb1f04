#!/usr/bin/env python3
"""Only src/system/ includes headers of the operating system.

    tests/system/includes_test.py SRC    prints every other #include that is neither the standard library's
                                         nor the project's, and exits with 1 when there is one
"""

import pathlib
import re
import sys

PROJECT = re.compile(r'"(quen/io|contents|path|system|writers)/[a-z0-9_]+\.h"|"conventions\.h"')
STANDARD = re.compile(r"<[a-z0-9_]+>")  # the C++ library's headers have no extension


def foreign_includes(source):
    for file in sorted(source.rglob("*")):
        if file.suffix not in (".h", ".cpp") or file.parent.name == "system":
            continue
        for line in file.read_text().splitlines():
            name = re.match(r"\s*#\s*include\s*(\S+)", line)
            if name and not PROJECT.fullmatch(name[1]) and not STANDARD.fullmatch(name[1]):
                yield f"{file}: {line}"


def main():
    source = pathlib.Path(sys.argv[1])
    if not list(source.glob("system/*.cpp")):
        sys.exit(f"there is no src/system in {source}")
    found = list(foreign_includes(source))
    print(*found, sep="\n")
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
