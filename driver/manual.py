#!/usr/bin/env python3
"""Writes the manual page of quen-io, also packed, and its completions for bash, zsh and fish.

    manual.py quen-io entry_points.h FOLDER

Commands and options come from the --help of the built driver, entry points from the header. In the
page, what several commands have to say stands once, in a section of its own.
"""

import gzip
import subprocess
import sys
from pathlib import Path

from completions import bash, fish, zsh
from entry_table import read_rows
from help_texts import Unreadable, read_command_line, table

# The sections of what several commands say, by how it begins.
SHARED = {"For an object": "ARGUMENTS", "An entry point has": "NAMES OF ENTRY POINTS",
          "Exit status:": "EXIT STATUS"}

SPECIAL = {"\\": r"\e", "-": r"\-", "'": r"\(aq", "`": r"\(ga", "^": r"\(ha", "~": r"\(ti"}


def roff(text):
    escaped = "".join(SPECIAL.get(character, character) for character in text)
    return rf"\&{escaped}" if escaped.startswith(".") else escaped


def tagged(term, description):
    return [".TP", rf"\fB{roff(term)}\fR", roff(description)]


def prose(lines):
    """Lines run on, and those that stand in by two spaces are a table, or kept as they are."""
    page, rest = [".PP"], lines
    while rest:
        is_indented = rest[0].startswith("  ")
        end = next((i for i, line in enumerate(rest) if line.startswith("  ") != is_indented),
                   len(rest))
        block, rest = rest[:end], rest[end:]
        if not is_indented:
            page.append(roff(" ".join(block)))
        elif rows := table(block):
            page += [line for row in rows for line in tagged(*row)] + [".PP"]
        else:
            page += [".nf", *map(roff, block), ".fi"]
    return page[:-1] if page[-1] == ".PP" else page


def option_entry(option):
    names = ", ".join(name for name in (option.short, option.long) if name)
    default = f" (by default {option.default})" if option.default else ""
    return tagged(f"{names} {option.value}".strip(), option.summary + default)


def command_section(command, main):
    common = [option.long for option in main.options]
    yield f".SS {roff(command.name)}"
    yield roff(command.summary)
    for positional in command.positionals:
        yield from tagged(*positional)
    for option in command.options:
        if option.long not in common:
            yield from option_entry(option)
    for paragraph in command.paragraphs:
        if not shared_section(paragraph):
            yield from prose(paragraph)


def shared_section(paragraph):
    return next((title for start, title in SHARED.items() if paragraph[0].startswith(start)), None)


def shared_sections(commands):
    found = {shared_section(paragraph): paragraph
             for command in commands for paragraph in command.paragraphs}
    for title in SHARED.values():
        if title not in found:
            raise Unreadable(f"nothing to say in {title}")
        paragraph = found[title]
        yield f".SH {title}"
        yield from prose(paragraph[1:] if paragraph[0] == "Exit status:" else paragraph)


def page(main, commands, entries, version):
    yield rf'.TH QUEN\-IO 1 "" "{roff(version)}" "User Commands"'
    yield from (".ad l", ".nh")  # long names would tear lines apart
    yield from (".SH NAME", rf"quen\-io \- {roff(main.summary[0].lower() + main.summary[1:-1])}")
    yield ".SH SYNOPSIS"
    for command in commands:
        yield from (roff(command.usage), ".br")
    yield ".SH OPTIONS"
    for option in main.options:
        yield from option_entry(option)
    yield ".SH COMMANDS"
    for command in commands:
        yield from command_section(command, main)
    yield from shared_sections(commands)
    yield ".SH ENTRY POINTS"
    for entry in entries:
        yield from tagged(entry["short"], entry["signature"])
        yield ".br"
        yield roff(" ".join(entry["help"].split("\n")))


def main(driver, header, folder):
    try:
        top, commands = read_command_line(driver)
        entries = read_rows(Path(header).read_text(encoding="utf-8"))
        version = subprocess.run([driver, "--version"], check=True, capture_output=True,
                                 text=True).stdout.strip()
        files = {"quen-io.1": page(top, commands, entries, version),
                 "quen-io.bash": bash(top, commands, entries),
                 "_quen-io": zsh(top, commands, entries),
                 "quen-io.fish": fish(top, commands, entries)}
        for name, lines in files.items():
            Path(folder, name).write_text("\n".join(lines) + "\n", encoding="utf-8")
        packed = gzip.compress(Path(folder, "quen-io.1").read_bytes(), mtime=0)
        Path(folder, "quen-io.1.gz").write_bytes(packed)
    except Unreadable as problem:
        sys.exit(f"{driver}: {problem}")


if __name__ == "__main__":
    main(*sys.argv[1:])
