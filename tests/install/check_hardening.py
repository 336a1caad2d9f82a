#!/usr/bin/python3
"""Reads from the binaries below the given folders how they are hardened (cmake/Hardening.cmake), by readelf.

Prints one line for each thing that is missing, and how many binaries have all.
    check_hardening.py FOLDER...
"""

import re
import subprocess
import sys
from pathlib import Path

# With _FORTIFY_SOURCE the compiler replaces each call of these; of the other functions those that it cannot prove to
# fit.
ALWAYS_REPLACED = {"printf", "fprintf", "dprintf", "vprintf", "vfprintf", "syslog"}
# These have calls that are replaced; small libraries may have none.
MUST_HAVE_REPLACED = re.compile(r"^(ominspect.*|libominspect.so|libkivo_om_log_client.*|libkivo_os_msg.*)$")
# Has SQLite within itself, which Debian compiles without marks; the half of its goals are its own.
HALF_MARKED = "ominspectctl"
# Hands its arguments on to the service manager, and has nothing on the stack that could overflow.
HAS_NO_FRAMES = re.compile(r"^libkivo_os_monitor_interface.*$")
# How a function begins that may be the goal of a call by address.
LANDINGS = {
    "Advanced Micro Devices X86-64": {"f30f1efa"},  # endbr64
    "AArch64": {"5f2403d5", "3f2303d5", "7f2303d5", "df2403d5"},  # bti c, paciasp, pacibsp, bti jc
}


def readelf(*arguments: str) -> str:
    done = subprocess.run(["readelf", "-W", *arguments], check=True, capture_output=True, text=True, errors="replace")
    return done.stdout


class Binary:
    def __init__(self, path: Path) -> None:
        self.path = path
        self.header = readelf("-h", str(path))
        self.segments = readelf("-l", str(path))
        self.dynamic = readelf("-d", str(path))
        self.machine = self.field("Machine")
        symbols = [line.split() for line in readelf("--dyn-syms", str(path)).splitlines()]
        self.symbols = [fields for fields in symbols if len(fields) >= 8 and fields[0].endswith(":")]
        self.needed = {fields[7].split("@")[0] for fields in self.symbols if fields[6] == "UND"}
        self.is_program = "INTERP" in self.segments

    def field(self, name: str) -> str:
        found = re.search(rf"^\s*{name}:\s*(.*)$", self.header, re.MULTILINE)
        return found.group(1).strip() if found else ""

    def text(self) -> tuple[int, bytes]:
        """Address and content of the section of code."""
        for line in readelf("-S", str(self.path)).splitlines():
            found = re.match(r"\s*\[ *\d+\] \.text +PROGBITS +([0-9a-f]+) ([0-9a-f]+) ([0-9a-f]+)", line)
            if found:
                address, offset, size = (int(text, 16) for text in found.groups())
                return address, self.path.read_bytes()[offset:offset + size]
        return 0, b""

    def called_by_address(self) -> set[int]:
        """The functions that others may call, and those whose address stands in the data."""
        called = {int(fields[1], 16) for fields in self.symbols
                  if fields[3] == "FUNC" and fields[6] not in ("UND", "ABS")}
        for line in readelf("-r", str(self.path)).splitlines():
            found = re.match(r"[0-9a-f]+ +[0-9a-f]+ R_\w+_RELATIVE +([0-9a-f]+)", line)
            if found:
                called.add(int(found.group(1), 16))
        return called

    def missing(self) -> list[str]:
        missing = []
        if "GNU_RELRO" not in self.segments:
            missing.append("no part of it is read-only after relocation (RELRO)")
        if not re.search(r"BIND_NOW|FLAGS_1.*NOW", self.dynamic):
            missing.append("functions are bound when they are called first (no BIND_NOW)")
        if re.search(r"GNU_STACK.* RWE ", self.segments) or "GNU_STACK" not in self.segments:
            missing.append("its stack can hold code")
        if re.search(r"LOAD.* RWE ", self.segments) or "TEXTREL" in self.dynamic:
            missing.append("its code can be written to")
        is_movable = self.field("Type").startswith("DYN")
        if not is_movable or (self.is_program and not re.search(r"FLAGS_1.*PIE", self.dynamic)):
            missing.append("it lies at a fixed address (no PIE)")
        if "__stack_chk_fail" not in self.needed and not HAS_NO_FRAMES.match(self.path.name):
            missing.append("no function watches its stack (stack protector)")
        plain = sorted(self.needed & ALWAYS_REPLACED)
        if plain:
            missing.append("calls " + ", ".join(plain) + " without a check (FORTIFY)")
        if MUST_HAVE_REPLACED.match(self.path.name) and not any(name.endswith("_chk") for name in self.needed):
            missing.append("no function that checks sizes is called (FORTIFY)")
        missing += self.missing_landings()
        return missing

    def missing_landings(self) -> list[str]:
        landings = LANDINGS.get(self.machine)
        if landings is None:
            return [f"what protects the control flow of {self.machine} is not known"]
        begin, code = self.text()
        goals = [address - begin for address in self.called_by_address() if begin <= address < begin + len(code)]
        without = [goal for goal in goals if code[goal:goal + 4].hex() not in landings]
        if not goals:
            return ["there is no function that is called by address"]
        if without and not (self.path.name == HALF_MARKED and len(without) < len(goals) / 2):
            shown = ", ".join(f"{begin + goal:#x}" for goal in sorted(without)[:5])
            return [f"{len(without)} of {len(goals)} goals of calls are not marked (control-flow protection), "
                    f"as {shown}"]
        return []


def is_elf(path: Path) -> bool:
    with path.open("rb") as file:
        return file.read(4) == b"\x7fELF"


def main() -> int:
    binaries = [path for folder in sys.argv[1:] for path in sorted(Path(folder).rglob("*"))
                if path.is_file() and not path.is_symlink() and is_elf(path)]
    failures = 0
    for path in binaries:
        for text in Binary(path).missing():
            print(f"{path}: {text}")
            failures += 1
    if not binaries:
        print("there is no binary below " + ", ".join(sys.argv[1:]))
        return 1
    print(f"{len(binaries)} binaries, {failures} findings")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
