"""The command line: suggestions, options versus arguments, and hostile input."""

import json
import random
import re
import resource
import unittest

from support import DriverTest, is_sanitized, run

LONGEST_WORD = 128 * 1024 - 1  # MAX_ARG_STRLEN of Linux without the terminating NUL
TRACED = re.compile(rb"\w+\(")  # a call of a runtime operation in a trace
HOSTILE = "\x1b]0;title\x07\r\x9b31m\udcff\u202e"


class Suggestions(DriverTest):
    def assert_refused(self, arguments, words):
        with self.subTest(arguments):
            self.assert_fails(arguments, 2, f"quen-io: {words}", cwd=self.scratch)

    def test_of_commands(self):
        for typed, words in {
            "lsit": "did you mean list?",
            "chekc": "did you mean check?",
            "cal": "did you mean call?",
            "INDEX": "did you mean index?",
            "shelll": "did you mean shell?",
            "frobnicate": "see --help",
            "": "see --help",
        }.items():
            self.assert_refused([typed], f'no command "{typed}": {words}')
        self.assert_refused(["lsit", "--json", "x"], 'no command "lsit": did you mean list?')

    def test_of_options(self):
        for arguments, words in {
            ("index", "--ouput", "x", "/tmp"): '"--ouput": did you mean --output?',
            ("index", "/tmp", "--ouput=x"): '"--ouput": did you mean --output?',
            ("index", "--max-text-byte"): '"--max-text-byte": did you mean --max-text-bytes?',
            ("call", "--jsn", "Path.normalize", "a"): '"--jsn": did you mean --json?',
            ("call", "--trace", "-json", "normalize"): '"-json": did you mean --json?',
            ("call", "--jsn"): '"--jsn": did you mean --json?',
            ("list", "--hlep"): '"--hlep": did you mean --help?',
            ("check", "--hlep", "x"): '"--hlep": did you mean --help?',
            ("shell", "--hlep"): '"--hlep": did you mean --help?',
            ("--verison",): '"--verison": did you mean --version?',
            ("--json", "call"): '"--json": see --help',
            ("call", "-x", "normalize"): '"-x": see --help',
        }.items():
            self.assert_refused(arguments, f"no option {words}")

    def test_come_for_the_first_word_only(self):
        self.assert_refused(["shell", "--", "call"], 'not expected: "call" (see --help)')

    def test_show_no_byte_raw(self):
        self.assert_refused(["\x1b[31m\n"], 'no command "\\x1b[31m\\n": see --help')
        self.assert_refused(["list", "--a\x1b"], 'no option "--a\\x1b": see --help')
        self.assert_refused(["shell", "a\x1b"], 'not expected: "a\\x1b" (see --help)')
        self.assert_refused(["list", "a\x1b"], "no entry point \"a\\x1b\": see 'list'")


class Operands(DriverTest):
    MISSING = "Cannot open file: No such file or directory"
    WORDS = (
        "-x",
        "-hello",
        "--jsn",
        "--ouput=x",
        "--json",
        "--help",
        "--",
        "list",
        "[a,b]",
        "[]",
        "{}",
        "++",
        "%%",
        "-",
    )

    def test_of_a_call_are_all_words_behind_the_name(self):
        for word in self.WORDS:
            with self.subTest(word):
                self.assert_output(["call", "_normalizePath", word], f'"{word}"\n')
                self.assert_output(["call", "--", "_normalizePath", word], f'"{word}"\n')

    def test_of_a_check_are_whole_words(self):
        names = ("[a,b]", "++", "list", "{}", "[]", "%%")
        result = run("check", *names, cwd=self.scratch)
        self.assertEqual(result.stdout.decode(), "".join(f"{name}: {self.MISSING}\n" for name in names))
        self.assertEqual((result.stderr, result.returncode), (b"", 1))

    def test_behind_two_hyphens_are_all_words(self):
        words = [word for word in self.WORDS if word != "-"]  # "-" is standard input
        result = run("check", "a", "--", *words, cwd=self.scratch)
        self.assertEqual(
            result.stdout.decode(), "".join(f"{name}: {self.MISSING}\n" for name in ("a", *words))
        )
        self.assert_fails(["index", "--", "--output"], 3, 'quen-io: no such folder: "--output"')

    def test_that_are_missing_or_too_many_are_named(self):
        for arguments, words in {
            (): "COMMAND is missing",
            ("index",): "FOLDER is missing",
            ("index", "a", "b"): 'not expected: "b"',
            ("call",): "ENTRY is missing",
            ("call", "--json"): "ENTRY is missing",
            ("check",): "FILE is missing",
            ("shell", "x"): 'not expected: "x"',
            ("index", "a", "--output"): "--output: 1 required FILE missing",
        }.items():
            with self.subTest(arguments):
                self.assert_fails(arguments, 2, f"quen-io: {words} (see --help)")


class Table(DriverTest):
    """The table from which manual page and completions are generated agrees with --help."""

    def test_has_every_option_and_operand_of_the_help(self):
        table = json.loads(run("dump-commands").stdout)
        for command in [table["program"], *table["commands"]]:
            name = [command["name"]] if command["name"] else []
            text = run(*name, "--help").stdout.decode()
            rows = re.findall(r"^  (-\S+(?:, --\S+)?(?: [A-Z]+)?)(?:  |$)", text, re.MULTILINE)
            with self.subTest(name):
                self.assertIn(f"Usage: {command['usage']}\n", text)
                self.assertEqual(
                    rows,
                    [
                        f"{', '.join(option['names'])} {option['value']}".strip()
                        for option in command["options"]
                    ],
                )
                for operand in command["operands"]:
                    self.assertRegex(text, rf"(?m)^  {operand['name']}  +\S")

    def test_names_itself_nowhere(self):
        self.assertNotIn(b"dump-commands", run("--help").stdout + run("dump-commands").stdout)

    def test_gives_lines_that_fit_a_terminal(self):
        for command in ("index", "call", "check", "list", "shell"):
            lines = run(command, "--help").stdout.decode().splitlines()
            self.assertLessEqual(max(map(len, lines)), 92)


class Numbers(DriverTest):
    def test_bounds_are_decimal_and_in_range(self):
        for number, words in {
            "": 'no integer: ""',
            "nan": 'no integer: "nan"',
            "1e3": 'no integer: "1e3"',
            "0x10": 'no integer: "0x10"',
            "\x1b": 'no integer: "\\x1b"',
            "-1": "-1 is not within 0 to 9223372036854775807",
            "9223372036854775808": "9223372036854775808 is not within 0 to 9223372036854775807",
        }.items():
            with self.subTest(number):
                self.assert_fails(
                    ["index", "--max-text-bytes", number, self.scratch],
                    2,
                    f"quen-io: --max-text-bytes: {words}",
                )

    def test_zeros_in_front_change_nothing(self):
        result = run("index", "--max-text-bytes", "010", ".", cwd=self.scratch)
        self.assertIn(b"larger than 10 or unreadable", result.stdout)


class Hostile(DriverTest):
    """Arbitrary words give a result or a one-line error, without raw control characters."""

    def assert_sane(self, result, statuses=(0, 1, 2)):
        self.assertIn(result.returncode, statuses, result.stderr)
        shown = (result.stdout + result.stderr).decode()  # fails unless the output is UTF-8
        self.assertNotRegex(shown, "[\x00-\x09\x0b-\x1f\x7f-\x9f\u202e]")
        errors = [line for line in result.stderr.splitlines() if not TRACED.match(line)]
        self.assertEqual(len(errors), 0 if result.returncode == 0 else 1, errors)
        self.assertLess(sum(map(len, errors)), 10_000)

    def test_long_words_are_cut_down_in_what_is_said_of_them(self):
        word = "x" * LONGEST_WORD
        option = "--" + word[2:]
        for arguments in (
            [word],
            [option],
            ["call", word],
            ["call", option],
            ["list", word],
            ["call", "normalize", word],
            ["call", "get.size", "hex:" + word[4:]],
            ["call", "get.size", "@" + word[1:]],
            ["call", "_readTextFromOffsetPath", "x", "9" * LONGEST_WORD],
            ["index", option],
            ["index", "--max-text-bytes", word, "."],
            ["shell", word],
            ["shell", "\u20ac" * (LONGEST_WORD // 3)],
        ):
            with self.subTest([each[:20] for each in arguments]):
                self.assert_sane(run(*arguments, cwd=self.scratch), statuses=[2])
        for arguments in ([word], [".", "-o", word]):
            with self.subTest([each[:20] for each in arguments]):
                self.assert_sane(run("index", *arguments, cwd=self.scratch), statuses=[3])

    def test_both_ends_are_kept_of_what_is_cut_down(self):
        error = run("call", "_readTextFromOffsetPath", "x", "9" * LONGEST_WORD).stderr.decode()
        self.assertTrue(error.startswith("quen-io: offset: 999"))
        self.assertIn("999 ... 999", error)
        self.assertTrue(error.endswith("999 is not within -9223372036854775808 to " "9223372036854775807\n"))

    def test_every_entry_point_takes_whatever_comes(self):
        huge = "1" if is_sanitized() else str(2**63 - 1)  # a sanitizer aborts at huge allocations
        rows = [
            ("null", "null", "-1"),
            ("path:" + HOSTILE, HOSTILE, str(-(2**63))),
            ("folder:" + "x" * 100_000, "x" * 100_000, huge),
            ("bytes:0", "", "0"),
            ("text:" + HOSTILE, "hex:ff", "2147483647"),
            ("hex:00ff", "text:", "-0"),
            ("string:" + HOSTILE, "/dev/null/" + HOSTILE, "4294967296"),
        ]
        signatures = re.findall(r"(\w+)\((.*)\)$", run("list").stdout.decode(), re.MULTILINE)
        self.assertGreater(len(signatures), 0)
        for name, parameters in signatures:
            for row in rows:
                words = [
                    row[0] if "void*" in each else row[1] if "char*" in each else row[2]
                    for each in parameters.split(", ")
                    if each
                ]
                with self.subTest(name, row=[each[:20] for each in row]):
                    self.assert_sane(run("call", "--trace", name, *words, cwd=self.scratch))

    def test_a_file_beyond_bounds_is_no_argument(self):
        path = self.file("huge")
        with path.open("wb") as file:
            file.truncate((1 << 30) + 1)  # a sparse file
        self.assert_fails(
            ["call", "normalize", f"@{path}"], 2, f'quen-io: self: more than 1073741824 bytes in "{path}"'
        )

    def test_lines_of_a_shell(self):
        lines = [
            f"{before}{HOSTILE}{behind}"
            for before in (
                "",
                "help ",
                "normalize ",
                "normalize @",
                "get.size hex:",
                "path:a ",
                "bytes:",
                "$",
            )
            for behind in ("", " = path:a")
        ] + ["\0", "normalize $\x1b", "x" * 3_000_000]
        for line in lines:
            with self.subTest(line[:20]):
                typed = line.encode("utf-8", "surrogateescape")
                self.assert_sane(run("shell", input=typed, cwd=self.scratch), statuses=[1])

    @unittest.skipIf(is_sanitized(), "a sanitizer takes memory of its own")
    def test_more_than_memory_holds_does_not_end_a_shell(self):
        bound = 512 << 20
        result = run(
            "shell",
            input=b"bytes:1073741824\npath:a\n",
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (bound, bound)),
        )

        self.assertEqual(result.stderr, b"quen-io: std::bad_alloc\n")
        self.assertEqual((result.stdout, result.returncode), (b'$1 = Path "a"\n', 1))

    def test_random_bytes_for_lines_of_a_shell(self):
        typed = random.Random(1).randbytes(200_000)

        result = run("shell", input=typed, cwd=self.scratch)

        self.assertEqual((result.stdout, result.returncode), (b"", 1))
        self.assertNotRegex(result.stderr.decode(), "[\x00-\x09\x0b-\x1f\x7f-\x9f]")
        self.assertTrue(all(line.startswith(b"quen-io: ") for line in result.stderr.splitlines()))


if __name__ == "__main__":
    unittest.main()
