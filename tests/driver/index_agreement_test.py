#!/usr/bin/env python3
"""An index agrees, entry by entry, with an independent walk of the same tree.

    QUEN_IO_DRIVER=.../quen-io index_agreement_test.py [FOLDER...]

Indexes a tree of hostile entries and each folder given, and compares kind, size, time of
modification, and whether a file is UTF-8 or at which byte it is not. A folder that changes
meanwhile cannot agree.
"""

import json
import os
import stat
import subprocess
import sys
import tempfile

import hostile_tree

DRIVER = os.environ.get("QUEN_IO_DRIVER", "quen-io")


def entries(root):
    """The entries of the tree in the order and format of an index; path and target are bytes."""
    pending = [b"."]
    while pending:
        path = pending.pop()
        full = root if path == b"." else os.path.join(root, path)
        entry, names = entry_of(full, path)
        yield entry
        for name in sorted(names, reverse=True):
            pending.append(name if path == b"." else path + b"/" + name)


def entry_of(full, path):
    entry, names = {"path": path}, []
    status = os.stat(full) if path == b"." else os.lstat(full)
    if stat.S_ISLNK(status.st_mode):
        return entry | {"kind": "link", "target": os.readlink(full)}, names
    entry |= {"size": 0, "modified_ms": milliseconds(status.st_mtime_ns)}
    if stat.S_ISDIR(status.st_mode):
        entry["kind"] = "folder"
        try:
            names = os.listdir(full)
        except PermissionError:
            entry["error"] = "Cannot open file: Permission denied"
    elif stat.S_ISREG(status.st_mode):
        entry |= {"kind": "file", "size": status.st_size} | text_of(full, status.st_size)
    else:
        entry["kind"] = "other"
    return entry, names


def milliseconds(nanoseconds):
    """Truncates toward zero."""
    return nanoseconds // 1_000_000 if nanoseconds >= 0 else -(-nanoseconds // 1_000_000)


def text_of(full, size):
    if size > MAX_TEXT_BYTES:
        return {"text": "not read"}
    if size == 0:
        return {"text": "utf-8"}
    try:
        with open(full, "rb") as file:
            contents = file.read()
    except PermissionError:
        return {"text": "not read", "error": "Cannot open file: Permission denied"}
    try:
        contents.decode()
        return {"text": "utf-8"}
    except UnicodeDecodeError as error:
        offset = fault_offset(contents, error.start)
        return {
            "text": "not utf-8",
            "fault": f"File is not valid UTF-8 at byte {offset}",
            "fault_byte": offset,
        }


def fault_offset(contents, lead):
    """The offset of the faulty byte in the sequence that begins with this lead byte.

    A byte that should continue the sequence and does not is at fault itself; for everything else,
    and a sequence that the end of the file cuts off comes first, it is the lead.
    """
    first = contents[lead]
    length = 2 if 0xC2 <= first < 0xE0 else 3 if 0xE0 <= first < 0xF0 else 4
    if not 0xC2 <= first <= 0xF4 or lead + length > len(contents):
        return lead
    for offset in range(lead + 1, lead + length):
        if contents[offset] & 0xC0 != 0x80:
            return offset
    return lead


MAX_TEXT_BYTES = 1 << 20  # small enough that real folders contain larger files


def indexed(root, output):
    """Creates an index and returns its header and entries, with paths as bytes."""
    result = subprocess.run(
        [DRIVER, "index", root, "--output", output, "--max-text-bytes", str(MAX_TEXT_BYTES)],
        capture_output=True,
    )
    if result.returncode not in (0, 1) or result.stderr:
        sys.exit(f"quen-io index: {result.returncode}, {result.stderr.decode(errors='replace')}")
    with open(output, "rb") as file:
        header, *entries = [json.loads(line) for line in file]
    for entry in entries:
        for key in {"path", "target"} & set(entry):
            text, hexadecimal = entry[key], entry.pop(f"{key}_hex", None)
            entry[key] = text.encode() if hexadecimal is None else bytes.fromhex(hexadecimal)
            if entry[key].decode(errors="replace") != text or is_utf8(entry[key]) == (
                hexadecimal is not None
            ):
                sys.exit(f"{key} and {key}_hex do not belong together: {entry}")
    if any("error" in entry for entry in entries) != (result.returncode == 1):
        sys.exit(f"exit status {result.returncode} does not tell whether all could be read")
    return header, entries


def is_utf8(data):
    try:
        data.decode()
        return True
    except UnicodeDecodeError:
        return False


def differences(root, output):
    """Returns the number of compared entries and the differing pairs."""
    header, actual = indexed(root, output)
    expected = list(entries(root))
    if (header["entries"], len(actual)) != (len(expected), len(expected)):
        by_path = [{entry["path"] for entry in each} for each in (expected, actual)]
        sys.exit(
            f"{header['entries']} announced, {len(actual)} there, {len(expected)} expected; "
            f"on one side only: {sorted(by_path[0] ^ by_path[1])[:10]}"
        )
    return len(expected), [pair for pair in zip(expected, actual) if pair[0] != pair[1]]


def main(folders):
    failed = False
    with tempfile.TemporaryDirectory(prefix="quen-io-agreement-") as scratch:
        tree = os.path.join(scratch, "hostile")
        os.mkdir(tree)
        hostile_tree.build(os.fsencode(tree))
        for folder in [tree, *folders]:
            count, different = differences(os.fsencode(folder), os.path.join(scratch, "index"))
            print(f"{folder}: {count} entries, {len(different)} differ")
            for expected, actual in different[:10]:
                print(f"  expected {expected}\n  indexed  {actual}")
            failed = failed or bool(different)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
