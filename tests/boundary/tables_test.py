#!/usr/bin/env python3
"""Every table that has to know every entry point knows it, and documents say who raises what.

The entry points come from their header. Each table below names its files, how an entry point is found
in them, and which are left out on purpose, each with the reason. A failure names every table that an
entry point is missing from. Numbers of entry points and operations in any text are held here as well.
"""

import dataclasses
import fnmatch
import os
import pathlib
import re
import sys
import typing
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.append(str(ROOT / "runtime"))
sys.path.append(str(ROOT / "tests" / "faults"))

import entry_list
import run as faults
from entry_points import read_header

ROWS = read_header()
SHORT = {row["name"]: row["short"] for row in ROWS}
FORWARDERS = {row["short"]: SHORT[row["forwards_to"]] for row in ROWS if row["forwards_to"]}


def text_of(*patterns):
    files = [path for pattern in patterns for path in sorted(ROOT.glob(pattern))]
    if not files:
        raise FileNotFoundError(patterns)
    return "\n".join(path.read_text(encoding="utf-8") for path in files)


def named_in(*patterns):
    """The entry points whose full names the code of the files mentions."""
    words = set(re.findall(r"\w+", re.sub(r"//.*", "", text_of(*patterns))))
    return lambda: {short for name, short in SHORT.items() if name in words}


def matching(patterns):
    """The entry points whose symbols match one of the patterns; one has a mangled C++ name."""
    return {
        short
        for name, short in SHORT.items()
        if any(
            fnmatch.fnmatch(name, pattern) or pattern.startswith(f"_Z{len(name)}{name}")
            for pattern in patterns
        )
    }


def exported():
    return matching(re.findall(r"[_\w]+\*?(?=;)", text_of("cmake/quen_io.exports")))


def packaged_symbols():
    return re.findall(r"^ (\w+)@Base", text_of("scripts/debian/entry_points.symbols"), re.MULTILINE)


def traced():
    return set(re.findall(r"^\$ quen-io call --trace (\S+)", text_of("tests/traces/*/*.trace"), re.MULTILINE))


def messages(text):
    """The messages that a comment says are raised, those of "Raises as ..." included."""
    raising = re.search(r"\braises?\b.*", text, re.IGNORECASE)
    if not raising:
        return set()
    found = set(re.findall(r'"([^"]+)"', raising[0]))
    for name in re.findall(r"Raises as (\w+)", text):
        found |= messages(next(row["help"] for row in ROWS if row["name"] == name).replace("\n", " "))
    return found


def raised_by_header():
    """Each entry point and message, as the header tells; without those that only forward."""
    return {
        (row["short"], message)
        for row in ROWS
        if not row["forwards_to"]
        for message in messages(row["help"].replace("\n", " ")) | messages(row["group"])
    }


def names_in(cell):
    """`Path.remove`, `_mkdir`: a name without its class has that of the name before it."""
    names, owner = set(), ""
    for name in re.findall(r"`([\w.]+)`", cell):
        owner = name.rpartition(".")[0] or owner
        names.add(name if "." in name else f"{owner}.{name}")
    return names


def raised_by_document():
    text = text_of("docs/errors.md")
    groups = {
        name.lower(): names_in(members)
        for name, members in re.findall(r"([A-Z][\w -]+) are ((?:`[\w.]+`,?\s)*`[\w.]+`)\.", text)
    }
    found = set()
    for condition, names in re.findall(r"^\| (\w[^|]*\"[^|]*) \| ([^|]*) \|", text, re.MULTILINE):
        members = names_in(names).union(*(groups[group] for group in groups if group in names))
        found |= {(name, message) for message in re.findall(r'"([^"]+)"', condition) for name in members}
    return {(name, message) for name, message in found if name not in FORWARDERS}


def with_allowed_exceptions():
    """The entry points that raise nothing, or for which the fault tests know what they may raise."""
    raising = {name for name, _ in raised_by_header()} - {"Path._exists"}  # whose null raises, no fault
    return {
        short
        for name, short in SHORT.items()
        if short not in raising
        or faults.by_prefix(faults.ALLOWED, re.sub(r"^quen_(io_toml|io|data_internal)_", "", name), None)
    }


@dataclasses.dataclass
class Table:
    name: str
    found: typing.Callable[[], set]
    left_out: dict = dataclasses.field(default_factory=dict)  # short names, by the reason
    wants_forwarders: bool = False  # also what behaves as another entry point


LEXICAL = """Path.normalize Path._normalizePath Path.parent Path._parentPath Path._isAbsolute
    Path._isNormalized Path.resolve Path._resolvePath Path.name Path._pathName Path.extension
    Path._pathExtension Path._rootStringsNative"""

TABLES = [
    Table("cmake/quen_io.exports: exported by both libraries", exported, wants_forwarders=True),
    Table(
        "scripts/debian/entry_points.symbols: what packages of other programs may depend on",
        lambda: matching(packaged_symbols()),
        wants_forwarders=True,
    ),
    Table("tests/traces: called in at least one trace", traced, wants_forwarders=True),
    Table("tests/plain: the plain form", named_in("tests/plain/*.cpp"), wants_forwarders=True),
    Table(
        "tests/differential/forms.cpp: compared with the plain form",
        named_in("tests/differential/forms.cpp"),
        wants_forwarders=True,
    ),
    Table(
        "tests of the module, in the folder of its source",
        named_in(
            *(f"tests/{room}/*_test.cpp" for room in ("path", "entries", "contents", "writers", "data"))
        ),
        wants_forwarders=True,
    ),
    Table(
        "docs/errors.md: who raises what",
        lambda: set(SHORT.values()) - {name for name, _ in raised_by_header() - raised_by_document()},
    ),
    Table(
        "tests/disks/every_operation.cpp: on odd entries and failing disks",
        named_in("tests/disks/every_operation.cpp"),
        {
            "works on the text of a path alone": LEXICAL,
            "asks for the current directory only, whose loss tests/path shows": "Path.get.cwd Path._cwdPath Path.toAbsolute Path._absolutePath",
            "takes two paths: tests/path/relativize_test.cpp has the odd ones": "Path.relativize Path._relativizePath",
            "is asked by FolderPath._removeAllNative": "isUnsafeRecursiveDeletePath",
        },
    ),
    Table(
        "tests/faults/probe.cpp: with failing system calls",
        named_in("tests/faults/probe.cpp"),
        {"works on the text of a path alone": LEXICAL},
    ),
    Table("tests/faults/run.py: what may be raised when a system call fails", with_allowed_exceptions),
    Table(
        "fuzz: called by programs of calls or by a target of its own",
        named_in("fuzz/*_fuzz.cpp", "tests/differential/forms.cpp"),
    ),
    Table(
        "tests/limits/every_entry_point.cpp: with little memory and little stack",
        named_in("tests/limits/every_entry_point.cpp"),
        wants_forwarders=True,
    ),
    Table(
        "tests/limits/host_calls.txt: with little memory in an interpreter",
        lambda: set(re.findall(r"[\w.]*\w(?=\()", text_of("tests/limits/host_calls.txt")))
        & set(SHORT.values()),
        wants_forwarders=True,
    ),
    Table(
        "tests/memory/probe.cpp: peak of memory", named_in("tests/memory/probe.cpp"), wants_forwarders=True
    ),
    Table(
        "bench/implementations/entry_points.cpp: measured",
        named_in("bench/implementations/entry_points.cpp"),
        {
            "does the work of Path._normalizePath, _parentPath, _resolvePath, _pathName or _pathExtension": "Path.toAbsolute Path._absolutePath Path.parent Path.resolve Path.name Path.extension",
            "looks at characters of a short text": "Path._isAbsolute",
            "makes a constant": "Path._rootStringsNative",
            "is one or two system calls": """Path.get.cwd Path._cwdPath Path._pathKindPath
            FileInputStream._existsPath FileInputStream._isRegularPath FileInputStream._sizePath
            Path._exists Path._isRegular Path._isDirectory Path._isSymlink Path._size
            Path._lastModified Path.remove Path.rename FilePath.touch FolderPath._mkdirNative
            FolderPath._mkdirsNative FileWriter._truncatePath""",
            "is mostly system calls for each part of a path": "Path.relativize Path._relativizePath",
            "does the work of FileReader._readAllTextPath": "FileInputStream._readTextFromOffsetPath TOML._readStrictPath",
            "is opening a file, one write, and closing it": """FileWriter._appendPath
            FileWriter._writePath Files._writeBytesPath Files._writeBytesWithPrefixPath
            FileOutputStream._appendBytesPath""",
            "is one system call for what a handle has gathered": "FileWriter._flushHandle",
        },
    ),
]


def faults_of(table):
    """What is missing from a table, and what is left out of it without need, one line each."""
    left_out = {name for names in table.left_out.values() for name in names.split()}
    found = table.found()
    known = found | left_out
    for name in sorted(set(SHORT.values()) - known):
        if table.wants_forwarders or FORWARDERS.get(name) not in known:
            yield f"{name} is missing in {table.name}"
    for name in sorted(left_out & found):
        yield f"{name} is left out of {table.name}, but is there"
    for name in sorted(left_out - set(SHORT.values())):
        yield f"{name} is left out of {table.name}, but is no entry point"


def texts():
    """Everything that people read, by the name of its file."""
    for folder, folders, files in os.walk(ROOT):
        folders[:] = [each for each in folders if each not in {"build", ".git", "corpus"}]
        for path in (pathlib.Path(folder, name) for name in files):
            if path.suffix in {".md", ".h", ".cpp", ".py", ".txt", ".cmake", ".in", ".sh", ""}:
                yield str(path.relative_to(ROOT)), path.read_text(encoding="utf-8", errors="replace")


class Tables(unittest.TestCase):
    maxDiff = None

    def test_every_entry_point_is_in_every_table(self):
        missing = [fault for table in TABLES for fault in faults_of(table)]
        self.assertEqual(missing, [], "\n" + "\n".join(missing))

    def test_the_installed_lists_of_entry_points_are_made_from_the_header(self):
        self.assertEqual(entry_list.outdated(), [], "run runtime/entry_list.py")

    def test_the_symbols_file_lists_each_entry_point_once_and_nothing_else(self):
        symbols = packaged_symbols()
        self.assertEqual((len(symbols), len(set(symbols))), (len(ROWS), len(ROWS)))

    def test_the_document_of_exceptions_says_what_the_header_says(self):
        self.assertEqual(sorted(raised_by_document() - raised_by_header()), [])
        self.assertEqual(sorted(raised_by_header() - raised_by_document()), [])

    def test_every_message_of_the_header_stands_in_the_module(self):
        code = text_of("src/*.cpp", "src/*/*.cpp", "src/*/*.h")
        told = {message for _, message in raised_by_header()}
        self.assertEqual([each for each in told if f'"{each.removesuffix(" at byte N")}' not in code], [])

    def test_numbers_of_entry_points_and_operations_are_right(self):
        numbers = {
            "entry points": len(ROWS),
            "operations": len(text_of("tests/boundary/imports.txt").split()),
        }
        told = [
            (name, words)
            for name, text in texts()
            for words in re.findall(r"\b\d+ (?:entry points|operations)\b", text)
        ]
        self.assertTrue(told)
        wrong = [each for each in told if each[1] not in {f"{n} {what}" for what, n in numbers.items()}]
        self.assertEqual(wrong, [])


class Checks(unittest.TestCase):
    """The tests above are worth something only if these can tell."""

    def test_a_missing_name_and_a_needless_exemption_are_reported(self):
        everything = set(SHORT.values())
        table = Table("table", lambda: everything - {"Path.remove"}, {"reason": "Path.name Path.none"})
        self.assertEqual(
            list(faults_of(table)),
            [
                "Path.remove is missing in table",
                "Path.name is left out of table, but is there",
                "Path.none is left out of table, but is no entry point",
            ],
        )

    def test_what_forwards_is_wanted_only_where_it_has_to_be(self):
        found = set(SHORT.values()) - {"Path.get.exists"}
        self.assertEqual(list(faults_of(Table("table", lambda: found))), [])
        self.assertEqual(
            list(faults_of(Table("table", lambda: found, wants_forwarders=True))),
            ["Path.get.exists is missing in table"],
        )

    def test_messages_are_those_behind_the_word_that_raises(self):
        self.assertEqual(messages('The "_path". Raises "a", or "b" then.'), {"a", "b"})
        self.assertEqual(messages("None of them raises."), set())
        self.assertIn("Failed to write file", messages("Raises as quen_io_FileWriter__appendPath."))

    def test_a_name_without_its_class_has_that_of_the_name_before(self):
        self.assertEqual(names_in("`A.b`, `_c` and `D._e`"), {"A.b", "A._c", "D._e"})


if __name__ == "__main__":
    unittest.main()
