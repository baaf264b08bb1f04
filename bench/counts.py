"""Reproducible costs of one call of the module: instructions, system calls and allocations.

Each is the difference between a run of many calls and a run of half as many, which cancels the costs of
starting the process.
"""

import pathlib
import re
import subprocess
import tempfile

import implementations

MODULE = implementations.BUILD / "bench" / "bench_module"


def counts_of(workload):
    calls = 2 * max(1, min(workload.iterations, 2000))
    return {
        "instructions": per_call(instructions, workload, calls),
        "system calls": per_call(system_calls, workload, calls),
        "allocations": per_call(allocations, workload, calls),
    }


def per_call(count, workload, calls):
    return (count(request(workload, calls)) - count(request(workload, calls // 2))) / (calls - calls // 2)


def request(workload, calls):
    return "\t".join(map(str, [workload.operation, calls, *workload.arguments])) + "\n"


def allocations(line):
    return int(run([MODULE], line).stdout.split("\t")[2])


def instructions(line):
    """Counted by valgrind's callgrind, which emulates a processor without AVX-512."""
    with tempfile.TemporaryDirectory() as folder:
        output = run(["valgrind", "--tool=callgrind", f"--callgrind-out-file={folder}/out", MODULE], line)
    return int(re.search(r"Collected : (\d+)", output.stderr).group(1))


def system_calls(line):
    with tempfile.TemporaryDirectory() as folder:
        trace = pathlib.Path(folder, "trace")
        run(["strace", "-f", "-qq", "-o", trace, MODULE], line)
        # malloc requests memory for several calls at once, so these calls cannot be attributed to one call.
        return sum(
            not re.search(r" (brk|mmap|munmap|madvise|futex|\+\+\+)", row)
            for row in trace.read_text(errors="replace").splitlines()
        )


def run(command, line):
    done = subprocess.run([str(word) for word in command], input=line, capture_output=True, text=True)
    if done.returncode != 0:
        raise SystemExit(done.stderr)
    return done
