#!/usr/bin/env python3
"""The compiler vectorizes every loop over a block of the validator.

    vectorized_test.py SOURCE INCLUDE_FOLDER COMPILER...

A single condition can prevent auto-vectorization silently and cost a factor of ten. Each available g++
among the compilers has to report 16-byte vectors for every loop at -O2 (-fopt-info-vec), and
on x86-64 32-byte vectors too, for the AVX2 version. Exits 77 if no g++ is available.
"""

import pathlib
import re
import shutil
import subprocess
import sys
import tempfile


def loops_over_blocks(source):
    """The line numbers of these loops."""
    return {
        number
        for number, line in enumerate(source.read_text().splitlines(), 1)
        if re.search(r"for \(.*< kSize;", line)
    }


def vectors(compiler, source, includes):
    """The vector sizes that the compiler reports for each line."""
    with tempfile.NamedTemporaryFile(suffix=".o") as output:
        done = subprocess.run(
            [
                compiler,
                "-std=c++23",
                "-O2",
                "-fopt-info-vec",
                "-I",
                includes,
                "-c",
                source,
                "-o",
                output.name,
            ],
            capture_output=True,
            text=True,
        )
    if done.returncode != 0:
        sys.exit(done.stderr)
    sizes = {}
    for line, size in re.findall(r"\.cpp:(\d+):.*vectorized using (\d+) byte", done.stderr + done.stdout):
        sizes.setdefault(int(line), set()).add(int(size))
    return sizes


def main():
    source, includes, *compilers = sys.argv[1:]
    loops = loops_over_blocks(pathlib.Path(source))
    if len(loops) < 5:
        sys.exit(f"found only the loops on lines {sorted(loops)}: has the validator been rewritten?")
    present = [each for each in compilers if shutil.which(each)]
    failures = []
    for compiler in present:
        machine = subprocess.run([compiler, "-dumpmachine"], capture_output=True, text=True).stdout
        wanted = {16, 32} if machine.startswith("x86_64") else {16}
        found = vectors(compiler, source, includes)
        for line in sorted(loops):
            # Loops over eight-byte words are only profitable with 32-byte vectors.
            words = "sizeof" in pathlib.Path(source).read_text().splitlines()[line - 1]
            missing = (wanted & {32} if words else wanted) - found.get(line, set())
            if missing:
                failures.append(f"{compiler}: line {line} has no vectors of {sorted(missing)} bytes")
        print(f"{compiler}: {len(loops)} loops looked at")
    if failures:
        sys.exit("\n".join(failures))
    return 0 if present else 77


if __name__ == "__main__":
    sys.exit(main())
