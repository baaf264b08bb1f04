#!/usr/bin/env python3
"""Runs every console session in the documents, and compares its output with the documented one.

    commands_test.py PROGRAM...

A session is a fenced block with the info string "console": lines that begin with "$ " are commands,
followed by their output, standard output and error together. Each PROGRAM is in the PATH of the
commands. All sessions of a document run in order in one folder. A line "..." matches any lines.
Sessions that need strace are skipped if it is missing, or if a sanitizer prevents tracing.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROGRAMS = [pathlib.Path(program).resolve() for program in sys.argv[1:]]


def sessions(document):
    """Each command with its documented output lines."""
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


def is_traceable():
    sanitizers = (b"__asan_init", b"__tsan_init")
    sanitized = any(name in program.read_bytes() for program in PROGRAMS for name in sanitizers)
    return shutil.which("strace") is not None and not sanitized


def agrees(printed, found):
    """Whether the lines agree; "..." matches any lines."""
    pattern = "\n".join(".*?" if line == "..." else re.escape(line) for line in printed)
    return re.fullmatch(pattern, "\n".join(found), re.DOTALL) is not None


def check(document):
    """The number of commands in the document, and the differences found."""
    count, faults = 0, []
    with tempfile.TemporaryDirectory() as folder:
        environment = os.environ | {
            "PATH": ":".join([*(str(program.parent) for program in PROGRAMS), os.environ["PATH"]]),
            "LC_ALL": "C.UTF-8",
        }
        for command, printed in sessions(document):
            if ("--system-calls" in command or "strace" in command) and not is_traceable():
                continue
            count += 1
            done = subprocess.run(
                ["bash", "-c", command],
                cwd=folder,
                env=environment,
                text=True,
                stdout=subprocess.PIPE,
                stderr=subprocess.STDOUT,
                timeout=60,
            )
            if not agrees(printed, done.stdout.splitlines()):
                faults.append(f"{document.name}: $ {command}\n{done.stdout}")
    return count, faults


def main():
    documents = [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]
    results = [check(document) for document in documents]
    faults = [fault for _, found in results for fault in found]
    print(*faults, sep="\n")
    print(
        f"{sum(count for count, _ in results)} commands in {len(documents)} documents, "
        f"{len(faults)} print something else"
    )
    return 1 if faults or not sum(count for count, _ in results) else 0


if __name__ == "__main__":
    sys.exit(main())
