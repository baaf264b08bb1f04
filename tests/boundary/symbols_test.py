#!/usr/bin/env python3
"""The boundary, read from the symbol tables of the built libraries in both directions.

    symbols_test.py --shared LIB --static LIB --compiler CXX
"""

import argparse
import functools
import pathlib
import subprocess
import sys
import unittest

HERE = pathlib.Path(__file__).resolve().parent
sys.path.append(str(HERE.parents[1] / "runtime"))

from entry_points import read_header

# What a linker or the start-up code brings along; no library defines these.
TOOLCHAIN = {
    "_GLOBAL_OFFSET_TABLE_",
    "__dso_handle",
    "_ITM_deregisterTMCloneTable",
    "_ITM_registerTMCloneTable",
    "__gmon_start__",
}

# The one entry point with a typed symbol.
TYPED = {"_Z32Quen_isUnsafeRecursiveDeletePathPKc": "Quen_isUnsafeRecursiveDeletePath"}

arguments = None


def entry_points():
    return {each["name"] for each in read_header()}


def operations():
    return set((HERE / "imports.txt").read_text().split())


def symbols(library, *options):
    """The names that nm prints for the library, without versions."""
    printed = subprocess.run(
        ["nm", "-P", *options, library], check=True, capture_output=True, text=True
    ).stdout
    return [line.split()[0] for line in printed.splitlines() if len(line.split()) > 1]


def unversioned(names):
    return {TYPED.get(name, name) for name in (name.split("@")[0] for name in names)}


def differences(found, expected):
    """What is too much and what is missing, each as one readable line."""
    return [f"too much: {name}" for name in sorted(found - expected)] + [
        f"missing: {name}" for name in sorted(expected - found)
    ]


@functools.cache
def standard_library():
    """Every symbol that the standard library's shared objects define."""
    found = set()
    for name in ("libstdc++.so.6", "libc.so.6", "libm.so.6", "libgcc_s.so.1", "ld-linux-x86-64.so.2"):
        path = subprocess.run(
            [arguments.compiler, f"-print-file-name={name}"], check=True, capture_output=True, text=True
        ).stdout.strip()
        if pathlib.Path(path).is_absolute():
            found |= unversioned(symbols(path, "-D", "--defined-only"))
    return found


class Comparison(unittest.TestCase):
    """The checks below are worth something only if these can tell."""

    def test_a_name_too_much_and_a_missing_one_are_reported(self):
        self.assertEqual(differences({"a", "b"}, {"b", "c"}), ["too much: a", "missing: c"])
        self.assertEqual(differences({"a"}, {"a"}), [])

    def test_versions_are_cut_off(self):
        self.assertEqual(unversioned(["read@GLIBC_2.2.5", "memcpy@@GLIBC_2.14"]), {"read", "memcpy"})

    def test_the_standard_library_was_found(self):
        self.assertIn("malloc", standard_library())
        self.assertIn("__cxa_throw", standard_library())


class Exports(unittest.TestCase):
    def test_the_shared_library_defines_what_the_header_declares(self):
        found = unversioned(symbols(arguments.shared, "-D", "--defined-only"))
        self.assertEqual(differences(found, entry_points()), [])

    def test_the_static_library_defines_what_the_header_declares(self):
        found = unversioned(symbols(arguments.static, "-g", "--defined-only"))
        self.assertEqual(differences(found, entry_points()), [])


class Imports(unittest.TestCase):
    def left_undefined(self, library, *options):
        found = unversioned(symbols(library, "--undefined-only", *options))
        return found - TOOLCHAIN - standard_library()

    def test_the_shared_library_leaves_the_operations_undefined(self):
        self.assertEqual(differences(self.left_undefined(arguments.shared, "-D"), operations()), [])

    def test_the_static_library_leaves_the_operations_undefined(self):
        self.assertEqual(differences(self.left_undefined(arguments.static), operations()), [])


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    for option in ("--shared", "--static", "--compiler"):
        parser.add_argument(option, required=True)
    arguments, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], *rest])
