"""Builds the states in which a crash could leave a disk, from the events of its log.

A flush makes what was written before it durable. What was written since then, in one flush epoch, can have
reached the disk in any part and in any order. The disk writes a block of 4 KiB whole or not at all, so a
state is given by the version that each block has: how far the writes to it got. Hence the subsets of the
writes of an epoch, taken in the order of the log, cover every reordering, too: a block that two writes
exchanged keeps the older version, as if the newer write was lost.
"""

import itertools

from write_log import Flush, Mark, Write

BLOCK = 4096


class Epoch:
    """What was written between two flushes, and the marks in between.

    A piece is the part of a write that lies in one block, as (block, offset in the block, data). A mark is
    (number of writes before it, name).
    """

    def __init__(self, phase):
        self.phase = phase  # the last mark before it
        self.writes = []
        self.marks = []

    def phases(self, chosen):
        """The marks after which a crash can have left these pieces, the numbers of whose writes are given."""
        end = max((write for write, _ in chosen), default=-1) + 1
        earlier = [name for place, name in self.marks if place < end]
        return {earlier[-1] if earlier else self.phase} | {name for place, name in self.marks if place >= end}

    def all(self):
        return frozenset(self.first(len(self.writes)))

    def first(self, count):
        """The pieces of so many writes."""
        return [(write, piece) for write in range(count) for piece in range(len(self.writes[write]))]


def epochs(events):
    """The flush epochs of a log. The phase before the first mark is None."""
    epoch = Epoch(None)
    for event in events:
        if isinstance(event, Flush):
            yield epoch
            epoch = Epoch(epoch.marks[-1][1] if epoch.marks else epoch.phase)
        elif isinstance(event, Mark):
            epoch.marks.append((len(epoch.writes), event.name))
        elif isinstance(event, Write):
            epoch.writes.append(pieces(event.offset, event.data))
    yield epoch


def pieces(offset, data):
    found, done = [], 0
    while done < len(data):
        inside = (offset + done) % BLOCK
        length = min(BLOCK - inside, len(data) - done)
        found.append(((offset + done) // BLOCK, inside, data[done : done + length]))
        done += length
    return found


def choices(epoch, count, random):
    """Sets of pieces of an epoch that may have reached the disk, as (write, piece), each once.

    All of them if there are at most `count`; otherwise all prefixes of the writes, all writes but one, one
    write alone, and random subsets, also of torn writes, up to `count` of these.
    """
    everything = epoch.first(len(epoch.writes))
    if 2 ** len(everything) <= count:
        every = (itertools.combinations(everything, size) for size in range(len(everything) + 1))
        yield from map(frozenset, itertools.chain.from_iterable(every))
        return
    seen = set()
    for chosen in itertools.chain(prefixes(epoch), some(epoch, count, random)):
        if chosen not in seen:
            seen.add(chosen)
            yield chosen


def prefixes(epoch):
    for count in range(len(epoch.writes) + 1):
        yield frozenset(epoch.first(count))


def some(epoch, count, random):
    writes = range(len(epoch.writes))
    single = [{write} for write in writes] + [set(writes) - {write} for write in writes]
    for kept in random.sample(single, min(len(single), count // 2)):
        yield frozenset(each for each in epoch.first(len(writes)) if each[0] in kept)
    for _ in range(count - min(len(single), count // 2)):
        yield subset(epoch, random)


def subset(epoch, random):
    """Of some first writes each is there, lost, or torn."""
    chosen, likely = set(), random.choice([0.2, 0.5, 0.8])
    for write in range(random.randint(1, len(epoch.writes))):
        parts = range(len(epoch.writes[write]))
        if random.random() < 0.25:
            chosen |= {(write, part) for part in parts if random.random() < 0.5}
        elif random.random() < likely:
            chosen |= {(write, part) for part in parts}
    return frozenset(chosen)


def apply(blocks, epoch, chosen, base):
    """Writes the chosen pieces into the blocks by number; what is not among them is in the base, or zero."""
    for write, piece in sorted(chosen):
        block, inside, data = epoch.writes[write][piece]
        before = blocks.get(block) or base.get(block) or bytes(BLOCK)
        blocks[block] = before[:inside] + data + before[inside + len(data) :]


def states(events, base, count, random):
    """Every chosen state as its phases, and the blocks by number in which it differs from the base.

    Each state comes once, and phases before the first mark are left out.
    """
    durable, seen = {}, {}
    for epoch in epochs(events):
        for chosen in choices(epoch, count, random):
            phases = epoch.phases(chosen) - {None}
            if not phases:
                continue
            blocks = dict(durable)
            apply(blocks, epoch, chosen, base)
            known = seen.setdefault(frozenset(blocks.items()), set())
            phases -= known
            known |= phases
            if phases:
                yield phases, blocks
        apply(durable, epoch, epoch.all(), base)
