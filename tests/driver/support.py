"""Helpers of the driver's tests: running the driver, also on a pseudo-terminal, and scratch folders."""

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
    """Whether a sanitizer is built in, which needs more memory and aborts at huge allocations."""
    program = DRIVER.read_bytes()
    return b"__asan_init" in program or b"__tsan_init" in program


def run(*arguments, command=(DRIVER,), **options):
    """Runs the driver; output and errors are bytes."""
    return subprocess.run([*command, *arguments], capture_output=True, timeout=300, **options)


class DriverTest(unittest.TestCase):
    """A test with a scratch folder, which is removed afterwards."""

    maxDiff = None

    def setUp(self):
        self.scratch = Path(tempfile.mkdtemp(prefix="quen-io-driver-"))
        self.addCleanup(shutil.rmtree, self.scratch)

    def file(self, name, contents=b""):
        path = self.scratch / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(contents)
        return path

    def new_folder(self, name):
        path = self.scratch / name
        path.mkdir(parents=True)
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
    """Copies the driver to where an unprivileged user can execute it, and runs it as that user."""
    with tempfile.TemporaryDirectory(prefix="quen-io-program-") as folder:
        os.chmod(folder, 0o755)
        program = shutil.copy(DRIVER, folder)
        shutil.copy(LIBRARY, Path(folder) / soname(LIBRARY))
        privileges = {}
        if os.geteuid() == 0:
            privileges = {"user": NOBODY, "group": NOBODY, "extra_groups": []}
        return subprocess.run(
            [program, *arguments],
            capture_output=True,
            timeout=300,
            cwd=cwd,
            env={**os.environ, "LD_LIBRARY_PATH": folder},
            **privileges,
        )


def without_capabilities():
    """The driver as a command without the capabilities that override file permissions, even for root."""
    drop = ["setpriv", "--bounding-set=-all", "--inh-caps=-all"] if os.geteuid() == 0 else []
    return [*drop, DRIVER]


def soname(library):
    dynamic = subprocess.run(["readelf", "-d", library], capture_output=True, check=True).stdout
    line = next(line for line in dynamic.decode().splitlines() if "(SONAME)" in line)
    return line.split("[")[1].rstrip("]")


def on_a_terminal(**changes):
    """The environment of a terminal with styles; None removes a variable."""
    environment = {**os.environ, "TERM": "xterm", "NO_COLOR": None, **changes}
    return {name: value for name, value in environment.items() if value is not None}


class Terminal:
    """The driver on a pseudo-terminal. All of its output is kept in `shown`."""

    def __init__(self, *arguments, columns=80, held=False, streams=None, command=(DRIVER,), **options):
        """With `held`, terminal output is stopped (TCOOFF), so that writing blocks."""
        options.setdefault("env", on_a_terminal())
        self.master, slave = pty.openpty()
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        if held:
            termios.tcflow(slave, termios.TCOOFF)
        self.process = subprocess.Popen(
            [*command, *arguments],
            **{"stdin": slave, "stdout": slave, "stderr": slave, **(streams or {})},
            start_new_session=True,
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0),
            **options,
        )
        os.close(slave)
        self.shown = b""

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
        """Reads until the text is shown, and returns the output since the last wait."""
        start = len(self.shown)
        while text not in self.shown[start:]:
            if not self._read():
                raise AssertionError(f"{text!r} is not in {self.shown[start:]!r}")
        return self.shown[start:]

    def finish(self):
        """Reads until the driver exits, and returns its exit status."""
        while self._read():
            pass
        return self.process.wait(timeout=300)

    def _read(self):
        ready, _, _ = select.select([self.master], [], [], 60)
        if not ready:
            return False
        try:
            chunk = os.read(self.master, 65536)
        except OSError as error:  # EIO: the other side is closed
            if error.errno != errno.EIO:
                raise
            return False
        self.shown += chunk
        return bool(chunk)
