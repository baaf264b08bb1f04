"""quen-io call: every form of argument, every type of result, and exceptions."""

import json
import os
import unittest

from support import DriverTest, is_sanitized, run, run_unprivileged

OBJECT_FORMS = (
    "an object is null, path:TEXT, folder:TEXT, file:TEXT, string:TEXT, hex:DIGITS, "
    "@FILE, bytes:N, text:TEXT or $RESULT, not "
)


class Names(DriverTest):
    def test_full_short_and_bare_names_are_the_same_entry_point(self):
        for name in ("quen_io_Path_normalize", "Path.normalize", "normalize"):
            self.assert_output(["call", name, "path:a/./b"], 'Path "a/b"\n')

    def test_getters_are_told_from_methods(self):
        output = run("call", "--json", "get.exists", "path:.").stdout
        self.assertEqual(json.loads(output)["entry"], "__quen_propget_quen_io_Path_exists")

        output = run("call", "--json", "_exists", "path:.").stdout
        self.assertEqual(json.loads(output)["entry"], "quen_io_Path__exists")

    def test_unknown_names_come_with_what_is_near(self):
        for typed, words in {
            "Path.normalise": "did you mean Path.normalize?",
            "parnt": "did you mean Path.parent?",
            "readAllText": "did you mean FileReader._readAllTextPath?",
            "PATH.PARENT": "did you mean Path.parent?",
            "nothing like it at all": "see 'list'",
            "": "see 'list'",
        }.items():
            with self.subTest(typed):
                self.assert_fails(["call", typed], 2, f'quen-io: no entry point "{typed}": {words}')

    def test_ambiguous_names_come_with_the_candidates(self):
        names = run("list").stdout.decode().splitlines()[::3]
        candidates = [name for name in names if name.endswith(".touch")]
        self.assertGreater(len(candidates), 1)
        self.assert_fails(
            ["call", "touch", "path:x"], 2, f'quen-io: "touch" is ambiguous: {", ".join(candidates)}'
        )


class Trace(DriverTest):
    ASKED = [
        'Quen_filePathFromObject(FolderPath "a/../b") -> "a/../b"',
        'Quen_getField_i64(FolderPath "a/../b", "_hasParentTraversal") -> 0',
        'Quen_pathHasExplicitWindowsRoot("a/../b") -> false',
        'Quen_runtimeFsPath("a/../b")',
    ]

    def test_shows_what_is_asked_of_the_runtime_and_then_the_result(self):
        done = run("call", "--trace", "Path.parent", "folder:a/../b")
        self.assertEqual(done.stdout, b'FolderPath "." (parent traversal)\n')
        self.assertEqual(
            done.stderr.decode().splitlines(),
            self.ASKED + ['Quen_allocTypedPathObjectFromPath(".", false, false, true)'],
        )

    def test_is_part_of_the_json(self):
        done = run("call", "--trace", "--json", "Path.parent", "folder:a/../b")
        self.assertEqual(json.loads(done.stdout)["trace"][:4], self.ASKED[:4])
        self.assertEqual(done.stderr, b"")

    def test_shows_no_byte_of_a_name_raw(self):
        done = run("call", "--trace", "Path.name", "path:\x1b[31m")
        self.assertNotIn(b"\x1b", done.stderr)


class Objects(DriverTest):
    def test_paths_have_their_class(self):
        self.assert_output(["call", "normalize", "path:a/../b"], 'Path "b" (parent traversal)\n')
        self.assert_output(["call", "normalize", "folder:a//b"], 'FolderPath "a/b"\n')
        self.assert_output(["call", "normalize", "file:a"], 'Path "a"\n')
        self.assert_output(["call", "normalize", "path:"], 'Path ""\n')

    def test_null_is_null(self):
        self.assert_output(["call", "normalize", "null"], 'Path ""\n')
        self.assert_output(["call", "parent", "path:a"], "null\n")
        self.assert_fails(["call", "get.exists", "null"], 1, "NullException: Cannot read Path.exists on null")

    def test_objects_without_a_path_are_taken(self):
        for word in ("string:a", "hex:6162", "bytes:3"):
            self.assert_output(["call", "normalize", word], 'Path ""\n')

    def test_byte_arrays_are_filled(self):
        path = self.file("data", b"0123456789")
        read = ["call", "_readBytesPath", path, "3"]
        self.assert_output([*read, "bytes:4", "4"], "4\ndestination = hex:33343536\n")
        self.assert_output([*read, "bytes:4", "2"], "2\ndestination = hex:33340000\n")
        self.assert_output([*read, "hex:ffFF", "1"], "1\ndestination = hex:33ff\n")
        self.assert_output([*read, "bytes:0", "0"], "0\ndestination = hex:\n")

    def test_byte_arrays_come_from_files(self):
        bytes_ = bytes(range(256)) * 100
        source = self.file("source", bytes_)
        path = self.file("data", b"x")
        read = ["call", "_readBytesPath", path, "0"]
        self.assert_output([*read, f"@{source}", "1"], f"1\ndestination = hex:{(b'x' + bytes_[1:]).hex()}\n")
        self.assert_output([*read, f"@{self.file('empty')}", "0"], "0\ndestination = hex:\n")

    def test_files_that_tell_no_size_are_read_whole(self):
        output = run("call", "_readBytesPath", "/dev/null", "0", "@/proc/version", "0").stdout
        with open("/proc/version", "rb") as version:
            self.assertEqual(output.decode(), f"0\ndestination = hex:{version.read().hex()}\n")

    def test_what_cannot_take_bytes_raises(self):
        path = self.file("data", b"0123456789")
        read = ["call", "_readBytesPath", path, "0"]
        for word, refusal in {
            "bytes:2": "Byte[] of length 2 cannot hold 10 bytes",
            "null": "Expected Byte[] but got null",
            "string:x": "Expected Byte[] but got String",
            "path:x": "Expected Byte[] but got quen.io.Path",
            "text:x": "Expected Byte[] but got ",
        }.items():
            with self.subTest(word):
                self.assert_fails([*read, word, "10"], 1, f"TypeError: {refusal}")

    def test_refuses_everything_else(self):
        for word in ("a/b", "Path:a", "", "$1", "$", "5"):
            with self.subTest(word):
                reason = "no result $1" if word == "$1" else f'{OBJECT_FORMS}"{word}"'
                self.assert_fails(["call", "normalize", word], 2, f"quen-io: self: {reason}")

    def test_refuses_what_cannot_be_made(self):
        missing = self.scratch / "missing"
        for word, reason in {
            "hex:0": 'hex: takes pairs of hexadecimal digits, not "0"',
            "hex:0g": 'hex: takes pairs of hexadecimal digits, not "0g"',
            "bytes:": 'no integer: ""',
            "bytes:-1": "-1 is not within 0 to 1073741824",
            "bytes:1073741825": "1073741825 is not within 0 to 1073741824",
            f"@{missing}": f'no regular file "{missing}"',
            f"@{self.scratch}": f'no regular file "{self.scratch}"',
        }.items():
            with self.subTest(word):
                self.assert_fails(["call", "normalize", word], 2, f"quen-io: self: {reason}")

    def test_refuses_a_file_that_may_not_be_read(self):
        self.file("secret", b"x").chmod(0)
        self.scratch.chmod(0o755)

        result = run_unprivileged("call", "normalize", "@secret", cwd=self.scratch)

        self.assertEqual(
            result.stderr, b'quen-io: self: cannot read "secret": Cannot open ' b"file: Permission denied\n"
        )
        self.assertEqual(result.returncode, 2)


class Texts(DriverTest):
    def test_words_are_texts(self):
        for word, text in {
            "a//b": '"a/b"',
            "path:a": '"path:a"',
            "[a,b]": '"[a,b]"',
            "{}": '"{}"',
            "%%": '"%%"',
            "-x": '"-x"',
            "--x=y": '"--x=y"',
            "list": '"list"',
            "a b": '"a b"',
            "": '""',
            "null": '""',
            "text:null": '"null"',
            "text:text:": '"text:"',
            "--json": '"--json"',
            "text:$1": '"$1"',
            "hex:61c3a4": '"aä"',
            "hex:": '""',
        }.items():
            with self.subTest(word):
                self.assert_output(["call", "_normalizePath", word], text + "\n")

    def test_null_is_not_the_empty_text(self):
        index = self.scratch / "index"
        self.assert_fails(
            ["call", "_writeAtomic", index, "null"],
            1,
            "IOException: Document index path and content are required",
        )
        self.assert_output(["call", "_writeAtomic", index, ""], "done\n")
        self.assert_output(["call", "_writeAtomic", index, "text:null"], "done\n")
        self.assertEqual(index.read_bytes(), b"null")

    def test_a_text_holds_no_zero_byte(self):
        self.assert_fails(
            ["call", "_normalizePath", "hex:610062"],
            2,
            "quen-io: path: a text ends at its first zero byte, so it cannot hold " 'one: "a\\x00b"',
        )

    def test_nothing_reaches_the_terminal_raw(self):
        for word, text in {
            b"\x1b[31m": '"\\x1b[31m"',
            b"a\nb\tc\rd": '"a\\nb\\tc\\rd"',
            b"\x7f": '"\\x7f"',
            b"\xc2\x9b31m": '"\\xc2\\x9b31m"',
            b"\xe2\x80\xae": '"\\xe2\\x80\\xae"',
            b"\xff\xc3\xa4\xe2\x82": '"\\xffä\\xe2\\x82"',
            b'a"b\\c': '"a\\"b\\\\c"',
        }.items():
            with self.subTest(word):
                self.assert_output(["call", "_normalizePath", word], text + "\n")
                self.assert_output(["call", "normalize", b"path:" + word], f"Path {text}\n")

    def test_nothing_reaches_the_terminal_raw_in_errors(self):
        self.assert_fails(["call", b"\x1b[31m"], 2, "quen-io: no entry point \"\\x1b[31m\": see 'list'")
        self.assert_fails(["call", "normalize", b"\x1b[31m"], 2, f'quen-io: self: {OBJECT_FORMS}"\\x1b[31m"')
        self.assert_fails(
            ["call", "_readTextFromOffsetPath", "x", b"\x1b"], 2, 'quen-io: offset: no integer: "\\x1b"'
        )


class Integers(DriverTest):
    def setUp(self):
        super().setUp()
        self.path = self.file("data", b"0123456789")

    def test_are_decimal_with_a_sign(self):
        read = ["call", "_readTextFromOffsetPath", self.path]
        for word, text in {
            "7": "789",
            "007": "789",
            "0": "0123456789",
            "-5": "0123456789",
            "9223372036854775807": "",
            "-9223372036854775808": "0123456789",
        }.items():
            with self.subTest(word):
                self.assert_output([*read, word], f'"{text}"\n')

    def test_refuses_others(self):
        read = ["call", "_readTextFromOffsetPath", self.path]
        for word in ("", "x", "1x", "0x1", "1.5", "+1", " 1", "1e3", "null"):
            with self.subTest(word):
                self.assert_fails([*read, word], 2, f'quen-io: offset: no integer: "{word}"')
        for word in ("9223372036854775808", "-9223372036854775809", "99999999999999999999"):
            with self.subTest(word):
                self.assert_fails(
                    [*read, word],
                    2,
                    f"quen-io: offset: {word} is not within -9223372036854775808 to " "9223372036854775807",
                )

    def test_short_ones_have_a_narrower_range(self):
        self.assert_fails(
            ["call", "_openPath", self.path, "2147483648"],
            2,
            "quen-io: append: 2147483648 is not within -2147483648 to 2147483647",
        )

    @unittest.skipIf(is_sanitized(), "a sanitizer ends the process")
    def test_a_count_beyond_memory_leaves_as_an_exception_of_cpp(self):
        self.assert_fails(
            ["call", "_readBytesPath", self.path, "0", "bytes:1", "9223372036854775807"],
            1,
            "C++ exception: std::bad_alloc",
        )


class Results(DriverTest):
    def test_booleans_and_integers(self):
        path = self.file("data", b"0123456789")
        self.assert_output(["call", "get.isRegular", f"path:{path}"], "true\n")
        self.assert_output(["call", "get.isDirectory", f"path:{path}"], "false\n")
        self.assert_output(["call", "get.size", f"path:{path}"], "10\n")

    def test_lists_have_a_line_for_each_element(self):
        self.file("a")
        self.file("new\nline")

        lines = run("call", "_listNamesNative", self.scratch).stdout.decode().splitlines()

        self.assertEqual(sorted(lines), ['"a"', '"new\\nline"'])

    def test_an_empty_list_has_none(self):
        self.assert_output(["call", "_listNamesNative", self.scratch], "")

    def test_nothing_is_done(self):
        self.assert_output(["call", "_writeAtomic", self.scratch / "index", "x"], "done\n")

    def test_exceptions_are_one_line(self):
        self.assert_fails(
            ["call", "_readAllTextPath", self.scratch / "missing"], 1, "IOException: Cannot open file"
        )

    def test_the_number_of_arguments_is_checked(self):
        self.assert_fails(
            ["call", "normalize"],
            2,
            "quen-io: Path.normalize takes 1 argument, " "not 0: void* quen_io_Path_normalize(void* self)",
        )
        self.assert_fails(
            ["call", "_cwdPath", "x"],
            2,
            "quen-io: Path._cwdPath takes 0 arguments, " "not 1: void* quen_io_Path__cwdPath()",
        )

    def test_the_current_directory_is_its_own(self):
        here = os.path.realpath(self.scratch)
        self.assert_output(["call", "get.cwd"], f'FolderPath "{here}"\n', cwd=self.scratch)


class AsJson(DriverTest):
    def call(self, *arguments, status=0):
        result = run("call", "--json", *arguments)
        self.assertEqual((result.stderr, result.returncode), (b"", status))
        self.assertNotRegex(result.stdout.decode(), "[\x00-\x09\x0b-\x1f\x7f-\x9f]")
        self.assertEqual(result.stdout.count(b"\n"), 1)
        return json.loads(result.stdout)

    def result(self, *arguments):
        answer = self.call(*arguments)
        self.assertIsNone(answer["raised"])
        return answer["result"]

    def test_results_have_a_type(self):
        path = self.file("data", b"0123456789")
        self.assertEqual(self.result("get.exists", "path:/"), {"type": "boolean", "value": True})
        self.assertEqual(self.result("get.size", f"path:{path}"), {"type": "integer", "value": 10})
        self.assertEqual(self.result("parent", "path:a"), {"type": "null"})
        self.assertEqual(self.result("_writeAtomic", path, "x"), {"type": "nothing"})
        self.assertEqual(self.result("_normalizePath", "a//b"), {"type": "string", "text": "a/b"})
        self.assertEqual(
            self.result("normalize", "folder:a/.."),
            {"type": "path", "class": "FolderPath", "path": ".", "parent_traversal": True},
        )
        self.assertEqual(
            self.result("_listNamesNative", self.scratch),
            {"type": "list", "elements": [{"type": "string", "text": "data"}]},
        )

    def test_bytes_that_are_not_utf_8_are_kept_beside_the_text(self):
        self.assertEqual(
            self.result("_normalizePath", b"a\xff\x1b\xe2\x82"),
            {"type": "string", "text": "a\ufffd\x1b\ufffd", "text_hex": "61ff1be282"},
        )
        self.assertEqual(
            self.result("normalize", b"path:\xff"),
            {"type": "path", "class": "Path", "path": "\ufffd", "path_hex": "ff", "parent_traversal": False},
        )

    def test_printable_text_is_not_escaped(self):
        self.assertIn(
            '"text":"Grüße \U0001f600"'.encode(),
            run("call", "--json", "_normalizePath", "Grüße \U0001f600").stdout,
        )
        self.assertIn(
            rb'"text":"\u0085\u202e\u007f"', run("call", "--json", "_normalizePath", "\x85\u202e\x7f").stdout
        )

    def test_exceptions_have_class_and_message(self):
        answer = self.call("_readAllTextPath", self.scratch / "missing", status=1)
        self.assertEqual(
            answer,
            {
                "entry": "quen_io_FileReader__readAllTextPath",
                "result": {"type": "string", "text": ""},
                "raised": {"class": "IOException", "message": "Cannot open file"},
                "filled": {},
            },
        )

    def test_filled_byte_arrays_are_shown(self):
        path = self.file("data", b"\0\xff")
        answer = self.call("_readBytesPath", path, "0", "bytes:3", "3")
        self.assertEqual(answer["result"], {"type": "integer", "value": 2})
        self.assertEqual(answer["filled"], {"destination": {"type": "bytes", "hex": "00ff00"}})


if __name__ == "__main__":
    unittest.main()
