#!/usr/bin/env python3
"""Writes a software bill of materials (SPDX 2.3, JSON) of a build.

It describes each library and the driver: the source files that they are made from, with checksums; the shared
libraries that each needs, and the headers and the compiler that were used, with the Debian packages they come
from. Nothing in it depends on the place of the build, and its time is SOURCE_DATE_EPOCH if that is set.
"""

import argparse
import datetime
import hashlib
import json
import os
import pathlib
import re
import subprocess
import time
import urllib.parse

ROOT = pathlib.Path(__file__).resolve().parents[1]
HOLDER = "Quen IO developers"


def output_of(*command, **options):
    """The standard output of a command, empty if the command does not exist."""
    try:
        return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=False, **options).stdout
    except FileNotFoundError:
        return ""


def identifier(kind, name):
    """An SPDX identifier, which has letters, digits, dots and hyphens only."""
    return f"SPDXRef-{kind}-" + re.sub(r"[^A-Za-z0-9.]", "-", name)


def relationship(element, kind, other):
    return {"spdxElementId": element, "relationshipType": kind, "relatedSpdxElement": other}


# What the project is made from


def source_files(folders):
    paths = (path for folder in folders for path in (ROOT / folder).rglob("*"))
    return sorted(path for path in paths if path.is_file() and "__pycache__" not in path.parts)


def file_element(path):
    name = str(path.relative_to(ROOT))
    content = path.read_bytes()
    return {
        "SPDXID": identifier("File", name),
        "fileName": f"./{name}",
        "fileTypes": ["TEXT" if path.suffix in {".md", ".txt", ".abi"} else "SOURCE"],
        "checksums": [
            {"algorithm": "SHA1", "checksumValue": hashlib.sha1(content).hexdigest()},
            {"algorithm": "SHA256", "checksumValue": hashlib.sha256(content).hexdigest()},
        ],
    }


def verification_code(files):
    """As SPDX 2.3, 7.9, has it: the checksum of the sorted checksums."""
    sums = sorted(each["checksums"][0]["checksumValue"] for each in files)
    return hashlib.sha1("".join(sums).encode()).hexdigest()


def own_package(kind, name, version):
    return {
        "SPDXID": identifier(kind, name),
        "name": name,
        "versionInfo": version,
        "supplier": f"Organization: {HOLDER}",
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": False,
        "licenseConcluded": "NONE",
        "licenseDeclared": "NONE",
        "copyrightText": f"Copyright 2026 {HOLDER}",
    }


# What it uses


def needed_libraries(product):
    """The names of the shared libraries that a program or library needs directly (DT_NEEDED)."""
    dynamic = output_of("readelf", "--dynamic", "--wide", str(product), stderr=subprocess.DEVNULL)
    return re.findall(r"\(NEEDED\).*\[(.+)\]", dynamic)


def library_file(compiler, name):
    """Where the compiler finds a library; empty if it does not."""
    path = output_of(compiler, f"-print-file-name={name}").strip()
    return os.path.realpath(path) if os.path.isabs(path) else ""


def used_headers(compiler, folders):
    """Every header outside the project that its sources include, directly or not, as the compiler finds them."""
    text = "\n".join(path.read_text(errors="replace") for path in source_files(folders))
    names = sorted(set(re.findall(r"^#include <([^>]+)>", text, re.MULTILINE)))
    unit = "".join(f"#if __has_include(<{name}>)\n#include <{name}>\n#endif\n" for name in names)
    rule = output_of(compiler, "-std=c++20", "-M", "-x", "c++", "-", input=unit)
    return sorted(path for path in rule.replace("\\\n", " ").split() if path.startswith("/"))


def owners(paths):
    """The Debian package of each file that has one."""
    # A file below /usr may be registered below / (the merged /usr of Debian 12).
    names = {
        spelling: path for path in paths for spelling in (path, path.removeprefix("/usr"), f"/usr{path}")
    }
    found = {}
    for line in output_of("dpkg-query", "-S", *names, stderr=subprocess.DEVNULL).splitlines():
        packages, _, name = line.rpartition(": ")
        if name in names and not packages.startswith("diversion "):
            found.setdefault(names[name], packages.split(", ")[0])
    return found


def debian_package(package):
    """The element of an installed package, with the package URL by which advisories are looked up."""
    fields = "${Package}\n${Version}\n${Architecture}\n${Maintainer}"
    name, version, architecture, maintainer = output_of("dpkg-query", "-W", "-f", fields, package).split("\n")
    url = f"pkg:deb/debian/{name}@{urllib.parse.quote(version, safe='')}?arch={architecture}"
    return {
        "SPDXID": identifier("Package", name),
        "name": name,
        "versionInfo": version,
        "supplier": f"Organization: {maintainer.replace('<', '(').replace('>', ')')}",
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": False,
        "licenseConcluded": "NOASSERTION",
        "licenseDeclared": "NOASSERTION",
        "copyrightText": "NOASSERTION",
        "externalRefs": [
            {"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl", "referenceLocator": url}
        ],
    }


def unpackaged_library(name):
    """The element of a library that no Debian package has."""
    return {
        "SPDXID": identifier("Library", name),
        "name": name,
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": False,
    }


class Materials:
    """Collects the packages that products depend on, each once."""

    def __init__(self, compiler):
        self.compiler = compiler
        self.elements = {}

    def add(self, element):
        return self.elements.setdefault(element["SPDXID"], element)["SPDXID"]

    def library(self, name):
        path = library_file(self.compiler, name)
        package = owners([path]).get(path) if path else None
        return self.add(debian_package(package) if package else unpackaged_library(name))

    def packages_of(self, paths):
        return [self.add(debian_package(package)) for package in sorted(set(owners(paths).values()))]


# The document


def creation_time():
    seconds = int(os.environ.get("SOURCE_DATE_EPOCH", time.time()))
    moment = datetime.datetime.fromtimestamp(seconds, datetime.timezone.utc)
    return moment.strftime("%Y-%m-%dT%H:%M:%SZ")


def bill(version, compiler, folders, products):
    files = [file_element(path) for path in source_files(folders)]
    source = own_package("Source", "quen-io-source", version) | {
        "filesAnalyzed": True,
        "packageVerificationCode": {"packageVerificationCodeValue": verification_code(files)},
    }
    relations = [relationship(source["SPDXID"], "CONTAINS", each["SPDXID"]) for each in files]
    materials = Materials(compiler)
    own = {path.name: own_package("Product", path.name, version) for path in products}
    # A shared library is needed by its SONAME, which the beginning of its file's name is.
    sonames = {re.sub(r"(\.so\.\d+).*", r"\1", name): element for name, element in own.items()}
    for path in products:
        product = own[path.name]["SPDXID"]
        relations.append(relationship("SPDXRef-DOCUMENT", "DESCRIBES", product))
        relations.append(relationship(product, "GENERATED_FROM", source["SPDXID"]))
        needed = {
            sonames[name]["SPDXID"] if name in sonames else materials.library(name)
            for name in needed_libraries(path)
        }
        relations += [relationship(product, "DEPENDS_ON", other) for other in sorted(needed)]
    # Of these, the libraries that are headers alone are compiled into the products.
    for package in materials.packages_of(used_headers(compiler, folders)):
        relations.append(relationship(package, "BUILD_DEPENDENCY_OF", source["SPDXID"]))
    for package in materials.packages_of([os.path.realpath(compiler)]):
        relations.append(relationship(package, "BUILD_TOOL_OF", source["SPDXID"]))

    document = {
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"quen-io-{version}",
        "creationInfo": {
            "created": creation_time(),
            "creators": [f"Organization: {HOLDER}", f"Tool: quen-io-sbom-{version}"],
        },
        "packages": [source, *own.values(), *(materials.elements[key] for key in sorted(materials.elements))],
        "files": files,
        "relationships": relations,
    }
    digest = hashlib.sha256(json.dumps(document).encode()).hexdigest()
    document["documentNamespace"] = f"https://quen-io.example.org/spdx/quen-io-{version}-{digest}"
    return document


def main():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("--version", required=True)
    parser.add_argument("--compiler", required=True)
    parser.add_argument("--sources", nargs="+", required=True, metavar="FOLDER")
    parser.add_argument("--products", nargs="+", required=True, type=pathlib.Path, metavar="FILE")
    parser.add_argument("--output", required=True, type=pathlib.Path)
    options = parser.parse_args()
    document = bill(options.version, options.compiler, options.sources, options.products)
    options.output.write_text(json.dumps(document, indent=1) + "\n", encoding="utf-8")


if __name__ == "__main__":
    main()
