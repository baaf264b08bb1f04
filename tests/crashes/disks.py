"""Disks that are files in memory behind a loop device: one whose writes are logged, one that is put into states."""

import contextlib
import ctypes
import os
import signal
import subprocess
import time

import write_log
from states import BLOCK

LIBC = ctypes.CDLL(None, use_errno=True)
LOG_SIZE = 1 << 30  # sparse
TAIL = 1 << 20  # behind the file system, where marks are written
READ_ONLY = 1  # MS_RDONLY


class CannotRun(Exception):
    pass


def run(*command):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True)
    if done.returncode != 0:
        raise CannotRun(f"{' '.join(map(str, command))}: {(done.stderr or done.stdout).strip()}")
    return done.stdout.strip()


@contextlib.contextmanager
def memory(folder):
    """A file system in memory at the folder."""
    run("mount", "-t", "tmpfs", "-o", "size=2G", "tmpfs", folder)
    try:
        yield
    finally:
        run("umount", folder)


@contextlib.contextmanager
def loop_device(file, size):
    """A block device over the first bytes of a file."""
    device = run("losetup", "--find", "--show", "--sizelimit", size, file)
    try:
        yield device
    finally:
        run("losetup", "--detach", device)


@contextlib.contextmanager
def mounted(device, kind, options, folder, flags=0):
    """Raises OSError if the kernel refuses to mount it."""
    words = [str(device).encode(), str(folder).encode(), kind.encode()]
    if LIBC.mount(*words, ctypes.c_ulong(flags), options.encode()) != 0:
        raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))
    try:
        yield folder
    finally:
        if LIBC.umount2(words[1], 0) != 0:
            raise CannotRun(f"umount {folder}: {os.strerror(ctypes.get_errno())}")


def sync_file_system(path):
    descriptor = os.open(path, os.O_RDONLY)
    try:
        if LIBC.syncfs(descriptor) != 0:
            raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))
    finally:
        os.close(descriptor)


def write_data(path):
    """Writes the data of a file to the disk, and none of the metadata, as the kernel does after some time."""
    waited = 1 | 2 | 4  # SYNC_FILE_RANGE_WAIT_BEFORE, SYNC_FILE_RANGE_WRITE, SYNC_FILE_RANGE_WAIT_AFTER
    descriptor = os.open(path, os.O_RDONLY)
    try:
        zero = ctypes.c_int64(0)
        if LIBC.sync_file_range(descriptor, zero, zero, ctypes.c_uint(waited)) != 0:
            raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))
    finally:
        os.close(descriptor)


def read_blocks(path):
    """The blocks of a sparse file by number, without those of zeros."""
    blocks, zeros = {}, bytes(BLOCK)
    with open(path, "rb") as file:
        end = os.fstat(file.fileno()).st_size
        place = 0
        while place < end:
            try:
                place = os.lseek(file.fileno(), place, os.SEEK_DATA) // BLOCK * BLOCK
            except OSError:  # only holes follow
                break
            hole = os.lseek(file.fileno(), place, os.SEEK_HOLE)
            for place in range(place, hole, BLOCK):
                block = os.pread(file.fileno(), BLOCK, place)
                if block != zeros:
                    blocks[place // BLOCK] = block
            place += BLOCK
    return blocks


class Image:
    """A sparse file that is given contents again and again."""

    def __init__(self, path, size, base):
        self.size = size
        self.extents = list(extents(base))
        self.file = os.open(path, os.O_RDWR | os.O_CREAT)
        os.ftruncate(self.file, size)  # a loop device over it is as large as the file is now

    def close(self):
        os.close(self.file)

    def put(self, changes):
        """Gives the file the contents of the base, with these blocks in place of its own."""
        os.ftruncate(self.file, 0)
        os.ftruncate(self.file, self.size)
        for offset, data in self.extents:
            os.pwrite(self.file, data, offset)
        for number, block in changes.items():
            os.pwrite(self.file, block, number * BLOCK)


def extents(blocks):
    """The blocks as few long pieces of data, each with its offset."""
    start, parts = None, []
    for number in sorted(blocks):
        if parts and number != start + len(parts):
            yield start * BLOCK, b"".join(parts)
            parts = []
        if not parts:
            start = number
        parts.append(blocks[number])
    if parts:
        yield start * BLOCK, b"".join(parts)


class Recorder:
    """A disk with the contents of an image, of which every write is logged. A slow one does 40 requests a second."""

    def __init__(self, folder, size, base, slow):
        self.folder, self.size, self.slow = folder, size, slow
        self.image, self.log, self.export = folder / "recorded", folder / "log", folder / "export"
        image = Image(self.image, size + TAIL, base)
        image.put({})
        image.close()
        self.log.unlink(missing_ok=True)
        self.log.touch()
        os.truncate(self.log, LOG_SIZE)
        self.export.touch()

    @contextlib.contextmanager
    def device(self):
        """The block device; the log is complete when it is gone."""
        with self.serving(), loop_device(self.export, self.size) as device:
            self.marks = os.open(self.export, os.O_WRONLY)
            try:
                yield device
            finally:
                os.close(self.marks)

    @contextlib.contextmanager
    def serving(self):
        server = subprocess.Popen(
            ["qemu-storage-daemon"]
            + ["--object", "throttle-group,id=limit" + (",limits.iops-total=40" if self.slow else "")]
            + ["--blockdev", f"driver=file,node-name=image,filename={self.image},discard=unmap"]
            + ["--blockdev", f"driver=file,node-name=log,filename={self.log}"]
            + ["--blockdev", "driver=blklogwrites,node-name=logged,file=image,log=log"]
            + ["--blockdev", "driver=throttle,node-name=top,throttle-group=limit,file=logged"]
            + ["--export", f"type=fuse,id=export,node-name=top,mountpoint={self.export},writable=on"],
            stderr=subprocess.PIPE,
            text=True,
        )
        try:
            plain = self.folder.stat().st_dev
            while self.export.stat().st_dev == plain:
                if server.poll() is not None:
                    raise CannotRun(f"qemu-storage-daemon: {server.stderr.read().strip()}")
                time.sleep(0.005)
            yield
        finally:
            server.send_signal(signal.SIGTERM)
            server.wait()
            server.stderr.close()

    def mark(self, name):
        os.pwrite(self.marks, write_log.mark(name), self.size)

    def events(self):
        with open(self.log, "rb") as file:
            return write_log.events(os.pread(file.fileno(), end_of_data(file), 0), self.size)


def end_of_data(file):
    """Where the data of a sparse file end, rounded up to a page."""
    end = 0
    with contextlib.suppress(OSError):  # no data follow
        while True:
            end = os.lseek(file.fileno(), os.lseek(file.fileno(), end, os.SEEK_DATA), os.SEEK_HOLE)
    return end
