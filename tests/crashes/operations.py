"""The operations of the module whose crashes are examined, and what a crash has left of them.

An operation is a list of steps. A step is a command of work.cpp, or a sync by the caller:

    ("publish", "text", TEXT)   a command with a file in the folder, and its second argument
    ("fsync", "text")           fsync of a file
    ("fsync", ".")              fsync of the folder
    ("promise", TEXT)           from here on, the file has to begin with the text
"""

import dataclasses
import os

from states import BLOCK

TARGET, BYSTANDER, STEPWISE = "text", "bystander", "text.new"
TEMPORARIES = {"text.tmp-1", STEPWISE}
# What the table calls the states of the file.
NEW, OLD, NOTHING, EMPTY, CUT, ZEROS, MIXED, SHORTENED, UNREADABLE, STALE, OTHER = WORDS = (
    "new",
    "old",
    "nothing",
    "empty",
    "cut",
    "zeros",
    "mixed",
    "shortened",
    "unreadable",
    "stale",
    "other",
)
TEMPORARY = "temporary"


def text(name, size):
    """A text without white space, each record of which occurs once in it and in no other text."""
    records = (f"{name}{number:06}.".rjust(20, "-") for number in range(size // 20 + 1))
    return "".join(records)[:size].encode()


REMOVED = text("removed", 6 << 20)  # was in a file that is removed, and lies in free blocks
KEPT = text("bystander", 5_000)
SIZES = {"large": (10_000, 22_000), "small": (700, 500)}  # of the old and of the new text


@dataclasses.dataclass(frozen=True)
class Operation:
    name: str
    steps: list
    old: bytes | None
    new: bytes

    def then(self, *files):
        """The same with an fsync of these by the caller after each promise that the file makes."""
        steps = []
        for step in self.steps:
            if step[0] == "promise":
                steps += [("fsync", file) for file in files]
            steps.append(step)
        return dataclasses.replace(self, steps=steps)

    def found(self, there, promised=b""):
        """The word for the contents of the file: bytes, None if there is none, or an OSError."""
        if isinstance(there, OSError):
            return UNREADABLE
        if there == self.new:
            return NEW
        if there == self.old:
            return NOTHING if there is None else OLD
        if there is None:
            return NOTHING
        word = EMPTY if there == b"" else self.worst(there)
        if promised and there.startswith(promised) and len(there) <= len(self.new) and word in (CUT, ZEROS):
            return NEW  # what follows of it is not promised
        return word

    def worst(self, there):
        """The word for contents that are neither text: the worst that one of the blocks tells."""
        if self.old and self.new.startswith(self.old) and not there.startswith(self.old):
            return SHORTENED  # appending has to keep the older text
        kinds = {self.kind(there, place) for place in range(0, len(there), BLOCK)}
        for word in (OTHER, STALE, ZEROS):
            if word in kinds:
                return word
        if self.new.startswith(there):
            return CUT
        return SHORTENED if (self.old or b"").startswith(there) else MIXED

    def kind(self, there, place):
        """What a block of the contents consists of."""
        block = there[place : place + BLOCK]
        if self.new[place:].startswith(block):
            return NEW
        if (self.old or b"")[place:].startswith(block):
            return OLD
        written = block.rstrip(b"\0")
        if len(written) < len(block) and any(
            whole[place:].startswith(written) for whole in (self.new, self.old or b"")
        ):
            return ZEROS
        return STALE if b"removed" in block else OTHER


def operations(size):
    """The operations by their short names, with texts of this size."""
    old, new = (text(name, length) for name, length in zip(("old", "new"), SIZES[size]))
    added = old + new
    records = [text(f"record{number}-", len(new) // 3) for number in (1, 2, 3)]
    handle = [("open", TARGET, b"-")]
    for number, record in enumerate(records, 1):
        handle += [("put", TARGET, record), ("flush", TARGET, b"-")]
        handle += [("promise", b"".join(records[:number]))]
    return {
        "publish": Operation("publish", [("publish", TARGET, new), ("promise", new)], old, new),
        "replace": Operation("replace a text", [("write", TARGET, new), ("promise", new)], old, new),
        "bytes": Operation("replace bytes", [("bytes", TARGET, new), ("promise", new)], old, new),
        "append": Operation("append", [("append", TARGET, new), ("promise", added)], old, added),
        "handle": Operation(
            "handle",
            handle + [("close", TARGET, b"-"), ("promise", b"".join(records))],
            None,
            b"".join(records),
        ),
        "steps": Operation(
            "publish in steps",
            [("write", STEPWISE, new), ("fsync", STEPWISE)]
            + [("rename", STEPWISE, TARGET.encode()), ("promise", new)],
            old,
            new,
        ),
    }


def look(folder):
    """The files in the folder by name: bytes, or the OSError of reading them."""
    found = {}
    for name in os.listdir(folder):
        try:
            with open(folder / name, "rb") as file:
                found[name] = file.read()
        except OSError as error:
            found[name] = error
    return found
