"""Calls per second of the module quen_io for Python, and the memory after many calls: long_run.py CALLS"""

import os
import sys
import tempfile
import threading
import time

import python_test
from quen_io import FileInputStream, FileReader, FolderPath, Path


def per_second(call, *arguments):
    """Of processor time, for a call that is repeated for half a second."""
    count, began = 0, time.process_time()
    while time.process_time() - began < 0.5:
        for _ in range(100):
            call(*arguments)
        count += 100
    return f"{count / (time.process_time() - began):>12,.0f}"


def beside_a_busy_thread(call, *arguments):
    """How long a call takes while another thread runs Python code all the time: median and longest, in ms."""
    stop = threading.Event()

    def be_busy():
        while not stop.is_set():
            pass

    busy = threading.Thread(target=be_busy)
    busy.start()
    seconds = []
    for _ in range(20):
        began = time.perf_counter()
        call(*arguments)
        seconds.append(time.perf_counter() - began)
    stop.set()
    busy.join()
    seconds.sort()
    return f"{1000 * seconds[10]:.0f} {1000 * seconds[-1]:.0f}"


def main():
    with tempfile.TemporaryDirectory() as folder:
        file = os.path.join(folder, "text")
        with open(file, "w") as text:
            text.write("text" * 1024)
        for i in range(100):
            open(os.path.join(folder, f"entry {i}"), "w").close()
        print("normalize a path object ", per_second(Path.normalize, Path("a/../b/c")))
        print("normalize a text        ", per_second(Path._normalizePath, "a/../b/c"))
        print("whether a path exists   ", per_second(Path._exists, Path(file)))
        print("read a text of 4 KiB    ", per_second(FileReader._readAllTextPath, file))
        print(
            "read 4 KiB into an array",
            per_second(FileInputStream._readBytesPath, file, 0, bytearray(4096), 4096),
        )
        print("list 101 entries        ", per_second(FolderPath._listNamesNative, folder))
        beside = beside_a_busy_thread(FolderPath._listNamesNative, folder)
        print("ms to list them beside a busy thread, median and longest:", beside)
    with tempfile.TemporaryDirectory() as folder:
        python_test.mixed_calls(10_000, folder)
        before = python_test.resident_kib()
        python_test.mixed_calls(int(sys.argv[1]), folder)
        print(f"KiB of memory before and after {sys.argv[1]} calls: {before} {python_test.resident_kib()}")


main()
