"""Licences as Debian's copyright files tell them, in the words of SPDX."""
from __future__ import annotations

import re
from typing import Iterator

NONE = "NOASSERTION"
FORMAT = "https://www.debian.org/doc/packaging-manuals/copyright-format/1.0"

# Debian's short names that SPDX has under another name; those with a version follow below.
SPDX_NAMES = {
    "Apache-2": "Apache-2.0",
    "BSD-2-clause": "BSD-2-Clause",
    "BSD-3-clause": "BSD-3-Clause",
    "BSL-1": "BSL-1.0",
    "Expat": "MIT",
    "ISC": "ISC",
    "MIT": "MIT",
    "zlib": "Zlib",
    "zlib/libpng": "Zlib",
    "Apache-2.0": "Apache-2.0",
}


def spdx_name(name: str) -> str | None:
    """SPDX's name for one of Debian's, or nothing."""
    if name in SPDX_NAMES:
        return SPDX_NAMES[name]
    versioned = re.fullmatch(r"(L?GPL|AGPL)-(\d(?:\.\d)?)(\+?)", name)
    if not versioned:
        return None
    family, number, later = versioned.groups()
    return f"{family}-{number if '.' in number else number + '.0'}-{'or-later' if later else 'only'}"


def paragraphs(text: str) -> Iterator[dict[str, str]]:
    """The paragraphs of a copyright file, each with its fields."""
    for paragraph in re.split(r"\n\s*\n", text):
        fields = re.findall(r"^([A-Za-z-]+):[ \t]*(.*(?:\n[ \t].*)*)", paragraph, re.MULTILINE)
        yield {name.title(): value.strip() for name, value in fields}


class Licences:
    def __init__(self) -> None:
        self._extracted: dict[str, dict[str, str]] = {}

    def of(self, package: str) -> tuple[str, str, str]:
        """Licence, copyright and a comment for an installed package."""
        name = f"/usr/share/doc/{package}/copyright"
        try:
            with open(name, encoding="utf-8", errors="replace") as file:
                return self.read(file.read(), package)
        except FileNotFoundError:
            return NONE, NONE, f"{name} is not there"

    def read(self, text: str, package: str) -> tuple[str, str, str]:
        if not text.startswith("Format:") or FORMAT not in text.splitlines()[0].replace("http:", "https:"):
            return NONE, NONE, f"/usr/share/doc/{package}/copyright tells it, for people only"
        parts = list(paragraphs(text))
        main = [part for part in parts if part.get("Files", "").split()[:1] == ["*"]]
        if not main or "License" not in main[0]:
            return NONE, NONE, f"/usr/share/doc/{package}/copyright names no licence for all of the files"
        texts: dict[str, str] = {}
        for part in parts:
            name, _, words = part.get("License", "").partition("\n")
            if words:
                texts.setdefault(name.strip(), words)
        names = {part["License"].splitlines()[0].strip() for part in parts if "Files" in part and "License" in part}
        name = main[0]["License"].splitlines()[0].strip()
        others = ", ".join(sorted(names - {name}))
        comment = "as the copyright file tells it" + (f"; parts of the sources have others: {others}" if others else "")
        return self._expression(name, package, texts), main[0].get("Copyright", NONE), comment

    def _expression(self, name: str, package: str, texts: dict[str, str]) -> str:
        """An expression of SPDX for one of Debian: names with "and", "or" and commas between them."""
        words = re.split(r",?\s+(and|or)\s+", name)
        if len(set(words[1::2])) > 1:  # what binds stronger is not the same in both
            return self._reference(name, package, texts)
        named = [spdx_name(word) or self._reference(word, package, texts) for word in words[::2]]
        return f" {words[1].upper()} ".join(named) if len(words) > 1 else named[0]

    def _reference(self, name: str, package: str, texts: dict[str, str]) -> str:
        text = texts.get(name) or f"/usr/share/doc/{package}/copyright has the text"
        for full_name in (name, f"{package}-{name}"):  # one name can stand for two texts
            key = "LicenseRef-" + re.sub(r"[^A-Za-z0-9.-]+", "-", full_name)
            entry = {"licenseId": key, "name": name, "extractedText": text}
            if self._extracted.setdefault(key, entry) == entry:
                break
        return key

    def extracted(self) -> list[dict[str, str]]:
        """The texts of the licences that SPDX has no name for."""
        return [self._extracted[key] for key in sorted(self._extracted)]
