"""Sockets of the service manager, which the gateway serves instead of the configured places.

OMINSPECT_BIN is the folder with the programs.
"""

from __future__ import annotations

import os
import socket
import subprocess
import tempfile
import unittest
from pathlib import Path

from system import eventually

TOKEN = "look-0123456789abcdef012"


class Activation(unittest.TestCase):
    """Each test has a folder of its own; there is no bus, which HTTP does not need."""

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory(prefix="ominspect-activation.")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        os.environ["KIVO_BUS_ADDRESS"] = f"unix:path={self.folder}/no-bus"
        tokens = self.folder / "tokens"
        tokens.touch(mode=0o600)
        tokens.write_text(f"look screen {TOKEN}\n")
        self.config = self.folder / "gateway.xml"
        self.config.write_text(f'<Gateway><History enabled="false"/><Collection enabled="false"/>'
                               f'<Http tokens="{tokens}"><Unix path="{self.folder}/configured"/></Http></Gateway>')
        self.program = [os.environ["OMINSPECT_BIN"] + "/ominspect-gateway", "--config", str(self.config)]

    def start(self, *given: socket.socket | int) -> subprocess.Popen[str]:
        """Starts the gateway with these descriptors, from 3 on, as the service manager does."""
        numbers = [one if isinstance(one, int) else one.fileno() for one in given]
        # First out of the way of where they go.
        moves = " ".join(f"{90 + i}<&{number}" for i, number in enumerate(numbers))
        places = " ".join(f"{3 + i}<&{90 + i} {90 + i}<&-" for i in range(len(numbers)))
        script = f'exec {moves}; exec {places}; LISTEN_PID=$$ LISTEN_FDS={len(numbers)} exec "$@"'
        child = subprocess.Popen(["bash", "-c", script, "bash", *self.program], pass_fds=numbers, text=True,
                                 stderr=subprocess.PIPE)
        self.addCleanup(self.end, child)
        return child

    @staticmethod
    def end(child: subprocess.Popen[str]) -> None:
        """Ends a process that may have ended."""
        child.terminate()
        child.communicate(timeout=20)

    def status(self, *curl: str) -> str:
        """The status of an answer; the sockets listen before the gateway runs."""
        done = subprocess.run(["curl", "-s", "-m", "20", "-o", "/dev/null", "-w", "%{http_code}", *curl],
                              capture_output=True, text=True, check=False)
        return done.stdout

    def test_given_sockets_are_served_instead_of_the_configured(self) -> None:
        with socket.socket(socket.AF_UNIX) as local, socket.create_server(("127.0.0.1", 0)) as tcp:
            local.bind(str(self.folder / "given"))
            local.listen()
            child = self.start(local, tcp)
            address = f"http://127.0.0.1:{tcp.getsockname()[1]}"
            unix = ["--unix-socket", str(self.folder / "given")]
            self.assertEqual(self.status(*unix, "http://localhost/api/v1/items"), "200")
            self.assertEqual(self.status(address + "/api/v1/items"), "401")
            self.assertEqual(self.status("-H", f"Authorization: Bearer {TOKEN}", address + "/api/v1/items"), "200")
            self.assertFalse((self.folder / "configured").exists())
            # A connection that is gone before it is taken holds up nobody.
            flags = Path(f"/proc/{child.pid}/fdinfo/3").read_text().split("flags:")[1].split()[0]
            self.assertTrue(int(flags, 8) & os.O_NONBLOCK)
        child.terminate()
        self.assertEqual(child.wait(20), 0)
        self.assertTrue((self.folder / "given").exists(), "it is the service manager's")

    def test_an_address_is_a_name_of_this_machine(self) -> None:
        with socket.create_server(("127.0.0.77", 0)) as tcp:
            self.start(tcp)
            address = f"http://127.0.0.77:{tcp.getsockname()[1]}/api/v1/items"
            token = ["-H", f"Authorization: Bearer {TOKEN}"]
            self.assertEqual(self.status(*token, address), "200")
            self.assertEqual(self.status(*token, "-H", "Host: elsewhere", address), "421")

    def test_what_others_reach_takes_a_certificate(self) -> None:
        with socket.create_server(("0.0.0.0", 0)) as tcp:
            child = self.start(tcp)
            said = child.communicate(timeout=20)[1]
        self.assertEqual(child.returncode, 3)
        self.assertIn("an address that other machines reach takes a certificate and its key", said)

    def test_what_does_not_listen_is_refused(self) -> None:
        read, write = os.pipe()
        self.addCleanup(os.close, read)
        self.addCleanup(os.close, write)
        with socket.socket() as idle, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as datagrams:
            datagrams.bind(str(self.folder / "datagrams"))
            wrong: tuple[socket.socket | int, ...] = (read, idle, datagrams)
            for given in wrong:
                child = self.start(given)
                said = child.communicate(timeout=20)[1]
                self.assertEqual(child.returncode, 3, said)
                self.assertIn("listen on descriptor 3: the service manager gave no listening stream socket", said)

    def test_another_processs_sockets_are_not_taken(self) -> None:
        os.environ.update(LISTEN_PID="1", LISTEN_FDS="1")
        self.addCleanup(os.environ.pop, "LISTEN_PID")
        self.addCleanup(os.environ.pop, "LISTEN_FDS")
        child = subprocess.Popen(self.program, text=True, stderr=subprocess.PIPE)
        self.addCleanup(self.end, child)
        self.assertTrue(eventually((self.folder / "configured").exists))

    def test_systemds_own_program(self) -> None:
        place = self.folder / "activated"
        child = subprocess.Popen(["systemd-socket-activate", "-l", str(place), *self.program], text=True,
                                 stderr=subprocess.PIPE)
        self.addCleanup(self.end, child)
        self.assertTrue(eventually(place.exists))
        # The first connection starts it.
        self.assertEqual(self.status("--unix-socket", str(place), "http://localhost/api/v1/items"), "200")


if __name__ == "__main__":
    unittest.main()
