"""The packages that a bill of materials is about: those that were made, and those of Debian that are installed."""
from __future__ import annotations

import os
import re
import subprocess
import tarfile
from typing import Iterable


def run(*command: str) -> str:
    return subprocess.run(command, check=False, capture_output=True, text=True).stdout


class MadePackage:
    """A .deb file, unpacked into a folder."""

    def __init__(self, file: str, folder: str) -> None:
        self.file = file
        self.folder = folder
        subprocess.run(["dpkg-deb", "--extract", file, folder], check=True)
        fields = run("dpkg-deb", "--field", file)
        self.fields: dict[str, str] = dict(re.findall(r"^([A-Za-z-]+): (.*)$", fields, re.MULTILINE))
        with subprocess.Popen(["dpkg-deb", "--fsys-tarfile", file], stdout=subprocess.PIPE) as process:
            with tarfile.open(fileobj=process.stdout, mode="r|") as archive:
                members = [(member.name, member.isreg()) for member in archive if not member.isdir()]
        self.paths = sorted(name for name, regular in members if regular)
        self.names = {os.path.basename(name) for name, _ in members}  # links, too

    def read(self, path: str) -> bytes:
        with open(os.path.join(self.folder, path), "rb") as file:
            return file.read()

    def needed(self, path: str) -> list[str]:
        """The names of the libraries that a program or library loads: as the linker wrote them down, and those that it
        holds as a text, to load them later."""
        content = self.read(path)
        if content[:4] != b"\x7fELF":
            return []
        dynamic = run("readelf", "--dynamic", "--wide", os.path.join(self.folder, path))
        linked: list[str] = re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)
        own = re.findall(r"\(SONAME\).*\[(.*)\]", dynamic)
        held = {name.decode() for name in re.findall(rb"lib[\w+-]+\.so\.\d+(?=\0)", content)}
        return linked + sorted(held.difference(linked, own))

    def depends(self) -> list[tuple[str, list[str]]]:
        """What the field Depends asks for: each text, and the names of the packages that it leaves the choice of."""
        texts = [text.strip() for text in self.fields.get("Depends", "").split(",") if text.strip()]
        return [(text, [re.split(r"[ (:]", name.strip())[0] for name in text.split("|")]) for text in texts]

    def has_programs(self) -> bool:
        return any(self.needed(path) for path in self.paths)


class DebianPackages:
    """The installed packages, by the files that they have."""

    FIELDS = "${Package}\t${Version}\t${Architecture}\t${Maintainer}\t${Homepage}\t${source:Package}\t${source:Version}"

    def __init__(self, architecture: str) -> None:
        self._architecture = architecture
        self._libraries = run("dpkg-architecture", "-a", architecture, "-q", "DEB_HOST_MULTIARCH").strip()

    def owners(self, files: Iterable[str]) -> dict[str, str]:
        """The packages that have these files; a file that nobody has is passed over."""
        wanted: dict[str, str] = {}
        for file in files:
            for path in {os.path.normpath(file), os.path.realpath(file)}:
                wanted[path] = file
                # dpkg knows a file by its package's path, on either side of the link /lib -> usr/lib.
                wanted[path.removeprefix("/usr") if path.startswith("/usr/lib") else "/usr" + path] = file
        target = ":" + self._architecture
        found: dict[str, str] = {}
        for line in run("dpkg-query", "--search", *sorted(wanted)).splitlines():
            names, _, path = line.partition(": ")
            if path in wanted and not names.startswith("diversion by"):
                # What packages for several processors share is the target's.
                ordered = sorted(names.split(", "), key=lambda name: (not name.endswith(target), name))
                found.setdefault(wanted[path], ordered[0])
        return found

    def owner_of_library(self, name: str) -> str:
        for folder in (f"/usr/lib/{self._libraries}", f"/lib/{self._libraries}"):
            owners = self.owners([f"{folder}/{name}"])
            if owners:
                return next(iter(owners.values()))
        raise SystemExit(f"sbom: a program needs {name}, and no package has it")

    def provided_by(self, name: str) -> list[str]:
        """The other names of an installed package."""
        provides = run("dpkg-query", "--show", "--showformat", "${Provides},", name)
        return [other.split()[0] for other in provides.split(",") if other.strip()]

    def describe(self, name: str) -> dict[str, str]:
        keys = ("name", "version", "architecture", "maintainer", "homepage", "source", "source_version")
        return dict(zip(keys, run("dpkg-query", "--show", "--showformat", self.FIELDS, name).split("\t")))
