#!/usr/bin/env python3
"""What docs/diagnosing.md shows of tools that look into a running process is what they show.

    attached_test.py QUEN_IO

The blocks of the kind "attached" hold one command each. It is run with the number of a `quen-io shell` as
PID, which then reads a missing file. Each line that the document shows has to be among those that the tool
prints, in this order; addresses, numbers of processes and folders may differ.
"""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
DOCUMENT = ROOT / "docs/diagnosing.md"
SKIPPED = 77  # how ctest is told
MISSING_FILE = "/srv/data/list.toml"

# When each tool has attached, so that the process may go on.
ATTACHED = {"strace": "attached", "gdb": "Breakpoint 1 at"}


def sessions():
    """Each command with the lines that it prints."""
    for block in re.findall(r"^```attached\n\$ (.*?)^```", DOCUMENT.read_text(), re.M | re.S):
        command, *printed = block.splitlines()
        yield command, [line for line in printed if line != "..."]


def plain(line):
    """The line without what differs from run to run."""
    line = re.sub(r"/\S*/(?=[\w.-]+)", "", line) if MISSING_FILE not in line else line
    line = re.sub(r"\[pid +\d+\] |0x[0-9a-f]+|\d\d\d+", "N", line)
    return re.sub(r"^#\d+ ", "# ", line)


def is_in_order(wanted, found):
    rest = iter(found)
    return all(any(plain(line) in plain(each) for each in rest) for line in wanted)


class Shell:
    """A process that somebody else runs."""

    def __init__(self, program):
        self.process = subprocess.Popen(
            [program, "shell"],
            stdin=subprocess.PIPE,
            text=True,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
        )
        self.say("path:ready")  # it is in its loop when it answers

    def say(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()
        return self.process.stdout.readline()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.communicate()


def attached(command, shell):
    """What the tool prints while the process reads a missing file."""
    tool = subprocess.Popen(
        ["bash", "-c", f"exec {command}"],
        text=True,
        stdout=subprocess.PIPE,
        env={**os.environ, "PID": str(shell.process.pid), "LC_ALL": "C.UTF-8"},
        stderr=subprocess.STDOUT,
        stdin=subprocess.DEVNULL,
    )
    lines = []
    for line in tool.stdout:
        lines.append(line)
        if ATTACHED[command.split()[0]] in line:
            break
    answer = shell.say(f"_readAllTextPath {MISSING_FILE}")
    if command.startswith("strace"):  # the other ends by itself
        tool.send_signal(signal.SIGINT)
    lines += tool.communicate(timeout=60)[0].splitlines()
    return [line.rstrip("\n") for line in lines], answer


def may_attach(shell):
    probe = subprocess.Popen(["strace", "-p", str(shell.process.pid)], text=True, stderr=subprocess.PIPE)
    line = probe.stderr.readline()
    probe.terminate()
    probe.communicate()
    return "attached" in line


def main(program):
    tools = {command.split()[0] for command, _ in sessions()}
    missing = sorted(tool for tool in tools if shutil.which(tool) is None)
    if "strace" in missing:
        print("skipped: no strace here")
        return SKIPPED
    faults, count = [], 0
    for command, wanted in sessions():
        if command.split()[0] in missing:
            continue
        with Shell(program) as shell:
            if not may_attach(shell):
                print("skipped: this user may not attach to a process")
                return SKIPPED
            found, answer = attached(command, shell)
        count += 1
        if not is_in_order(wanted, found) or "Cannot open file" not in answer:
            faults.append("\n".join([f"$ {command}", *found]))
    print(
        f"{count} tools attached, {len(faults)} show something else; not here: {missing}", *faults, sep="\n"
    )
    return 1 if faults or count == 0 else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
