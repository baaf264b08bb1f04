"""Which recordings are made, what is found in their states, and what must not be found."""

import collections
import random

import disks
import table
from operations import (
    BYSTANDER,
    CUT,
    EMPTY,
    KEPT,
    NEW,
    NOTHING,
    OLD,
    STALE,
    TARGET,
    TEMPORARIES,
    TEMPORARY,
    ZEROS,
    look,
    operations,
)
from recordings import Recording, promises, record
from states import states

SCHEDULES = ("stay", "data", "time", "fsync", "sync", "slow")
DAMAGED, UNMOUNTABLE = "other files damaged", "not mountable"


def recordings():
    """All recordings on one file system."""
    every = operations("large")
    steps = every.pop("steps")
    for operation in every.values():
        yield from (Recording(operation, schedule=schedule) for schedule in SCHEDULES)
        for files in table.AFTER:
            yield from (synced(operation, files, schedule) for schedule in ("stay", "slow"))
    yield from (Recording(steps, schedule=schedule) for schedule in SCHEDULES)
    yield from (synced(steps, (".",), schedule) for schedule in ("stay", "slow"))
    small = operations("small")
    steps = small.pop("steps")
    for operation in small.values():
        yield Recording(operation)
        yield synced(operation, (TARGET, "."))
    yield synced(steps, (".",))


def quick_recordings():
    every = operations("large")
    yield Recording(every["publish"])
    yield Recording(every["publish"], schedule="slow")
    yield synced(every["publish"], (TARGET, "."))
    yield synced(every["steps"], (".",))


def synced(operation, files, schedule="stay"):
    return Recording(operation.then(*files), files, schedule)


class Atlas:
    """What was found: how often each word, by (row, file system), and the number of states."""

    def __init__(self):
        self.words = collections.defaultdict(collections.Counter)
        self.recordings = collections.Counter()
        self.states = collections.Counter()
        self.seconds = {}

    def results(self):
        """The sets of words by (row, file system), and how much was examined."""
        found = {key: set(words) for key, words in self.words.items()}
        return found | {(table.EXAMINED, system): {self.examined(system)} for system in self.seconds}

    def examined(self, system):
        return (
            f"{self.states[system]:,} of {self.recordings[system]} recordings in {self.seconds[system]:.0f} s"
        )

    def examine(self, recording, system, base, program, folder, count):
        """Records an operation, and looks at its states, of which `count` random ones for an epoch."""
        self.recordings[system.name] += 1
        events = record(recording, system, base, program, folder)
        image = disks.Image(folder / "state", system.size, base)
        try:
            with disks.loop_device(folder / "state", system.size) as device:
                for phases, blocks in states(events, base, count, random.Random(1)):
                    image.put(blocks)
                    found = look_after_crash(system, device, folder)
                    self.states[system.name] += 1
                    for phase in phases:
                        row, words = judged(recording, phase, found)
                        self.words[row, system.name].update(words)
        finally:
            image.close()


def look_after_crash(system, device, folder):
    """The files in the folder by name, or None if the file system cannot be mounted."""
    try:
        with system.mounted(device, folder, disks.READ_ONLY) as top:
            return look(top / "here")
    except OSError:
        return None


def judged(recording, phase, found):
    """The row of a crash after this mark, and the words for what was found then."""
    operation, promised = recording.operation, promises(recording.operation).get(phase)
    row = (operation.name, table.ANY_TIME)
    if promised is not None and recording.synced:
        row = (operation.name, table.AFTER[recording.synced])
    if found is None:
        return row, {UNMOUNTABLE}
    words = {operation.found(found.get(TARGET), promised if recording.synced else None)}
    names = set(found) - {TARGET, BYSTANDER}
    if names & TEMPORARIES:
        words.add(TEMPORARY)
    if found.get(BYSTANDER) != KEPT or names - TEMPORARIES:
        words.add(DAMAGED)
    return row, words


def allowed_words(row, system):
    """What may be found at most, whatever the table in the document says."""
    name, when = row
    if when == table.AFTER[TARGET, "."] or name == "publish in steps" and when != table.ANY_TIME:
        allowed = {NEW}
    elif name == "publish in steps":
        allowed = {OLD, NEW, TEMPORARY}
    elif name == "append":
        allowed = {OLD, NEW, CUT, ZEROS}
    else:
        allowed = {OLD, NEW, NOTHING, EMPTY, CUT, ZEROS, STALE, TEMPORARY}
    if "data=writeback" not in system:
        allowed = allowed - {STALE}
    return allowed


def violations(atlas, documented):
    """What was found and neither the rules nor the document allow."""
    for (row, system), words in atlas.words.items():
        where = f"{row[0]}, {row[1]}, {system}"
        for word, count in words.items():
            if word not in allowed_words(row, system):
                yield f"{where}: {word} must not be found, but was in {count} states"
            elif documented is not None and word not in documented.get((row, system), ()):
                yield f"{where}: {word} was found in {count} states, and is not in the document"
