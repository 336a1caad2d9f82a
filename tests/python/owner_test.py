"""An owner's runs in virtual time, on a bus that is scripted."""

import os
import signal
import unittest
from collections import deque
from typing import Generator
from unittest import mock

from jeepney import DBusAddress, HeaderFields, Message, new_method_call

from ominspect import Owner, owner, records
from ominspect.bus import task_path

_RUN = 4
_REPORT = 5


class Clock:
    """A clock that only waiting moves."""

    def __init__(self) -> None:
        self.now = 1000.0

    def monotonic(self) -> float:
        return self.now


class ScriptedBus:
    """Gives the owner one request to run an item, then lets it wait until it has nothing more to do, and ends it."""

    def __init__(self, clock: Clock, item: str):
        self.server = ":1.1"
        self.told: list[tuple[float, str, str]] = []  # when, status, text: answers and reports in their order
        self._clock = clock
        text = records.encode_request(records.Request(item))
        head = records.item_name(item).ljust(32, b"\0") + len(text).to_bytes(4, "little")
        address = DBusAddress(task_path("owner_items"), "com.kivo.proc.tester", "com.kivo.Msg")
        request = new_method_call(address, "Send", "uussay", (_RUN, 0, "iom_srv_task", "", head + text + b"\0"))
        request.header.fields[HeaderFields.sender] = self.server
        self._requests = deque([request])

    def receive(self, due: float | None, _descriptor: int) -> Message | None:
        if self._requests:
            return self._requests.popleft()
        if due is None:
            os.kill(os.getpid(), signal.SIGTERM)
        else:
            self._clock.now = max(self._clock.now, due)
        return None

    def is_from_server(self, _message: Message) -> bool:
        return True

    def send(self, message: Message) -> int:
        return 1

    def post(self, message_id: int, payload: bytes, _task: str, _param: int = 0) -> None:
        if message_id == _REPORT:
            self._tell(payload)

    def reply(self, _message: Message, _signature: str, payload: bytes) -> None:
        self._tell(payload)

    def close(self) -> None:
        pass

    def _tell(self, payload: bytes) -> None:
        result = records.decode_result(payload)
        self.told.append((self._clock.now - 1000.0, result.status, result.text))


def told_of(steps: int, pause: float) -> list[tuple[float, str, str]]:
    """What the owner of an item with so many steps tells the server, and when."""
    served = Owner("tester")

    @served.item("slow", pause=pause)
    def slow(_cmd: str) -> Generator[str, None, tuple[str, str]]:
        for step in range(steps):
            yield f"step {step}"
        return "success", "done"

    clock = Clock()
    bus = ScriptedBus(clock, "slow")
    with mock.patch.object(owner, "Bus", lambda _process: bus), \
            mock.patch("time.monotonic", clock.monotonic):
        served.serve()
    return bus.told


class Reports(unittest.TestCase):
    def test_a_result_waits_until_the_server_has_digested_the_answer(self) -> None:
        self.assertEqual(told_of(1, 0.0), [(0.0, "running", "step 0"), (0.5, "success", "done")])

    def test_progress_waits_for_that_too_and_then_comes_twice_a_second_at_most(self) -> None:
        self.assertEqual(told_of(7, 0.25), [(0.0, "running", "step 0"), (0.5, "running", "step 2"),
                                            (1.0, "running", "step 4"), (1.5, "running", "step 6"),
                                            (1.75, "success", "done")])

    def test_a_result_that_comes_later_waits_for_nothing(self) -> None:
        self.assertEqual(told_of(1, 3.0), [(0.0, "running", "step 0"), (3.0, "success", "done")])


if __name__ == "__main__":
    unittest.main()
