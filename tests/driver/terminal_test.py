"""Colours and bold text: only on terminals that support them."""

import subprocess
import unittest

from support import DriverTest, Terminal, on_a_terminal, run

PLAIN = "\x1b[0m"


def bold(text):
    return f"\x1b[1m{text}{PLAIN}"


def dim(text):
    return f"\x1b[2m{text}{PLAIN}"


def failure(text):
    return f"\x1b[1;31m{text}{PLAIN}"


class Styles(DriverTest):
    def shown(self, *arguments, status=0, streams=None, **environment):
        """The output on the terminal, with the driver's line endings."""
        with Terminal(*arguments, streams=streams, env=on_a_terminal(**environment)) as terminal:
            self.assertEqual(terminal.finish(), status)
            return terminal.shown.replace(b"\r\n", b"\n").decode()


class OnATerminal(Styles):
    def test_the_class_of_an_exception_stands_out(self):
        self.assertEqual(
            self.shown("call", "_readAllTextPath", self.scratch / "no", status=1),
            f"{failure('IOException')}: Cannot open file\n",
        )

    def test_results_are_plain(self):
        self.assertEqual(self.shown("call", "_normalizePath", "a"), '"a"\n')

    def test_wrong_usage_is_plain(self):
        self.assertNotIn("\x1b", self.shown("call", "normalize", status=2))

    def test_a_trace_is_dim_but_for_the_names_of_operations(self):
        self.assertEqual(
            self.shown("call", "--trace", "Path.get.exists", "path:/"),
            "Quen_filePathFromObject" + dim('(Path "/") -> "/"') + "\n"
            "Quen_runtimeFsPath" + dim('("/")') + "\n"
            "Quen_pathExists" + dim('("/") -> true') + "\n"
            "true\n",
        )

    def test_names_of_entry_points_are_bold(self):
        lines = run("list").stdout.decode().splitlines()
        lines[::3] = map(bold, lines[::3])

        self.assertEqual(self.shown("list").splitlines(), lines)
        self.assertTrue(self.shown("list", "parent").startswith(f"{bold('Path.parent')}\n    void"))

    def test_what_fails_a_check_stands_out(self):
        file = self.file("bad", b"\xff")
        shown = self.shown("check", file, status=1, streams={"stderr": subprocess.DEVNULL})
        self.assertEqual(shown, f"{file}: {failure('File is not valid UTF-8 at byte 0')}\n")

    def test_the_shell_does_the_same_behind_a_plain_prompt(self):
        inputrc = self.file("inputrc", b"set enable-bracketed-paste off\n")
        with Terminal(
            "shell", columns=200, env=on_a_terminal(INPUTRC=str(inputrc), XDG_STATE_HOME=str(self.scratch))
        ) as terminal:
            self.assertEqual(terminal.wait_for(b"quen-io> "), b"quen-io> ")
            terminal.send(b"_readAllTextPath /no\n")
            terminal.wait_for(f"\n{failure('IOException')}: Cannot open file\r\nquen-io> ".encode())
            terminal.send(b"help parent\n")
            terminal.wait_for(f"\n{bold('Path.parent')}\r\n    void".encode())
            terminal.send(b"exit\n")
            self.assertEqual(terminal.finish(), 0)

    def test_json_is_plain(self):
        self.assertNotIn(
            "\x1b", self.shown("call", "--json", "--trace", "_readAllTextPath", self.scratch / "no", status=1)
        )

    def test_the_summary_of_an_index_is_plain(self):
        shown = self.shown(
            "index", self.scratch, "-o", self.scratch / "index", streams={"stderr": subprocess.DEVNULL}
        )
        self.assertIn("index in ", shown)
        self.assertNotIn("\x1b", shown)


class Elsewhere(Styles):
    """A failing call with a trace, a list and a check: together they use every style."""

    def setUp(self):
        super().setUp()
        self.calls = [
            (["call", "--trace", "_readAllTextPath", self.scratch / "no"], 1),
            (["list"], 0),
            (["check", self.scratch / "no"], 1),
        ]

    def test_an_environment_without_styles_has_none(self):
        for environment in (
            {"NO_COLOR": "1"},
            {"NO_COLOR": "0"},
            {"TERM": "dumb"},
            {"TERM": ""},
            {"TERM": None},
        ):
            for arguments, status in self.calls:
                with self.subTest(arguments, **environment):
                    streams = {"stderr": subprocess.DEVNULL} if arguments[0] == "check" else None
                    shown = self.shown(*arguments, status=status, streams=streams, **environment)
                    self.assertNotIn("\x1b", shown)
                    self.assertNotEqual(shown, "")

    def test_a_terminal_that_knows_no_escape_sequences_sees_no_progress(self):
        for term in ("dumb", "", None):
            for arguments in (
                ["index", self.scratch, "-o", self.scratch / "index"],
                ["check", self.file("good.txt")],
            ):
                with self.subTest(arguments, term=term):
                    shown = self.shown(*arguments, TERM=term, streams={"stdout": subprocess.DEVNULL})
                    self.assertEqual(shown, "")

    def test_a_shell_on_such_a_terminal_shows_none(self):
        with Terminal("shell", env=on_a_terminal(TERM="dumb", XDG_STATE_HOME=str(self.scratch))) as terminal:
            terminal.send(b"path:a\nexit\n")
            self.assertEqual(terminal.finish(), 0)
        self.assertIn(b'Path "a"', terminal.shown)
        self.assertNotIn(b"\x1b", terminal.shown)

    def test_an_empty_no_color_is_none(self):
        self.assertIn(bold("Path.parent"), self.shown("list", NO_COLOR=""))

    def test_pipes_have_none(self):
        for arguments, status in self.calls:
            with self.subTest(arguments):
                result = run(*arguments, env=on_a_terminal())
                self.assertEqual(result.returncode, status)
                self.assertNotIn(b"\x1b", result.stdout + result.stderr)

    def test_each_stream_is_looked_at_by_itself(self):
        failing, listing = self.calls[0][0], self.calls[1][0]
        with self.file("piped").open("wb") as file:
            self.assertEqual(self.shown(*failing, status=1, streams={"stderr": file}), "")
            self.assertEqual(self.shown(*listing, streams={"stdout": file}), "")
            self.assertIn(failure("IOException"), self.shown(*failing, status=1, streams={"stdout": file}))
            self.assertIn(bold("Path.parent"), self.shown(*listing, streams={"stderr": file}))
        self.assertNotIn(b"\x1b", (self.scratch / "piped").read_bytes())
        self.assertIn(b"IOException: Cannot open file\n", (self.scratch / "piped").read_bytes())


if __name__ == "__main__":
    unittest.main()
