"""Reads the log that the driver blklogwrites of QEMU writes, in the format of the kernel's dm-log-writes.

The log is a list of events in the order in which the disk was asked for them.
"""

import collections
import struct

Write = collections.namedtuple("Write", "offset data")
Flush = collections.namedtuple("Flush", "")
Mark = collections.namedtuple("Mark", "name")  # written by the recording program behind the file system

SECTOR = 512
SUPER = struct.Struct("<QQQI")  # magic number, version, entries, sector size
ENTRY = struct.Struct("<QQQQ")  # first sector, sectors, flags, length of the data
MAGIC = 0x6A736677736872
FLUSH, FUA, DISCARD = 1, 2, 4


class Unexpected(Exception):
    pass


def mark(name):
    """The block that stands for a mark: it is written behind the file system."""
    return name.encode().ljust(4096, b"\0")


def events(log, size):
    """The events of a log (bytes or a mapped file), of a file system of this size at the start of the disk."""
    magic, version, count, sector_size = SUPER.unpack_from(log, 0)
    if (magic, version, sector_size) != (MAGIC, 1, SECTOR):
        raise Unexpected(f"superblock {magic:#x}, version {version}, sectors of {sector_size} bytes")
    place, found = SECTOR, []
    for _ in range(count):
        sector, sectors, flags, _ = ENTRY.unpack_from(log, place)
        place += SECTOR
        length = sectors * SECTOR
        if flags & ~(FLUSH | DISCARD):
            # The loop device writes through with a flush of its own instead.
            raise Unexpected(f"an entry with the flags {flags:#x}")
        if flags & FLUSH:
            found.append(Flush())
        if flags & DISCARD:
            found.append(Write(sector * SECTOR, bytes(length)))  # a hole in the file of the disk
        elif length:
            found.append(write_or_mark(sector * SECTOR, log[place : place + length], size))
            place += length
    return found


def write_or_mark(offset, data, size):
    if offset < size:
        return Write(offset, data)
    return Mark(data.split(b"\0", 1)[0].decode())
