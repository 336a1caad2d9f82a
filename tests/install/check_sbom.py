#!/usr/bin/python3
"""Looks whether the bill of materials in a folder is valid SPDX 2.3 and true of the packages beside it.

    check_sbom.py FOLDER

The licences are checked by a library that knows SPDX's list; what else the format demands, here. What it says of the
packages is compared with what dpkg says of them.
"""
from __future__ import annotations

import glob
import hashlib
import json
import os
import re
import subprocess
import sys
from typing import Any

from license_expression import get_spdx_licensing

# An object of the document, as JSON has it.
Entry = dict[str, Any]

CHECKSUMS = {"SHA1": 40, "SHA256": 64}
MANDATORY = {
    "document": ("spdxVersion", "dataLicense", "SPDXID", "name", "documentNamespace", "creationInfo"),
    "package": ("SPDXID", "name", "downloadLocation"),
    "file": ("SPDXID", "fileName", "checksums"),
    "licence": ("licenseId", "extractedText"),
    "relationship": ("spdxElementId", "relationshipType", "relatedSpdxElement"),
}
RELATIONSHIPS = {"DESCRIBES", "CONTAINS", "DEPENDS_ON", "DYNAMIC_LINK", "BUILD_DEPENDENCY_OF", "BUILD_TOOL_OF"}

problems: list[str] = []


def expect(condition: object, *what: object) -> None:
    if not condition:
        problems.append(" ".join(str(word) for word in what))


def has_fields(kind: str, entry: Entry) -> None:
    for name in MANDATORY[kind]:
        expect(entry.get(name) not in (None, "", []), kind, entry.get("SPDXID", entry), "has no", name)


def output(*command: str, data: bytes | None = None) -> bytes:
    return subprocess.run(command, check=True, capture_output=True, input=data).stdout


def providers() -> dict[str, str]:
    """The package behind each name that is none itself, such as that of a library with one of its interfaces."""
    found: dict[str, str] = {}
    for line in output("dpkg-query", "--show", "--showformat", "${Package} ${Provides}\n").decode().splitlines():
        package, _, provided = line.partition(" ")
        found.update((name.split()[0], package) for name in provided.split(", ") if name)
    return found


PROVIDERS = providers()


def digest(kind: str, data: bytes) -> str:
    return hashlib.new(kind.lower(), data).hexdigest()


def related(document: Entry, kind: str, identifier: str) -> set[str]:
    """What the entry of that identifier has the relationship with."""
    wanted = (identifier, kind)
    return {
        r["relatedSpdxElement"]
        for r in document["relationships"]
        if (r["spdxElementId"], r["relationshipType"]) == wanted
    }


def check_document(document: Entry) -> None:
    has_fields("document", document)
    expect(document["spdxVersion"] == "SPDX-2.3" and document["dataLicense"] == "CC0-1.0", "not SPDX 2.3 under CC0")
    expect(document["SPDXID"] == "SPDXRef-DOCUMENT", "the document has another identifier")
    space = document["documentNamespace"]
    expect(re.fullmatch(r"https://[^#\s]+", space), "the name space is no URI without a fragment")
    info = document["creationInfo"]
    expect(re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", info["created"]), "created", info["created"])
    for creator in info["creators"]:
        expect(re.match(r"(Person|Organization|Tool): \S", creator), "creator", creator)


def check_identifiers(document: Entry) -> None:
    entries = document["packages"] + document["files"]
    names = [entry["SPDXID"] for entry in entries] + [document["SPDXID"]]
    for name in names:
        expect(re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", name), "identifier", name)
    expect(len(set(names)) == len(names), "an identifier occurs twice")
    for relation in document["relationships"]:
        has_fields("relationship", relation)
        expect(relation["relationshipType"] in RELATIONSHIPS, "relationship", relation["relationshipType"])
        for end in ("spdxElementId", "relatedSpdxElement"):
            expect(relation[end] in names, "nobody is", relation[end])


def check_licences(document: Entry) -> None:
    own = {entry["licenseId"] for entry in document["hasExtractedLicensingInfos"]}
    for entry in document["hasExtractedLicensingInfos"]:
        has_fields("licence", entry)
        expect(re.fullmatch(r"LicenseRef-[A-Za-z0-9.-]+", entry["licenseId"]), "licence", entry["licenseId"])
    spdx = get_spdx_licensing()
    used = set()
    for package in document["packages"]:
        expect(package["licenseConcluded"] == "NOASSERTION", package["name"], "has a licence that nobody concluded")
        expression = package["licenseDeclared"]
        if expression == "NOASSERTION":
            continue
        for name in re.split(r" (?:AND|OR) ", expression):
            if name.startswith("LicenseRef-"):
                used.add(name)
            else:
                expect(not spdx.validate(name).errors and spdx.parse(name).render() == name, "SPDX knows no", name)
    expect(used == own, "licences with a text:", sorted(own), "and used:", sorted(used))


def check_sums(name: str, entry: Entry, data: bytes) -> None:
    sums = {item["algorithm"]: item["checksumValue"] for item in entry["checksums"]}
    expect(set(sums) == set(CHECKSUMS), name, "has the checksums", sorted(sums))
    for kind, value in sums.items():
        expect(digest(kind, data) == value, name, "has another", kind)


def check_made(document: Entry, package: Entry, file: str) -> None:
    """A package that was made: its own checksums, those of its files, and its dependencies."""
    with open(file, "rb") as made:
        check_sums(file, package, made.read())
    version = output("dpkg-deb", "--field", file, "Version").decode().strip()
    expect(package["versionInfo"] == version, file, "has another version")
    contained = related(document, "CONTAINS", package["SPDXID"])
    files = {entry["fileName"]: entry for entry in document["files"] if entry["SPDXID"] in contained}
    listed = [line.split(None, 5) for line in output("dpkg-deb", "--contents", file).decode().splitlines()]
    expect(set(files) == {fields[5] for fields in listed if fields[0].startswith("-")}, file, "has other files")
    contents = []
    archive = output("dpkg-deb", "--fsys-tarfile", file)
    for name, entry in files.items():
        has_fields("file", entry)
        data = output("tar", "-xO", name, data=archive)
        check_sums(name, entry, data)
        contents.append(digest("sha1", data))
    code = digest("sha1", "".join(sorted(contents)).encode())
    told = package["packageVerificationCode"]["packageVerificationCodeValue"]
    expect(told == code, file, "has another verification code")
    # What dpkg-shlibdeps found out for itself, and what the packages were given: "NAME (>= VERSION) | OTHER, ...".
    names = {entry["SPDXID"]: entry["name"] for entry in document["packages"]}
    depends = {names[other] for other in related(document, "DEPENDS_ON", package["SPDXID"])}
    field = output("dpkg-deb", "--field", file, "Depends").decode().strip()
    choices = [set(re.findall(r"(?:^|\| *)([a-z0-9.+-]+)", choice)) for choice in re.split(r", *", field) if choice]
    expect(choices, file, "has no dependencies")
    for choice in choices:
        choice.update({PROVIDERS[name] for name in choice if name in PROVIDERS})
        expect(choice & depends, file, "needs one of", sorted(choice))
    # Only what dpkg-shlibdeps leaves out because another dependency brings it may be more.
    allowed = {"libc6", "libgcc-s1", "libstdc++6", "ominspect"}.union(*choices)
    expect(depends <= allowed, file, "does not need", sorted(depends - allowed))


def main() -> None:
    folder = sys.argv[1]
    bills = glob.glob(os.path.join(folder, "*.spdx.json"))
    expect(len(bills) == 1, "bills of materials:", bills)
    with open(bills[0], encoding="utf-8") as file:
        document = json.load(file)
    check_document(document)
    check_identifiers(document)
    check_licences(document)
    for package in document["packages"]:
        has_fields("package", package)
    # What a program loads or was compiled with is of a version that was there.
    ends = dict.fromkeys(("BUILD_DEPENDENCY_OF", "BUILD_TOOL_OF"), "spdxElementId")
    ends["DYNAMIC_LINK"] = "relatedSpdxElement"
    versioned = {r[ends[kind]] for r in document["relationships"] if (kind := r["relationshipType"]) in ends}
    for package in document["packages"]:
        expect("versionInfo" in package or package["SPDXID"] not in versioned, package["name"], "has no version")
    described = related(document, "DESCRIBES", "SPDXRef-DOCUMENT")
    made = {package["packageFileName"]: package for package in document["packages"] if package["SPDXID"] in described}
    debs = sorted(os.path.basename(file) for file in glob.glob(os.path.join(folder, "*.deb")))
    expect(sorted(made) == debs, "the packages are", debs, "and described are", sorted(made))
    for name in set(made) & set(debs):
        check_made(document, made[name], os.path.join(folder, name))
    relations = document["relationships"]
    built_with = {r["spdxElementId"] for r in relations if r["relationshipType"] == "BUILD_DEPENDENCY_OF"}
    headers = {package["name"] for package in document["packages"] if package["SPDXID"] in built_with}
    # Headers that hold all of their library: no program names it.
    expect("libcli11-dev" in headers, "what has only headers is not named")
    print("\n".join(problems))
    sys.exit(1 if problems else 0)


main()
