"""A program of which one allocation after the other fails, or several in a row, or no thread is to be had.

OMINSPECT_FAILING_ALLOCATION is the library that lets an allocation fail, OMINSPECT_FAULT_SHIMS the one that refuses
threads; the rest of the environment is that of tests/python/system.py.
"""

from __future__ import annotations

import os
import struct
import subprocess
from pathlib import Path
from typing import IO, Callable

from system import System

ITEMS = """<Owner process="short_of_memory" maxParallel="1">
    <Item name="now" timeout="10" isSync="true"><Command>/bin/echo</Command><Arg>fine | load=1</Arg></Item>
    <Item name="soon" timeout="10" isSync="true"><Command>/bin/sh</Command><Arg>-c</Arg><Arg>sleep 0.1</Arg></Item>
    <Item name="later" timeout="10" isSync="false"><Command>/bin/echo</Command><Arg>fine</Arg></Item>
    <Item name="held" timeout="10" isSync="true"><Command>/bin/sh</Command><Arg>-c</Arg>
        <Arg>touch begun; sleep 0.1</Arg></Item>
    <Item name="endless" timeout="270" isSync="true"><Command>/bin/sh</Command><Arg>-c</Arg>
        <Arg>echo $$ &gt; shell; mv shell endless; exec sleep 1000</Arg></Item>
</Owner>"""
MOST = 2000


class Shortage(System):
    ALONE = False  # whether the programs that it starts are spared

    def setUp(self) -> None:
        super().setUp()
        self.left = self.folder / "left"
        self.set_left(-1)
        self.server = self.start_server()

    def set_left(self, number: int, in_a_row: int = 1) -> None:
        """So many allocations succeed before one fails, or several in a row do."""
        with open(self.left, "r+b" if self.left.exists() else "wb", buffering=0) as file:
            file.write(struct.pack("=ii", number, in_a_row - 1))

    def has_failed(self) -> bool:
        """Whether one has, and ends the shortage."""
        failed: bool = struct.unpack("=ii", self.left.read_bytes())[0] < 0
        self.set_left(-1)
        return failed

    def start_short(self, command: list[str], errors: IO[bytes] | None = None) -> subprocess.Popen[bytes]:
        """Starts a program whose allocations fail when they are told to."""
        shims = os.environ["OMINSPECT_FAILING_ALLOCATION"] + " " + os.environ["OMINSPECT_FAULT_SHIMS"]
        shortage = {"LD_PRELOAD": shims, "FAILING_ALLOCATION": str(self.left), "FAULT_FOLDER": str(self.folder)}
        if self.ALONE:
            shortage["FAILING_ALLOCATION_PROGRAM"] = Path(command[0]).name
        child = subprocess.Popen(command, cwd=self.folder, env={**os.environ, **shortage}, stderr=errors)
        self.addCleanup(self.end, child)
        return child

    def start_items(self, start: Callable[[list[str]], subprocess.Popen[bytes]]) -> subprocess.Popen[bytes]:
        (self.folder / "items.xml").write_text(ITEMS)
        child = start([os.environ["OMINSPECT_BIN"] + "/ominspect-owner", str(self.folder / "items.xml")])
        self.await_items()
        return child

    def everywhere(self, least: int, road: Callable[[], object], following: Callable[[], object]) -> None:
        """Lets the first allocation fail, the second, and so on until the road needs no more."""
        for number in range(MOST):
            self.set_left(number)
            road()
            failed = self.has_failed()
            with self.subTest(allocation=number):
                following()
            if not failed:
                self.assertGreaterEqual(number, least)
                return
        self.fail("no end")
