"""Standard descriptors that the caller closed: no file that the driver opens takes their numbers."""

import os
import unittest

from support import DriverTest, run


def run_without(*descriptors, arguments):
    """Runs the driver with these descriptors closed."""
    return run(*arguments, preexec_fn=lambda: [os.close(each) for each in descriptors])


class Closed(DriverTest):
    def test_a_file_that_a_call_opens_gets_nothing_of_what_the_driver_says(self):
        for closed in (1,), (0, 1), (1, 2), (0, 1, 2):
            with self.subTest(closed):
                file = self.scratch / "opened"
                result = run_without(*closed, arguments=["call", "_openPath", file, "0"])

                self.assertEqual(file.read_bytes(), b"")
                self.assertEqual(result.returncode, 1)
                self.assertEqual(
                    result.stderr, b"" if 2 in closed else b"quen-io: cannot write to standard output\n"
                )

    def test_the_call_is_made_all_the_same(self):
        file = self.scratch / "made"

        result = run_without(1, arguments=["call", "_writePath", file, "text"])

        self.assertEqual((file.read_bytes(), result.returncode), (b"text", 1))

    def test_nothing_goes_into_a_file_in_place_of_standard_error(self):
        file = self.scratch / "opened"

        result = run_without(2, arguments=["call", "--trace", "_openPath", file, "0"])

        self.assertEqual((result.stdout, result.returncode), (b"1\n", 0))
        self.assertEqual(file.read_bytes(), b"")

    def test_without_standard_input_all_else_goes_on(self):
        result = run_without(0, arguments=["call", "_normalizePath", "a//b"])

        self.assertEqual((result.stdout, result.stderr, result.returncode), (b'"a/b"\n', b"", 0))


if __name__ == "__main__":
    unittest.main()
