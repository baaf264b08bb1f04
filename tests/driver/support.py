"""What the driver's tests share: running it, on a terminal too, and scratch folders."""

import errno
import fcntl
import os
import pty
import select
import shutil
import struct
import subprocess
import tempfile
import termios
import unittest
from pathlib import Path

DRIVER = Path(os.environ.get("QUEN_IO_DRIVER", "quen-io"))
LIBRARY = Path(os.environ.get("QUEN_IO_LIBRARY", "libquen_io.so"))
NOBODY = 65534
ERASE_LINE = b"\r\x1b[K"


def is_sanitized():
    """A sanitizer's memory and its own end at huge allocations are not the driver's."""
    program = DRIVER.read_bytes()
    return b"__asan_init" in program or b"__tsan_init" in program


def run(*arguments, **options):
    """Runs the driver; output and errors are bytes."""
    return subprocess.run([DRIVER, *arguments], capture_output=True, timeout=300, **options)


class DriverTest(unittest.TestCase):
    """A test with a scratch folder, below which everything is removed in the end."""

    maxDiff = None

    def setUp(self):
        self.scratch = Path(tempfile.mkdtemp(prefix="quen-io-driver-"))
        self.addCleanup(shutil.rmtree, self.scratch)

    def file(self, name, contents=b""):
        path = self.scratch / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(contents)
        return path

    def assert_output(self, arguments, expected, **options):
        result = run(*arguments, **options)
        self.assertEqual(result.stderr, b"")
        self.assertEqual(result.stdout.decode(), expected)
        self.assertEqual(result.returncode, 0)

    def assert_fails(self, arguments, status, error, output="", **options):
        """Exactly these lines, the error in one of them."""
        result = run(*arguments, **options)
        self.assertEqual(result.stderr.decode(), error + "\n")
        self.assertEqual(result.stdout.decode(), output)
        self.assertEqual(result.returncode, status)


def run_unprivileged(*arguments, cwd):
    """Runs the driver as a user for whom permissions count, from where that user can reach it."""
    with tempfile.TemporaryDirectory(prefix="quen-io-program-") as folder:
        os.chmod(folder, 0o755)
        program = shutil.copy(DRIVER, folder)
        shutil.copy(LIBRARY, Path(folder) / soname(LIBRARY))
        privileges = {}
        if os.geteuid() == 0:
            privileges = {"user": NOBODY, "group": NOBODY, "extra_groups": []}
        return subprocess.run([program, *arguments], capture_output=True, timeout=300, cwd=cwd,
                              env={**os.environ, "LD_LIBRARY_PATH": folder}, **privileges)


def soname(library):
    dynamic = subprocess.run(["readelf", "-d", library], capture_output=True, check=True).stdout
    line = next(line for line in dynamic.decode().splitlines() if "(SONAME)" in line)
    return line.split("[")[1].rstrip("]")


class Terminal:
    """The driver on a terminal of its own. Whatever it shows is kept in `shown`."""

    def __init__(self, *arguments, columns=80, held=False, streams=None, **options):
        """On a held terminal, whoever writes waits until it is released."""
        self.master, slave = pty.openpty()
        self.name = os.ttyname(slave)
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        if held:
            termios.tcflow(slave, termios.TCOOFF)
        self.process = subprocess.Popen(
            [DRIVER, *arguments], **{"stdin": slave, "stdout": slave, "stderr": slave,
                                     **(streams or {})}, start_new_session=True,
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0), **options)
        os.close(slave)
        self.shown = b""

    def release(self):
        slave = os.open(self.name, os.O_RDWR | os.O_NOCTTY)
        termios.tcflow(slave, termios.TCOON)
        os.close(slave)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        os.close(self.master)

    def send(self, keys):
        os.write(self.master, keys)

    def wait_for(self, text):
        """Reads until the text has been shown since the last wait, and gives all that was."""
        start = len(self.shown)
        while text not in self.shown[start:]:
            if not self._read():
                raise AssertionError(f"{text!r} is not in {self.shown[start:]!r}")
        return self.shown[start:]

    def finish(self):
        """Reads until the driver has ended and gives its exit status."""
        while self._read():
            pass
        return self.process.wait(timeout=300)

    def _read(self):
        ready, _, _ = select.select([self.master], [], [], 60)
        if not ready:
            return False
        try:
            piece = os.read(self.master, 65536)
        except OSError as error:  # how the end of the other side is told
            if error.errno != errno.EIO:
                raise
            return False
        self.shown += piece
        return bool(piece)
