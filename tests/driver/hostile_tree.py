"""Creates a folder tree with unusual names, contents, kinds of entries and times."""

import os
import socket

HOSTILE_NAMES = [
    b"new\nline",
    b"escape\x1b[31mred",
    b"delete\x7f",
    b"control \xc2\x9b31m",
    b"right\xe2\x80\xaeleft",
    b"not \xff utf-8",
    b"cut \xe2\x82",
    "schöne Größe \U0001f600".encode(),
    b"quotes \"'",
    b"back\\slash",
    b"-dash",
    b" space ",
    b"$1",
    b"n" * 255,
]

CONTENTS = {
    b"empty": b"",
    b"ascii": b"plain\r\ntext\n",
    b"text": "äöü € \U0001f600\n".encode(),
    b"bom": b"\xef\xbb\xbftext",
    b"nul": b"a\0b",
    b"last code point": b"\xf4\x8f\xbf\xbf",
    b"lone continuation": b"ab\x80cd",
    b"bad lead": b"abc\xff",
    b"lead beyond": b"\xf5\x80\x80\x80",
    b"overlong two": b"a\xc0\x80",
    b"overlong three": b"a\xe0\x80\x80b",
    b"overlong four": b"a\xf0\x80\x80\x80b",
    b"surrogate": b"ab\xed\xa0\x80",
    b"beyond": b"\xf4\x90\x80\x80",
    b"bad second": b"ab\xe2(\xa1",
    b"bad third": b"ab\xe2\x82(",
    b"bad fourth": b"ab\xf0\x9f\x98(",
    b"cut two": b"ab\xc3",
    b"cut three": b"ab\xe2\x82",
    b"cut four": b"ab\xf0\x9f",
    b"cut and bad": b"ab\xf0(",
    b"late": b"x" * 70_000 + b"\xff",
}

# Nanoseconds since the epoch.
TIMES = [
    0,
    1,
    999_999,
    1_000_000,
    1_234_567_890_123_456_789,
    4_000_000_000_000_000_000,
    -1,
    -1_500_000,
    -2_000_000_000_000_000,
]


def build(root):
    """Creates the tree in an existing folder, whose path is bytes."""

    def put(name, contents=b"contents\n"):
        path = os.path.join(root, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(contents)
        return path

    for name, contents in CONTENTS.items():
        put(b"contents/" + name, contents)
    for name in HOSTILE_NAMES:
        put(b"names/" + name)
        put(b"folders/" + name + b"/within")
    for number, time in enumerate(TIMES):
        path = put(b"times/%d" % number)
        os.utime(path, ns=(time, time))
    for name in [b"a", b"a.b", b"a/b", b"a-b", b"b", b"B", b"\xc3\xa4"]:  # sort close together
        put(b"order/" + name + (b"" if b"/" in name else b".txt"))

    os.makedirs(os.path.join(root, b"empty folder"))
    os.makedirs(os.path.join(root, b"deep", *[b"d%d" % depth for depth in range(100)]))

    links = os.path.join(root, b"links")
    os.mkdir(links)
    for name, target in {
        b"to file": b"../contents/text",
        b"to folder": b"../contents",
        b"broken": b"nowhere",
        b"itself": b"itself",
        b"up": b"..",
        b"bad \xff": b"\xff",
    }.items():
        os.symlink(target, os.path.join(links, name))

    os.mkdir(os.path.join(root, b"others"))
    os.mkfifo(os.path.join(root, b"others/fifo"))
    here = os.getcwd()  # a socket address holds a path of at most 107 bytes (unix(7))
    os.chdir(os.path.join(root, b"others"))
    try:
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind("socket")
    finally:
        os.chdir(here)
