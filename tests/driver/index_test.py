"""quen-io index: the published index, the messages, and errors of single entries."""

import glob
import json
import os
import re
import resource
import shlex
import shutil
import signal
import subprocess
import unittest
from pathlib import Path

import hostile_tree
from support import (
    DRIVER,
    ERASE_LINE,
    DriverTest,
    Terminal,
    is_sanitized,
    on_a_terminal,
    run,
    run_unprivileged,
)


class IndexTest(DriverTest):
    def setUp(self):
        super().setUp()
        self.tree = self.new_folder("tree")
        self.output = self.scratch / "index.jsonl"

    def index(self, *arguments, status=0):
        result = run("index", self.tree, "--output", self.output, *arguments)
        self.assertEqual((result.stderr.decode(), result.returncode), ("", status))
        return self.published(), result.stdout.decode()

    def assert_entries(self, entries, expected):
        """Compares the entries without their times."""
        self.assertEqual(
            [{key: value for key, value in entry.items() if key != "modified_ms"} for entry in entries],
            expected,
        )

    def published(self):
        return [json.loads(line) for line in self.output.read_bytes().splitlines()]

    def nothing_else_in_scratch(self):
        self.assertEqual(sorted(os.listdir(self.scratch)), ["tree"])


def summary(output):
    """The numbers of the summary by their labels."""
    return {
        label: int(number)
        for label, number in re.findall(r"^ *([A-Za-z][A-Za-z0-9 -]*?) {2,}(\d+)(?: .*)?$", output, re.M)
    }


class Contents(IndexTest):
    def test_has_a_header_and_a_line_for_each_entry(self):
        self.file("tree/b/c.txt", b"text")
        self.file("tree/a", b"ab\xff")
        (self.tree / "link").symlink_to("nowhere")
        os.mkfifo(self.tree / "pipe")

        (header, *entries), _ = self.index("--max-text-bytes", "3")

        self.assertEqual(
            header,
            {
                "format": "quen-io-index",
                "version": 1,
                "root": str(self.tree),
                "entries": 6,
                "max_text_bytes": 3,
            },
        )
        for entry in entries:
            self.assertEqual("modified_ms" in entry, entry["kind"] != "link")
        self.assert_entries(
            entries,
            [
                {"path": ".", "kind": "folder", "size": 0},
                {
                    "path": "a",
                    "kind": "file",
                    "size": 3,
                    "text": "not utf-8",
                    "fault": "File is not valid UTF-8 at byte 2",
                    "fault_byte": 2,
                },
                {"path": "b", "kind": "folder", "size": 0},
                {"path": "b/c.txt", "kind": "file", "size": 4, "text": "not read"},
                {"path": "link", "kind": "link", "target": "nowhere"},
                {"path": "pipe", "kind": "other", "size": 0},
            ],
        )

    def test_is_the_same_bytes_again_for_an_unchanged_tree(self):
        for number in range(300):
            # Whole milliseconds: Path.lastModified is off by one for some of them, depending on timing.
            os.utime(self.file(f"tree/{number // 50}/{number}", b"text"), ns=(0, number * 10**6))
        self.index()
        first = self.output.read_bytes()

        for _ in range(5):
            self.index()
            self.assertEqual(self.output.read_bytes(), first)

    def test_has_the_times_of_the_system(self):
        times = [0, 1, 999_999, 1_000_000, 1_234_567_890_123_456_789, -1, -1_500_000, -(10**15)]
        for number, time_ in enumerate(times):
            os.utime(self.file(f"tree/{number}"), ns=(0, time_))

        (_, _, *entries), _ = self.index()

        self.assertEqual(
            [entry["modified_ms"] for entry in entries],
            [int(abs(time_) // 10**6 * (1 if time_ >= 0 else -1)) for time_ in times],
        )

    def test_names_are_kept_without_loss(self):
        hostile_tree.build(os.fsencode(self.tree))

        (_, *entries), _ = self.index()

        shown = self.output.read_bytes().decode()
        self.assertNotRegex(shown, "[\x00-\x09\x0b-\x1f\x7f-\x9f\u202e]")
        self.assertIn("schöne Größe \U0001f600", shown)
        names = {
            bytes.fromhex(entry["path_hex"]) if "path_hex" in entry else entry["path"].encode()
            for entry in entries
        }
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

    def test_targets_of_links_are_kept_without_loss(self):
        for number, target in enumerate([b"../x", "Grüße".encode(), b"bad \xff", b"new\nline"]):
            os.symlink(target, self.tree / str(number))

        (_, _, *links), _ = self.index()

        self.assertEqual([link["target"] for link in links], ["../x", "Grüße", "bad \ufffd", "new\nline"])
        self.assertEqual([link.get("target_hex") for link in links], [None, None, b"bad \xff".hex(), None])

    def test_goes_to_the_current_directory_by_default(self):
        result = run("index", "tree", cwd=self.scratch)

        self.assertEqual(result.returncode, 0)
        self.assertIn(b'index in "quen-io-index.jsonl"', result.stdout)
        self.assertEqual(sorted(os.listdir(self.scratch)), ["quen-io-index.jsonl", "tree"])

    def test_replaces_an_older_index(self):
        self.output.write_text("old")
        self.index()
        self.assertEqual(self.published()[0]["entries"], 1)

    def test_goes_to_standard_output_and_the_summary_to_standard_error(self):
        self.file("tree/a", b"text")
        self.index()

        result = run("index", self.tree, "-o", "-")

        self.assertEqual(result.stdout, self.output.read_bytes())
        self.assertEqual(summary(result.stderr.decode())["entries"], 2)
        self.assertEqual(result.returncode, 0)

    def test_says_nothing_when_it_is_to_be_quiet(self):
        for output, stdout in (self.output, b""), ("-", None):
            with Terminal(
                "index",
                self.tree,
                "-o",
                output,
                "--quiet",
                streams={"stdout": subprocess.PIPE},
                env=on_a_terminal(),
            ) as terminal:
                self.assertEqual(terminal.finish(), 0)
                printed = terminal.process.stdout.read()
                terminal.process.stdout.close()
            self.assertEqual(terminal.shown, b"")
            self.assertEqual(printed, self.output.read_bytes() if stdout is None else stdout)

    def test_sizes_at_the_bound_are_read(self):
        for size in (9, 10, 11):
            self.file(f"tree/{size}", b"x" * size)
        (_, _, *entries), _ = self.index("--max-text-bytes", "10")
        self.assertEqual(
            {entry["path"]: entry["text"] for entry in entries},
            {"9": "utf-8", "10": "utf-8", "11": "not read"},
        )


def traced(log, calls, *options):
    return ["strace", "-f", "-qq", "-o", log, "-e", f"trace={calls}", *options]


def without_leak_check():
    """LeakSanitizer does not work under strace (ptrace)."""
    return {**os.environ, "ASAN_OPTIONS": "detect_leaks=0"}


class Selection(IndexTest):
    """Entries are left out by pattern, depth and file system."""

    def setUp(self):
        super().setUp()
        for name in ("a.o", "a.txt", "build/b.o", "src/build/c", "src/d.txt", "[a,b]"):
            self.file(f"tree/{name}")

    def paths(self, *arguments):
        (header, *entries), _ = self.index(*arguments)
        self.assertEqual(header["entries"], len(entries))
        return [entry["path"] for entry in entries]

    def test_patterns_without_a_slash_are_for_names(self):
        self.assertEqual(
            self.paths("--exclude", "*.o", "--exclude", "build"), [".", "[a,b]", "a.txt", "src", "src/d.txt"]
        )

    def test_patterns_with_a_slash_are_for_paths(self):
        self.assertEqual(
            self.paths("--exclude", "src/build", "--exclude=*/b.o"),
            [".", "[a,b]", "a.o", "a.txt", "build", "src", "src/d.txt"],
        )

    def test_a_pattern_is_one_word(self):
        self.assertEqual(self.paths("--exclude", "[a-z]*", "--exclude", "\\[a,b]"), ["."])

    def test_depth_is_counted_from_the_folder(self):
        self.assertEqual(self.paths("--max-depth", "0"), ["."])
        self.assertEqual(self.paths("--max-depth", "1"), [".", "[a,b]", "a.o", "a.txt", "build", "src"])
        self.assertEqual(len(self.paths("--max-depth", "2")), 9)

    def test_stands_in_the_header(self):
        (header, *_), _ = self.index("--exclude", "*.o", "--max-depth", "2", "--one-file-system")

        self.assertEqual(header["excluded"], [{"pattern": "*.o"}])
        self.assertEqual((header["max_depth"], header["one_file_system"]), (2, True))

    def test_another_file_system_is_an_entry_without_contents(self):
        def below_proc(*options):
            self.assertIn(
                run(
                    "index", "/", "-o", self.output, "--max-depth", "2", "--exclude", "proc/[0-9]*", *options
                ).returncode,
                (0, 1),
            )
            return [
                entry["path"] for entry in self.published()[1:] if (entry["path"] + "/").startswith("proc/")
            ]

        self.assertIn("proc/meminfo", below_proc())
        self.assertEqual(below_proc("--one-file-system"), ["proc"])


class Endless(IndexTest):
    """Files of size 0 in /proc, which may be endless or block."""

    @unittest.skipUnless(shutil.which("strace"), "no strace here")
    def test_a_file_that_claims_no_bytes_is_not_opened(self):
        empty = self.file("tree/empty")
        trace = self.scratch / "trace"
        result = subprocess.run(
            [*traced(trace, "open,openat"), DRIVER, "index", self.tree, "-o", self.output],
            capture_output=True,
            env=without_leak_check(),
        )

        self.assertEqual((result.stderr, result.returncode), (b"", 0))
        self.assertIn(f'"{self.tree}"', trace.read_text())
        self.assertNotIn(str(empty), trace.read_text())

    @unittest.skipIf(is_sanitized(), "a sanitizer takes memory of its own")
    def test_the_files_of_the_system_are_indexed_in_bounded_memory(self):
        bound = 512 << 20
        result = subprocess.run(
            [DRIVER, "index", "/proc", "-o", self.output, "--exclude", "[0-9]*"],
            capture_output=True,
            timeout=300,
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (bound, bound)),
        )

        self.assertEqual(result.stderr, b"")
        self.assertIn(result.returncode, (0, 1))
        kinds = {entry["path"]: entry["kind"] for entry in self.published()[1:]}
        self.assertEqual(kinds["meminfo"], "file")

    @unittest.skipIf(is_sanitized(), "a sanitizer takes memory of its own")
    def test_a_file_that_gives_more_than_it_claims_is_read_in_bounded_memory(self):
        lying = self.file("tree/lying", b"0123456789")
        bound = 512 << 20
        result = subprocess.run(
            [DRIVER, "index", self.tree, "-o", self.output],
            capture_output=True,
            timeout=300,
            env={
                **os.environ,
                "LD_PRELOAD": os.environ["QUEN_IO_BLOCKING_CALLS"],
                "QUEN_IO_ENDLESS": str(lying),
            },
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (bound, bound)),
        )

        self.assertEqual((result.stderr, result.returncode), (b"", 0))
        entry = self.published()[-1]
        self.assertEqual((entry["size"], entry["text"]), (10, "utf-8"))


class Order(IndexTest):
    @unittest.skipUnless(shutil.which("strace"), "no strace here")
    def test_folders_are_read_in_the_order_of_the_index(self):
        names = [f"{number:02}/file" for number in range(40)]
        for name in names:
            self.file(f"tree/{name}", b"x")
        trace = self.scratch / "trace"
        subprocess.run(
            [*traced(trace, "open,openat"), DRIVER, "index", self.tree, "-o", self.output],
            check=True,
            capture_output=True,
            env=without_leak_check(),
        )

        opened = re.findall(r"tree/(\d\d/file)", trace.read_text())
        self.assertEqual(sorted(opened), names)
        # Each of at most eight threads may still be reading one file.
        far = [name for place, name in enumerate(opened) if abs(place - names.index(name)) > 8]
        self.assertLessEqual(len(far), 8)


class Summary(IndexTest):
    def test_counts(self):
        self.file("tree/folder/good", b"good")
        self.file("tree/bad", b"\xff")
        self.file("tree/large", b"x" * 100)
        (self.tree / "link").symlink_to("bad")
        os.mkfifo(self.tree / "pipe")

        _, output = self.index("--max-text-bytes", "50")

        self.assertEqual(
            summary(output),
            {
                "entries": 7,
                "files": 3,
                "folders": 2,
                "links": 1,
                "other": 1,
                "missing": 0,
                "bytes": 105,
                "valid UTF-8": 1,
                "not UTF-8": 1,
                "not read": 1,
                "unreadable": 0,
            },
        )
        self.assertRegex(output, r"(?m)^elapsed +\d+\.\d\d s$")
        self.assertTrue(output.endswith(f'index in "{self.output}"\n'))

    def test_a_pipe_sees_no_progress(self):
        result = run("index", self.tree, "-o", self.output)
        self.assertEqual(result.stderr, b"")
        self.assertNotIn(b"\r", result.stdout)
        self.assertNotIn(b"\x1b", result.stdout)

    def test_a_terminal_sees_progress_and_no_trace_of_it_in_the_end(self):
        with Terminal(
            "index", self.tree, "-o", self.output, streams={"stdout": subprocess.DEVNULL}, env=on_a_terminal()
        ) as terminal:
            self.assertEqual(terminal.finish(), 0)

        self.assertEqual(terminal.shown, ERASE_LINE + b"1 entries, 0 B, ." + ERASE_LINE)

    def test_progress_keeps_to_the_width_of_the_terminal(self):
        with Terminal(
            "index",
            self.tree,
            "-o",
            self.output,
            columns=10,
            streams={"stdout": subprocess.DEVNULL},
            env=on_a_terminal(),
        ) as terminal:
            self.assertEqual(terminal.finish(), 0)

        self.assertEqual(terminal.shown, ERASE_LINE + b"1 entries" + ERASE_LINE)


class Unreadable(IndexTest):
    """Entries without read permission, as an unprivileged user."""

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
        self.file("tree/with \x1b", b"x")
        self.file("tree/zoo", b"x")
        self.close(self.tree / "closed", 0)
        self.close(self.tree / "listed", 0o444)
        self.close(self.tree / "secret", 0)
        self.close(self.tree / "with \x1b", 0)

        result = self.index_unprivileged()

        self.assertEqual((result.stderr, result.returncode), (b"", 1))
        header, *entries = self.published()
        self.assertEqual(header["entries"], 7)
        self.assert_entries(
            entries,
            [
                {"path": ".", "kind": "folder", "size": 0},
                {
                    "path": "closed",
                    "kind": "folder",
                    "size": 0,
                    "error": "Cannot open file: Permission denied",
                },
                {"path": "listed", "kind": "folder", "size": 0},
                {"path": "listed/inside", "kind": "missing", "error": "Cannot access: Permission denied"},
                {
                    "path": "secret",
                    "kind": "file",
                    "size": 1,
                    "text": "not read",
                    "error": "Cannot open file: Permission denied",
                },
                {
                    "path": "with \x1b",
                    "kind": "file",
                    "size": 1,
                    "text": "not read",
                    "error": "Cannot open file: Permission denied",
                },
                {"path": "zoo", "kind": "file", "size": 1, "text": "utf-8"},
            ],
        )
        output = result.stdout.decode()
        self.assertEqual(summary(output)["unreadable"], 4)
        self.assertEqual(summary(output)["missing"], 1)
        self.assertIn('  "closed": Cannot open file: Permission denied\n', output)
        self.assertIn('  "with \\x1b": Cannot open file: Permission denied\n', output)

    def test_is_named_ten_times_and_counted_beyond(self):
        for number in range(12):
            self.close(self.file(f"tree/{number:02}", b"x"), 0)

        output = self.index_unprivileged().stdout.decode()

        self.assertEqual(output.count(": Cannot open file: Permission denied\n"), 10)
        self.assertIn("\n  and 2 more\n", output)

    def test_an_empty_folder_that_may_be_read_is_well(self):
        (self.tree / "empty").mkdir()
        self.assertEqual(self.index_unprivileged().returncode, 0)

    def test_a_root_that_may_not_be_read_gives_no_index(self):
        self.file("tree/a")
        self.close(self.tree, 0)

        result = self.index_unprivileged()

        self.assertEqual(result.stderr, b'quen-io: cannot walk "tree": Cannot open file: Permission denied\n')
        self.assertEqual((result.stdout, result.returncode), (b"", 3))
        self.assertFalse(self.output.exists())

    def test_an_output_that_may_not_be_written(self):
        self.close(self.place, 0o555)

        result = self.index_unprivileged()

        self.assertEqual(
            result.stderr.decode(),
            f'quen-io: "{self.output}": ' "Cannot create temporary document index: Permission denied\n",
        )
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
        self.assertEqual(
            [entry["error"] for entry in entries if "error" in entry], ["Cannot access: File name too long"]
        )


class Failures(IndexTest):
    def test_a_folder_that_there_is_not(self):
        missing = self.scratch / "mis\x1bsing"
        self.assert_fails(["index", missing], 3, f'quen-io: no such folder: "{self.scratch}/mis\\x1bsing"')
        self.assert_fails(["index", ""], 3, 'quen-io: no such folder: ""')
        self.nothing_else_in_scratch()

    def test_a_folder_that_is_none(self):
        path = self.file("tree/file")
        self.assert_fails(["index", path, "-o", self.output], 3, f'quen-io: not a folder: "{path}"')
        self.nothing_else_in_scratch()

    def test_an_output_that_cannot_be_published(self):
        self.assert_fails(
            ["index", self.tree, "-o", self.scratch / "no/folder"],
            3,
            f'quen-io: "{self.scratch}/no/folder": '
            "Cannot create temporary document index: No such file or directory",
        )
        self.assert_fails(
            ["index", self.tree, "-o", ""], 3, 'quen-io: "": Document index path and content are required'
        )
        self.nothing_else_in_scratch()

    def test_an_output_that_is_no_regular_file(self):
        pipe = self.scratch / "tree/pipe"
        os.mkfifo(pipe)
        link = self.scratch / "tree/link"
        link.symlink_to("/dev/null")
        for output in (self.tree, pipe, link, "/dev/null", "/dev/stdout"):
            with self.subTest(output):
                self.assert_fails(
                    ["index", self.tree, "-o", output], 3, f'quen-io: not a regular file: "{output}"'
                )
        self.assertTrue(pipe.is_fifo() and link.is_symlink())
        self.assertTrue(os.path.exists("/dev/null") and not os.path.isfile("/dev/null"))
        self.nothing_else_in_scratch()

    def test_an_older_index_keeps_its_permissions(self):
        for mode in (0o600, 0o640, 0o666, 0o755, 0o400):
            with self.subTest(oct(mode)):
                self.output.write_text("old")
                self.output.chmod(mode)
                self.index()
                self.assertEqual(self.output.stat().st_mode & 0o777, mode)
                self.output.unlink()
        self.index()
        umask = os.umask(0)
        os.umask(umask)
        self.assertEqual(self.output.stat().st_mode & 0o777, 0o666 & ~umask)


class Interrupts(IndexTest):
    """The signal terminates the process, so that a shell ends its loop, and no partial index is left."""

    SAID = b"quen-io: interrupted, no index published\n"

    def setUp(self):
        super().setUp()
        self.output.write_text("old")
        self.slow = self.file("tree/slow", b"x")
        self.command = [DRIVER, "index", self.tree, "-o", self.output]

    def blocked(self, path=None):
        """The environment in which reading or writing the file blocks or never ends."""
        return on_a_terminal(
            LD_PRELOAD=os.environ["QUEN_IO_BLOCKING_CALLS"],
            QUEN_IO_BLOCKED=str(path or self.slow),
            ASAN_OPTIONS="verify_asan_link_order=0",
        )

    def start(self, **options):
        return subprocess.Popen(
            self.command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **{"env": self.blocked(), **options}
        )

    def process_with(self, path):
        """Starts the driver and waits until it has opened the file."""
        for _ in range(100_000):
            for link in glob.glob("/proc/[0-9]*/fd/*"):
                try:
                    if os.readlink(link) == str(path):
                        return int(link.split("/")[2])
                except OSError:  # closed meanwhile, or of another process
                    pass
        raise AssertionError(f"nobody opens {path}")

    def assert_whole(self):
        self.assertEqual(self.output.read_text(), "old")
        self.assertEqual(sorted(os.listdir(self.scratch)), ["index.jsonl", "tree"])

    def test_ends_within_a_file_and_publishes_nothing(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(number), self.start() as process:
                os.kill(self.process_with(self.slow), number)
                self.assertEqual(process.communicate(timeout=60), (b"", self.SAID))
                self.assertEqual(process.returncode, -number)
                self.assert_whole()

    def test_ends_within_a_publication_and_removes_its_temporary(self):
        temporary = Path(f"{self.output}.tmp-1")
        with self.start(env=self.blocked(temporary)) as process:
            os.kill(self.process_with(temporary), signal.SIGINT)
            self.assertEqual(process.communicate(timeout=60), (b"", self.SAID))
        self.assertEqual(process.returncode, -signal.SIGINT)
        self.assert_whole()

    def test_ends_a_loop_of_the_shell(self):
        words = shlex.join(map(str, self.command))
        with subprocess.Popen(
            ["bash", "-c", f"for i in 1 2; do {words}; echo next; done"],
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            start_new_session=True,
            env=self.blocked(),
        ) as shell:
            self.process_with(self.slow)
            os.killpg(shell.pid, signal.SIGINT)  # as the terminal does
            self.assertEqual(shell.communicate(timeout=60), (b"", self.SAID))
        self.assertEqual(shell.returncode, -signal.SIGINT)

    def test_a_terminal_is_told_in_place_of_the_progress(self):
        with Terminal(
            command=self.command, streams={"stdout": subprocess.DEVNULL}, env=self.blocked()
        ) as terminal:
            terminal.wait_for(b"1 entries")
            os.kill(self.process_with(self.slow), signal.SIGINT)
            self.assertEqual(terminal.finish(), -signal.SIGINT)
        self.assertTrue(terminal.shown.endswith(ERASE_LINE + self.SAID.replace(b"\n", b"\r\n")))

    def test_a_stopped_terminal_keeps_nothing_from_ending(self):
        with Terminal(command=self.command, held=True, env=self.blocked()) as terminal:
            os.kill(self.process_with(self.slow), signal.SIGTERM)
            self.assertEqual(terminal.process.wait(timeout=60), -signal.SIGTERM)
        self.assert_whole()

    def test_a_signal_that_is_ignored_stays_so(self):
        with self.start(preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN)) as process:
            pid = self.process_with(self.slow)
            status = Path(f"/proc/{pid}/status").read_text()
            os.kill(pid, signal.SIGINT)
            process.communicate(timeout=60)
        self.assertEqual(process.returncode, -signal.SIGINT)
        ignored, caught = (
            int(re.search(rf"{name}:\s*(\w+)", status)[1], 16) for name in ("SigIgn", "SigCgt")
        )
        self.assertTrue(ignored >> (signal.SIGHUP - 1) & 1)
        self.assertFalse(caught >> (signal.SIGHUP - 1) & 1)
        self.assertTrue(caught >> (signal.SIGINT - 1) & 1)


class Memory(IndexTest):
    @unittest.skipIf(is_sanitized(), "a sanitizer takes memory of its own")
    def test_does_not_grow_with_the_bytes_read(self):
        for number in range(32):
            with open(self.tree / str(number), "wb") as file:
                file.truncate(4 << 20)  # zeros, which are valid UTF-8

        bound = 96 << 20
        result = subprocess.run(
            [DRIVER, "index", self.tree, "-o", self.output],
            capture_output=True,
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (bound, bound)),
        )

        self.assertEqual((result.stderr, result.returncode), (b"", 0))
        self.assertEqual(summary(result.stdout.decode())["valid UTF-8"], 32)
        self.assertEqual(summary(result.stdout.decode())["bytes"], 32 * (4 << 20))


if __name__ == "__main__":
    unittest.main()
