"""The data of the benchmark: created once from fixed seeds, the same for all implementations."""

import os
import pathlib
import random

# The characters of each alphabet, by a random number.
ALPHABETS = {
    "ascii": lambda r: chr(97 + r % 26),
    "accents": lambda r: chr(0xE0 + r // 20 % 30) if r % 20 == 0 else chr(97 + r % 26),
    "cyrillic": lambda r: " " if r % 6 == 0 else chr(0x410 + r % 64),
    "chinese": lambda r: chr(0x4E00 + r % 20000),
    "emoji": lambda r: chr(0x1F300 + r % 700),
    "mixed": lambda r: (
        chr(97 + r // 4 % 26),
        chr(0x410 + r // 4 % 64),
        chr(0x4E00 + r // 4 % 20000),
        chr(0x1F300 + r // 4 % 700),
    )[r % 4],
}
PATHS = 20_000
PATHS_OF_LENGTH = 1000


def text_file(folder, alphabet, size):
    """A file of the given size with well-formed text."""
    path = folder / f"{alphabet}-{size}.txt"
    if not path.exists():
        numbers = random.Random(1)
        part = "".join(ALPHABETS[alphabet](numbers.getrandbits(32)) for _ in range(min(size, 1 << 20)))
        encoded = part.encode()
        whole, rest = divmod(size, len(encoded))
        with path.open("wb") as file:
            for _ in range(whole):
                file.write(encoded)
            file.write(encoded[:rest].decode(errors="ignore").encode().ljust(rest, b"."))
    return path


def path_files(folder):
    """Two files with real paths, one per line: in normal form, and with redundant segments. bench/paths.txt
    holds files of a small Debian 12 below /usr, so that the counts of a call are the same on every machine.
    """
    normal, detours = folder / "paths-normal.txt", folder / "paths-detours.txt"
    if not normal.exists():
        kept = pathlib.Path(__file__).with_name("paths.txt").read_text().splitlines()
        found = [kept[number % len(kept)] for number in range(PATHS)]
        numbers = random.Random(2)
        normal.write_text("".join(f"{path}\n" for path in found))
        detours.write_text("".join(f"{detour(path, numbers)}\n" for path in found))
    return normal, detours


def path_of_length(folder, length):
    """A file of lines with the same normal path, which has a segment every eight bytes."""
    path = folder / f"path-{length}.txt"
    path.write_text(("/element" * (length // 8) + "\n") * PATHS_OF_LENGTH)
    return path


def detour(path, numbers):
    """The path with one redundant segment."""
    steps = path.split("/")
    steps.insert(numbers.randrange(2, len(steps) + 1), numbers.choice([".", "", "aside/..", "./."]))
    return "/".join(steps)


def listing(folder, entries):
    """A folder with the given number of empty files."""
    path = folder / f"listing-{entries}"
    if not path.exists():
        path.mkdir()
        for number in range(entries):
            os.mknod(path / f"entry-{number}.txt")
    return path


def tree(folder, files):
    """A tree with the given number of small text files, a hundred in each folder."""
    path = folder / f"tree-{files}"
    if not path.exists():
        for number in range(files):
            below = path / str(number // 10_000) / str(number // 100 % 100)
            if number % 100 == 0:
                below.mkdir(parents=True)
            (below / f"{number}.txt").write_text(f"file {number}\n" * 20)
    return path


def scratch(folder, name):
    """A path that implementations write to."""
    path = pathlib.Path(folder) / "scratch"
    path.mkdir(exist_ok=True)
    return path / name


def null_files(folder):
    """The common prefix of links to /dev/null, one per thread."""
    name = scratch(folder, "null")
    for thread in range(2):
        link = pathlib.Path(f"{name}.{thread}")
        if not link.is_symlink():
            link.symlink_to("/dev/null")
    return name
