#!/usr/bin/env python3
"""Generates the manual page of quen-io, plain and gzipped, and completions for bash, zsh and fish.

    manual.py quen-io entry_points.h FOLDER

Commands and options come from the driver's table of commands, entry points from the header. Help that
several commands share is one section of the page.
"""

import gzip
import json
import subprocess
import sys
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parents[1] / "runtime"))

from completions import bash, fish, zsh
from entry_points import read_header

SPECIAL = {"\\": r"\e", "-": r"\-", "'": r"\(aq", "`": r"\(ga", "^": r"\(ha", "~": r"\(ti"}


def roff(text):
    escaped = "".join(SPECIAL.get(character, character) for character in text)
    return rf"\&{escaped}" if escaped.startswith(".") else escaped


def tagged(term, description):
    return [".TP", rf"\fB{roff(term)}\fR", roff(description)]


def prose(section):
    """The paragraphs of a section of help, each with its rows as a tagged list."""
    for paragraph in section["paragraphs"]:
        if paragraph["text"]:
            yield from (".PP", roff(paragraph["text"]))
        for term, text in paragraph["rows"]:
            yield from tagged(term, text)


def option_entry(option):
    default = f" (by default {option['default']})" if option["default"] else ""
    return tagged(f"{', '.join(option['names'])} {option['value']}".strip(), option["summary"] + default)


def command_section(command, program):
    common = [option["names"] for option in program["options"]]
    yield f".SS {roff(command['name'])}"
    yield roff(command["summary"])
    for operand in command["operands"]:
        yield from tagged(operand["name"], operand["summary"])
    for option in command["options"]:
        if option["names"] not in common:
            yield from option_entry(option)
    for section in command["help"]:
        if not section["title"]:
            yield from prose(section)


def shared_sections(commands):
    sections = {section["title"]: section for command in commands for section in command["help"]}
    for title in sorted(sections, key=lambda title: (title == "Exit status", title)):
        if title:
            yield f".SH {roff(title.upper())}"
            yield from prose(sections[title])


def page(program, commands, entries, version):
    summary = program["summary"][0].lower() + program["summary"][1:].removesuffix(".")
    yield rf'.TH QUEN\-IO 1 "" "{roff(version)}" "User Commands"'
    yield from (".ad l", ".nh")  # long names would tear lines apart
    yield from (".SH NAME", r"quen\-io \- " + roff(summary))
    yield ".SH SYNOPSIS"
    for command in commands:
        yield from (roff(command["usage"]), ".br")
    yield ".SH OPTIONS"
    for option in program["options"]:
        yield from option_entry(option)
    yield ".SH COMMANDS"
    for command in commands:
        yield from command_section(command, program)
    yield from shared_sections(commands)
    yield ".SH ENTRY POINTS"
    for entry in entries:
        yield from tagged(entry["short"], entry["signature"])
        yield ".br"
        yield roff(" ".join(entry["help"].split("\n")))


def printed_by(driver, argument):
    return subprocess.run([driver, argument], check=True, capture_output=True, text=True).stdout


def main(driver, header, folder):
    table = json.loads(printed_by(driver, "dump-commands"))
    program, commands = table["program"], table["commands"]
    entries = read_header(header)
    files = {
        "quen-io.1": page(program, commands, entries, printed_by(driver, "--version").strip()),
        "quen-io.bash": bash(program, commands, entries),
        "_quen-io": zsh(program, commands, entries),
        "quen-io.fish": fish(program, commands, entries),
    }
    for name, lines in files.items():
        Path(folder, name).write_text("\n".join(lines) + "\n", encoding="utf-8")
    packed = gzip.compress(Path(folder, "quen-io.1").read_bytes(), mtime=0)
    Path(folder, "quen-io.1.gz").write_bytes(packed)


if __name__ == "__main__":
    main(*sys.argv[1:])
