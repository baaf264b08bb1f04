#!/usr/bin/env python3
"""quen-io check: one line for each file that fails, and the exit status."""

import os
import socket
import subprocess
import unittest

from support import DRIVER, ERASE_LINE, DriverTest, Terminal, run, run_unprivileged


class Check(DriverTest):
    def test_of_good_files_says_nothing(self):
        files = [
            self.file("a.txt", "h\u00e9llo".encode()),
            self.file("b.toml", b"a = 1\n"),
            self.file("nul.txt", b"a\0b"),
            self.file("empty"),
        ]

        self.assert_output(["check", *files], "")

    def test_tells_each_file_that_fails_and_why(self):
        text = self.file("bad.txt", b"abc\x80")
        both = self.file("both.toml", b"\x80bc\0")
        toml = self.file("bad.toml", b"a\xc3")
        good = self.file("good.toml", b"")

        result = run("check", text, both, good, toml)

        self.assertEqual(
            result.stdout.decode().splitlines(),
            [
                f"{text}: File is not valid UTF-8 at byte 3",
                f"{both}: Raw U+0000 is not allowed in TOML input at byte 3",
                f"{toml}: TOML input is not valid UTF-8 at byte 1",
            ],
        )
        self.assertEqual(result.stderr, b"")
        self.assertEqual(result.returncode, 1)

    def test_tells_what_cannot_be_read_and_why(self):
        missing = self.scratch / "missing"

        result = run("check", missing)

        self.assertEqual(result.stdout.decode(), f"{missing}: Cannot open file: No such file or directory\n")
        self.assertEqual(result.returncode, 1)

    def test_tells_what_may_not_be_read(self):
        closed = self.file("closed")
        self.file("shut/file").parent.chmod(0)
        self.scratch.chmod(0o755)
        closed.chmod(0)

        result = run_unprivileged("check", closed, "shut", cwd=self.scratch)

        lines = result.stdout.decode().splitlines()
        self.assertEqual(lines[0], f"{closed}: Cannot open file: Permission denied")
        self.assertRegex(lines[1], "^shut: Cannot open file")
        self.assertEqual(result.returncode, 1)
        (self.scratch / "shut").chmod(0o755)

    def test_shows_no_name_raw(self):
        file = self.file("a\x1b[31m\n.txt", b"\xff")

        result = run("check", file)

        self.assertEqual(result.stdout.count(b"\n"), 1)
        self.assertNotIn(b"\x1b", result.stdout)
        self.assertEqual(result.returncode, 1)

    def test_shows_how_far_it_is_on_a_terminal_only(self):
        files = [self.file("a.txt"), self.file("b.txt", b"\xff")]

        with Terminal("check", *files) as terminal:
            self.assertEqual(terminal.finish(), 1)
            self.assertIn(ERASE_LINE, terminal.shown)
        self.assertNotIn(ERASE_LINE, run("check", *files).stderr)

    def test_without_a_file_is_wrong_usage(self):
        self.assert_fails(["check"], 2, "quen-io: FILE is missing (see --help)")


class Folders(DriverTest):
    def test_are_checked_with_all_that_is_below(self):
        self.file("tree/a.txt", b"\xff")
        self.file("tree/below/b.toml", b"a\0")
        self.file("tree/below/deeper/good", b"text")
        self.file("tree/empty")

        result = run("check", "tree", "tree/", ".", cwd=self.scratch)

        below = "below/b.toml: Raw U+0000 is not allowed in TOML input at byte 1"
        self.assertEqual(
            result.stdout.decode().splitlines(),
            [
                "tree/a.txt: File is not valid UTF-8 at byte 0",
                f"tree/{below}",
                "tree/a.txt: File is not valid UTF-8 at byte 0",
                f"tree/{below}",
                "./tree/a.txt: File is not valid UTF-8 at byte 0",
                f"./tree/{below}",
            ],
        )
        self.assertEqual(result.returncode, 1)

    def test_are_followed_as_operands_only(self):
        self.file("elsewhere/bad", b"\xff")
        tree = self.file("tree/good").parent
        (tree / "link").symlink_to("../elsewhere")
        (self.scratch / "root").symlink_to("elsewhere")

        self.assert_output(["check", tree], "")
        self.assertEqual(
            run("check", "root", cwd=self.scratch).stdout, b"root/bad: File is not valid UTF-8 at byte 0\n"
        )

    def test_what_may_block_in_there_is_left_out(self):
        os.mkfifo(self.file("tree/good").parent / "fifo")

        self.assert_output(["check", self.scratch / "tree"], "")

    def test_of_good_files_say_nothing(self):
        self.file("tree/good", b"text")

        self.assert_output(["check", self.scratch], "")


class StandardInput(DriverTest):
    def test_is_checked(self):
        self.assert_output(["check", "-"], "", input=b"text")
        self.assert_fails_with(b"-: File is not valid UTF-8 at byte 3\n", input=b"abc\xff")
        self.assert_fails_with(b"-: File is not valid UTF-8 at byte 100000\n", input=b"x" * 100_000 + b"\x80")

    def assert_fails_with(self, output, **options):
        result = run("check", "-", **options)
        self.assertEqual((result.stdout, result.stderr, result.returncode), (output, b"", 1))

    def test_is_checked_from_where_it_stands(self):
        with self.file("data", b"\xff\xff\xfftext").open("rb") as file:
            os.lseek(file.fileno(), 3, os.SEEK_SET)
            self.assert_output(["check", "-"], "", stdin=file)

    def test_may_be_a_socket(self):
        ours, theirs = socket.socketpair()
        with ours, theirs:
            ours.sendall(b"\xff")
            ours.shutdown(socket.SHUT_WR)
            self.assert_fails_with(b"-: File is not valid UTF-8 at byte 0\n", stdin=theirs)

    def test_that_cannot_be_read_fails_with_the_reason(self):
        self.assert_fails_with(
            b"-: Cannot read standard input: Bad file descriptor\n", preexec_fn=lambda: os.close(0)
        )


class Lists(DriverTest):
    def setUp(self):
        super().setUp()
        self.names = ["good", "bad\nname", "-", "folder/bad"]
        for name in self.names[1:]:
            self.file(name, b"\xff")
        self.file("good", b"text")
        self.told = [
            f"{name}: File is not valid UTF-8 at byte 0" for name in ("bad\\nname", "-", "folder/bad")
        ]

    def assert_told(self, result, told):
        self.assertEqual(result.stdout.decode().splitlines(), told)
        self.assertEqual((result.stderr, result.returncode), (b"", 1))

    def test_are_names_that_end_with_a_zero_byte(self):
        listed = "\0".join(self.names).encode()
        for option in ["-0"], ["--null"], ["--files0-from", "-"], ["--files0-from=-"]:
            for end in b"", b"\0":  # the terminator of the last name is optional
                with self.subTest(option, end=end):
                    self.assert_told(run("check", *option, input=listed + end, cwd=self.scratch), self.told)

    def test_may_be_in_a_file_or_a_pipe(self):
        listed = self.file("list", "\0".join(self.names).encode())

        self.assert_told(run("check", "--files0-from", listed, cwd=self.scratch), self.told)
        piped = subprocess.run(
            ["bash", "-c", '"$0" check --files0-from <(cat list)', DRIVER],
            cwd=self.scratch,
            capture_output=True,
        )
        self.assert_told(piped, self.told)

    def test_take_what_find_prints(self):
        found = subprocess.run(
            ["find", "folder", "-type", "f", "-print0"], cwd=self.scratch, capture_output=True, check=True
        ).stdout
        self.assert_told(run("check", "-0", input=found, cwd=self.scratch), [self.told[-1]])

    def test_tell_folders_and_empty_names(self):
        self.assert_told(
            run("check", "-0", input=b"folder\0\0good\0", cwd=self.scratch),
            ["folder: Path is a directory", ": Path is empty"],
        )

    def test_without_a_name_say_nothing(self):
        self.assert_output(["check", "-0"], "", input=b"")

    def test_that_cannot_be_read_are_an_error(self):
        self.assert_fails(
            ["check", "--files0-from", "missing"],
            2,
            'quen-io: cannot read "missing": No such file or directory',
            cwd=self.scratch,
        )
        self.assert_fails(
            ["check", "--files0-from", "folder"],
            2,
            'quen-io: cannot read "folder": Is a directory',
            cwd=self.scratch,
        )
        self.assert_fails(
            ["check", "-0"],
            2,
            "quen-io: cannot read the list on standard input",
            preexec_fn=lambda: os.close(0),
        )

    def test_do_not_go_with_operands(self):
        self.assert_fails(["check", "-0", "good"], 2, 'quen-io: not expected beside a list of files: "good"')


if __name__ == "__main__":
    unittest.main()
