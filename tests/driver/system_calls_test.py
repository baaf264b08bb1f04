"""quen-io call --system-calls: the system calls of the entry point, with errors."""

import json
import os
import re
import select
import shutil
import signal
import subprocess
import unittest

from support import DRIVER, DriverTest, is_sanitized, run, run_unprivileged

CALL = ("call", "--system-calls")


def opening(path):
    """A pattern of opening a file for reading, with any flags."""
    return rf'openat\(AT_FDCWD, "{re.escape(str(path))}", O_RDONLY[|\w]*\)'


@unittest.skipIf(shutil.which("strace") is None, "no strace here")
@unittest.skipIf(is_sanitized(), "the leak sanitizer does not work while a process is traced")
class SystemCalls(DriverTest):
    def test_those_that_fail_have_the_error_and_what_it_means(self):
        missing = self.scratch / "missing"

        result = run(*CALL, "_readAllTextPath", missing)

        self.assertRegex(
            result.stderr.decode(),
            rf"\A{opening(missing)}: ENOENT, No such file or directory\n"
            r"IOException: Cannot open file\n\Z",
        )
        self.assertEqual((result.stdout, result.returncode), (b"", 1))

    def test_tell_what_the_exception_does_not(self):
        self.file("closed").chmod(0)
        self.scratch.chmod(0o755)

        result = run_unprivileged(*CALL, "_readAllTextPath", "closed", cwd=self.scratch)

        self.assertRegex(
            result.stderr.decode(),
            rf'\A{opening("closed")}: EACCES, Permission denied\n' r"IOException: Cannot open file\n\Z",
        )

    def test_those_that_succeed_have_what_they_returned(self):
        file = self.file("Grüße", b"text")

        result = run(*CALL, "_readAllTextPath", file)

        self.assertEqual((result.stdout, result.returncode), (b'"text"\n', 0))
        lines = result.stderr.decode().splitlines()
        self.assertRegex(lines[0], rf"\A{opening(file)} = 3\Z")
        self.assertRegex("\n".join(lines), r'\nread\(3, "text", \d+\) = 4\n')
        self.assertEqual(lines[-1], "close(3) = 0")

    def test_only_those_of_the_entry_point_are_shown(self):
        result = run(*CALL, "Path.normalize", "path:a/../b")

        self.assertEqual(result.stdout, b'Path "b" (parent traversal)\n')
        self.assertEqual(result.stderr, b"(no system calls)\n")

    def test_come_behind_the_operations_of_the_runtime(self):
        lines = run(*CALL, "--trace", "get.exists", "path:/nowhere").stderr.decode().splitlines()

        self.assertTrue(lines[0].startswith("Quen_filePathFromObject("), lines)
        self.assertRegex(lines[-1], r'\A\w+\(.*"/nowhere".*\): ENOENT, No such file or directory\Z')

    def test_are_part_of_the_json(self):
        result = run(*CALL, "--json", "_readAllTextPath", "/nowhere")

        self.assertEqual((result.stderr, result.returncode), (b"", 1))
        (shown,) = json.loads(result.stdout)["system_calls"]
        self.assertRegex(shown.pop("call"), rf"\A{opening('/nowhere')}\Z")
        self.assertEqual(shown, {"returned": "-1", "error": "ENOENT", "reason": "No such file or directory"})
        none = run(*CALL, "--json", "Path.normalize", "path:a").stdout
        self.assertEqual(json.loads(none)["system_calls"], [])

    def test_show_no_byte_of_a_name_raw(self):
        result = run(*CALL, "get.exists", b"path:\x1b[31m\xff\xc2\x9b \\303 \\")

        self.assertNotRegex(result.stderr.decode(), "[\x00-\x09\x0b-\x1f\x7f-\x9f]")
        self.assertIn(r'"\33[31m\xff\xc2\x9b \\303 \\"', result.stderr.decode())

    def test_a_signal_ends_a_call_that_waits(self):
        fifo = self.scratch / "fifo"
        os.mkfifo(fifo)
        with subprocess.Popen([DRIVER, *CALL, "_readAllTextPath", fifo]) as process:
            writer = os.open(fifo, os.O_WRONLY)  # blocks until the call opens the FIFO for reading
            self.addCleanup(os.close, writer)
            process.terminate()

            self.assertEqual(process.wait(timeout=60), -signal.SIGTERM)
        gone = select.poll()
        gone.register(writer, 0)  # only POLLERR: the pipe has no reader any more
        self.assertEqual(gone.poll(60_000), [(writer, select.POLLERR)])

    def test_are_not_to_be_had_while_the_driver_is_traced_itself(self):
        made = self.scratch / "made"

        result = run(*CALL, "_writePath", made, "text", command=("strace", "-f", "-o", "/dev/null", DRIVER))

        self.assertRegex(
            result.stderr.decode(),
            r"\Aquen-io: --system-calls needs ptrace, which is "
            r"refused here: Operation not permitted \(.*\)\n\Z",
        )
        self.assertEqual(result.returncode, 2)
        self.assertFalse(made.exists())


class WithoutStrace(DriverTest):
    def test_says_what_is_missing_and_makes_no_call(self):
        made = self.scratch / "made"

        self.assert_fails(
            [*CALL, "_writePath", made, "text"],
            2,
            "quen-io: --system-calls needs strace, which cannot be run: install the " "package strace",
            env={**os.environ, "PATH": str(self.scratch)},
        )
        self.assertFalse(made.exists())


if __name__ == "__main__":
    unittest.main()
