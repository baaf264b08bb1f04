# Benchmark implementation: answers file and path workloads with Python's standard library.
# Requests and answers are lines on standard input and output.

import os
import posixpath
import shutil
import stat
import sys
from concurrent.futures import ThreadPoolExecutor
from functools import cache
from time import monotonic_ns


@cache
def load(file):
    """A file's bytes, loaded before the clock starts and kept by name."""
    with open(file, "rb") as stream:
        return stream.read()


def timed(count, step):
    """Run step(n) count times; the checksum is the sum of what it returns."""
    checksum = 0
    start = monotonic_ns()
    for n in range(count):
        checksum += step(n)
    return monotonic_ns() - start, checksum


def timed_paths(count, file, operation):
    lines = load(file).decode().removesuffix("\n").split("\n")
    return timed(count, lambda n: sum(map(len, map(operation, lines))))


def is_utf8(data):
    try:
        data.decode("utf-8")
    except UnicodeDecodeError:
        return False
    return True


def utf8(count, file):
    data = load(file)
    return timed(count, lambda n: is_utf8(data))


def read_text(count, file):
    # The checksum is in code points; newline="\n" leaves line ends alone.
    def step(n):
        with open(file, encoding="utf-8", newline="\n") as stream:
            return len(stream.read())

    return timed(count, step)


def prefix(count, file, size):
    def step(n):
        with open(file, "rb", buffering=0) as stream:
            data = stream.read(size)
        data.decode("utf-8")
        return len(data)

    return timed(count, step)


def range_(count, file, position, size):
    buffer = bytearray(size)

    def step(n):
        with open(file, "rb", buffering=0) as stream:
            stream.seek(position)
            if stream.readinto(buffer) < size:
                raise EOFError("unexpected end of file")
        return size

    return timed(count, step)


def normalize(count, file):
    return timed_paths(count, file, posixpath.normpath)


def parent(count, file):
    return timed_paths(count, file, posixpath.dirname)


def resolve(count, file):
    normpath, join = posixpath.normpath, posixpath.join
    return timed_paths(count, file, lambda path: normpath(join(path, "../sibling/name.txt")))


def name(count, file):
    return timed_paths(count, file, posixpath.basename)


def extension(count, file):
    # With its dot.
    return timed_paths(count, file, lambda path: posixpath.splitext(path)[1])


def write(count, file, size, threads):
    text = "x" * size

    def write_buffered(number):
        with open(f"{file}.{number}", "w", encoding="utf-8") as stream:
            for _ in range(count):
                stream.write(text)
        return count * size

    def step(n):
        with ThreadPoolExecutor(threads) as pool:
            return sum(pool.map(write_buffered, range(threads)))

    return timed(1, step)


def publish(count, file, size):
    text = "x" * size

    def step(n):
        temporary = f"{file}.tmp-{n}"
        with open(temporary, "w", encoding="utf-8") as stream:
            stream.write(text)
        os.replace(temporary, file)
        return size

    return timed(count, step)


def count_entries(folder):
    found = 0
    for entry in os.listdir(folder):
        try:
            mode = os.stat(f"{folder}/{entry}").st_mode
        except OSError:
            continue
        found += stat.S_ISREG(mode) or stat.S_ISDIR(mode)
    return found


def list_(count, folder):
    return timed(count, lambda n: count_entries(folder))


def create_tree(folder, files):
    folders = max(1, files // 200)
    os.mkdir(folder)
    for n in range(folders):
        os.mkdir(f"{folder}/{n}")
    for n in range(files):
        open(f"{folder}/{n % folders}/{n}", "x").close()


def remove_tree(count, folder, files):
    nanoseconds = 0
    for _ in range(count):
        create_tree(folder, files)
        start = monotonic_ns()
        shutil.rmtree(folder)
        nanoseconds += monotonic_ns() - start
    return nanoseconds, count * files


def walk_folder(folder):
    valid = 0
    for entry in os.listdir(folder):
        path = f"{folder}/{entry}"
        mode = os.lstat(path).st_mode
        if stat.S_ISDIR(mode):
            valid += walk_folder(path)
        elif stat.S_ISREG(mode):
            with open(path, "rb") as stream:
                valid += is_utf8(stream.read())
    return valid


def walk(count, folder):
    return timed(count, lambda n: walk_folder(folder))


WORKLOADS = {
    "utf8": utf8,
    "read_text": read_text,
    "prefix": prefix,
    "range": range_,
    "normalize": normalize,
    "parent": parent,
    "resolve": resolve,
    "name": name,
    "extension": extension,
    "write": write,
    "publish": publish,
    "list": list_,
    "remove_tree": remove_tree,
    "walk": walk,
}


def answer(request):
    try:
        workload, count, file, *arguments = request.rstrip("\n").split("\t")
        if workload not in WORKLOADS:
            return "skip\tnothing of the kind"
        nanoseconds, checksum = WORKLOADS[workload](int(count), file, *map(int, arguments))
    except Exception as error:
        return "skip\t" + " ".join(str(error).split())
    return f"{nanoseconds}\t{checksum}"


for request in sys.stdin:
    print(answer(request), flush=True)
