"""The script that generates the table of entry points rejects declarations that it cannot parse."""

import subprocess
import sys
import unittest
from pathlib import Path

from support import DriverTest

SCRIPT = Path(__file__).parents[2] / "driver" / "entry_table.py"


class EntryTable(DriverTest):
    def make(self, header):
        path = self.file("entry_points.h", header.encode())
        return subprocess.run(
            [sys.executable, "-B", SCRIPT, path, self.scratch / "rows.cpp"], capture_output=True, text=True
        )

    def assert_refused(self, header, line, words):
        result = self.make(header)
        self.assertEqual(result.stderr, f"{self.scratch}/entry_points.h:{line}: {words}\n")
        self.assertEqual(result.returncode, 1)
        self.assertFalse((self.scratch / "rows.cpp").exists())

    def test_makes_a_row_of_a_declaration_over_two_lines(self):
        result = self.make(
            '// Reads. And "more".\nvoid* quen_io_Path__read(const char* path,\n' "    std::int64_t limit);\n"
        )

        self.assertEqual(result.stderr, "")
        rows = (self.scratch / "rows.cpp").read_text()
        self.assertIn('entryPoint(&::quen_io_Path__read, "quen_io_Path__read", "Path._read"', rows)
        self.assertIn('"void* quen_io_Path__read(const char* path, std::int64_t limit)"', rows)
        self.assertIn('{{{"path", false}, {"limit", false}}}', rows)
        self.assertIn('"Reads.", "Reads. And \\"more\\"."', rows)

    def test_marks_a_byte_array_that_a_call_fills(self):
        result = self.make(
            "// Reads into the Byte[] `target`.\n" "void quen_io_Path_read(void* source, void* target);\n"
        )

        self.assertEqual(result.stderr, "")
        self.assertIn('{{{"source", false}, {"target", true}}}', (self.scratch / "rows.cpp").read_text())

    def test_refuses_a_byte_array_that_is_no_parameter(self):
        self.assert_refused(
            "// Reads into the Byte[] `x`.\nvoid quen_io_Path_x(void* y);\n",
            2,
            "no parameter 'x' of quen_io_Path_x",
        )

    def test_makes_short_names(self):
        names = {
            "__quen_propget_quen_io_Path_exists": "Path.get.exists",
            "quen_io_Path_resolve__dup2": "Path.resolve__dup2",
            "quen_io_toml_TOML__readStrictPath": "TOML._readStrictPath",
            "quen_data_internal_DocumentIndexStore__writeAtomic": "DocumentIndexStore._writeAtomic",
            "Quen_isUnsafeRecursiveDeletePath": "isUnsafeRecursiveDeletePath",
        }
        for full, short in names.items():
            with self.subTest(full):
                self.assertEqual(self.make(f"// Does.\nvoid {full}();\n").returncode, 0)
                self.assertIn(f'"{short}"', (self.scratch / "rows.cpp").read_text())

    def test_refuses_a_declaration_without_a_comment_right_above(self):
        self.assert_refused("// A group.\n\nvoid quen_io_Path_x();\n", 3, "no comment above quen_io_Path_x")

    def test_refuses_a_comment_without_a_sentence(self):
        self.assert_refused(
            "// A group\nvoid quen_io_Path_x();\n", 2, "no sentence in the comment above quen_io_Path_x"
        )

    def test_refuses_a_type_it_does_not_know(self):
        self.assert_refused(
            "// Does.\nvoid quen_io_Path_x(double y);\n",
            2,
            "cannot read parameter 'double y' of quen_io_Path_x",
        )
        self.assert_refused(
            "// Does.\ndouble quen_io_Path_x();\n",
            2,
            "neither comment nor declaration: double quen_io_Path_x();",
        )

    def test_refuses_a_declaration_without_an_end(self):
        self.assert_refused(
            "// Does.\nvoid quen_io_Path_x(void* self\n",
            2,
            "no end of declaration: void quen_io_Path_x(void* self",
        )

    def test_refuses_a_name_of_another_family(self):
        self.assert_refused("// Does.\nvoid quen_x();\n", 2, "no short name can be made of quen_x")

    def test_refuses_two_entry_points_with_one_short_name(self):
        self.assert_refused(
            "// Does.\nvoid quen_io_Path_x();\n// Does.\nvoid quen_a_Path_x();\n",
            4,
            "quen_a_Path_x and quen_io_Path_x are both Path.x",
        )

    def test_refuses_a_header_without_entry_points(self):
        self.assert_refused("// Nothing.\n", 1, "no entry points")


if __name__ == "__main__":
    unittest.main()
