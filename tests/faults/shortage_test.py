"""Each allocation that an owner's program makes on a road fails once. The server meets a shortage that lasts. The next
request is carried out as always.

OMINSPECT_ROOM is ominspect-room with the C++ library as a library, the rest of the environment that of shortage.py.
"""

from __future__ import annotations

import os
import signal
import subprocess
import threading
import unittest
from typing import Callable

import ominspect
from shortage import Shortage
from system import eventually


class Server(Shortage):
    def setUp(self) -> None:
        super().setUp()
        self.start_items(self.start)
        self.requester = self.session()

    def start(self, command: list[str]) -> subprocess.Popen[bytes]:
        return self.start_short(command) if command[0].endswith("/ominspect") else super().start(command)

    def test_fifty_allocations_in_a_row(self) -> None:
        """Also what the server says of a failure finds no memory."""
        for number in range(0, 40, 4):
            with self.subTest(allocation=number):
                self.set_left(number, in_a_row=50)
                try:
                    self.requester.run("now", limit=0.3)
                except ominspect.Error:
                    pass  # no answer, or none in time
                self.set_left(-1)
                self.assertIsNone(self.server.poll())
                self.assertEqual(self.requester.run("now", limit=20).result.status, "success")
        self.assertEqual(self.end(self.server), 0)


class Owner(Shortage):
    def setUp(self) -> None:
        super().setUp()
        self.owner = self.start_items(self.start_short)
        self.requester = self.session()

    def status_of(self, item: str) -> list[str]:
        return [self.requester.run(item, limit=5).result.status]

    def everywhere_in_runs(self, statuses: Callable[[], list[str]]) -> None:
        def road() -> None:
            # A result in any case: no run is left to its time limit.
            self.assertLessEqual(set(statuses()), {"success", "fail", "unknown"})

        def following() -> None:
            self.assertEqual(set(statuses()), {"success"})
            self.assertIsNone(self.owner.poll())
        self.everywhere(20, road, following)
        self.assertEqual(self.end(self.owner), 0)

    def test_a_short_run(self) -> None:
        self.everywhere_in_runs(lambda: self.status_of("now"))

    def test_a_run_whose_answer_is_deferred(self) -> None:
        self.everywhere_in_runs(lambda: self.status_of("soon"))

    def test_a_run_in_the_background(self) -> None:
        self.everywhere_in_runs(lambda: self.status_of("later"))

    def test_a_run_that_waits_for_its_place(self) -> None:
        other = self.session()

        def statuses() -> list[str]:
            begun = self.folder / "begun"
            begun.unlink(missing_ok=True)
            seen: list[str] = []
            first = threading.Thread(target=lambda: seen.append(other.run("held", limit=5).result.status))
            first.start()
            self.assertTrue(eventually(lambda: begun.exists() or not first.is_alive()))
            second = self.status_of("now")
            first.join()
            return seen + second
        self.everywhere_in_runs(statuses)

    def test_a_server_that_starts_anew(self) -> None:
        def start_anew() -> None:
            self.end(self.server)
            self.server = self.start_server()
            with ominspect.Session("ic-waits") as session:
                self.assertTrue(eventually(lambda: {"now", "soon", "later", "held"} <= {
                    item.name for item in session.items() for owner in item.owners if owner.registered}))
        self.everywhere(20, start_anew, lambda: self.assertIsNone(self.owner.poll()))
        self.assertEqual(self.end(self.owner), 0)


class Room(Shortage):
    ITEM = "conf_dndswitch_ft"

    def setUp(self) -> None:
        super().setUp()
        (self.folder / "room.xml").write_text('<Room><Network wired="none0"/></Room>')

    def start_room(self) -> bool:
        """Whether it serves. It serves all items, or says why it cannot, whatever lacks memory: itself, or the program
        that looks."""
        with open(self.folder / "said", "wb") as said:
            self.room = self.start_short(
                [os.environ["OMINSPECT_ROOM"], "--config", str(self.folder / "room.xml")], said)
        self.assertTrue(eventually(lambda: self.room.poll() is not None or " items\n" in self.said()), self.said())
        serves = self.room.poll() is None
        if self.room.poll() != -signal.SIGABRT:
            # Another start may serve, so it must not end as with a mistake, after which the service manager lets it be.
            self.assertIn(" serves 25 items\n" if serves else "ominspect-room: ", self.said())
            self.assertIn(self.room.poll(), (None, 3), self.said())
        return serves

    def said(self) -> str:
        return (self.folder / "said").read_text()

    def test_a_start(self) -> None:
        aborts: list[bool] = []

        def road() -> None:
            if self.start_room():
                self.assertIn(self.end(self.room), (0, 3))
            aborts.append(self.room.poll() == -signal.SIGABRT)
        self.everywhere(100, road, lambda: None)
        # Nobody catches what the libraries throw before the program begins; after that it ends in order.
        self.assertNotIn(True, aborts[aborts.index(False):])

    def test_a_run(self) -> None:
        self.assertTrue(self.start_room())
        requester = self.session()

        def status() -> str:
            return requester.run(self.ITEM, limit=5).result.status
        self.assertTrue(eventually(lambda: status() == "unknown"))  # as the room's file asks for nothing
        self.everywhere(20, lambda: self.assertIn(status(), ("unknown", "fail")),
                        lambda: self.assertEqual(status(), "unknown"))
        self.assertEqual(self.end(self.room), 0)


if __name__ == "__main__":
    unittest.main()
