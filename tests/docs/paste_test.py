#!/usr/bin/python3
"""Pastes the commands of the README into a shell, in a fresh copy of the tree that has no build folder.

    paste_test.py [--print] [--without COMMAND]... [SECTION]...

Commands stand in fenced blocks of the kind "sh", each of which is given to one shell as it stands. A line
that begins with one of the COMMANDs is left out. With SECTIONs only the blocks below their headings are
pasted. With --print they are printed instead.
"""

import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]


def blocks(text, sections):
    """The blocks of commands, each with the heading that it stands below."""
    heading = ""
    for match in re.finditer(r"^#+ ([^\n]*)$|^```sh\n(.*?)^```$", text, re.MULTILINE | re.DOTALL):
        if match[2] is None:
            heading = match[1]
        elif not sections or heading in sections:
            yield heading, match[2]


def without(block, commands):
    """The block without the lines that begin with one of the commands."""
    return "".join(line for line in block.splitlines(keepends=True) if not line.startswith(tuple(commands)))


def paste(block, folder, home):
    """Gives the block to a shell that stops at the first command that fails. Returns its status."""
    environment = os.environ | {"HOME": str(home)}
    for name in ("CMAKE_PREFIX_PATH", "PKG_CONFIG_PATH"):
        environment.pop(name, None)
    print(block, end="", flush=True)
    return subprocess.run(
        ["bash", "-e", "-s"], input=block, text=True, cwd=folder, env=environment
    ).returncode


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("--print", action="store_true")
    parser.add_argument("--without", action="append", default=[])
    parser.add_argument("sections", nargs="*")
    options = parser.parse_args()
    if options.print:
        found = blocks((ROOT / "README.md").read_text(), options.sections)
        print("".join(without(block, options.without) for _, block in found), end="")
        return 0
    with tempfile.TemporaryDirectory(prefix="quen-io-paste-") as base:
        home, copy = pathlib.Path(base, "home"), pathlib.Path(base, "quen-io")
        home.mkdir()
        shutil.copytree(ROOT, copy, symlinks=True, ignore=shutil.ignore_patterns("build", ".git"))
        count = 0
        for heading, block in blocks((ROOT / "README.md").read_text(), options.sections):
            count += 1
            if status := paste(without(block, options.without), copy, home):
                print(f"failed with {status}: a block below {heading!r}")
                return 1
    print(f"{count} blocks pasted")
    return 0 if count >= max(1, len(options.sections)) else 1


if __name__ == "__main__":
    sys.exit(main())
