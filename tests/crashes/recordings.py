"""Records what a file system writes while the module works in it."""

import contextlib
import dataclasses
import os
import pathlib
import subprocess
import threading
import time

import disks
from operations import BYSTANDER, KEPT, REMOVED, TARGET, TEMPORARIES, Operation

DELAY = 0.08  # seconds after each system call of a slow program
LATER = 2.2  # seconds in which the journal is committed, which happens once a second
DIRTY = {
    "lazy": {"dirty_expire_centisecs": 3000, "dirty_writeback_centisecs": 500},
    "eager": {"dirty_expire_centisecs": 30, "dirty_writeback_centisecs": 10},
}
XFS_COMMITS = "/proc/sys/fs/xfs/xfssyncd_centisecs"


@dataclasses.dataclass(frozen=True)
class FileSystem:
    name: str
    kind: str
    size: int
    make: tuple
    options: str

    def prepare(self, folder, old):
        """The blocks of a file system with the old text (or none), a bystander, and free blocks that were used."""
        image = folder / "made"
        image.unlink(missing_ok=True)
        image.touch()
        os.truncate(image, self.size)
        disks.run(*self.make, image)
        with disks.loop_device(image, self.size) as device, self.mounted(device, folder) as top:
            here = top / "here"
            here.mkdir()
            if old is not None:
                (here / TARGET).write_bytes(old)
            (here / BYSTANDER).write_bytes(KEPT)
            disks.sync_file_system(top)
            (top / "removed").write_bytes(REMOVED)
            disks.sync_file_system(top)
            (top / "removed").unlink()
            disks.sync_file_system(top)
        return disks.read_blocks(image)

    def mounted(self, device, folder, flags=0):
        target = folder / "mounted"
        target.mkdir(exist_ok=True)
        return disks.mounted(device, self.kind, self.options, target, flags)


MEBIBYTE = 1 << 20
EXT4 = ("mkfs.ext4", "-q", "-b", "4096", "-J", "size=4", "-E", "lazy_itable_init=0,lazy_journal_init=0")
FILE_SYSTEMS = [
    FileSystem(f"ext4 {options}".strip(), "ext4", 24 * MEBIBYTE, EXT4, f"commit=1,{options}".strip(","))
    for options in ("", "noauto_da_alloc", "data=writeback", "data=writeback,noauto_da_alloc")
] + [
    FileSystem("xfs", "xfs", 300 * MEBIBYTE, ("mkfs.xfs", "-q"), ""),
    FileSystem("btrfs", "btrfs", 128 * MEBIBYTE, ("mkfs.btrfs", "-q"), "commit=1"),
]


@dataclasses.dataclass(frozen=True)
class Recording:
    """An operation, which files the caller syncs, and what else makes the kernel write.

    stay     the journal is committed before the data are written; then all is written
    data     the data are written first, then the journal is committed; then all is written
    time     the kernel writes both when it wants to, which here is soon; then all is written
    fsync    another program calls fsync for its own file while the operation runs slowly
    sync     another program calls sync while the operation runs slowly
    slow     the disk is slow, and another program calls fsync for its own file right after the operation, so
             that the journal is committed while the data are being written
    """

    operation: Operation
    synced: tuple = ()
    schedule: str = "stay"


@contextlib.contextmanager
def settings(values):
    """Settings of the kernel by path, restored at the end."""
    before = {path: pathlib.Path(path).read_text() for path in values}
    try:
        for path, value in values.items():
            pathlib.Path(path).write_text(str(value))
        yield
    finally:
        for path, value in before.items():
            pathlib.Path(path).write_text(value)


def writeback(schedule):
    dirty = DIRTY["eager" if schedule == "time" else "lazy"]
    values = {f"/proc/sys/vm/{name}": value for name, value in dirty.items()}
    if os.path.exists(XFS_COMMITS):
        values[XFS_COMMITS] = 100
    return settings(values)


class Worker:
    """The program that calls the module, in a folder."""

    def __init__(self, program, folder, slow):
        command = [program]
        if slow:
            microseconds = int(DELAY * 1_000_000)
            calls = "openat,write,writev,close,rename,renameat,renameat2"
            paths = [word for name in (TARGET, *TEMPORARIES) for word in ("-P", folder / name)]
            delay = f"inject={calls}:delay_exit={microseconds}"
            options = ["-f", "-o", "/dev/null", "-e", f"trace={calls}", "-e", delay]
            command = ["strace", *options, *paths, program]
        self.folder = folder
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def call(self, command, name, argument):
        line = b" ".join([command.encode(), os.fsencode(self.folder / name), argument])
        self.process.stdin.write(line + b"\n")
        self.process.stdin.flush()
        answer = self.process.stdout.readline()
        if answer != b"\n":
            raise disks.CannotRun(f"{command} raised {answer.decode().strip() or 'nothing, and ended'}")

    def end(self):
        self.process.stdin.close()
        self.process.wait()
        self.process.stdout.close()


@contextlib.contextmanager
def another_program(schedule, folder):
    """Calls sync, or fsync for a file of its own, again and again."""
    done = threading.Event()

    def work():
        while not done.wait(DELAY / 2):
            if schedule == "sync":
                disks.sync_file_system(folder)
            else:
                change_and_fsync(folder / BYSTANDER)

    thread = threading.Thread(target=work)
    if schedule in ("sync", "fsync"):
        thread.start()
    try:
        yield
    finally:
        done.set()
        if thread.is_alive():
            thread.join()


def change_and_fsync(path):
    os.utime(path)
    fsync(path)


def fsync(path):
    descriptor = os.open(path, os.O_RDONLY)
    try:
        os.fsync(descriptor)
    finally:
        os.close(descriptor)


def record(recording, system, base, program, folder):
    """The events of the recording, from the mark "begin" to the mark "end", and those before.

    The mark after the promise number N is named "N".
    """
    recorder = disks.Recorder(folder, system.size, base, slow=recording.schedule == "slow")
    with writeback(recording.schedule), recorder.device() as device:
        with system.mounted(device, folder) as top:
            here = top / "here"
            disks.sync_file_system(top)
            # After a commit, the next one of ext4 does not begin with a write of the journal's superblock.
            change_and_fsync(here / BYSTANDER)
            worker = Worker(program, here, recording.schedule in ("sync", "fsync"))
            begin(recorder)
            try:
                with another_program(recording.schedule, here):
                    work(recording, worker, recorder)
            finally:
                worker.end()
            let_write(recording, here)
        recorder.mark("end")
    events = recorder.events()
    return events[: 1 + [getattr(event, "name", "") for event in events].index("end")]


def begin(recorder):
    """Marks the beginning; a slow disk is then busy, since it does the first few requests at once."""
    for _ in range(10 if recorder.slow else 1):
        recorder.mark("begin")


def work(recording, worker, recorder):
    promises = 0
    for step in recording.operation.steps:
        if step[0] == "fsync":
            fsync(worker.folder / step[1])
        elif step[0] == "promise":
            promises += 1
            if recorder.slow and not recording.synced:
                change_and_fsync(worker.folder / BYSTANDER)
            recorder.mark(str(promises))
        else:
            worker.call(*step)


def let_write(recording, here):
    """Lets the kernel write what the operation has left in memory."""
    if recording.schedule == "data":
        disks.write_data(here / TARGET)
        change_and_fsync(here / BYSTANDER)
    elif recording.schedule in ("stay", "time") and not recording.synced:
        time.sleep(LATER)
    disks.sync_file_system(here)


def promises(operation):
    """The texts with which the file has to begin after each mark of a promise, by the mark's name."""
    texts = [step[1] for step in operation.steps if step[0] == "promise"]
    return {str(number): promised for number, promised in enumerate(texts, 1)}
