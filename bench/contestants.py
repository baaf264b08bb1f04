"""The contestants as processes that answer requests, and how they are built."""

import dataclasses
import os
import pathlib
import shutil
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[1]
BUILD = ROOT / "build" / "bench"
PEERS = BUILD / "peers"
# The C library's allocator keeps what is freed, as it does in a program that has run for a while.
# Otherwise it hands a block back to the system, and gets it anew page by page, for some sizes and not
# for others.
KEEP_MEMORY = {"MALLOC_TRIM_THRESHOLD_": str(1 << 30), "MALLOC_MMAP_THRESHOLD_": str(32 << 20)}
OWN = ["module", "plain", "limit", "c_library", "boost"]


@dataclasses.dataclass
class Answer:
    """What a request took: nanoseconds for all iterations, and allocations when they are counted."""
    nanoseconds: int
    allocations: int | None


class Contestant:
    """One process, started once, so that its start is not measured."""

    def __init__(self, name, command, operations=None):
        self.name = name
        self.command = command
        self.operations = operations  # none: all that it knows
        self.process = None
        self.skipped = {}

    def ask(self, workload, iterations):
        """The answer to a request, or None when the contestant has nothing of the kind."""
        if workload.name in self.skipped:
            return None
        if self.operations is not None and workload.operation_of(self.name) not in self.operations:
            return None
        if self.process is None:
            self.process = subprocess.Popen(self.command, stdin=subprocess.PIPE,
                                            stdout=subprocess.PIPE, text=True,
                                            env=os.environ | KEEP_MEMORY)
        fields = [workload.operation_of(self.name), iterations, *workload.arguments]
        self.process.stdin.write("\t".join(map(str, fields)) + "\n")
        self.process.stdin.flush()
        answer = self.process.stdout.readline().rstrip("\n").split("\t")
        if answer[0] in ("skip", ""):
            self.skipped[workload.name] = answer[-1] or "ended"
            return None
        return Answer(int(answer[0]), int(answer[2]) if len(answer) > 2 else None)

    def close(self):
        """Ends the process; the next request starts another."""
        if self.process is not None:
            self.process.stdin.close()
            self.process.wait()
            self.process = None


def build():
    """Builds the contestants, and gives those that there are."""
    if not (BUILD / "build.ninja").exists():
        run("cmake", "-S", ROOT, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
            "-DQUEN_IO_TESTS=OFF", "-DQUEN_IO_BENCH=ON")
    run("cmake", "--build", BUILD)
    print(run(ROOT / "bench/peers/build", PEERS), end="")

    peers = {
        "rust": [PEERS / "rust_peer"],
        "go": [PEERS / "go_peer"],
        "node": ["node", ROOT / "bench/peers/node.mjs"],
        "python": ["/usr/bin/python3", ROOT / "bench/peers/python.py"],
        # Otherwise it refuses names beyond ASCII.
        "java": ["env", "LC_ALL=C.UTF-8", "java", "-cp", PEERS, "Peer"],
    }
    return ([Contestant(name, [BUILD / "bench" / f"contestant_{name}"]) for name in OWN] +
            [Contestant("narrow", [BUILD / "bench/contestant_narrow"], {"utf8"})] +
            [Contestant(name, command) for name, command in peers.items() if is_there(name, command)])


def is_there(name, command):
    return shutil.which(command[2] if name == "java" else command[0]) is not None


def run(*command):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True)
    if done.returncode != 0:
        raise SystemExit(done.stdout + done.stderr)
    return done.stdout
