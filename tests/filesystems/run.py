#!/usr/bin/python3
"""Runs the tests at the boundary and the folder index on real file systems, each in an image of its own.

    tests/filesystems/run.py [ext4 xfs btrfs tmpfs overlay]

Needs root, to mount. Installs what makes the file systems. A file system that cannot be mounted here is
skipped in so many words; a test that fails on one is named, and is a difference that the documents
explain or a fault.
"""

import contextlib
import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build/release"
IMAGE_SIZE = "1200M"  # less is too little for some of them
MAKE = {"ext4": ["mkfs.ext4", "-q"], "xfs": ["mkfs.xfs", "-q"], "btrfs": ["mkfs.btrfs", "-q"]}


class CannotMount(Exception):
    pass


def run(*command, **more):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True, **more)


@contextlib.contextmanager
def mounted(kind, folder):
    """The kind of file system, empty, at a folder of its own."""
    target = folder / kind
    target.mkdir()
    if kind == "tmpfs":
        command = ["mount", "-t", "tmpfs", "-o", f"size={IMAGE_SIZE}", "tmpfs", target]
    elif kind == "overlay":
        for name in ("lower", "upper", "work"):
            (folder / name).mkdir()
        options = f"lowerdir={folder}/lower,upperdir={folder}/upper,workdir={folder}/work"
        command = ["mount", "-t", "overlay", "-o", options, "overlay", target]
    else:
        image = folder / f"{kind}.img"
        run("truncate", "-s", IMAGE_SIZE, image, check=True)
        made = run(*MAKE[kind], image)
        if made.returncode != 0:
            raise CannotMount(made.stderr.strip())
        command = ["mount", "-o", "loop", image, target]
    done = run(*command)
    if done.returncode != 0:
        raise CannotMount(done.stderr.strip())
    try:
        os.chmod(target, 0o1777)
        yield target
    finally:
        run("umount", target, check=True)


def test_on(kind):
    with tempfile.TemporaryDirectory(prefix="quen-io-filesystems-") as base:
        folder = pathlib.Path(base)
        folder.chmod(0o755)  # some tests give all rights up
        if kind == "overlay":  # lies on a file system in memory, as containers have it
            run("mount", "-t", "tmpfs", "tmpfs", folder, check=True)
        try:
            with mounted(kind, folder) as target:
                return test_in(target, kind, BUILD)
        finally:
            if kind == "overlay":
                run("umount", folder, check=True)


def test_in(target, kind, build, *trees):
    """One line of the table: how many tests passed, and the names of those that did not."""
    environment = os.environ | {"TMPDIR": str(target)}
    tests = run(build / "tests/quen_io_tests", "--gtest_brief=1", env=environment, cwd=target)
    failed = sorted(set(re.findall(r"^\[  FAILED  \] ([\w/.]+)", tests.stdout, re.MULTILINE)))
    passed = re.findall(r"^\[  PASSED  \] (\d+) tests", tests.stdout, re.MULTILINE)
    index = run("python3", ROOT / "tests/driver/index_agreement_test.py", *trees, cwd=target,
                env=environment | {"QUEN_IO_DRIVER": str(build / "driver/quen-io")})
    agrees = index.returncode == 0
    print(f"{kind:8} {passed[-1] if passed else 0:>5} passed {len(failed):>3} failed   "
          f"index {'agrees' if agrees else 'differs'}", *failed, sep="\n    ", flush=True)
    if not agrees:
        print(index.stdout + index.stderr)
    return not failed and agrees and bool(passed)


def main():
    if os.geteuid() != 0:
        print("skipped: only root may mount")
        return 77
    subprocess.run(["bash", "-c", "source scripts/setup.sh; require_packages xfsprogs btrfs-progs e2fsprogs"],
                   cwd=ROOT, check=True)
    held = True
    for kind in sys.argv[1:] or ["ext4", "xfs", "btrfs", "tmpfs", "overlay"]:
        try:
            held &= test_on(kind)
        except CannotMount as reason:
            print(f"{kind:8} skipped: {reason}")
    return 0 if held else 1


if __name__ == "__main__":
    sys.exit(main())
