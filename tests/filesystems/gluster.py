#!/usr/bin/python3 -B
"""Tests the module on a distributed file system: a GlusterFS volume with three replicas.

    tests/filesystems/gluster.py [--build FOLDER] [tests publish prompt write outage]

tests    the boundary tests, and an index of a tree copied onto the volume
publish  1,000 publications of one index, read at the same time by the same client and by another one,
         while one of the three bricks is killed
prompt   the same with clients that revalidate their caches before each use
write    numbered lines through a writer that stays open, while one of the three bricks is killed
outage   the same while two bricks are killed, so that the quorum is lost: writing raises, and flushed
         lines are present when the bricks are back. Write-behind is off here; with it, which is the
         default, flushed lines may be lost.

A client with stale cached metadata may open the version that was just replaced, and reading it then
fails (ESTALE): the reader returns the text before the failure, without an exception. The number of such
reads is printed; in `prompt` they are failures. Failing to open a version, which raises, is allowed.

Needs root, and installs its packages. Daemons, network and mounts live in their own namespaces and end
with them. If namespaces or FUSE are not available, it prints "skipped" with the reason and exits 0.
"""

import argparse
import collections
import contextlib
import itertools
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import threading

from run import BUILD, ROOT, run, test_in

NAMESPACES = ["unshare", "--net", "--mount", "--pid", "--fork", "--mount-proc"]
STATE = ["/var/lib/glusterd", "/var/log/glusterfs", "/run"]
ADDRESS = "10.11.12.1"  # on the loopback device, because gluster rejects addresses in 127.0.0.0/8
VERSIONS = 1_000
LINES = 500_050
SECONDS = 60  # until a publication has to be visible everywhere

# The volume options that a part turns off, and its mount options.
OFF = {
    "prompt": ["performance.open-behind", "performance.quick-read", "performance.stat-prefetch"],
    "outage": ["performance.write-behind"],
}
MOUNT = {"prompt": ["-o", "attribute-timeout=0,entry-timeout=0"]}


def checked(*command):
    done = run(*command)
    if done.returncode != 0:
        sys.exit(f"{' '.join(str(word) for word in command)}: {done.stdout}{done.stderr}")


class Volume:
    """A volume of three bricks, each with a server process, and the clients that mount it."""

    def __init__(self, name, folder):
        self.name, self.folder, self.clients = name, folder / name, 0
        self.bricks = [self.folder / f"brick{number}" for number in (1, 2, 3)]
        for brick in self.bricks:
            brick.mkdir(parents=True)
        self.manage("create", "replica", 3, *(f"{ADDRESS}:{brick}" for brick in self.bricks), "force")
        for option in OFF.get(name, []):
            self.manage("set", option, "off")
        self.manage("start")

    def manage(self, command, *options):
        checked("gluster", "--mode=script", "volume", command, self.name, *options)

    def mount(self):
        """Mounts the volume with a new client, whose caches are empty."""
        self.clients += 1
        target = self.folder / f"client{self.clients}"
        target.mkdir()
        checked("mount", "-t", "glusterfs", *MOUNT.get(self.name, []), f"{ADDRESS}:/{self.name}", target)
        target.chmod(0o1777)
        return target

    def lose(self, count):
        """Returns when they are gone: daemons belong to the first process here, which is this one."""
        for brick in self.bricks[:count]:
            (file,) = pathlib.Path("/run/gluster/vols", self.name).glob(f"*-{brick.name}.pid")
            process = int(file.read_text())
            os.kill(process, signal.SIGKILL)
            os.waitpid(process, 0)


def told(lines):
    """The output of stream.cpp, as pairs of a number and an error."""
    return [(int(number), wrong) for number, wrong in (line.rstrip("\n").split(" ", 1) for line in lines)]


def losing(bricks, volume, *command):
    """The output of the command, in the middle of which the given number of bricks is killed."""
    count, pairs, lost = int(command[-1]), [], False
    with subprocess.Popen([str(word) for word in command], stdout=subprocess.PIPE, text=True) as process:
        for line in process.stdout:
            pairs += told([line])
            if not lost and pairs[-1][0] >= count // 2:
                volume.lose(bricks)
                lost = process.poll() is None
    if process.returncode != 0 or not lost or pairs[-1][0] != count:
        sys.exit(f"{command}: ended with {process.returncode} after {pairs[-1:]}, too early")
    return pairs


@contextlib.contextmanager
def reading(stream, file, log):
    """A reader of all versions, which has to see the last one soon after it was published."""
    with open(log, "w") as output:
        reader = subprocess.Popen([stream, "read", file, str(VERSIONS)], stdout=output)
    try:
        yield
        with contextlib.suppress(subprocess.TimeoutExpired):  # the log has the details
            reader.wait(SECONDS)
    finally:
        reader.kill()
        reader.wait()


def reading_faults(who, log, expected):
    """Prints the errors of a reader, and returns the unexpected ones."""
    with open(log) as lines:
        readings = told(lines)
    whole = [number for number, wrong in readings if not wrong]
    wrong = collections.Counter(wrong for _, wrong in readings if wrong)
    print(
        f"    {who}: {len(whole)} whole readings of {len(set(whole))} versions",
        *(f"{count} {words}" for words, count in wrong.items()),
        sep=", ",
    )
    if VERSIONS not in whole:
        yield f"{who} did not see the last version"
    yield from (f"{who}: {words}" for words in wrong.keys() - expected)
    yield from (
        f"{who} read {later} after {sooner}" for sooner, later in itertools.pairwise(whole) if later < sooner
    )


def try_tests(folder, build, name):
    target = Volume(name, folder).mount()
    tree = target / "copy"
    shutil.copytree(ROOT, tree, symlinks=True, ignore=shutil.ignore_patterns("build", ".git"))
    return test_in(target, "gluster", build, tree)


def try_publish(folder, build, name):
    expected = {"IOException: Cannot open file"} | (set() if name == "prompt" else {"cut short"})
    volume = Volume(name, folder)
    here, elsewhere = volume.mount(), volume.mount()
    stream = build / "tests/filesystems/quen_io_stream"
    logs = {"the same client": folder / "here", "another client": folder / "elsewhere"}
    checked(stream, "publish", here / "index", 1)
    with reading(stream, here / "index", logs["the same client"]), reading(
        stream, elsewhere / "index", logs["another client"]
    ):
        published = losing(1, volume, stream, "publish", here / "index", VERSIONS)

    print(f"{name:8} {sum(not wrong for _, wrong in published)} of {VERSIONS} versions published")
    faults = [f"version {number}: {wrong}" for number, wrong in published if wrong]
    for who, log in logs.items():
        faults += reading_faults(who, log, expected)
    after = volume.mount()
    there = told(run(stream, "read", after / "index", VERSIONS, timeout=SECONDS).stdout.splitlines())
    if there != [(VERSIONS, "")]:
        faults.append(f"there in the end: {there}")
    if os.listdir(after) != ["index"]:
        faults.append(f"left in the folder: {os.listdir(after)}")
    return holds(faults)


def try_write(folder, build, name):
    volume, outage = Volume(name, folder), name == "outage"
    flushed = losing(
        2 if outage else 1,
        volume,
        build / "tests/filesystems/quen_io_stream",
        "write",
        volume.mount() / "lines",
        LINES,
    )
    if outage:
        volume.manage("start", "force")

    last = max(number for number, wrong in flushed if not wrong)
    there = (volume.mount() / "lines").read_text()
    print(f"{name:8} {last} of {LINES} lines flushed, {there.count(chr(10))} there")
    faults = [f"up to line {number}: {wrong}" for number, wrong in flushed if wrong and not outage]
    if outage and last == LINES:
        faults.append("nothing was raised")
    if not there.startswith("".join(f"{number}{'.' * 80}\n" for number in range(1, last + 1))):
        faults.append("lines that were flushed are not there, or not as they were written")
    return holds(faults)


def holds(faults):
    print(*(f"    FAULT {fault}" for fault in faults[:20]), f"    {len(faults)} faults", sep="\n", flush=True)
    return not faults


PARTS = {
    "tests": try_tests,
    "publish": try_publish,
    "prompt": try_publish,
    "write": try_write,
    "outage": try_write,
}


def try_inside(folder, parts, build):
    """Runs as the init process of the PID namespace, with which all others end."""
    for state in STATE:
        pathlib.Path(state).mkdir(exist_ok=True)
        checked("mount", "-t", "tmpfs", "tmpfs", state)
    checked("ip", "link", "set", "lo", "up")
    checked("ip", "address", "add", f"{ADDRESS}/24", "dev", "lo")
    pathlib.Path("/run/gluster").mkdir()
    checked("glusterd")
    held = [PARTS[part](folder, build, part) for part in parts]
    return 0 if all(held) else 1


def end_with_standard_input():
    """Ends all there is in the namespaces as soon as the process outside has ended, however it did."""
    sys.stdin.read()
    os._exit(1)


def obstacle(folder):
    """Why this cannot run here; empty if it can."""
    if os.geteuid() != 0:
        return "only root may mount"
    try:
        os.close(os.open("/dev/fuse", os.O_RDWR))
        os.setxattr(folder, "trusted.quen", b"")
        return run(*NAMESPACES, "mount", "-t", "tmpfs", "tmpfs", folder).stderr.strip()
    except OSError as error:
        return f"no FUSE, no trusted attributes, or no namespaces: {error}"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("parts", nargs="*", metavar="PART", help=", ".join(PARTS))
    parser.add_argument("--build", type=pathlib.Path, default=BUILD)
    parser.add_argument("--inside", type=pathlib.Path, help=argparse.SUPPRESS)
    given = parser.parse_args()
    parts = list(dict.fromkeys(given.parts or PARTS))
    if not set(parts) <= set(PARTS):
        parser.error(f"a part is one of {', '.join(PARTS)}")
    if given.inside:
        threading.Thread(target=end_with_standard_input, daemon=True).start()
        return try_inside(given.inside, parts, given.build)

    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda *_: sys.exit(1))
    with tempfile.TemporaryDirectory(prefix="quen-io-gluster-") as base:
        os.chmod(base, 0o755)  # some tests drop their privileges
        reason = obstacle(base)
        if reason:
            print(f"skipped: {reason}")
            return 0
        subprocess.run(
            ["bash", "-c", "source scripts/setup.sh; require_packages glusterfs-server iproute2"],
            cwd=ROOT,
            check=True,
        )
        with subprocess.Popen(
            [
                *NAMESPACES,
                sys.executable,
                "-B",
                __file__,
                "--inside",
                base,
                "--build",
                given.build.resolve(),
                *parts,
            ],
            stdin=subprocess.PIPE,
            start_new_session=True,
        ) as inside:
            return inside.wait()


if __name__ == "__main__":
    sys.exit(main())
