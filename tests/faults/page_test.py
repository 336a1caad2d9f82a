"""Every test that the page names exists: page_test.py PAGE TESTS.

Names stand in the last column of each table whose header calls it "test", and wherever "Suite.Test" is in code style.
"""

from __future__ import annotations

import re
import sys
from pathlib import Path
from typing import Iterator

SUITE_AND_TEST = re.compile(r"`([A-Z]\w*)\.([A-Z]\w*)`")


def named(page: str) -> Iterator[str]:
    """What the page says to be tests."""
    in_table = False
    for line in page.splitlines():
        cells = [cell.strip() for cell in re.split(r"(?<!\\)\|", line)[1:-1]] if line.startswith("|") else []
        in_table = bool(cells) and (in_table or cells[-1] == "test")
        for suite, test in SUITE_AND_TEST.findall(line):
            yield f"{suite}.{test}"
        if in_table:
            for name in re.findall(r"`([^`]+)`", cells[-1]):
                yield name


def existing(tests: Path) -> set[str]:
    """Suites, suites with tests, and those of scripts with the names that they have in ctest."""
    names: set[str] = set()
    for source in tests.rglob("*.cpp"):
        for suite, test in re.findall(r"\bTEST(?:_[FP])?\(\s*(\w+),\s*(\w+)\)", source.read_text()):
            names |= {suite, f"{suite}.{test}"}
    for script in (tests / "faults").glob("*_test.py"):
        # gateway_shortage_test.py has some of faults.Shortage, too.
        suite = script.stem.removesuffix("_test").split("_")[-1].capitalize()
        names |= {f"faults.{suite}.{subject}" for subject in re.findall(r"^class (\w+)\(", script.read_text(), re.M)}
    return names


def main() -> int:
    page, tests = map(Path, sys.argv[1:])
    wanted = set(named(page.read_text()))
    if len(wanted) < 50:
        print("too few names are found: has the page another form?")
        return 1
    missing = sorted(wanted - existing(tests))
    for name in missing:
        print(f"{page.name} names a test that does not exist: {name}")
    return 1 if missing else 0


if __name__ == "__main__":
    sys.exit(main())
