"""quen-io index: what is published, what is said, and what goes wrong without stopping it."""

import json
import os
import re
import resource
import signal
import subprocess
import time
import unittest

import hostile_tree
from support import DRIVER, ERASE_LINE, DriverTest, Terminal, is_sanitized, run, run_unprivileged


class IndexTest(DriverTest):
    def setUp(self):
        super().setUp()
        self.tree = self.scratch / "tree"
        self.tree.mkdir()
        self.output = self.scratch / "index.jsonl"

    def index(self, *arguments, status=0):
        result = run("index", self.tree, "--output", self.output, *arguments)
        self.assertEqual((result.stderr.decode(), result.returncode), ("", status))
        return self.published(), result.stdout.decode()

    def published(self):
        return [json.loads(line) for line in self.output.read_bytes().splitlines()]

    def nothing_else_in_scratch(self):
        self.assertEqual(sorted(os.listdir(self.scratch)), ["tree"])


def summary(output):
    """The numbers of the summary by their labels."""
    return {label: int(number) for label, number in
            re.findall(r"^ *([A-Za-z][A-Za-z0-9 -]*?) {2,}(\d+)(?: .*)?$", output, re.M)}


class Contents(IndexTest):
    def test_has_a_header_and_a_line_for_each_entry(self):
        self.file("tree/b/c.txt", b"text")
        self.file("tree/a", b"ab\xff")
        (self.tree / "link").symlink_to("nowhere")
        os.mkfifo(self.tree / "pipe")

        (header, *entries), _ = self.index("--max-text-bytes", "3")

        self.assertEqual(header, {"format": "quen-io-index", "version": 1, "root": str(self.tree),
                                  "entries": 6, "max_text_bytes": 3})
        for entry in entries:
            self.assertEqual("modified_ms" in entry, entry["kind"] != "link")
            entry.pop("modified_ms", None)
        self.assertEqual(entries, [
            {"path": ".", "kind": "folder", "size": 0},
            {"path": "a", "kind": "file", "size": 3, "text": "not utf-8",
             "fault": "File is not valid UTF-8 at byte 2", "fault_byte": 2},
            {"path": "b", "kind": "folder", "size": 0},
            {"path": "b/c.txt", "kind": "file", "size": 4, "text": "not read"},
            {"path": "link", "kind": "link"},
            {"path": "pipe", "kind": "other", "size": 0},
        ])

    def test_is_the_same_again_for_an_unchanged_tree(self):
        self.file("tree/a/b", b"text")
        first, _ = self.index()
        second, _ = self.index()

        for entry in [*first, *second]:
            entry.pop("modified_ms", None)  # may be short by the moment between two clock readings
        self.assertEqual(second, first)

    def test_names_are_kept_without_loss(self):
        hostile_tree.build(os.fsencode(self.tree))

        (_, *entries), _ = self.index()

        self.assertTrue(self.output.read_bytes().replace(b"\n", b"").isascii())
        self.assertNotIn(b"\x1b", self.output.read_bytes())
        names = {bytes.fromhex(entry["path_hex"]) if "path_hex" in entry
                 else entry["path"].encode() for entry in entries}
        for name in hostile_tree.HOSTILE_NAMES:
            self.assertIn(b"names/" + name, names)
        by_text = {entry["path"]: entry for entry in entries}
        self.assertEqual(by_text["names/not \ufffd utf-8"]["path_hex"], b"names/not \xff utf-8".hex())
        self.assertNotIn("path_hex", by_text["names/new\nline"])

    def test_the_root_may_have_any_name(self):
        tree = os.path.join(os.fsencode(self.scratch), b"\xff\x1b")
        os.mkdir(tree)

        result = run("index", tree, "-o", self.output)

        self.assertEqual(result.returncode, 0)
        header = self.published()[0]
        self.assertEqual(bytes.fromhex(header["root_hex"]), tree)

    def test_the_root_may_be_a_link_and_end_in_slashes(self):
        self.file("tree/a/b")
        (self.scratch / "link").symlink_to("tree")
        for spelling in ("link", "link/", "tree//", "./tree/."):
            with self.subTest(spelling):
                run("index", spelling, "-o", self.output, cwd=self.scratch)
                header, *entries = self.published()
                self.assertEqual(header["root"], spelling)
                self.assertEqual([entry["path"] for entry in entries], [".", "a", "a/b"])
                self.assertEqual([entry["kind"] for entry in entries], ["folder", "folder", "file"])

    def test_goes_to_the_current_directory_by_default(self):
        result = run("index", "tree", cwd=self.scratch)

        self.assertEqual(result.returncode, 0)
        self.assertIn(b'index in "quen-io-index.jsonl"', result.stdout)
        self.assertEqual(sorted(os.listdir(self.scratch)), ["quen-io-index.jsonl", "tree"])

    def test_replaces_an_older_index(self):
        self.output.write_text("old")
        self.index()
        self.assertEqual(self.published()[0]["entries"], 1)

    def test_sizes_at_the_bound_are_read(self):
        for size in (9, 10, 11):
            self.file(f"tree/{size}", b"x" * size)
        (_, _, *entries), _ = self.index("--max-text-bytes", "10")
        self.assertEqual({entry["path"]: entry["text"] for entry in entries},
                         {"9": "utf-8", "10": "utf-8", "11": "not read"})


class Summary(IndexTest):
    def test_counts(self):
        self.file("tree/folder/good", b"good")
        self.file("tree/bad", b"\xff")
        self.file("tree/large", b"x" * 100)
        (self.tree / "link").symlink_to("bad")
        os.mkfifo(self.tree / "pipe")

        _, output = self.index("--max-text-bytes", "50")

        self.assertEqual(summary(output), {
            "entries": 7, "files": 3, "folders": 2, "links": 1, "other": 1, "missing": 0,
            "bytes": 105, "valid UTF-8": 1, "not UTF-8": 1, "not read": 1, "unreadable": 0})
        self.assertRegex(output, r"(?m)^elapsed +\d+\.\d\d s$")
        self.assertTrue(output.endswith(f'index in "{self.output}"\n'))

    def test_a_pipe_sees_no_progress(self):
        result = run("index", self.tree, "-o", self.output)
        self.assertEqual(result.stderr, b"")
        self.assertNotIn(b"\r", result.stdout)
        self.assertNotIn(b"\x1b", result.stdout)

    def test_a_terminal_sees_progress_and_no_trace_of_it_in_the_end(self):
        with Terminal("index", self.tree, "-o", self.output,
                      streams={"stdout": subprocess.DEVNULL}) as terminal:
            self.assertEqual(terminal.finish(), 0)

        self.assertEqual(terminal.shown, ERASE_LINE + b"1 entries, 0 B, ." + ERASE_LINE)

    def test_progress_keeps_to_the_width_of_the_terminal(self):
        with Terminal("index", self.tree, "-o", self.output, columns=10,
                      streams={"stdout": subprocess.DEVNULL}) as terminal:
            self.assertEqual(terminal.finish(), 0)

        self.assertEqual(terminal.shown, ERASE_LINE + b"1 entries" + ERASE_LINE)


class Unreadable(IndexTest):
    """What may not be read, for a user for whom permissions count."""

    def setUp(self):
        super().setUp()
        self.scratch.chmod(0o755)
        self.place = self.scratch / "place"
        self.place.mkdir()
        self.place.chmod(0o777)
        self.output = self.place / "index"

    def index_unprivileged(self):
        return run_unprivileged("index", "tree", "-o", self.output, cwd=self.scratch)

    def close(self, path, mode):
        path.chmod(mode)
        self.addCleanup(path.chmod, 0o755)

    def test_is_reported_and_stops_nothing(self):
        self.file("tree/closed/inside")
        self.file("tree/listed/inside")
        self.file("tree/secret", b"x")
        self.file("tree/with \x1b")
        self.file("tree/zoo", b"x")
        self.close(self.tree / "closed", 0)
        self.close(self.tree / "listed", 0o444)
        self.close(self.tree / "secret", 0)
        self.close(self.tree / "with \x1b", 0)

        result = self.index_unprivileged()

        self.assertEqual((result.stderr, result.returncode), (b"", 1))
        header, *entries = self.published()
        self.assertEqual(header["entries"], 7)
        for entry in entries:
            entry.pop("modified_ms", None)
        self.assertEqual(entries, [
            {"path": ".", "kind": "folder", "size": 0},
            {"path": "closed", "kind": "folder", "size": 0, "error": "Cannot open file"},
            {"path": "listed", "kind": "folder", "size": 0},
            {"path": "listed/inside", "kind": "missing", "error": "Cannot access"},
            {"path": "secret", "kind": "file", "size": 1, "text": "not read",
             "error": "Cannot open file"},
            {"path": "with \x1b", "kind": "file", "size": 0, "text": "not read",
             "error": "Cannot open file"},
            {"path": "zoo", "kind": "file", "size": 1, "text": "utf-8"},
        ])
        output = result.stdout.decode()
        self.assertEqual(summary(output)["unreadable"], 4)
        self.assertEqual(summary(output)["missing"], 1)
        self.assertIn('  "closed": Cannot open file\n', output)
        self.assertIn('  "with \\x1b": Cannot open file\n', output)

    def test_is_named_ten_times_and_counted_beyond(self):
        for number in range(12):
            self.close(self.file(f"tree/{number:02}"), 0)

        output = self.index_unprivileged().stdout.decode()

        self.assertEqual(output.count(": Cannot open file\n"), 10)
        self.assertIn("\n  and 2 more\n", output)

    def test_an_empty_folder_that_may_be_read_is_well(self):
        (self.tree / "empty").mkdir()
        self.assertEqual(self.index_unprivileged().returncode, 0)

    def test_a_root_that_may_not_be_read_gives_no_index(self):
        self.file("tree/a")
        self.close(self.tree, 0)

        result = self.index_unprivileged()

        self.assertEqual(result.stderr, b'quen-io: cannot walk "tree": Cannot open file\n')
        self.assertEqual((result.stdout, result.returncode), (b"", 3))
        self.assertFalse(self.output.exists())

    def test_an_output_that_may_not_be_written(self):
        self.close(self.place, 0o555)

        result = self.index_unprivileged()

        self.assertEqual(result.stderr.decode(), f'quen-io: "{self.output}": '
                         "Cannot create temporary document index\n")
        self.assertEqual((result.stdout, result.returncode), (b"", 3))

    def test_paths_beyond_what_the_system_takes_stop_nothing(self):
        here = os.open(self.tree, os.O_RDONLY)
        for _ in range(20):  # of 250 bytes each: 16 of them fit
            os.mkdir("d" * 250, dir_fd=here)
            below = os.open("d" * 250, os.O_RDONLY, dir_fd=here)
            os.close(here)
            here = below
        os.close(here)
        self.file("tree/zoo", b"x")

        result = self.index_unprivileged()

        self.assertEqual((result.stderr, result.returncode), (b"", 1))
        header, *entries = self.published()
        self.assertEqual(entries[-1]["path"], "zoo")
        self.assertEqual([entry["kind"] for entry in entries[:2]], ["folder", "folder"])
        self.assertEqual([entry["error"] for entry in entries if "error" in entry],
                         ["Cannot access"])


class Failures(IndexTest):
    def test_a_folder_that_there_is_not(self):
        missing = self.scratch / "mis\x1bsing"
        self.assert_fails(["index", missing], 3,
                          f'quen-io: no such folder: "{self.scratch}/mis\\x1bsing"')
        self.assert_fails(["index", ""], 3, 'quen-io: no such folder: ""')
        self.nothing_else_in_scratch()

    def test_a_folder_that_is_none(self):
        path = self.file("tree/file")
        self.assert_fails(["index", path, "-o", self.output], 3, f'quen-io: not a folder: "{path}"')
        self.nothing_else_in_scratch()

    def test_an_output_that_cannot_be_published(self):
        self.assert_fails(["index", self.tree, "-o", self.scratch / "no/folder"], 3,
                          f'quen-io: "{self.scratch}/no/folder": '
                          "Cannot create temporary document index")
        self.assert_fails(["index", self.tree, "-o", ""], 3,
                          'quen-io: "": Document index path and content are required')
        self.assert_fails(["index", self.tree, "-o", self.tree], 3, f'quen-io: "{self.tree}": '
                          "Cannot atomically publish document index")
        self.nothing_else_in_scratch()

    def test_an_interrupt_publishes_nothing(self):
        self.output.write_text("old")
        with Terminal("index", self.tree, "-o", self.output, held=True) as terminal:
            wait_until_caught(terminal.process.pid, signal.SIGINT)  # in front of a held terminal
            terminal.process.send_signal(signal.SIGINT)
            terminal.release()

            self.assertEqual(terminal.finish(), 130)
            self.assertTrue(terminal.shown.endswith(
                ERASE_LINE + b"quen-io: interrupted, no index published\r\n"))
        self.assertEqual(self.output.read_text(), "old")
        self.assertEqual(sorted(os.listdir(self.scratch)), ["index.jsonl", "tree"])


def wait_until_caught(pid, number):
    """Returns as soon as the process has a handler for the signal."""
    caught = 0
    while not caught >> (number - 1) & 1:
        with open(f"/proc/{pid}/status", encoding="ascii") as status:
            text = status.read()
        if re.search(r"^State:\s*Z", text, re.MULTILINE):
            raise AssertionError("the process has ended")
        caught = int(re.search(r"SigCgt:\s*(\w+)", text)[1], 16)
        time.sleep(0.001)


class Memory(IndexTest):
    @unittest.skipIf(is_sanitized(), "a sanitizer takes memory of its own")
    def test_does_not_grow_with_the_bytes_read(self):
        for number in range(32):
            with open(self.tree / str(number), "wb") as file:
                file.truncate(4 << 20)  # zeros, which are valid UTF-8

        bound = 96 << 20
        result = subprocess.run(
            [DRIVER, "index", self.tree, "-o", self.output], capture_output=True,
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (bound, bound)))

        self.assertEqual((result.stderr, result.returncode), (b"", 0))
        self.assertEqual(summary(result.stdout.decode())["valid UTF-8"], 32)
        self.assertEqual(summary(result.stdout.decode())["bytes"], 32 * (4 << 20))


if __name__ == "__main__":
    unittest.main()
