#!/usr/bin/env python3
"""Writes the bill of materials of a set of packages, as SPDX 2.3 in JSON.

    sbom.py BUILD_FOLDER PACKAGE.deb... >FILE

What is in the packages is read from the packages. What they are made of is read from where it was noted: the libraries
from the programs themselves (as the linker wrote them down), what was compiled in from the compiler's list of headers
(ninja -t deps), and whose file that is, of which version and under which licence, from dpkg and the copyright files of
the packages. What else the packages need to run stands in their field Depends: it need not be on the building machine,
so it has a name and no version. The same packages give the same bytes: the only time in it is SOURCE_DATE_EPOCH.
"""
from __future__ import annotations

import glob
import hashlib
import json
import os
import re
import sys
import tempfile
import time
from operator import itemgetter
from typing import Any

from licences import NONE, Licences
from packages import DebianPackages, MadePackage, run

# An object of the document, as JSON has it.
Entry = dict[str, Any]


def identifier(*parts: str) -> str:
    return "SPDXRef-" + "-".join(re.sub(r"[^A-Za-z0-9.-]", "-", part) for part in parts)


def checksums(data: bytes) -> list[dict[str, str]]:
    return [
        {"algorithm": name.upper(), "checksumValue": hashlib.new(name, data).hexdigest()} for name in ("sha1", "sha256")
    ]


def purl(vendor: str, name: str, version: str = "", architecture: str = "") -> dict[str, str]:
    escaped = "@" + version.replace("+", "%2B").replace(":", "%3A") if version else ""
    return {
        "referenceCategory": "PACKAGE-MANAGER",
        "referenceType": "purl",
        "referenceLocator": f"pkg:deb/{vendor}/{name}{escaped}" + (f"?arch={architecture}" if architecture else ""),
    }


def compiled_headers(build: str) -> list[str]:
    """All that the compiler read, but for the sources themselves and what the build made."""
    lines = run("ninja", "-C", build, "-t", "deps").splitlines()
    paths = {os.path.normpath(line.strip()) for line in lines if line.startswith("    /")}
    own = (os.path.realpath(build) + "/", os.getcwd() + "/")
    return sorted(path for path in paths if not path.startswith(own))


def compiler(build: str) -> str:
    (noted,) = glob.glob(os.path.join(build, "CMakeFiles", "*", "CMakeCXXCompiler.cmake"))
    with open(noted, encoding="utf-8") as file:
        path: str = re.findall(r'^set\(CMAKE_CXX_COMPILER "(.*)"\)$', file.read(), re.MULTILINE)[0]
    return os.path.realpath(run("sh", "-c", 'command -v "$0"', path).strip())


class Document:
    def __init__(self, packages: list[MadePackage], build: str) -> None:
        self._made = packages
        self._build = build
        self._architecture = packages[0].fields["Architecture"]
        self._debian = DebianPackages(self._architecture)
        self._licences = Licences()
        self._packages: dict[str, Entry] = {}
        self._files: list[Entry] = []
        self._relations: set[tuple[str, str, str]] = set()
        self._comments: dict[tuple[str, str, str], str] = {}  # on some of the relations

    def content(self) -> Entry:
        for package in self._made:
            self._add_made(package)
            self._add_files(package)
        for package in self._made:
            self._add_called(package)
        self._add_compiled()
        version = self._made[0].fields["Version"]
        name = f"ominspect-{version}-{self._architecture}"
        # Other packages make another document.
        sums = "".join(self._packages[self._id(package)]["checksums"][1]["checksumValue"] for package in self._made)
        digest = hashlib.sha256(sums.encode()).hexdigest()
        created = time.gmtime(int(os.environ["SOURCE_DATE_EPOCH"]))
        return {
            "spdxVersion": "SPDX-2.3",
            "dataLicense": "CC0-1.0",
            "SPDXID": "SPDXRef-DOCUMENT",
            "name": name,
            "documentNamespace": f"https://ominspect.invalid/spdx/{name}-{digest[:32]}",
            "creationInfo": {
                "created": time.strftime("%Y-%m-%dT%H:%M:%SZ", created),
                "creators": ["Organization: ominspect maintainers", f"Tool: ominspect-sbom-{version}"],
            },
            "packages": [self._packages[key] for key in sorted(self._packages)],
            "files": sorted(self._files, key=itemgetter("SPDXID")),
            "hasExtractedLicensingInfos": self._licences.extracted(),
            "relationships": [self._relation(*relation) for relation in sorted(self._relations)],
        }

    def _relation(self, first: str, kind: str, second: str) -> Entry:
        entry = {"spdxElementId": first, "relationshipType": kind, "relatedSpdxElement": second}
        comment = self._comments.get((first, kind, second))
        return {**entry, "comment": comment} if comment else entry

    @staticmethod
    def _id(package: MadePackage) -> str:
        return identifier("Package", package.fields["Package"])

    def _add_made(self, package: MadePackage) -> None:
        with open(package.file, "rb") as file:
            sums = checksums(file.read())
        fields = package.fields
        licence, copyright_text, comment = self._licences.read(
            package.read(f"./usr/share/doc/{fields['Package']}/copyright").decode(), fields["Package"]
        )
        contents = sorted(hashlib.sha1(package.read(path)).hexdigest() for path in package.paths)
        code = hashlib.sha1("".join(contents).encode()).hexdigest()
        self._packages[self._id(package)] = {
            "SPDXID": self._id(package),
            "name": fields["Package"],
            "versionInfo": fields["Version"],
            "packageFileName": os.path.basename(package.file),
            "supplier": "Organization: " + fields["Maintainer"].replace("<", "(").replace(">", ")"),
            "downloadLocation": NONE,
            "filesAnalyzed": True,
            "packageVerificationCode": {"packageVerificationCodeValue": code},
            "checksums": sums,
            "licenseConcluded": NONE,
            "licenseInfoFromFiles": [NONE],
            "licenseDeclared": licence,
            "licenseComments": comment,
            "copyrightText": copyright_text,
            "summary": fields["Description"],
            "externalRefs": [purl("ominspect", fields["Package"], fields["Version"], fields["Architecture"])],
        }
        self._relations.add(("SPDXRef-DOCUMENT", "DESCRIBES", self._id(package)))

    def _add_files(self, package: MadePackage) -> None:
        for path in package.paths:
            content = package.read(path)
            unique = hashlib.sha1(path.encode()).hexdigest()[:8]
            key = identifier("File", package.fields["Package"], path.removeprefix("./"), unique)
            self._files.append(
                {
                    "SPDXID": key,
                    "fileName": path,
                    "fileTypes": ["BINARY" if b"\0" in content else "TEXT"],
                    "checksums": checksums(content),
                    "licenseConcluded": NONE,
                    "licenseInfoInFiles": [NONE],
                    "copyrightText": NONE,
                }
            )
            self._relations.add((self._id(package), "CONTAINS", key))
            for library in package.needed(path):
                made = [self._id(other) for other in self._made if library in other.names]
                other = made[0] if made else self._installed(self._debian.owner_of_library(library))
                self._relations.add((key, "DYNAMIC_LINK", other))
                if other != self._id(package):
                    self._relations.add((self._id(package), "DEPENDS_ON", other))

    def _add_called(self, package: MadePackage) -> None:
        """What the field Depends asks for and no linker knows of: programs, services, modules."""
        key = self._id(package)
        on = [to for first, kind, to in self._relations if (first, kind) == (key, "DEPENDS_ON")]
        linked = {self._packages[to]["name"] for to in on}
        for name in sorted(linked):
            linked.update(self._debian.provided_by(name))
        made = {other.fields["Package"]: self._id(other) for other in self._made}
        for text, names in package.depends():
            if not linked.intersection(names):
                relation = (key, "DEPENDS_ON", made.get(names[0]) or self._named(names[0]))
                self._relations.add(relation)
                self._comments[relation] = "Depends: " + text

    def _add_compiled(self) -> None:
        headers = compiled_headers(self._build)
        if not headers:
            raise SystemExit(f"sbom: {self._build} does not know what was compiled")
        tools = self._debian.owners([compiler(self._build)])
        programs = [self._id(package) for package in self._made if package.has_programs()]
        for kind, names in (("BUILD_DEPENDENCY_OF", self._debian.owners(headers)), ("BUILD_TOOL_OF", tools)):
            for name in set(names.values()):
                self._relations.update((self._installed(name), kind, program) for program in programs)

    def _named(self, name: str) -> str:
        """The entry of a package of Debian of which the field Depends has the name and, maybe, the least version."""
        key = identifier("Debian", name)
        self._packages[key] = {
            "SPDXID": key,
            "name": name,
            "downloadLocation": NONE,
            "filesAnalyzed": False,
            "licenseConcluded": NONE,
            "licenseDeclared": NONE,
            "copyrightText": NONE,
            "comment": "the machine on which the package is installed decides on the version",
            "externalRefs": [purl("debian", name)],
        }
        return key

    def _installed(self, name: str) -> str:
        """The entry of a package of Debian."""
        known = self._debian.describe(name)
        key = identifier("Debian", known["name"], known["architecture"])
        if key not in self._packages:
            licence, copyright_text, comment = self._licences.of(known["name"])
            self._packages[key] = {
                "SPDXID": key,
                "name": known["name"],
                "versionInfo": known["version"],
                "supplier": "Organization: " + known["maintainer"].replace("<", "(").replace(">", ")"),
                "downloadLocation": NONE,
                "homepage": known["homepage"] or NONE,
                "filesAnalyzed": False,
                "sourceInfo": f"built from the Debian source package {known['source']} {known['source_version']}",
                "licenseConcluded": NONE,
                "licenseDeclared": licence,
                "licenseComments": comment,
                "copyrightText": copyright_text,
                "externalRefs": [purl("debian", known["name"], known["version"], known["architecture"])],
            }
        return key


def main() -> None:
    build, *files = sys.argv[1:]
    with tempfile.TemporaryDirectory() as work:
        packages = [MadePackage(file, os.path.join(work, os.path.basename(file))) for file in sorted(files)]
        json.dump(Document(packages, build).content(), sys.stdout, indent=1, ensure_ascii=False)
        print()


if __name__ == "__main__":
    main()
