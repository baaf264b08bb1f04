"""The command line of quen-io, read from what its --help prints.

The built driver is the one place that says what there is; a line that cannot be read ends the build.
"""

import re
import subprocess
from dataclasses import dataclass

# "  -o,--output FILE=quen-io-index.jsonl", with check and default as CLI11 notes them.
OPTION = re.compile(r"(?:(-\w),)?(--[\w-]+)(?: (\w+)(?::\w+)?(?:=(\S+))?)?")


class Unreadable(Exception):
    pass


@dataclass
class Option:
    short: str  # "" when there is none
    long: str
    value: str  # what the value is, "" for a flag
    default: str
    summary: str


@dataclass
class Command:
    name: str
    summary: str
    usage: str
    positionals: list  # (name, summary)
    options: list
    paragraphs: list  # the words below, each a list of lines


def table(lines):
    """Term and description of each row, or None where the lines are no table of two columns.

    The second column begins at the same place in every row. A description may go on below, and
    begin there when its term is too long.
    """
    starts = [gap.end() for line in lines for gap in re.finditer(r"  +(?=\S)", line)
              if gap.end() > len("  ")]
    column = max(set(starts), key=lambda start: (starts.count(start), start), default=2)
    rows = []
    for line in lines:
        columns = re.fullmatch(rf"(.{{{column - 2}}})  (\S.*)", line)
        if not columns:
            rows.append((line.strip(), []))
        elif columns[1].strip() or not rows:
            rows.append((columns[1].strip(), [columns[2]]))
        else:
            rows[-1][1].append(columns[2])
    if not all(description for _, description in rows):
        return None
    return [(term, " ".join(description)) for term, description in rows]


def read_option(term, summary):
    match = OPTION.fullmatch(term)
    if not match:
        raise Unreadable(f"cannot read the option: {term}")
    short, long, value, default = (group or "" for group in match.groups())
    return Option(short, long, value, default, summary)


def read_positional(term, summary):
    return re.sub(r" TEXT( \.\.\.)?( REQUIRED)?$", "", term), summary


def read_help(driver, *names):
    """The command of these names, and the terms of its table of subcommands."""
    text = subprocess.run([driver, *names, "--help"], check=True, capture_output=True,
                          text=True).stdout
    first, *paragraphs = text.rstrip("\n").split("\n\n")
    summary, usage = first.split("\n")
    parts = {"Positionals:": [], "Options:": [], "Subcommands:": []}
    while paragraphs and paragraphs[0].split("\n")[0] in parts:
        title, *lines = paragraphs.pop(0).split("\n")
        parts[title] = table(lines)
        if parts[title] is None:
            raise Unreadable(f"cannot read {title} of {' '.join(names)}")
    command = Command(
        name=" ".join(names), summary=summary, usage=usage.removeprefix("Usage: "),
        positionals=[read_positional(*row) for row in parts["Positionals:"]],
        options=[read_option(*row) for row in parts["Options:"]],
        paragraphs=[paragraph.split("\n") for paragraph in paragraphs])
    return command, [term for term, _ in parts["Subcommands:"]]


def read_command_line(driver):
    """The driver without a subcommand, and its subcommands."""
    main, names = read_help(driver)
    if not names:
        raise Unreadable("no subcommands")
    return main, [read_help(driver, name)[0] for name in names]
