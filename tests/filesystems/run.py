#!/usr/bin/python3
"""Runs the boundary tests and the folder index on real file systems, each in an image file.

    tests/filesystems/run.py [ext4 xfs btrfs tmpfs overlay]

Needs root for mounting. Installs the mkfs programs. A file system that cannot be mounted is reported as
skipped; each test that fails is named: it is a bug, or a difference that docs/ explains.
"""

import argparse
import contextlib
import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build/release"
IMAGE_SIZE = "1200M"  # the minimum for xfs and btrfs with the tests' data
MAKE = {"ext4": ["mkfs.ext4", "-q"], "xfs": ["mkfs.xfs", "-q"], "btrfs": ["mkfs.btrfs", "-q"]}


class CannotMount(Exception):
    pass


def run(*command, **more):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True, **more)


@contextlib.contextmanager
def mounted(kind, folder):
    """Mounts an empty file system of this kind at a folder."""
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
        folder.chmod(0o755)  # some tests drop their privileges
        if kind == "overlay":  # upper layer on tmpfs, as in containers
            run("mount", "-t", "tmpfs", "tmpfs", folder, check=True)
        try:
            with mounted(kind, folder) as target:
                return test_in(target, kind, BUILD)
        finally:
            if kind == "overlay":
                run("umount", folder, check=True)


def test_in(target, kind, build, *trees):
    """One line of the table: the number of tests that passed, and the names of those that failed."""
    environment = os.environ | {"TMPDIR": str(target)}
    tests = run(build / "tests/quen_io_tests", "--gtest_brief=1", env=environment, cwd=target)
    failed = sorted(set(re.findall(r"^\[  FAILED  \] ([\w/.]+)", tests.stdout, re.MULTILINE)))
    passed = re.findall(r"^\[  PASSED  \] (\d+) tests", tests.stdout, re.MULTILINE)
    index = run(
        "python3",
        ROOT / "tests/driver/index_agreement_test.py",
        *trees,
        cwd=target,
        env=environment | {"QUEN_IO_DRIVER": str(build / "driver/quen-io")},
    )
    agrees = index.returncode == 0
    print(
        f"{kind:8} {passed[-1] if passed else 0:>5} passed {len(failed):>3} failed   "
        f"index {'agrees' if agrees else 'differs'}",
        *failed,
        sep="\n    ",
        flush=True,
    )
    if not agrees:
        print(index.stdout + index.stderr)
    return not failed and agrees and bool(passed)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("kinds", nargs="*", default=["ext4", "xfs", "btrfs", "tmpfs", "overlay"])
    options = parser.parse_args()
    if os.geteuid() != 0:
        print("skipped: only root may mount")
        return 77
    subprocess.run(
        ["bash", "-c", "source scripts/setup.sh; require_packages xfsprogs btrfs-progs e2fsprogs"],
        cwd=ROOT,
        check=True,
    )
    held = True
    for kind in options.kinds:
        try:
            held &= test_on(kind)
        except CannotMount as reason:
            print(f"{kind:8} skipped: {reason}")
    return 0 if held else 1


if __name__ == "__main__":
    sys.exit(main())
