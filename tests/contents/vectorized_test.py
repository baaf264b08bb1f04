#!/usr/bin/env python3
"""The compiler has instructions for every vector operation of the validator.

    vectorized_test.py SOURCE INCLUDE_FOLDER COMPILER...

An operation that the instruction set lacks is expanded piecewise, silently, and costs a factor of ten. No
available g++ among the compilers may report one at -O2 (-Wvector-operation-performance), and on x86-64 the
AVX2 version has to use 32-byte registers. Exits 77 if no g++ is available.
"""

import re
import shutil
import subprocess
import sys


def compile_to_assembly(compiler, source, includes):
    """The assembly, and the warnings."""
    options = ["-std=c++23", "-O2", "-Wvector-operation-performance", "-I", includes]
    done = subprocess.run(
        [compiler, *options, "-S", "-o", "-", source],
        capture_output=True,
        text=True,
    )
    if done.returncode != 0:
        sys.exit(done.stderr)
    return done.stdout, done.stderr


def main():
    source, includes, *compilers = sys.argv[1:]
    present = [each for each in compilers if shutil.which(each)]
    failures = []
    for compiler in present:
        machine = subprocess.run([compiler, "-dumpmachine"], capture_output=True, text=True).stdout
        assembly, warnings = compile_to_assembly(compiler, source, includes)
        failures += [f"{compiler}: {line}" for line in warnings.splitlines() if "expanded" in line]
        # A signed comparison of each kind: the test of continuation bytes.
        wanted = [r"\bpcmpgtb\b.*%xmm", r"\bvpcmpgtb\b.*%ymm"] if machine.startswith("x86_64") else [r"\.16b"]
        failures += [f"{compiler}: no {each}" for each in wanted if not re.search(each, assembly)]
        print(f"{compiler}: {len(assembly.splitlines())} lines of assembly looked at")
    if failures:
        sys.exit("\n".join(failures))
    return 0 if present else 77


if __name__ == "__main__":
    sys.exit(main())
