#!/usr/bin/env python3
"""Every session with quen-io that a document shows gives what the document shows.

    commands_test.py PROGRAM...

A session is a fenced block of the kind "console": lines that begin with "$ " are commands, the lines
below each what it prints, standard output and error together. The commands find each PROGRAM by its
name. All sessions of a document run one after the other in one folder. A line "..." stands for any
lines.
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROGRAMS = [pathlib.Path(program).resolve() for program in sys.argv[1:]]


def sessions(document):
    """Each command with the lines it is to print."""
    for block in re.findall(r"^```console\n(.*?)^```", document.read_text(), re.MULTILINE | re.DOTALL):
        command, printed = None, []
        for line in block.splitlines():
            if line.startswith("$ "):
                if command is not None:
                    yield command, printed
                command, printed = line[2:], []
            else:
                printed.append(line)
        yield command, printed


def agrees(printed, found):
    """Whether the lines are the same, "..." standing for any."""
    pattern = "\n".join(".*?" if line == "..." else re.escape(line) for line in printed)
    return re.fullmatch(pattern, "\n".join(found), re.DOTALL) is not None


def check(document):
    """How many commands it shows, and what was found wrong."""
    count, faults = 0, []
    with tempfile.TemporaryDirectory() as folder:
        environment = os.environ | {
            "PATH": ":".join([*(str(program.parent) for program in PROGRAMS), os.environ["PATH"]]),
            "LC_ALL": "C.UTF-8"}
        for command, printed in sessions(document):
            count += 1
            done = subprocess.run(["bash", "-c", command], cwd=folder, env=environment, text=True,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60)
            if not agrees(printed, done.stdout.splitlines()):
                faults.append(f"{document.name}: $ {command}\n{done.stdout}")
    return count, faults


def main():
    documents = [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]
    results = [check(document) for document in documents]
    faults = [fault for _, found in results for fault in found]
    print(*faults, sep="\n")
    print(f"{sum(count for count, _ in results)} commands in {len(documents)} documents, "
          f"{len(faults)} print something else")
    return 1 if faults or not sum(count for count, _ in results) else 0


if __name__ == "__main__":
    sys.exit(main())
