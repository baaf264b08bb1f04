"""The manual page and the completions contain every command, option and entry point."""

import gzip
import os
import re
import shutil
import subprocess
import unittest
from pathlib import Path

from support import run

MANUAL = Path(os.environ.get("QUEN_IO_MANUAL", "."))  # the folder in which they are
PAGE = MANUAL / "quen-io.1"


def output(*command, **options):
    result = subprocess.run(command, capture_output=True, text=True, check=True, **options)
    return result.stdout, result.stderr


def commands():
    return re.findall(
        r"^  (\w+)  ", run("--help").stdout.decode().split("Commands:")[1].split("\n\n")[0], re.MULTILINE
    )


def entry_points():
    return re.findall(r"^\S+", run("list").stdout.decode(), re.MULTILINE)


class ManualPage(unittest.TestCase):
    @unittest.skipUnless(shutil.which("groff"), "no groff here")
    def test_is_set_without_a_warning(self):
        for width in ("80n", "200n"):
            with self.subTest(width):
                errors = output("groff", "-man", "-ww", "-Tutf8", f"-rLL={width}", PAGE)[1]
                self.assertEqual(errors, "")

    @unittest.skipUnless(shutil.which("man"), "no man here")
    def test_shows_every_command_and_entry_point(self):
        page, errors = output(
            "man",
            "--warnings",
            "-E",
            "UTF-8",
            "-l",
            PAGE,
            env={**os.environ, "MANWIDTH": "80", "LC_ALL": "C.UTF-8"},
        )

        self.assertEqual(errors, "")
        lines = {line.strip() for line in page.splitlines()}
        self.assertEqual(set(commands() + entry_points()) - lines, set())

    def test_has_each_option_in_its_place(self):
        index = PAGE.read_text().split(".SS index")[1].split(".SS call")[0]

        self.assertIn(r"\-\-max\-text\-bytes N", index)
        self.assertIn(r"(by default quen\-io\-index.jsonl)", index)
        self.assertNotIn("help", index)

    def test_says_once_what_several_commands_say(self):
        self.assertEqual(PAGE.read_text().count("usage error"), 1)

    def test_is_the_same_packed(self):
        self.assertEqual(gzip.decompress(PAGE.with_suffix(".1.gz").read_bytes()), PAGE.read_bytes())


class Completions:
    """The completions of each shell; `proposed` returns those of the last word."""

    def test_is_read_without_an_error(self):
        output(self.shell, "-n", MANUAL / self.file)

    def test_first_comes_a_command(self):
        self.assertEqual(set(commands()) - self.proposed(""), set())

    def test_a_call_begins_with_an_entry_point_and_goes_on_with_paths(self):
        for words in (["call"], ["call", "--json"], ["list"]):
            with self.subTest(words):
                self.assertEqual(self.proposed(*words, ""), set(entry_points()))
        self.assertIn("/etc/passwd", self.proposed("call", "Path.name", "/etc/passw"))

    def test_a_folder_is_no_file(self):
        self.assertIn("/etc", {path.rstrip("/") for path in self.proposed("index", "/et")})
        self.assertEqual(self.proposed("index", "/etc/passw"), set())
        self.assertIn("/etc/passwd", self.proposed("check", "/etc/passw"))

    def test_options_and_what_they_take(self):
        self.assertTrue({"--output", "--max-text-bytes"} <= self.proposed("index", "--"))
        self.assertIn("/etc/passwd", self.proposed("index", "--output", "/etc/passw"))
        self.assertEqual(self.proposed("index", "--max-text-bytes", "/etc/passw"), set())


@unittest.skipUnless(shutil.which("bash"), "no bash here")
class Bash(Completions, unittest.TestCase):
    shell, file = "bash", "quen-io.bash"

    def proposed(self, *words):
        script = (
            'compopt() { :; }; source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); '
            '_quen_io; printf "%s\\n" "${COMPREPLY[@]}"'
        )
        printed = output("bash", "-uc", script, "bash", MANUAL / self.file, "quen-io", *words)[0]
        return set(printed.split("\n")) - {""}


@unittest.skipUnless(shutil.which("fish"), "no fish here")
class Fish(Completions, unittest.TestCase):
    shell, file = "fish", "quen-io.fish"

    def proposed(self, *words):
        script = "source $argv[1]; complete -C $argv[2]"
        printed = output(
            "fish", "--no-config", "-c", script, MANUAL / self.file, " ".join(["quen-io", *words])
        )[0]
        return {line.split("\t")[0] for line in printed.splitlines()}


@unittest.skipUnless(shutil.which("zsh"), "no zsh here")
class Zsh(unittest.TestCase):
    def test_is_read_without_an_error(self):
        output("zsh", "-n", MANUAL / "_quen-io")

    def test_has_every_command_and_entry_point(self):
        text = (MANUAL / "_quen-io").read_text()
        for name in commands() + entry_points():
            with self.subTest(name):
                self.assertIn(f"'{name}:", text)


if __name__ == "__main__":
    unittest.main()
