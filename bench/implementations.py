"""Builds the implementations, and runs them as processes that answer requests."""

import dataclasses
import os
import pathlib
import re
import shutil
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[1]
BUILD = ROOT / "build" / "bench"
PEERS = BUILD / "peers"
# Keeps freed memory in malloc, as in a program that has run for a while. By default glibc returns large
# blocks to the system, depending on their size, and page faults then dominate (mallopt(3),
# M_TRIM_THRESHOLD and M_MMAP_THRESHOLD).
KEEP_MEMORY = {"MALLOC_TRIM_THRESHOLD_": str(1 << 30), "MALLOC_MMAP_THRESHOLD_": str(32 << 20)}
# Without a just-in-time compiler, which would have to warm up again.
RESTARTED = {"module", "plain", "limit", "limit_at_boundary", "c_library", "boost", "narrow", "rust"}
OWN = ["module", "plain", "limit", "limit_at_boundary", "c_library", "boost"]

COMMANDS = {"limit_at_boundary": [BUILD / "bench/bench_limit", "at_boundary"]}


@dataclasses.dataclass
class Answer:
    """The cost of a request: nanoseconds of all iterations, and what is counted beside."""

    nanoseconds: int
    allocations: int | None
    waited: int | None  # nanoseconds in which threads waited for locks, where that is measured


class Implementation:
    """A process that is started once, so that its start-up is not measured."""

    def __init__(self, name, command, operations=None):
        self.name = name
        self.command = command
        self.operations = operations  # None: all that it supports
        self.process = None
        self.skipped = {}

    def ask(self, workload, iterations):
        """The answer to a request, or None if the implementation does not support it."""
        if workload.name in self.skipped:
            return None
        if self.operations is not None and workload.operation_of(self.name) not in self.operations:
            return None
        if self.process is None:
            self.process = subprocess.Popen(
                self.command,
                stdin=subprocess.PIPE,
                stdout=subprocess.PIPE,
                text=True,
                env=os.environ | KEEP_MEMORY,
            )
        fields = [workload.operation_of(self.name), iterations, *workload.arguments]
        self.process.stdin.write("\t".join(map(str, fields)) + "\n")
        self.process.stdin.flush()
        answer = self.process.stdout.readline().rstrip("\n").split("\t")
        if answer[0] in ("skip", ""):
            self.skipped[workload.name] = answer[-1] or "ended"
            return None
        allocations, waited = map(int, answer[2:]) if len(answer) > 2 else (None, None)
        return Answer(int(answer[0]), allocations, waited)

    def peak_memory(self):
        """The most memory that the process has had so far, in bytes."""
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        return int(re.search(r"VmHWM:\s+(\d+) kB", status)[1]) * 1024

    def close(self):
        """Ends the process; the next request starts a new one."""
        if self.process is not None:
            self.process.stdin.close()
            self.process.wait()
            self.process = None


def build_only(*targets):
    """Builds these targets of the implementations in C++, or all of them if none is named."""
    if not (BUILD / "build.ninja").exists():
        run(
            "cmake",
            "-S",
            ROOT,
            "-B",
            BUILD,
            "-G",
            "Ninja",
            "-DCMAKE_BUILD_TYPE=Release",
            "-DQUEN_IO_TESTS=OFF",
            "-DQUEN_IO_BENCH=ON",
        )
    run("cmake", "--build", BUILD, *(["--target", *targets] if targets else []))


def build():
    """Builds the implementations, and gives those that there are."""
    build_only()
    print(run(ROOT / "bench/peers/build", PEERS), end="")

    peers = {
        "rust": [PEERS / "rust_peer"],
        "go": [PEERS / "go_peer"],
        "node": ["node", ROOT / "bench/peers/node.mjs"],
        "python": ["/usr/bin/python3", ROOT / "bench/peers/python.py"],
        # In the C locale Java rejects file names that are not ASCII.
        "java": ["env", "LC_ALL=C.UTF-8", "java", "-cp", PEERS, "Peer"],
    }
    return (
        [Implementation(name, COMMANDS.get(name, [BUILD / "bench" / f"bench_{name}"])) for name in OWN]
        + [Implementation("narrow", [BUILD / "bench/bench_narrow"], {"utf8"})]
        + [Implementation(name, command) for name, command in peers.items() if is_there(name, command)]
    )


def with_lock_waits():
    """The module, as a process that measures how long its threads wait for locks."""
    preloaded = f"LD_PRELOAD={BUILD / 'bench/libbench_lock_waits.so'}"
    return Implementation("module", ["env", preloaded, BUILD / "bench/bench_module"])


def is_there(name, command):
    return shutil.which(command[2] if name == "java" else command[0]) is not None


def run(*command):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True)
    if done.returncode != 0:
        raise SystemExit(done.stdout + done.stderr)
    return done.stdout
