"""quen-io shell: lines from a pipe, and on a terminal with history and completion."""

import os
import shutil
import unittest

from support import DRIVER, DriverTest, Terminal, run, without_capabilities

PROMPT = b"quen-io> "


class FromAPipe(DriverTest):
    def assert_session(self, lines, output, errors="", status=0):
        result = run("shell", input=lines.encode("utf-8", "surrogateescape"), cwd=self.scratch)
        self.assertEqual(result.stdout.decode(), output)
        self.assertEqual(result.stderr.decode(), errors)
        self.assertEqual(result.returncode, status)

    def test_results_have_names(self):
        self.assert_session(
            "normalize path:a/../b\n" "_normalizePath x//y\n" "$mine = parent $1\n" "get.isAbsolute path:/\n",
            '$1 = Path "b" (parent traversal)\n' '$2 = "x/y"\n' "$mine = null\n" "$3 = true\n",
        )

    def test_results_are_arguments(self):
        self.file("data", b"0123456789")
        self.assert_session(
            "get.size path:data\n"
            "_readTextFromOffsetPath data 7\n"
            "_readTextFromOffsetPath data $1\n"
            "$buffer = bytes:3\n"
            "_readBytesPath data 4 $buffer 3\n"
            "$buffer\n"
            "_writeAtomic copy $2\n"
            "_readAllTextPath copy\n"
            "$path = path:data\n"
            "_readAllTextPath $path\n",
            '$1 = 10\n$2 = "789"\n$3 = ""\n'
            "$buffer = hex:000000\n"
            "$4 = 3\ndestination = hex:343536\n"
            "$buffer = hex:343536\n"
            'done\n$5 = "789"\n'
            '$path = Path "data"\n$6 = "0123456789"\n',
        )

    def test_null_results_are_null(self):
        self.assert_session(
            "$none = parent path:a\n" "normalize $none\n" "_writeAtomic x $none\n",
            '$none = null\n$1 = Path ""\n',
            "IOException: Document index path and content are required\n",
            1,
        )

    def test_results_of_the_wrong_type_are_refused(self):
        self.assert_session(
            "get.size path:x\n"
            "normalize $1\n"
            "_normalizePath $1\n"
            "_readTextFromOffsetPath x $2\n"
            "$flag = get.exists path:x\n"
            "_readTextFromOffsetPath x $flag\n"
            "normalize $none\n",
            "$1 = 0\n$flag = false\n",
            "quen-io: self: $1 is no object\n"
            "quen-io: path: $1 is neither a String nor a path\n"
            "quen-io: offset: no result $2\n"
            "quen-io: offset: $flag is no integer\n"
            "quen-io: self: no result $none\n",
            1,
        )

    def test_values_stand_by_themselves(self):
        self.assert_session(
            "path:a/b\n$1\n$copy = $1\n$copy\nstring:text\nhex:00ff\n$none\n" "path:a b\n",
            '$1 = Path "a/b"\n$1 = Path "a/b"\n$copy = Path "a/b"\n'
            '$copy = Path "a/b"\n$2 = "text"\n$3 = hex:00ff\n',
            'quen-io: no result $none\nquen-io: more than one value: "b"\n',
            1,
        )

    def test_words_are_quoted_as_in_a_shell(self):
        for words, text in {
            "a": "a",
            "'a b'": "a b",
            '"a b"': "a b",
            "a\\ b": "a b",
            "a' 'b\" \"c": "a b c",
            "'a\"b'": 'a\\"b',
            '"a\\"b"': 'a\\"b',
            "'a\\b'": "a\\\\b",
            "''": "",
            '"text:$1"': "$1",
            "  \t a \t ": "a",
            "\udcff": "\\xff",
        }.items():
            with self.subTest(words):
                self.assert_session(f"_normalizePath {words}\n", f'$1 = "{text}"\n')

    def test_lists_have_their_elements_below(self):
        self.file("only")
        self.assert_session("_listNamesNative .\n", '$1 = list of 1\n  "only"\n')

    def test_goes_on_after_a_failure_and_tells_in_the_end(self):
        self.assert_session(
            "_readAllTextPath missing\n"
            "nonsense\n"
            "'open\n"
            "$x = \n"
            "$1 = path:a\n"
            "a-b = path:a\n"
            "normalize path:a\n",
            '$1 = Path "a"\n',
            "IOException: Cannot open file\n"
            "quen-io: no entry point \"nonsense\": see 'list'\n"
            "quen-io: a quote is left open\n"
            "quen-io: nothing to call or to keep behind the =\n"
            'quen-io: no name for a result: "$1"\n'
            'quen-io: no name for a result: "a-b"\n',
            1,
        )

    def test_an_exception_is_not_left_pending(self):
        self.file("data", b"text")
        self.assert_session(
            "_readAllTextPath missing\n_readAllTextPath data\n",
            '$1 = "text"\n',
            "IOException: Cannot open file\n",
            1,
        )

    def test_empty_lines_and_comments_do_nothing(self):
        self.assert_session("\n   \n# normalize\n", "")

    def test_ends_at_exit_and_quit(self):
        self.assert_session("path:a\n exit \npath:b\n", '$1 = Path "a"\n')
        self.assert_session("path:a\n quit \npath:b\n", '$1 = Path "a"\n')

    def test_a_result_is_named_with_and_without_the_dollar_sign(self):
        self.assert_session(
            "mine = parent path:a/b\n"
            "$other = call normalize $mine\n"
            "mine = path:c\n"
            "call normalize $mine\n",
            '$mine = FolderPath "a"\n$other = FolderPath "a"\n' '$mine = Path "c"\n$1 = Path "c"\n',
        )

    def test_shows_all_results(self):
        self.assert_session(
            "b = path:b\na = path:a\nresults\n",
            '$b = Path "b"\n$a = Path "a"\n$a = Path "a"\n$b = Path "b"\n',
        )

    def test_refuses_a_line_with_a_zero_byte(self):
        self.assert_session(
            "_writeAtomic made one\0two\npath:a\n",
            '$1 = Path "a"\n',
            "quen-io: a line holds a zero byte, and is left out: lines are text, "
            "a zero byte is written as hex:00\n",
            1,
        )
        self.assertFalse((self.scratch / "made").exists())

    def test_says_when_its_input_cannot_be_read(self):
        folder = os.open(self.scratch, os.O_RDONLY)
        self.addCleanup(os.close, folder)
        self.assert_fails(["shell"], 1, "quen-io: cannot read standard input", stdin=folder)
        self.assert_fails(["shell"], 1, "quen-io: cannot read standard input", preexec_fn=lambda: os.close(0))

    def test_the_last_line_needs_no_end(self):
        self.assert_session("path:a", '$1 = Path "a"\n')

    def test_helps(self):
        output = run("shell", input=b"help\nhelp parent\nlist\n").stdout
        self.assertIn(b"[NAME =] [call] ENTRY ARG...", output)
        self.assertIn(b"void* quen_io_Path_parent(void* self)\n    The normal form", output)
        self.assertTrue(output.endswith(run("list").stdout))
        self.assertEqual(run("shell", input=b"list touch\n").stdout, run("list", "touch").stdout)

    def test_keeps_no_history(self):
        run("shell", input=b"path:a\n", env={**os.environ, "XDG_STATE_HOME": str(self.scratch)})
        self.assertEqual(os.listdir(self.scratch), [])


class OnATerminal(DriverTest):
    def setUp(self):
        super().setUp()
        self.folder = self.new_folder("folder")
        self.state = self.scratch / "state"
        self.history = self.new_folder("state/quen-io") / "history"

    def shell(self, command=(DRIVER,), **environment):
        terminal = Terminal(
            "shell",
            command=command,
            cwd=self.folder,
            columns=200,
            env={
                **os.environ,
                "TERM": "dumb",
                "INPUTRC": "/dev/null",
                "LC_ALL": "C.UTF-8",
                "XDG_STATE_HOME": str(self.state),
                **environment,
            },
        )
        terminal.wait_for(PROMPT)
        return terminal

    def answer(self, terminal, keys):
        """The output between the line and the next prompt."""
        terminal.send(keys + b"\n")
        shown = terminal.wait_for(b"\r\n" + PROMPT)
        return shown[: -len(PROMPT)].replace(b"\r\n", b"\n").split(b"\n", 1)[1].decode()

    def assert_answers(self, terminal, answers):
        for keys, answer in answers.items():
            with self.subTest(keys):
                self.assertEqual(self.answer(terminal, keys), answer)

    def leave(self, terminal):
        terminal.send(b"exit\n")
        self.assertEqual(terminal.finish(), 0)

    def test_lines_are_answered(self):
        with self.shell() as terminal:
            self.assertEqual(
                self.answer(terminal, b"normalize path:a/../b"), '$1 = Path "b" (parent traversal)\n'
            )
            self.assertEqual(
                self.answer(terminal, b"_readAllTextPath missing"), "IOException: Cannot open file\n"
            )
            self.leave(terminal)

    def test_ends_with_the_input(self):
        with self.shell() as terminal:
            terminal.send(b"\x04")
            self.assertEqual(terminal.finish(), 0)

    def test_completes_entry_points(self):
        with self.shell() as terminal:
            for typed, whole in {
                b"Path.norm\t": "Path.normalize",
                b"_normalizeP\t": "Path._normalizePath",
                b"quen_io_Path_norm\t": "Path.normalize",
                b"__quen_propget_quen_io_Path_c\t": "Path.get.cwd",
                b"$x = Path.norm\t": "Path.normalize",
            }.items():
                with self.subTest(typed):
                    self.assertIn(f"quen-io: {whole} takes ", self.answer(terminal, typed + b" 1 2 3"))
            self.assertIn(
                "void* quen_io_Path_parent(void* self)\n", self.answer(terminal, b"help Path.par\t")
            )
            self.leave(terminal)

    def test_completes_arguments(self):
        self.file("folder/data", b"text")
        self.file("folder/below/inside", b"within")
        self.file("folder/with space", b"quoted")
        with self.shell() as terminal:
            self.assertEqual(self.answer(terminal, b"$buffer = byt\t2"), "$buffer = hex:0000\n")
            self.assert_answers(
                terminal,
                {
                    b"_readAllTextPath da\t": '$1 = "text"\n',
                    b"_readAllTextPath be\tin\t": '$2 = "within"\n',
                    b"_readAllTextPath text:be\tin\t": '$3 = "within"\n',
                    b"_readAllTextPath ./be\tin\t": '$4 = "within"\n',
                    b'_readAllTextPath "with\t': '$5 = "quoted"\n',
                    b"_readAllTextPath with\t": '$6 = "quoted"\n',
                    b"get.size fi\tda\t": "$7 = 4\n",
                    b"get.isDirectory fol\tbe\t": "$8 = true\n",
                    b"normalize nu\t": '$9 = Path ""\n',
                    b"_readBytesPath da\t 0 $bu\t 2": "$10 = 2\ndestination = hex:7465\n",
                    b"_readBytesPath da\t 0 @da\t 1": "$11 = 1\ndestination = hex:74657874\n",
                },
            )
            self.leave(terminal)

    def test_completes_names_that_need_quotes(self):
        self.file('folder/a b/c"d', b"1")
        self.file("folder/e f'g", b"2")
        self.file("folder/e f\\h i", b"3")
        with self.shell() as terminal:
            self.assert_answers(
                terminal,
                {
                    b"_readAllTextPath a\tc\t": '$1 = "1"\n',
                    b"_readAllTextPath a\\ b/\t": '$2 = "1"\n',
                    b'_readAllTextPath "a\tc\t': '$3 = "1"\n',
                    b'_readAllTextPath "a b"/\t': '$4 = "1"\n',
                    b"_readAllTextPath 'a b'/\t": '$5 = "1"\n',
                    b"_readAllTextPath e\t'\t": '$6 = "2"\n',  # the common prefix, up to the backslash
                    b"_readAllTextPath \"e\t'\t": '$7 = "2"\n',
                    b"_readAllTextPath 'e\t": '$8 = "3"\n',  # '...' cannot contain '
                    b"get.exists path:a\t": "$9 = true\n",
                },
            )
            self.leave(terminal)

    def test_proposes_no_name_that_a_terminal_should_not_see(self):
        self.file("folder/a\x1b[31m")
        self.file("folder/a1")
        with self.shell() as terminal:
            self.assertEqual(self.answer(terminal, b"get.exists path:a\t"), "$1 = true\n")
            self.assertNotIn(b"[31m", terminal.shown)
            self.leave(terminal)

    def test_an_interrupt_gives_up_the_line(self):
        with self.shell() as terminal:
            self.answer(terminal, b"path:a")
            terminal.send(b"nonsense")
            terminal.wait_for(b"nonsense")
            terminal.send(b"\x03")
            terminal.wait_for(PROMPT)
            self.assertEqual(self.answer(terminal, b"$1"), '$1 = Path "a"\n')
            self.leave(terminal)

    def test_earlier_lines_come_back(self):
        with self.shell() as terminal:
            self.answer(terminal, b"path:a")
            self.answer(terminal, b"path:b")
            self.assertEqual(self.answer(terminal, b"\x10\x10"), '$3 = Path "a"\n')
            self.leave(terminal)

    def test_history_is_kept_for_the_next_session(self):
        with self.shell() as terminal:
            self.answer(terminal, b"path:a")
            self.answer(terminal, b"path:a")
            self.answer(terminal, "path:ä".encode())
            self.leave(terminal)
        self.assertEqual(self.history.read_bytes(), "path:a\npath:ä\n".encode())
        self.assertEqual(self.history.stat().st_mode & 0o777, 0o600)
        self.assertEqual(os.listdir(self.history.parent), ["history"])

        with self.shell() as terminal:
            self.assertEqual(self.answer(terminal, b"\x10\x10"), '$1 = Path "a"\n')
            self.leave(terminal)

    def test_history_goes_below_home_otherwise(self):
        kept = self.file(".local/state/quen-io/history", b"path:a\n")
        with self.shell(XDG_STATE_HOME="", HOME=str(self.scratch)) as terminal:
            self.answer(terminal, b"path:b")
            self.leave(terminal)
        self.assertEqual(kept.read_bytes(), b"path:a\npath:b\n")

    def test_makes_the_folder_of_the_history(self):
        shutil.rmtree(self.state)
        with self.shell() as terminal:
            self.answer(terminal, b"path:a")
            self.leave(terminal)
        self.assertEqual(self.history.read_bytes(), b"path:a\n")
        self.assertEqual(self.history.parent.stat().st_mode & 0o777, 0o700)

    def test_says_once_when_history_cannot_be_kept(self):
        shutil.rmtree(self.state)
        self.state.write_text("a file")
        with self.shell() as terminal:
            self.answer(terminal, b"path:a")
            self.answer(terminal, b"path:b")
            self.leave(terminal)
        self.assertEqual(
            terminal.shown.count(
                f'quen-io: history not kept in "{self.state}/quen-io": IOException: Cannot create '
                "directories\r\n".encode()
            ),
            1,
        )

    def test_lines_outlive_a_shell_that_is_killed(self):
        with self.shell() as terminal:
            self.answer(terminal, b"path:a")
            terminal.process.kill()
            terminal.finish()
        self.assertEqual(self.history.read_bytes(), b"path:a\n")

    def test_two_shells_keep_the_lines_of_both(self):
        with self.shell() as one, self.shell() as other:
            self.answer(one, b"path:a")
            self.answer(other, b"path:b")
            self.answer(one, b"path:c")
            self.leave(other)
            self.leave(one)
        self.assertEqual(self.history.read_bytes(), b"path:a\npath:b\npath:c\n")

    def test_a_long_history_is_shortened_to_its_last_lines(self):
        lines = [f"path:{number}\n" for number in range(2001)]
        for count, kept in (2000, lines[:2000]), (2001, lines[1001:]):
            with self.subTest(count):
                self.history.write_text("".join(lines[:count]))
                with self.shell() as terminal:
                    self.leave(terminal)
                self.assertEqual(self.history.read_text(), "".join(kept))
        self.assertEqual(self.history.stat().st_mode & 0o777, 0o600)

    def test_starts_without_a_history_that_may_not_be_read(self):
        self.history.write_bytes(b"path:a\n")
        self.history.chmod(0o200)
        with self.shell(command=without_capabilities()) as terminal:
            self.answer(terminal, b"path:b")
            self.leave(terminal)
        self.assertIn(
            f'quen-io: history not read: cannot read "{self.history}": Cannot open file: '
            "Permission denied\r\n".encode(),
            terminal.shown,
        )
        self.history.chmod(0o600)
        self.assertEqual(self.history.read_bytes(), b"path:a\npath:b\n")

    def test_starts_beside_a_history_that_is_no_file(self):
        self.history.mkdir()
        with self.shell() as terminal:
            self.assertEqual(self.answer(terminal, b"path:b"), '$1 = Path "b"\n')
            self.leave(terminal)
        self.assertIn(
            f'quen-io: history not read: no regular file "{self.history}"\r\n'.encode(), terminal.shown
        )


if __name__ == "__main__":
    unittest.main()
