"""Measures peaks of memory; tests/memory/run calls it and says what its arguments mean.

A row is a case of the probe, or a command of the driver, on inputs of several sizes. Its bound is what the
peak may be at most: so many times the input, or so many bytes for each entry or handle, plus a constant.
"""

import argparse
import contextlib
import dataclasses
import os
import pathlib
import platform
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import threading
import time
import typing

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "bench"))

import document
import machine

KIB, MIB, GIB = 1 << 10, 1 << 20, 1 << 30
DOCUMENT = ROOT / "docs/memory.md"
BEGIN = "<!-- The table of peaks: tests/memory/run writes what stands between these two lines. -->"
END = "<!-- End of the table of peaks. -->"

# The kernel counts the pages of a process in parts, one for each processor, and adds these up now and then
# (percpu_counter): a peak is right to some 128 KiB. Also in here: buffers of streams, folders and paths, and the
# pages of code that the call is the first to use.
CONSTANT = MIB
# From 32 MiB on, texts lie in huge pages of 2 MiB, of which the last may be used in part only.
HUGE_FROM, HUGE = 32 * MIB, 4 * MIB


@dataclasses.dataclass
class Row:
    name: str
    entries: str  # the entry points, or the command of the driver
    case: str  # of the probe, or the command of the driver if it begins with "quen-io"
    make: typing.Callable  # (folder, size) -> a context manager whose value is the path
    factor: float  # the peak is at most so many times the size, plus a constant
    reason: str
    sizes: tuple = (64 * MIB,)  # of a whole run
    quick: tuple = (MIB,)
    besides: typing.Callable = lambda size: 0  # what else may be needed, in bytes
    unit: str = ""  # of the size, if it is not bytes
    message: str = ""  # that the call has to raise
    gives: typing.Callable = lambda size: size  # what the probe has to tell

    def bound(self, size):
        most = int(self.factor * size) + self.besides(size)
        return most + CONSTANT + (HUGE if most >= HUGE_FROM else 0)

    def needs(self, size):
        """An estimate, with what the caller holds."""
        return self.bound(size) + (size if self.unit == "" and self.make is nothing else 0)


class Skipped(Exception):
    pass


# Inputs. Each is a context manager that makes what the path names; size 0 makes the empty input.


@contextlib.contextmanager
def sparse(folder, size):
    """A file of zeros, which take no space on the disk; to the readers they are a text of U+0000."""
    path = folder / "input"
    with path.open("wb") as file:
        file.truncate(size)
    yield path


def write_letters(file, size):
    for begin in range(0, size, MIB):
        file.write(b"a" * min(MIB, size - begin))


@contextlib.contextmanager
def ending_in(folder, size, end):
    path = folder / "input"
    with path.open("wb") as file:
        write_letters(file, size - len(end))
        file.write(end[:size])
    yield path


def letters(folder, size):
    return ending_in(folder, size, b"a")


def not_utf8(folder, size):
    return ending_in(folder, size, b"\xff")


def with_nul(folder, size):
    return ending_in(folder, size, b"\0")


@contextlib.contextmanager
def pipe(folder, size):
    """A FIFO, which claims no size."""
    path = folder / "input"
    os.mkfifo(path)

    def feed():
        with path.open("wb") as file:
            write_letters(file, size)

    feeder = threading.Thread(target=feed, daemon=True)  # nobody may open the other end
    feeder.start()
    yield path
    feeder.join()


@contextlib.contextmanager
def nothing(folder, _):
    """The path of a file that is written."""
    yield folder / "output"


@contextlib.contextmanager
def entries(folder, count):
    """A folder of small files; most are links, of which no file may have more than 65,000 (ext4)."""
    path = folder / "entries"
    path.mkdir()
    for number in range(count):
        name = f"{path}/entry-{number:07}"
        if number % 50_000 == 0:
            linked = name
            pathlib.Path(name).write_text("a small file\n")
        else:
            os.link(linked, name)
    yield path


@contextlib.contextmanager
def nested(folder, depth):
    """Folders in one another."""
    path = folder / "nested"
    path.mkdir()
    here = os.open(path, os.O_RDONLY)
    for _ in range(depth):
        os.mkdir("d", dir_fd=here)
        below = os.open("d", os.O_RDONLY, dir_fd=here)
        os.close(here)
        here = below
    os.close(here)
    yield path


@contextlib.contextmanager
def path_text(_, size):
    """A path of as many elements as fit."""
    yield "a/" * (size // 2)


@contextlib.contextmanager
def missing_path(folder, size):
    """A path of this length below the folder, which is not there yet."""
    text = (str(folder) + ("/" + "d" * 200) * 30)[:size]
    yield text[:-1] + "d" if text.endswith("/") else text


def recorded_kinds(entries):
    """What the small runtime needs for its record."""
    return 160 * min(entries, 65_536)


TWICE = "The module's text, of the file's size, and the runtime's String, its copy."
ROWS = [
    Row(
        "a whole text",
        "`FileReader._readAllTextPath`",
        "text",
        sparse,
        2,
        TWICE + " A read goes straight into the text, which is validated in place.",
        sizes=(MIB, 64 * MIB, GIB),
        quick=(MIB, 40 * MIB),
    ),
    Row(
        "a text from a pipe",
        "the same",
        "text",
        pipe,
        2,
        "Without a size to go by the text doubles: while it moves, the old and the new one hold the same bytes; "
        "afterwards it and the String.",
    ),
    Row(
        "a text that is not UTF-8 at its end",
        "the same",
        "text",
        not_utf8,
        1,
        "The text alone: it is released, and the String is empty.",
        message="File is not valid UTF-8 at byte ",
        gives=lambda size: 0,
    ),
    Row(
        "the second half of a text",
        "`FileInputStream._readTextFromOffsetPath`",
        "second half of a text",
        sparse,
        1.5,
        "The whole file is read and validated; the String is a copy of its half.",
        gives=lambda size: size // 2,
    ),
    Row(
        "a prefix of the file's size",
        "`FileReader._readPrefixPath`",
        "prefix",
        sparse,
        2,
        TWICE,
    ),
    Row(
        "a small file, with a limit of 1 GiB",
        "the same",
        "prefix up to a gibibyte",
        sparse,
        2,
        "Address space is reserved for the limit, but memory is touched in chunks of 64 KiB, as it is filled.",
        sizes=(4 * KIB,),
        quick=(4 * KIB,),
    ),
    Row(
        "a byte range",
        "`FileInputStream._readBytesPath`",
        "bytes",
        sparse,
        1,
        "The module's buffer, from which the runtime copies into the caller's Byte[].",
    ),
    Row(
        "a small file, with a count of 1 GiB",
        "the same",
        "bytes up to a gibibyte",
        sparse,
        1,
        "Address space for the count, of which only what is read is touched.",
        sizes=(4 * KIB,),
        quick=(4 * KIB,),
    ),
    Row(
        "TOML",
        "`TOML._readStrictPath`",
        "toml",
        letters,
        2,
        TWICE,
    ),
    Row(
        "TOML with U+0000 at its end",
        "the same",
        "toml",
        with_nul,
        1,
        "The text alone, as for a text that is not UTF-8.",
        message="Raw U+0000 is not allowed in TOML input at byte ",
        gives=lambda size: 0,
    ),
    *(
        Row(
            name,
            entry,
            case,
            nothing,
            1,
            "The runtime copies the Byte[] into a vector, which is written as it is.",
        )
        for name, entry, case in (
            ("bytes, replacing", "`Files._writeBytesPath`", "write bytes"),
            ("bytes with a prefix", "`Files._writeBytesWithPrefixPath`", "write bytes with prefix"),
            ("bytes, appending", "`FileOutputStream._appendBytesPath`", "append bytes"),
        )
    ),
    Row(
        "texts, replacing and appending",
        "`FileWriter._writePath`, `_appendPath`, `_truncatePath`, those of `FileOutputStream`",
        "write texts",
        nothing,
        0,
        "The caller's text is written as it is, past the buffer of the stream.",
    ),
    Row(
        "a text through a handle",
        "`FileWriter._openPath`, `_writeHandle`, `_flushHandle`, `_closeHandle`",
        "write through a handle",
        nothing,
        0,
        "A text that is larger than the buffer of 8 KiB is written as it is.",
    ),
    Row(
        "an index, published",
        "`DocumentIndexStore._writeAtomic`",
        "publish",
        nothing,
        0,
        "As for texts.",
    ),
    Row(
        "open handles",
        "`FileWriter._openPath`",
        "open handles",
        nothing,
        8_600,
        "A writer with its buffer of 8,192 bytes, of which the pages are touched when they are filled, and its "
        "place in the registry.",
        sizes=(10_000,),
        quick=(500,),
        unit="handles",
    ),
    Row(
        "handles with 8,000 bytes waiting",
        "`FileWriter._writeHandle`",
        "fill handles",
        nothing,
        8_600,
        "The same with all pages touched.",
        sizes=(10_000,),
        quick=(500,),
        unit="handles",
    ),
    Row(
        "a listing",
        "`FolderPath._listNamesNative`",
        "list",
        entries,
        128,
        "The module holds one path. Of the small runtime: an object of 64 bytes for each name (a name of more than "
        "15 bytes is in a block of its own), its pointer in a vector that doubles, and what does not fit between "
        "blocks of objects, which are aligned to their size; the kinds of the last 65,536 entries or fewer, some "
        "160 bytes each.",
        sizes=(1_000_000,),
        quick=(20_000,),
        besides=recorded_kinds,
        unit="entries",
    ),
    Row(
        "a removal of many entries",
        "`FolderPath._removeAllNative`",
        "remove",
        entries,
        0,
        "The library reads the folder through a buffer of 32 KiB.",
        sizes=(100_000,),
        quick=(5_000,),
        unit="entries",
    ),
    Row(
        "a removal of folders in folders",
        "the same",
        "remove",
        nested,
        34_000,
        "The library keeps every folder on the way open, each with a descriptor and a buffer of 32 KiB, of which it "
        "touches what the entries of the folder need.",
        sizes=(900,),
        quick=(200,),
        unit="levels",
    ),
    Row(
        "operations on a path of 2,048 elements",
        "`Path.normalize`, `relativize`, `resolve`, `parent`, `name` and the other path operations",
        "operate on a path",
        path_text,
        200,
        "The library keeps a list of the elements of a path, 48 bytes for each; a relative path needs several.",
        sizes=(4 * KIB,),
        quick=(4 * KIB,),
    ),
    Row(
        "queries of a long path",
        "`Path._exists`, `_size`, `FileInputStream._existsPath` and the other queries",
        "query a path",
        missing_path,
        0,
        "A path and its copies; most of it is code that is used for the first time.",
        sizes=(4_000,),
        quick=(4_000,),
    ),
    Row(
        "changes at a long path",
        "`Path.remove`, `rename`, `touch`, `FolderPath._mkdirNative`, `_mkdirsNative`, the guard",
        "change entries",
        missing_path,
        0,
        "A path, its copies and its parents; the same.",
        sizes=(4_000,),
        quick=(4_000,),
    ),
    Row(
        "`quen-io index` of small files",
        "the driver",
        "quen-io index",
        entries,
        900,
        "The names of the folder, an inspected entry for each that is not visited yet, which prefetching makes "
        "most of them, and the lines of the index, of which the text doubles.",
        sizes=(1_000_000,),
        quick=(5_000,),
        unit="entries",
    ),
    Row(
        "`quen-io check` of a file",
        "the driver",
        "quen-io check",
        sparse,
        2,
        "The whole-file reader's; above 1 GiB, its text doubles.",
        sizes=(4 * GIB,),
        quick=(40 * MIB,),
    ),
]


class Probe:
    """Runs the calls of rows in processes of their own."""

    def __init__(self, probe, driver):
        self.probe, self.driver = str(probe), str(driver)

    def peak(self, row, path, size, whole):
        """The peak in bytes. What the call gave is as expected, or this raises."""
        if row.case.startswith("quen-io"):
            return self.peak_of_driver(row, path)
        done = self.run(row.case, path, size, whole)
        kib, given, message = done.split("\n")[:3]
        raised_as_wanted = message.startswith(row.message) and bool(message) == bool(row.message)
        if size > 0 and (int(given) != row.gives(size) or not raised_as_wanted):
            raise ValueError(f"{row.name}: gave {given} of {size}, and raised {message!r}")
        return int(kib) * KIB

    def peak_of_driver(self, row, path):
        command = row.case.split()[1]
        output = pathlib.Path(path).parent / "index.jsonl"
        options = ["--quiet", f"--output={output}"] if command == "index" else []
        return int(self.run("--peak-of", self.driver, command, path, *options)) * KIB

    def run(self, *words):
        done = subprocess.run(
            [self.probe, *map(str, words)], capture_output=True, text=True, cwd=tempfile.gettempdir()
        )
        if done.returncode != 0:
            raise ValueError(f"{words}: status {done.returncode} {done.stderr}")
        return done.stdout


@dataclasses.dataclass
class Result:
    row: Row
    size: int
    peak: int

    @property
    def broken(self):
        return self.peak > self.row.bound(self.size)

    def line(self):
        return [
            self.row.name,
            self.row.entries,
            amount(self.size, self.row.unit),
            amount(self.peak),
            self.relative(),
            bound_text(self.row) + (" BROKEN" if self.broken else ""),
            self.row.reason,
        ]

    def relative(self):
        if self.row.unit:
            return f"{self.peak / self.size:,.0f} bytes each"
        return f"{self.peak / self.size:.2f} x"


def amount(number, unit=""):
    if unit:
        return f"{number:,} {unit}"
    for name, size in (("GiB", GIB), ("MiB", MIB), ("KiB", KIB)):
        if number >= size:
            return f"{number / size:.4g} {name}"
    return f"{number} bytes"


def bound_text(row):
    if row.factor == 0:
        return "a constant"
    besides = " and recorded kinds" if row.besides(1) > 0 else ""
    return (f"{row.factor:,} bytes each" if row.unit else f"{row.factor} x") + besides


def measure(row, size, probe, folder, rounds=5):
    """The median of some rounds, or one round if it is long and large."""
    require(row, size, folder)
    if row.bound(size) > 64 * MIB:
        rounds = 1
    peaks = [peak_once(row, size, probe, folder) for _ in range(rounds)]
    return Result(row, size, int(statistics.median(peaks)))


def peak_once(row, size, probe, folder):
    peaks = []
    for given in (size, 0):
        with tempfile.TemporaryDirectory(prefix="quen-io-memory-", dir=folder) as place:
            with row.make(pathlib.Path(place), given) as path:
                peaks.append(probe.peak(row, path, given, size))
    return max(peaks[0] - peaks[1], 0)


def require(row, size, folder):
    """Raises Skipped if the machine is too small."""
    available = int(machine.text_of("/proc/meminfo").split("MemAvailable:")[1].split()[0]) * KIB
    if row.needs(size) + GIB > available:
        raise Skipped(f"needs {amount(row.needs(size))} of memory, {amount(available)} are available")
    descriptors = resource.getrlimit(resource.RLIMIT_NOFILE)[0]
    if row.unit in ("handles", "levels") and size + 20 > descriptors:
        raise Skipped(f"needs {size} descriptors, {descriptors} are allowed")
    space = shutil.disk_usage(folder).free
    if row.make in (nothing, letters, not_utf8, with_nul) and not row.unit and size + 64 * MIB > space:
        raise Skipped(f"needs {amount(size)} in {folder}, which has {amount(space)}")


def measure_all(rows, probe, quick, show):
    """The results, and the rows that were skipped with their reasons."""
    results, skipped = [], []
    allow_many_descriptors()
    for row in rows:
        for size in row.quick if quick else row.sizes:
            try:
                results.append(measure(row, size, probe, scratch_for(row)))
                show(results[-1])
            except Skipped as reason:
                skipped.append((row, size, str(reason)))
    return results, skipped


def allow_many_descriptors():
    hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))


def scratch_for(row):
    """Many entries are made in memory, if there is such a file system."""
    if row.unit in ("entries", "levels") and os.access("/dev/shm", os.W_OK):
        return "/dev/shm"
    return tempfile.gettempdir()


HEADER = ["What", "By", "Input", "Peak", "Relative", "Bound", "Why"]


def section(results):
    """What stands between the markers of the document."""
    system = {
        "kernel": f"{platform.system()} {platform.release().split('-')[0]}",
        "C library": " ".join(platform.libc_ver()),
        "huge pages": machine.selected(machine.text_of("/sys/kernel/mm/transparent_hugepage/enabled")),
        "compiler": machine.compiler(ROOT / "build/release"),
    }
    lines = [result.line() for result in results]
    return f"{time.strftime('%Y-%m-%d')}: {machine.line(system)}.\n\n{document.markdown([HEADER, *lines])}"


def write(results, path):
    path.write_text(document.replace(path.read_text(), BEGIN, END, section(results), path))


def finish(results, skipped):
    if skipped:
        print(f"{DOCUMENT.name} is left as it is, because not everything was measured")
    else:
        write(results, DOCUMENT)


def show(result):
    name, _, size, peak, relative, bound, _ = result.line()
    print(f"  {name:40} {size:>18} {peak:>10} {relative:>18}   at most {bound}", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("probe", type=pathlib.Path)
    parser.add_argument("driver", type=pathlib.Path)
    parser.add_argument("words", nargs="*")
    parser.add_argument("--quick", action="store_true")
    options = parser.parse_args()
    rows = [row for row in ROWS if not options.words or any(word in row.name for word in options.words)]
    probe = Probe(options.probe.resolve(), options.driver.resolve())
    results, skipped = measure_all(rows, probe, options.quick, show)
    for row, size, reason in skipped:
        print(f"skipped: {row.name}, {amount(size, row.unit)}: {reason}")
    if not options.quick and not options.words:
        finish(results, skipped)
    broken = [result for result in results if result.broken]
    for result in broken:
        print(f"{result.row.name}: {amount(result.peak)}, above {amount(result.row.bound(result.size))}")
    return 1 if broken or not results else 0


if __name__ == "__main__":
    sys.exit(main())
