"""quen-io list: the table of entry points matches the exports of the library."""

import json
import re
import subprocess
import unittest

from support import LIBRARY, DriverTest, run


def listed():
    """Short name, full name and summary of every row."""
    lines = run("list").stdout.decode().splitlines()
    return [
        (lines[i], re.search(r"(\w+)\(", lines[i + 1])[1], lines[i + 2].strip())
        for i in range(0, len(lines), 3)
    ]


def exported():
    symbols = subprocess.run(
        ["nm", "-DC", "--defined-only", LIBRARY], capture_output=True, check=True, text=True
    ).stdout.splitlines()
    return [symbol.split(maxsplit=2)[2].split("(")[0] for symbol in symbols]


class List(DriverTest):
    def test_has_a_row_for_each_symbol_of_the_library_and_no_other(self):
        names = [full for _, full, _ in listed()]

        self.assertGreater(len(names), 0)
        self.assertEqual(sorted(names), sorted(exported()))

    def test_says_a_line_about_each(self):
        for short, full, summary in listed():
            with self.subTest(full):
                self.assertTrue(full.endswith(short.rsplit(".", 1)[-1]))
                self.assertTrue(summary.endswith("."))

    def test_shows_signatures(self):
        self.assertIn(
            "FolderPath._listNamesNative\n"
            "    void* quen_io_FolderPath__listNamesNative(const char* path)\n"
            "    The names of a folder's entries as an ArrayList of Strings",
            run("list").stdout.decode(),
        )

    def test_tells_all_about_one(self):
        output = run("list", "parent").stdout.decode()

        self.assertEqual(
            output.splitlines()[:2], ["Path.parent", "    void* quen_io_Path_parent(void* self)"]
        )
        self.assertIn("null when there is none", output)

    def test_knows_every_name_it_shows(self):
        for short, full, _ in listed():
            with self.subTest(full):
                self.assertEqual(run("list", short).stdout, run("list", full).stdout)

    def test_shows_the_entry_points_in_which_a_word_occurs(self):
        for word in ("recursive", "RECURSIVE"):
            self.assert_output(
                ["list", word],
                "isUnsafeRecursiveDeletePath\n"
                "    bool Quen_isUnsafeRecursiveDeletePath(const char* path)\n"
                "    For other native code: whether a path must never be removed "
                "recursively.\n",
            )
        names = run("list", "touch").stdout.decode().splitlines()[::3]
        self.assertEqual(names, ["FilePath.touch", "Path.touch"])

    def test_explains_the_one_that_a_word_names_before_others(self):
        lines = run("list", "remove").stdout.decode().splitlines()

        self.assertEqual(lines[0], "Path.remove")
        self.assertIn("FolderPath._removeAllNative", lines)
        self.assertEqual(lines.count("Path.remove"), 1)

    def test_shows_each_once_however_many_words_fit(self):
        self.assertEqual(run("list", "touch", "TOUCH", "path.touch").stdout, run("list", "touch").stdout)

    def test_gives_json_a_line_for_each(self):
        rows = [json.loads(line) for line in run("list", "--json").stdout.splitlines()]

        self.assertEqual([(row["name"], row["entry"], row["summary"]) for row in rows], listed())
        for row in rows:
            with self.subTest(row["entry"]):
                self.assertIn(row["entry"] + "(", row["signature"])
                self.assertTrue(row["help"])
        (row,) = [json.loads(line) for line in run("list", "--json", "_openPath").stdout.splitlines()]
        self.assertEqual(
            row["parameters"], [{"name": "path", "type": "text"}, {"name": "append", "type": "integer32"}]
        )

    def test_refuses_a_name_that_there_is_not(self):
        self.assert_fails(
            ["list", "Path.parrent"], 2, 'quen-io: no entry point "Path.parrent": did you mean Path.parent?'
        )

    def test_explains_the_names(self):
        self.assertIn(b"get.exists", run("list", "--help").stdout)


class CommandLine(DriverTest):
    def test_helps_everywhere(self):
        for command in ([], ["index"], ["call"], ["list"], ["shell"]):
            with self.subTest(command):
                result = run(*command, "--help")
                self.assertIn(b"Usage: quen-io", result.stdout)
                self.assertEqual((result.stderr, result.returncode), (b"", 0))

    def test_documents_the_exit_statuses(self):
        for command in ([], ["index"], ["call"]):
            self.assertIn(b"Exit status:", run(*command, "--help").stdout)

    def test_refuses_wrong_usage_in_one_line(self):
        for arguments in (
            [],
            ["no such command"],
            ["index"],
            ["index", "a", "b"],
            ["index", "--max-text-bytes", "-1", "."],
            ["index", "--max-text-bytes", "x", "."],
            ["index", "--no-such-option"],
            ["call"],
            ["list", "--x"],
            ["shell", "x"],
            ["\x1b[31m\n"],
        ):
            with self.subTest(arguments):
                result = run(*arguments, cwd=self.scratch)
                self.assertEqual(result.stdout, b"")
                self.assertRegex(result.stderr, rb"\Aquen-io: [^\n\x1b]+\n\Z")
                self.assertEqual(result.returncode, 2)

    def test_says_when_its_output_gets_lost(self):
        with open("/dev/full", "wb") as full:
            result = subprocess.run([run("list").args[0], "list"], stdout=full, stderr=subprocess.PIPE)

        self.assertEqual(result.stderr, b"quen-io: cannot write to standard output\n")
        self.assertEqual(result.returncode, 1)


if __name__ == "__main__":
    unittest.main()
