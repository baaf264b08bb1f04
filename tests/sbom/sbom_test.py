#!/usr/bin/env python3
"""The software bill of materials of a build: sbom_test.py BILL LIBRARY COMPILER

What SPDX 2.3 requires of the parts that are used, that the bill says what is so, and that it is reproducible.
"""

import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BILL, LIBRARY, COMPILER = (pathlib.Path(argument) for argument in sys.argv[1:4])
DOCUMENT = json.loads(BILL.read_text(encoding="utf-8"))
PACKAGES = {each["SPDXID"]: each for each in DOCUMENT["packages"]}
FILES = {each["SPDXID"]: each for each in DOCUMENT["files"]}
RELATIONS = {
    (each["spdxElementId"], each["relationshipType"], each["relatedSpdxElement"])
    for each in DOCUMENT["relationships"]
}


def related(element, kind):
    return {other for first, relation, other in RELATIONS if (first, relation) == (element, kind)}


def version():
    return re.search(r"^project\(quen_io VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text(), re.M)[1]


def written_in(tree, folder, **environment):
    """The bill that a copy of the script writes of a tree with the library of this build."""
    output = pathlib.Path(folder, "bill.json")
    command = [sys.executable, "-B", tree / "cmake/sbom.py", "--version", "1.0.0", "--compiler", COMPILER]
    command += ["--sources", "src", "--products", LIBRARY, "--output", output]
    subprocess.run(command, check=True, env=os.environ | environment, timeout=300)
    return output.read_bytes()


class Format(unittest.TestCase):
    """SPDX 2.3, sections 6 to 8 and 11."""

    def test_the_document_has_its_mandatory_fields(self):
        self.assertEqual(DOCUMENT["spdxVersion"], "SPDX-2.3")
        self.assertEqual(DOCUMENT["dataLicense"], "CC0-1.0")
        self.assertEqual(DOCUMENT["SPDXID"], "SPDXRef-DOCUMENT")
        self.assertEqual(DOCUMENT["name"], f"quen-io-{version()}")
        self.assertRegex(DOCUMENT["documentNamespace"], r"^https://[\w./-]+$")
        self.assertRegex(DOCUMENT["creationInfo"]["created"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
        for creator in DOCUMENT["creationInfo"]["creators"]:
            self.assertRegex(creator, r"^(Tool|Organization): \S")

    def test_identifiers_are_well_formed_and_unique(self):
        identifiers = [each["SPDXID"] for each in DOCUMENT["packages"] + DOCUMENT["files"]]
        for identifier in identifiers:
            self.assertRegex(identifier, r"^SPDXRef-[A-Za-z0-9.-]+$")
        self.assertEqual(len(identifiers), len(set(identifiers)))

    def test_packages_have_their_mandatory_fields(self):
        for package in PACKAGES.values():
            self.assertTrue(package["name"])
            self.assertTrue(package["downloadLocation"])
            self.assertEqual("packageVerificationCode" in package, package["filesAnalyzed"])

    def test_relations_join_elements_that_exist_and_are_told_once(self):
        known = {"SPDXRef-DOCUMENT", *PACKAGES, *FILES}
        kinds = {
            "DESCRIBES",
            "CONTAINS",
            "GENERATED_FROM",
            "DEPENDS_ON",
            "BUILD_DEPENDENCY_OF",
            "BUILD_TOOL_OF",
        }
        self.assertEqual({end for first, _, last in RELATIONS for end in (first, last)} - known, set())
        self.assertEqual({kind for _, kind, _ in RELATIONS} - kinds, set())
        self.assertEqual(len(RELATIONS), len(DOCUMENT["relationships"]))


class Contents(unittest.TestCase):
    maxDiff = None

    def test_the_files_are_those_of_the_tree_with_their_checksums(self):
        listed = {each["fileName"].removeprefix("./") for each in FILES.values()}
        folders = {name.split("/")[0] for name in listed}
        self.assertLessEqual({"src", "runtime", "conformance"}, folders)
        there = {
            str(path.relative_to(ROOT))
            for folder in folders
            for path in (ROOT / folder).rglob("*")
            if path.is_file() and "__pycache__" not in path.parts
        }
        self.assertEqual(listed, there)
        for each in FILES.values():
            content = (ROOT / each["fileName"]).read_bytes()
            sums = {sum["algorithm"]: sum["checksumValue"] for sum in each["checksums"]}
            expected = {"SHA1": hashlib.sha1(content), "SHA256": hashlib.sha256(content)}
            self.assertEqual(sums, {name: digest.hexdigest() for name, digest in expected.items()})

    def test_the_source_contains_the_files_and_everything_described_is_made_from_it(self):
        (source,) = (key for key, each in PACKAGES.items() if each["filesAnalyzed"])
        self.assertEqual(related(source, "CONTAINS"), set(FILES))
        described = related("SPDXRef-DOCUMENT", "DESCRIBES")
        self.assertEqual({key for key in PACKAGES if related(key, "GENERATED_FROM") == {source}}, described)
        sums = sorted(each["checksums"][0]["checksumValue"] for each in FILES.values())
        code = hashlib.sha1("".join(sums).encode("ascii")).hexdigest()
        self.assertEqual(PACKAGES[source]["packageVerificationCode"]["packageVerificationCodeValue"], code)

    def test_no_licence_is_declared_for_what_is_ours(self):
        own = [each for each in PACKAGES.values() if "Quen IO" in each.get("supplier", "")]
        self.assertGreater(len(own), 1)
        for each in own:
            self.assertEqual((each["licenseDeclared"], each["versionInfo"]), ("NONE", version()))

    def test_the_shared_library_depends_on_the_standard_libraries(self):
        (library,) = (key for key, each in PACKAGES.items() if each["name"] == LIBRARY.name)
        depends = {PACKAGES[key]["name"] for key in related(library, "DEPENDS_ON")}
        packaged = {"libstdc++6", "libc6"} if shutil.which("dpkg-query") else {"libstdc++.so.6", "libc.so.6"}
        self.assertLessEqual(packaged, depends)

    def test_debian_packages_have_the_installed_version(self):
        for package in PACKAGES.values():
            for reference in package.get("externalRefs", []):
                installed = subprocess.run(
                    ["dpkg-query", "-W", "-f", "${Version}\n", package["name"]],
                    check=True,
                    capture_output=True,
                    text=True,
                ).stdout.split()
                self.assertIn(package["versionInfo"], installed)
                self.assertRegex(
                    reference["referenceLocator"], r"^pkg:deb/debian/[a-z0-9+.-]+@[^?+]+\?arch=\w+$"
                )


class Reproducibility(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="quen-io-sbom-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def copy(self, name):
        tree = self.folder / name
        for part in ("src", "cmake"):
            shutil.copytree(ROOT / part, tree / part)
        return tree

    def test_the_place_does_not_matter_and_the_time_is_that_of_the_source(self):
        first, second = (
            written_in(self.copy(name), self.folder, SOURCE_DATE_EPOCH="86400", TZ=zone)
            for name, zone in (("one", "Pacific/Kiritimati"), ("another/further down", "America/Anchorage"))
        )
        self.assertEqual(first, second)
        self.assertIn(b'"created": "1970-01-02T00:00:00Z"', first)

    def test_a_changed_source_file_changes_its_checksum_and_the_namespace(self):
        tree = self.copy("tree")
        before = json.loads(written_in(tree, self.folder, SOURCE_DATE_EPOCH="0"))
        with open(tree / "src/conventions.cpp", "a", encoding="utf-8") as file:
            file.write("// more\n")
        after = json.loads(written_in(tree, self.folder, SOURCE_DATE_EPOCH="0"))

        changed = [one["fileName"] for one, other in zip(before["files"], after["files"]) if one != other]
        self.assertEqual(changed, ["./src/conventions.cpp"])
        self.assertNotEqual(before["documentNamespace"], after["documentNamespace"])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
