"""The workloads of the benchmark, and the targets of the module."""

import dataclasses
import functools
import os
import pathlib
import re

import data


@dataclasses.dataclass
class Workload:
    name: str
    operation: str
    arguments: list  # or functions that make what they return
    iterations: int  # at least, in an answer
    # Targets: the implementation to compare with, and the highest accepted ratio to its time.
    targets: dict = dataclasses.field(default_factory=dict)
    curve: dict | None = None  # the curve it is a point of
    only: list | None = None  # the implementations that take part, if not all
    rounds: int = 5  # of each process

    def operation_of(self, implementation):
        return "utf8_simd" if self.operation == "utf8" and implementation == "rust" else self.operation


KIB, MIB, GIB = 1 << 10, 1 << 20, 1 << 30
# The highest accepted ratios to the time of the SIMD validator.
SIMD = {"ascii": 1.05, "accents": 0.85, "cyrillic": 0.85, "chinese": 1.15, "emoji": 1.35, "mixed": 1.35}
OTHERS = ["rust", "go", "node", "python", "java"]
# To read a whole file in Rust, which keeps the text that it read: the module copies it into a String.
RUST_READING = {"ascii": {64 * KIB: 1.3, 16 * MIB: 1.1, 512 * MIB: 1.0}, "chinese": {512 * MIB: 0.6}}


OWN = ["module", "plain", "limit", "limit_at_boundary"]


def curve(name, size, kind="plot", units=1):
    """A point of a curve: of a plot alone, or of a table of growth or of threads as well, where the cost of a
    call is divided by the units that the call works on.
    """
    return {"name": name, "size": size, "kind": kind, "units": units}


def size_name(size):
    if size >= GIB:
        return f"{size // GIB} GiB"
    return f"{size // MIB} MiB" if size >= MIB else f"{size // KIB} KiB" if size >= KIB else f"{size} B"


def all_workloads(folder, quick):
    yield from validation(folder, quick)
    yield from whole_files(folder, quick)
    yield from parts_of_files(folder)
    yield from paths(folder)
    yield from writing(folder, quick)
    yield from folders(folder, quick)


def validation(folder, quick):
    for alphabet, limit in SIMD.items():
        for size in [16, 64, 256, KIB, 64 * KIB, MIB, 16 * MIB]:
            if quick and size in (MIB, 16 * MIB):
                continue
            targets = {"plain": 1 / 10 if size >= 64 * KIB else 0.5 if size == 64 else 1.0}
            if size >= 64 * KIB:
                targets["rust"] = limit
            elif size >= 256:
                targets["rust"] = 2.0
            yield Workload(
                f"validate {size_name(size)} {alphabet}",
                "utf8",
                [data.text_file(folder, alphabet, size)],
                max(1, 256 * KIB // size),
                targets,
                curve=curve(f"validate {alphabet}", size),
            )


def whole_files(folder, quick):
    for size in [KIB, 64 * KIB, 16 * MIB, 512 * MIB]:
        if quick and size > 16 * MIB:
            continue
        for alphabet in ["ascii", "chinese"]:
            targets = {"limit_at_boundary": 1.08 if size == KIB else 1.15}
            if size >= 64 * KIB:
                targets |= {other: 0.5 for other in OTHERS}
                targets["rust"] = RUST_READING[alphabet].get(size, 0.5)
            yield Workload(
                f"read {size_name(size)} {alphabet}",
                "read_text",
                [data.text_file(folder, alphabet, size)],
                max(1, MIB // size // 4),
                targets,
                curve=curve(f"read whole, {alphabet}", size),
            )


def parts_of_files(folder):
    large = data.text_file(folder, "ascii", 16 * MIB)
    yield Workload("prefix 4 KiB", "prefix", [large, 4 * KIB], 200, {"limit": 1.25})
    yield Workload("range 4 KiB", "range", [large, 8 * MIB, 4 * KIB], 200, {"limit": 1.15})


def paths(folder):
    normal, detours = data.path_files(folder)
    ahead = {"boost": 1.0, "node": 1.0, "python": 1.0}
    for name, operation, lines, targets in [
        ("normalize, normal already", "normalize", normal, {"plain": 0.35} | ahead),
        ("normalize, with detours", "normalize", detours, {"plain": 0.65} | ahead),
        ("normalize objects", "normalize_object", normal, {"plain": 0.35}),
        ("parent", "parent", normal, {"plain": 0.55} | ahead | {"boost": 2.0}),
        ("resolve", "resolve", normal, {"plain": 0.55} | ahead),
        ("isNormalized", "is_normalized", normal, {"plain": 0.3}),
        ("name", "name", normal, {"plain": 1.0}),
        ("extension", "extension", normal, {"plain": 1.0}),
    ]:
        yield Workload(name, operation, [lines], 1, targets)


def writing(folder, quick):
    # /dev/null shows the cost of the handle, a file that of writing.
    null, file = data.null_files(folder), data.scratch(folder, "written")
    for size, threads, times, limit in [
        (64, 1, 200_000, 0.85),
        (64, 2, 200_000, 0.8),
        (KIB, 1, 50_000, 0.45),
        (64 * KIB, 1, 5000, 1.0),
    ]:
        name = f"write {size_name(size)}" + (", two threads" if threads == 2 else "")
        yield Workload(name, "write", [null, size, threads], times, {"plain": limit})
        yield Workload(name + ", to a file", "write", [file, size, threads], times // 10)
    yield Workload("publish 4 KiB", "publish", [data.scratch(folder, "index"), 4 * KIB], 100, {"limit": 1.1})


def folders(folder, quick):
    for entries, limit in [(10, 1.35), (1000, 1.4), (100_000, 1.5)]:
        if quick and entries > 1000:
            continue
        yield Workload(
            f"list {entries:,} entries",
            "list",
            [data.listing(folder, entries)],
            max(1, 1000 // entries),
            {"limit": limit, "go": 1.0, "node": 1.0, "python": 1.0},
            curve=curve("list", entries),
        )
    files = 2000 if quick else 20_000
    yield Workload(
        f"remove {files:,} files",
        "remove_tree",
        [data.scratch(folder, f"removed-{os.getpid()}"), files],
        1,
        {"limit": 1.1},
    )
    yield Workload("guard", "guard", [data.scratch(folder, "removed")], 1000)


def growth(folder):
    """Workloads without targets and peers, which show how the cost of a unit grows with size. Large data is made
    only for those that are measured.
    """
    for entries in [1000, 10_000, 100_000, 1_000_000]:
        yield Workload(
            f"list a folder of {entries:,} entries",
            "list",
            [functools.partial(data.listing, folder, entries)],
            max(1, 10_000 // entries),
            curve=curve("listing, per entry", entries, "growth", entries),
            only=OWN,
            rounds=3 if entries == 1_000_000 else 5,
        )
    for size in [KIB, 64 * KIB, 16 * MIB, 256 * MIB, GIB, 4 * GIB]:
        if 4 * size > memory_available():  # the file in the page cache, and two texts
            continue
        yield Workload(
            f"read a text of {size_name(size)}",
            "read_text",
            [functools.partial(data.text_file, folder, "ascii", size)],
            max(1, MIB // size),
            curve=curve("reading, per byte", size, "growth", size),
            only=OWN if size < GIB else ["module", "limit", "limit_at_boundary"],
            rounds=3 if size >= GIB else 5,
        )
    for length in [16, 64, 256, KIB, 4 * KIB]:
        yield Workload(
            f"normalize a path of {length} bytes",
            "normalize",
            [data.path_of_length(folder, length)],
            1,
            curve=curve("normalizing, per byte", length, "growth", data.PATHS_OF_LENGTH * length),
            only=OWN,
        )
    null = data.null_files(folder)
    for handles in [1, 10, 100, 1000, 10_000]:
        yield Workload(
            f"write 64 B among {handles:,} handles",
            "write_among",
            [null, 64, 1, handles - 1],
            200_000,
            curve=curve("writing 64 B, per write, by open handles", handles, "growth"),
            only=OWN,
        )


def memory_available():
    """In bytes, with what the page cache would give back."""
    return int(re.search(r"MemAvailable:\s+(\d+) kB", pathlib.Path("/proc/meminfo").read_text())[1]) * KIB


def on_threads(folder):
    """The same work on each of several threads at once."""
    for name, times, request in [
        ("reading 64 KiB", 1000, ["read_text", data.text_file(folder, "ascii", 64 * KIB)]),
        ("listing 1,000 entries", 10, ["list", data.listing(folder, 1000)]),
        ("normalizing", 5, ["normalize", data.path_files(folder)[0]]),
        ("writing 64 B", 500_000, ["write", data.null_files(folder), 64, 1]),
    ]:
        for threads in [1, 2, 4, 8, 16]:
            yield Workload(
                f"{name} on {threads} thread{'s' if threads > 1 else ''}",
                "on_threads",
                [threads, *request],
                times,
                curve=curve(name, threads, "threads", threads),
                only=OWN,
            )
