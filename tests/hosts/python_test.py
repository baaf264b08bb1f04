#!/usr/bin/env python3
"""The module quen_io for Python, whichever form of it PYTHONPATH has: the same claims for both."""

import gc
import os
import pathlib
import subprocess
import sys
import tempfile
import threading
import unittest

import quen_io
from quen_io import DocumentIndexStore, FileInputStream, FileReader, Files, FileWriter, FolderPath, Path

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.append(str(ROOT / "runtime"))

from entry_points import read_header


class Scratch(unittest.TestCase):
    """A test with a folder of its own."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="quen-io-python-")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, name):
        return os.path.join(self.folder, name)

    def file(self, name, contents=b""):
        with open(self.path(name), "wb") as file:
            file.write(contents)
        return self.path(name)

    def contents(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()


class Table(unittest.TestCase):
    def test_has_every_entry_point_with_the_text_of_the_header(self):
        for row in read_header():
            function = quen_io
            for name in row["short"].split("."):
                function = getattr(function, name)
            with self.subTest(row["short"]):
                self.assertEqual(function.__doc__, row["help"])
                self.assertEqual(function.__text_signature__, f"({', '.join(row['parameters'])})")

    def test_refuses_another_number_of_arguments_and_other_types(self):
        with self.assertRaisesRegex(TypeError, "1 arguments expected"):
            FileReader._readAllTextPath()
        for arguments in ((1,), (FolderPath("a"),)):
            with self.assertRaises(TypeError):
                FileReader._readAllTextPath(*arguments)
        with self.assertRaises(TypeError):
            FileReader._readPrefixPath("a", "1")
        with self.assertRaisesRegex(ValueError, "embedded null byte"):
            FileReader._readAllTextPath("a\0b")


class Paths(Scratch):
    def test_keep_their_kind_and_their_parent_traversal(self):
        for each, kind in ((Path("a/../b/"), Path), (FolderPath("a/../b/"), FolderPath)):
            normal = each.normalize()
            self.assertEqual((type(normal), normal._path), (kind, "b/"))
            self.assertTrue(normal._hasParentTraversal)
            self.assertTrue(normal.normalize()._hasParentTraversal)
        self.assertFalse(Path("a").normalize()._hasParentTraversal)

    def test_of_classes_below_a_folder_path_are_folders(self):
        class Home(FolderPath):
            pass

        self.assertIs(type(Home("a").normalize()), FolderPath)

    def test_are_joined_with_texts_and_with_paths(self):
        base = FolderPath("a")

        self.assertEqual(base.resolve("b/")._path, "a/b/")
        self.assertIs(type(base.resolve("b/")), FolderPath)
        self.assertEqual(base.resolve(Path("b"))._path, "a/b")
        self.assertIs(base.resolve(None), base)
        self.assertIsNone(Path.resolve(None, "b"))

    def test_without_a_text_count_as_empty(self):
        self.assertEqual(Path(None).normalize()._path, "")
        self.assertIsNone(Path("a").parent())
        self.assertEqual(Path(None).name(), "")
        with self.assertRaisesRegex(quen_io.NullException, "^Cannot read Path.exists on null$"):
            Path._exists(None)

    def test_that_are_renamed_have_the_new_text(self):
        path = Path(self.file("old"))

        path.rename("new")

        self.assertEqual(path._path, self.path("new"))
        self.assertTrue(path._exists())


class Exceptions(Scratch):
    def test_are_those_of_python_and_keep_the_class(self):
        for raising, python_class, quen_class, message in (
            (lambda: FileReader._readAllTextPath("/nowhere"), OSError, "IOException", "Cannot open file"),
            (lambda: FileReader._readAllTextPath(None), OSError, "IOException", "File path is empty"),
            (lambda: Path._exists(None), ValueError, "NullException", "Cannot read Path.exists on null"),
            (
                lambda: quen_io.TOML._readStrictPath(self.file("toml", b"a\0")),
                quen_io.TOMLParseException,
                "quen.io.toml.TOMLParseException",
                "Raw U+0000 is not allowed in TOML input at byte 1",
            ),
        ):
            with self.assertRaises(python_class) as raised:
                raising()
            self.assertEqual((raised.exception.quen_class, str(raised.exception)), (quen_class, message))

    def test_of_arguments_are_type_errors(self):
        with self.assertRaises(TypeError) as raised:
            Files._writeBytesPath(self.path("file"), "no bytes")
        self.assertEqual(raised.exception.quen_class, "TypeError")
        self.assertRegex(str(raised.exception), "^Expected Byte\\[\\] but got ")
        self.assertFalse(os.path.exists(self.path("file")))


class Bytes(Scratch):
    def test_of_names_that_are_not_utf_8_are_kept_whole(self):
        name = b"\xff\xc3(.txt"
        with open(os.fsencode(self.folder) + b"/" + name, "wb"):
            pass

        listed = FolderPath._listNamesNative(self.folder)

        self.assertEqual(listed, [name.decode("utf-8", "surrogateescape")])
        self.assertTrue(Path(self.path(listed[0]))._exists())
        self.assertTrue(FileInputStream._existsPath(os.fsencode(self.folder) + b"/" + name), "as bytes")

    def test_of_texts_are_kept_whole(self):
        text = "\ufeffa\0\r\n\U0001f600é"
        file = self.file("text", text.encode())

        self.assertEqual(FileReader._readAllTextPath(file), text)
        FileWriter._writePath(file, "\udcff\udcc3(")
        self.assertEqual(self.contents("text"), b"\xff\xc3(")

    def test_fill_the_beginning_of_an_array(self):
        file = self.file("bytes", bytes(range(256)))
        target = bytearray(b"x" * 10)

        self.assertEqual(FileInputStream._readBytesPath(file, 254, target, 10), 2)
        self.assertEqual(target, b"\xfe\xff" + b"x" * 8)
        self.assertEqual(FileInputStream._readBytesPath(file, 0, memoryview(target)[5:], 3), 3)
        self.assertEqual(target, b"\xfe\xffxxx\0\1\2xx")

    def test_do_not_fill_what_cannot_be_written_or_is_too_short(self):
        file = self.file("bytes", b"abc")
        for target in (b"xxx", "xxx", bytearray(2), None):
            before = target if target is None else target[:]
            with self.assertRaises(quen_io.TypeError):
                FileInputStream._readBytesPath(file, 0, target, 3)
            self.assertEqual(target, before)

    def test_of_any_buffer_are_written(self):
        for array in (b"a\0b", bytearray(b"a\0b"), memoryview(b"xa\0bx")[1:4]):
            Files._writeBytesPath(self.path("file"), array)
            self.assertEqual(self.contents("file"), b"a\0b")
        Files._writeBytesWithPrefixPath(self.path("file"), "prefix", None)
        self.assertEqual(self.contents("file"), b"prefix")


def real_work(folder):
    """Makes a tree, walks it, copies it through handles, and publishes an index of it."""
    for name in ("tree/a/b", "tree/c"):
        FolderPath._mkdirsNative(f"{folder}/{name}")
    for name in ("one", "a/two", "a/b/three", "c/four"):
        FileWriter._writePath(f"{folder}/tree/{name}", f"text of {name}\n" * 50)

    found = []
    waiting = [FolderPath(f"{folder}/tree")]
    while waiting:
        here = waiting.pop()
        for name in sorted(FolderPath._listNamesNative(here._path)):
            path = here.resolve(name)
            if path._isDirectory():
                waiting.append(FolderPath(path._path))
            else:
                found.append((path.relativize(FolderPath(folder))._path, path._size()))

    handle = FileWriter._openPath(f"{folder}/copy", False)
    for name, _ in found:
        FileWriter._writeHandle(handle, FileReader._readAllTextPath(f"{folder}/{name}"))
    FileWriter._flushHandle(handle)
    FileWriter._closeHandle(handle)
    DocumentIndexStore._writeAtomic(f"{folder}/index", "\n".join(f"{size} {name}" for name, size in found))

    array = bytearray(20)
    FileInputStream._readBytesPath(f"{folder}/copy", 5, array, 20)
    index = FileReader._readAllTextPath(f"{folder}/index").splitlines()
    FolderPath._removeAllNative(f"{folder}/tree")
    return index, bytes(array), os.path.getsize(f"{folder}/copy"), sorted(os.listdir(folder))


WORKED = (
    ["600 tree/one", "750 tree/c/four", "700 tree/a/two", "900 tree/a/b/three"],
    b"of one\ntext of one\nt",
    2950,
    ["copy", "index"],
)


class Closing:
    """Closes its writer when it is collected; it is part of a cycle, so only a collection finds it."""

    def __init__(self, path):
        self.myself = self
        self.handle = FileWriter._openPath(path, False)
        FileWriter._writeHandle(self.handle, "written")

    def __del__(self):
        try:
            FileReader._readAllTextPath("")
        except OSError:
            FileWriter._closeHandle(self.handle)


class Work(Scratch):
    def test_is_done(self):
        self.assertEqual(real_work(self.folder), WORKED)

    def test_is_done_by_eight_threads_at_once(self):
        results = []

        def work(name):
            os.mkdir(self.path(name))
            for _ in range(10):
                results.append(real_work(self.path(name)))

        threads = [threading.Thread(target=work, args=(str(i),)) for i in range(8)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()

        self.assertEqual(results, [WORKED] * 80)

    def test_goes_on_while_a_call_waits(self):
        os.mkfifo(self.path("pipe"))
        read = []
        reader = threading.Thread(target=lambda: read.append(FileReader._readAllTextPath(self.path("pipe"))))

        reader.start()  # waits, without the global lock, until somebody opens the pipe for writing
        with open(self.path("pipe"), "w") as pipe:
            pipe.write("passed through")
        reader.join()

        self.assertEqual(read, ["passed through"])

    def test_is_done_with_a_collection_in_every_operation(self):
        if "QUEN_IO_COLLECT" in os.environ:
            self.skipTest("this is it")
        environment = os.environ | {"QUEN_IO_COLLECT": "1"}
        tests = ["Work.test_is_done", "Finalizers", "Paths", "Bytes", "Exceptions"]

        done = subprocess.run(
            [sys.executable, __file__, *tests], env=environment, capture_output=True, text=True, timeout=300
        )

        self.assertEqual(done.returncode, 0, done.stderr)


class Finalizers(Scratch):
    def test_may_call_entry_points_in_the_middle_of_a_call(self):
        self.addCleanup(gc.set_threshold, *gc.get_threshold())
        gc.set_threshold(0)  # no collection but those that are asked for
        for i in range(50):
            Closing(self.path(str(i)))
        if "QUEN_IO_COLLECT" not in os.environ:
            gc.collect()

        with self.assertRaisesRegex(OSError, "^Cannot open file$"):
            FileReader._readAllTextPath("/nowhere")
        names = FolderPath._listNamesNative(self.folder)
        Path("a/../b").normalize()

        self.assertEqual(len(names), 50)
        self.assertEqual({self.contents(name) for name in names}, {b"written"})


def resident_kib():
    with open("/proc/self/status") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS:"))


def mixed_calls(count, folder):
    """One of everything that makes objects, `count` times in all."""
    path, array = FolderPath(f"{folder}/a/../b"), bytearray(100)
    FileWriter._writePath(f"{folder}/text", "text" * 100)
    for _ in range(count // 5):
        path.normalize()
        path.resolve("name")
        FolderPath._listNamesNative(folder)
        FileInputStream._readBytesPath(f"{folder}/text", 0, array, 100)
        try:
            FileReader._readAllTextPath("/nowhere")
        except OSError:
            pass


class Memory(Scratch):
    def test_is_bounded(self):
        mixed_calls(10_000, self.folder)
        before = resident_kib()

        mixed_calls(50_000, self.folder)

        self.assertLess(resident_kib() - before, 2_048)


if __name__ == "__main__":
    unittest.main()
