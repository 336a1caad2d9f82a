"""A private bus with the server on it, and owners, for the tests of the Python module.

OMINSPECT_BIN is the folder with the server's launcher, OMINSPECT_BUS_CONFIG the configuration of a private bus.
"""

from __future__ import annotations

import os
import socket
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path
from typing import Callable, List

from jeepney import DBusAddress, new_method_call

import ominspect
from ominspect.bus import Bus, bus_name, task_path

_HERE = Path(__file__).parent


def eventually(condition: Callable[[], object], seconds: float = 20) -> bool:
    """Waits until the condition holds."""
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.01)
    return True


def listens(path: Path) -> bool:
    """Whether a server takes connections there; its socket is there a moment before it does."""
    with socket.socket(socket.AF_UNIX) as probe:
        try:
            probe.connect(str(path))
        except OSError:
            return False
    return True


class System(unittest.TestCase):
    """Each test has a bus of its own; what it starts is ended with it."""

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory(prefix="ominspect-python.")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        address = f"unix:path={self.folder}/bus"
        os.environ["KIVO_BUS_ADDRESS"] = address
        os.environ["KIVO_LOG_DIR"] = str(self.folder / "log")
        self.bus = self.start(["dbus-daemon", "--config-file=" + os.environ["OMINSPECT_BUS_CONFIG"],
                               "--address=" + address, "--nofork", "--nopidfile"])
        self.assertTrue(eventually(lambda: listens(self.folder / "bus")))

    def start(self, command: List[str]) -> subprocess.Popen[bytes]:
        """Starts a process in the background; it ends with the test."""
        child = subprocess.Popen(command, cwd=self.folder)
        self.addCleanup(self.end, child)
        return child

    def end(self, child: subprocess.Popen[bytes]) -> int:
        """Ends a process as the service manager does, and gives its exit code."""
        child.terminate()
        return child.wait(20)

    def start_server(self) -> subprocess.Popen[bytes]:
        """Starts the server; it is on the bus when this returns."""
        child = self.start([os.environ["OMINSPECT_BIN"] + "/ominspect"])
        probe = Bus("probe")
        try:
            self.assertTrue(eventually(lambda: not probe.receive(time.monotonic()) and probe.server))
        finally:
            probe.close()
        return child

    def start_owner(self) -> subprocess.Popen[bytes]:
        """Starts an_owner.py; its items are registered when this returns."""
        child = self.start([sys.executable, str(_HERE / "an_owner.py")])
        self.await_items()
        return child

    def await_items(self) -> None:
        """Waits until the owner's items are registered with the server that runs now."""
        with ominspect.Session("ic-waits") as session:
            def registered() -> bool:
                return any(owner.registered for item in session.items() if item.name == "now" for owner in item.owners)
            self.assertTrue(eventually(registered))

    def session(self) -> ominspect.Session:
        """A session that ends with the test."""
        session = ominspect.Session()
        self.addCleanup(session.close)
        return session


def send(bus: Bus, process: str, task: str, message_id: int, payload: bytes) -> bytes:
    """Sends a message to a task of any process, and gives the reply."""
    address = DBusAddress(task_path(task), bus.connection_of(bus_name(process)), "com.kivo.Msg")
    reply: bytes = bus.call(new_method_call(address, "Send", "uussay", (message_id, 0, "", "", payload)), 10)[0]
    return reply
