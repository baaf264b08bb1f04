#!/usr/bin/python3 -B
"""Finds what can be on a disk after the power has failed while the module wrote.

    tests/crashes/run.py [--document] [WORD...]    all operations, on file systems whose names contain a WORD
    tests/crashes/run.py --quick                   publishing on ext4 alone, few states

Records every write of a file system while a program publishes, replaces and appends texts and writes through
a handle, with and without fsync calls of its own. Builds the states that a crash could have left: all
prefixes of the writes, and subsets of those since the last flush of the disk. Mounts each, which replays the
journal, and looks. Fails if something is found that docs/durability.md does not allow. With --document it
writes its columns of the table there, and fails only if something is found that no file system may do.

Needs root, loop devices and FUSE, and installs its packages. If these are missing, it prints "skipped" with
the reason and exits 77.
"""

import argparse
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).parent))

import atlas
import disks
import table
from recordings import FILE_SYSTEMS

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROGRAM = ROOT / "build/release/tests/crashes/quen_io_crash_work"
PREPARE = """
source scripts/setup.sh
require_packages "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}"
require_packages qemu-system-common e2fsprogs xfsprogs btrfs-progs
quietly cmake --preset release
quietly cmake --build --preset release --target quen_io_crash_work
"""


def examine(system, recordings, found, states, folder):
    """Looks at all states of these recordings on a file system, and prints a line about them."""
    bases, began = {}, time.monotonic()
    for recording in recordings:
        old = recording.operation.old
        if old not in bases:
            bases[old] = system.prepare(folder, old)
        found.examine(recording, system, bases[old], PROGRAM, folder, states)
    found.seconds[system.name] = time.monotonic() - began
    print(f"{system.name:35} {found.examined(system.name)}", flush=True)


def obstacle():
    """Why this cannot run here; empty if it can."""
    if os.geteuid() != 0:
        return "only root may mount"
    for device in ("/dev/fuse", "/dev/loop-control"):
        try:
            os.close(os.open(device, os.O_RDWR))
        except OSError as error:
            return f"{device}: {error.strerror}"
    return ""


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("words", nargs="*", metavar="WORD")
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--document", action="store_true")
    parser.add_argument("--states", type=int, default=16, help="random states of a flush epoch")
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args()
    options.systems = [
        each for each in FILE_SYSTEMS if any(word in each.name for word in options.words or [""])
    ]
    if options.quick:
        options.systems = FILE_SYSTEMS[:1]
    if not options.systems:
        parser.error("no file system has such a name: " + ", ".join(each.name for each in FILE_SYSTEMS))
    if options.document and options.quick:
        parser.error("the table is written from all operations")
    return options


def main():
    options = parse_arguments()
    reason = obstacle()
    if reason:
        print(f"skipped: {reason}")
        return 77
    if not options.inside:
        subprocess.run(["bash", "-euo", "pipefail", "-c", PREPARE], cwd=ROOT, check=True)
        # What is mounted in a namespace of its own is gone with it, however this ends.
        command = ["unshare", "--mount", sys.executable, "-B", __file__, "--inside", *sys.argv[1:]]
        os.execvp(command[0], command)
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda *_: sys.exit(1))

    found, began = atlas.Atlas(), time.monotonic()
    with tempfile.TemporaryDirectory(prefix="quen-io-crashes-") as base, disks.memory(base):
        for system in options.systems:
            recordings = atlas.quick_recordings() if options.quick else atlas.recordings()
            examine(system, recordings, found, 6 if options.quick else options.states, pathlib.Path(base))
    return report(found, options, time.monotonic() - began)


def report(found, options, seconds):
    """Prints the table and the verdict, and returns the exit status."""
    print("\n" + table.markdown(found.results()))
    text = table.DOCUMENT.read_text()
    documented = table.documented(text)
    wrong = list(atlas.violations(found, None if options.document else documented))
    if options.document:
        table.DOCUMENT.write_text(table.written(text, table.merged(documented, found.results())))
    states = sum(found.states.values())
    print(*wrong, f"{states:,} states in {seconds:.0f} s, {len(wrong)} violations", sep="\n")
    return 1 if wrong or not found.words else 0


if __name__ == "__main__":
    sys.exit(main())
