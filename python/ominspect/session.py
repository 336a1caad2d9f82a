"""A requester's place on the message bus, and the requests it can make of the inspection server."""

from __future__ import annotations

import itertools
import os
import time
from collections import deque
from contextlib import contextmanager, suppress
from dataclasses import dataclass, field
from typing import Callable, Iterable, Iterator, Optional, Union

from jeepney import DBusAddress, HeaderFields, Message, MessageType, Properties, new_method_call

from . import records
from .bus import (MESSAGES, SERVER_NAME, SERVER_PATH, Bus, is_named, is_server_change, send_of, task_path)
from .errors import Error, GroupBusyError, ServerAbsentError, TimeLimitError

_EVENTS = f"type='signal',sender='{SERVER_NAME}',interface='{MESSAGES}',member='Event',path='{SERVER_PATH}'"
_PUBLISHER = DBusAddress("/com/kivo/process", SERVER_NAME, MESSAGES + ".Publisher")
_ASK_AGAIN = 0.25  # seconds
_OWNER_LIMIT = 2.0  # for a process to say what it owns
_STOP_LIMIT = 6.0  # for the owner to stop, and for the server to send the last result
_NUMBERS = itertools.count()
_MOST_HELD = 16  # a run that the server never releases is not waited for


@dataclass(frozen=True)
class Outcome:
    """The result of a run. ``joined``: it is that of a run that the server had already."""

    result: records.Result
    joined: bool


@dataclass(frozen=True)
class ItemOwner:
    """A process that owns an item."""

    process: str  # its name on the bus
    time_limit: float  # in seconds, of a run whose result it reports later; 0: none
    registered: bool  # with the server that runs now; after a restart not at once


@dataclass
class Item:
    """An item that the server's configuration names, or that a process owns, or both."""

    name: str
    configuration: records.ConfiguredItem | None = None
    owners: list[ItemOwner] = field(default_factory=list)


@dataclass(frozen=True)
class RunEvent:
    """A run began ("running", "begin"), or ended."""

    result: records.Result


@dataclass(frozen=True)
class BusyEvent:
    """The server became busy, or idle."""

    busy: bool


@dataclass(frozen=True)
class ServerEvent:
    """The server left the bus, or came (back)."""

    present: bool


Event = Union[RunEvent, BusyEvent, ServerEvent]


class _Pending:
    """A request of which messages are still to come; they go to a task of its own, so that none are mixed up."""

    def __init__(self, item: str):
        self.item = item
        self.messages: deque[bytes] = deque()
        self.answered = False
        self.begun = False  # a run of the item began before the first message came
        self.lost = False  # the server left, and has forgotten it


class Session:
    """Asks the inspection server. A session is used by one thread at a time and can be a context manager.

    ``process`` is its name on the bus, 1 to 15 bytes, which it has while it waits; the default is made from the process
    id. Whoever may only ask needs one that begins with "ic-". Every time is in seconds. Raises AlreadyOpenError,
    BusUnreachableError, DeniedError and InvalidArgumentError; each method may raise these, ServerAbsentError,
    TimeLimitError, RefusedError and MalformedReplyError.
    """

    def __init__(self, process: str | None = None):
        # Names have 15 bytes at most.
        self._bus = Bus(f"ic-{os.getpid()}-{next(_NUMBERS) % 1000}" if process is None else process)
        self._bus.drop_name()
        self._tasks = 0
        self._pending: dict[str, _Pending] = {}  # by the object of the task
        self._events: deque[Event] = deque()
        self._listeners = 0
        self._watchers = 0

    def __enter__(self) -> Session:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """Leaves the bus."""
        self._bus.close()

    # ---- one item ----

    def run(self, item: str, cmd: str = "", *, limit: float = 60.0, join: bool = False,
            on_progress: Optional[Callable[[records.Result], None]] = None) -> Outcome:
        """Runs an item and waits for its result, without holding up other clients of the server.

        ``cmd`` is the item's argument; of "stop" and "done" the answer comes back. If the server has a run of the item
        already, its end is waited for and the item is run then; with ``join`` its result is taken. A run whose limit
        ends, or that an exception (such as KeyboardInterrupt) ends early, is stopped. ``on_progress`` gets each result
        with the status "running".
        """
        deadline = time.monotonic() + limit
        request = records.Request(item, cmd)
        for held in range(_MOST_HELD + 1):
            outcome = self._run_once(request, deadline, on_progress)
            if not outcome.joined or join:
                break
            self._pause(_ASK_AGAIN, deadline)
        return outcome

    def _run_once(self, request: records.Request, deadline: float,
                  on_progress: Optional[Callable[[records.Result], None]]) -> Outcome:
        text = records.encode_request(request)
        is_command = request.cmd in ("stop", "done")
        with self._listening(), self._task(request.item) as (task, pending):
            # A message to an absent server is not reported as an error: it is asked for before.
            self._bus.ask(7, limit=max(0.0, deadline - time.monotonic()))
            self._bus.post(18, text, task)
            try:
                while True:
                    result = records.decode_result(self._await(pending, deadline))
                    joined = not (pending.begun or is_command)
                    if is_command or result.status != "running":
                        return Outcome(result, joined)
                    if on_progress:
                        on_progress(result)
            except TimeLimitError as error:
                if is_command:
                    raise
                raise TimeLimitError(f"{error}; {self._give_up(request.item, pending)}") from None
            except BaseException:
                # What ends the wait early, such as Ctrl-C, does not wait for the stop.
                if not pending.lost and not is_command and (pending.begun or not pending.answered):
                    self._post_stop(request.item, "")
                raise

    def _post_stop(self, item: str, task: str) -> None:
        self._bus.post(18, records.encode_request(records.Request(item, "stop")), task)

    def _give_up(self, item: str, pending: _Pending) -> str:
        if pending.answered and not pending.begun:
            return "another run of the item goes on"
        deadline = time.monotonic() + _STOP_LIMIT
        try:
            with self._task(item) as (task, stop):
                self._post_stop(item, task)
                self._await(stop, deadline)
            while records.decode_result(self._await(pending, deadline)).status == "running":
                pass
        except TimeLimitError:
            return "the item was asked to stop, but still runs"
        except Error as error:
            return f"the item could not be stopped: {error}"
        return "the item was stopped"

    # ---- groups ----

    def group(self, requests: Iterable[records.AnyRequest], *, limit: float = 60.0,
              wait: bool = False) -> records.GroupRecord:
        """Runs 1 to 32 items as a group, and returns when the server has ended it.

        A request is an item's name or a pair of name and cmd. The server runs one group at a time: with ``wait`` it is
        asked until it takes this one, else GroupBusyError is raised. A group whose limit ends, or that an exception
        ends early, is stopped.
        """
        payload = records.encode_group(records.request_of(request) for request in requests)
        deadline = time.monotonic() + limit
        with self._task("") as (task, pending):
            task_id = self._start_group(payload, task, deadline, wait)
            try:
                record = records.decode_group_record(self._await(pending, deadline))
            except TimeLimitError as error:
                raise TimeLimitError(f"{error}; {self._break(task_id, pending)}") from None
            except BaseException:
                if not pending.lost:
                    self._bus.post(6, b"", "", task_id)
                raise
            # The server waits for the stop: until then it takes no other group.
            self._await_end(task_id)
            return record

    def _start_group(self, payload: bytes, task: str, deadline: float, wait: bool) -> int:
        while True:
            left = max(0.0, deadline - time.monotonic())
            try:
                # A group without a known task id could not be stopped, so its answer is waited for a little longer.
                return records.decode_group_reply(self._bus.ask(19, payload, task, limit=left + _STOP_LIMIT))
            except GroupBusyError:
                if not wait:
                    raise
                self._pause(_ASK_AGAIN, deadline)

    def _await_end(self, task_id: int) -> bool:
        deadline = time.monotonic() + _STOP_LIMIT
        try:
            while records.decode_stop_reply(self._bus.ask(6, param=task_id)):
                self._pause(_ASK_AGAIN, deadline)
        except Error:
            return False
        return True

    def _break(self, task_id: int, pending: _Pending) -> str:
        try:
            self._bus.ask(6, param=task_id)
            self._await(pending, time.monotonic() + _STOP_LIMIT)
        except TimeLimitError:
            return "the group was asked to stop, but items of it still run"
        except Error as error:
            return f"the group could not be stopped: {error}"
        return "the group was stopped" if self._await_end(task_id) else "the group was asked to stop"

    # ---- lists ----

    def configured(self) -> list[records.ConfiguredItem]:
        """The items that the server's configuration names, 256 at most, in its order."""
        return records.decode_list(self._bus.ask(38))

    def items(self) -> list[Item]:
        """The configured items, then those that processes own beside them, by name.

        A process shows its items if it uses the engine client library or this module; each has two seconds to answer.
        """
        found = {entry.name: Item(entry.name, entry) for entry in self.configured()}
        others: dict[str, Item] = {}
        processes = [name for name in self._bus.ask_daemon("ListNames")[0] if name.startswith("com.kivo.proc.")]
        # All are asked before the first answer is waited for.
        asked = [(process, *self._ask_owned(process)) for process in processes]
        deadline = time.monotonic() + _OWNER_LIMIT
        for process, serial, message in asked:
            for name, time_limit, server in self._owned(serial, message, deadline):
                item = found.get(name) or others.setdefault(name, Item(name))
                item.owners.append(ItemOwner(process, time_limit / 1000, server != "" and server == self._bus.server))
        return [*found.values(), *(others[name] for name in sorted(others))]

    def _ask_owned(self, process: str) -> tuple[int, Message]:
        connection = self._bus.connection_of(process) or process
        message = Properties(DBusAddress("/com/kivo/inspect", connection, "com.kivo.Inspect.Owner")).get("Items")
        return self._bus.send(message), message

    def _owned(self, serial: int, message: Message, deadline: float) -> list[tuple[str, int, str]]:
        items: list[tuple[str, int, str]]
        try:
            kind, items = self._bus.await_reply(serial, message, deadline)[0]
        except (Error, IndexError):
            return []  # it has no such object, has left, or does not answer
        return items if kind == "a(sus)" else []

    # ---- events ----

    def watch(self, limit: Optional[float] = None) -> Iterator[Event]:
        """Tells what happens at the server, also over its restarts, until the limit; without one for ever."""
        deadline = None if limit is None else time.monotonic() + limit
        self._watchers += 1
        try:
            with self._listening():
                while True:
                    while self._events:
                        yield self._events.popleft()
                    if not self._take(deadline):
                        return
        finally:
            self._watchers -= 1
            if not self._watchers:
                self._events.clear()

    @contextmanager
    def _listening(self) -> Iterator[None]:
        """Has the server's events come. Otherwise they would pile up while nobody reads them."""
        self._listeners += 1
        try:
            if self._listeners == 1:
                self._bus.listen(_EVENTS)
                self._subscribe("Subscribe")
            yield
        finally:
            self._listeners -= 1
            if not self._listeners:
                self._stop_listening()

    def _stop_listening(self) -> None:
        with suppress(Error):  # what the wait was for has been told, or its error is more telling
            self._bus.ask_daemon("RemoveMatch", "s", _EVENTS)
            self._subscribe("Unsubscribe")

    def _subscribe(self, method: str) -> None:
        with suppress(ServerAbsentError, TimeLimitError):  # the request itself says so, and it may come yet
            self._bus.call(new_method_call(_PUBLISHER, method), 2.0)

    # ---- what comes in ----

    @contextmanager
    def _task(self, item: str) -> Iterator[tuple[str, _Pending]]:
        self._tasks += 1
        task = f"t{self._tasks}"
        path = task_path(task)
        if not self._pending:
            self._bus.take_name()
        self._pending[path] = pending = _Pending(item)
        try:
            yield task, pending
        finally:
            del self._pending[path]
            if not self._pending:
                with suppress(Error):  # as above
                    self._bus.drop_name()

    def _await(self, pending: _Pending, deadline: float) -> bytes:
        while not pending.messages:
            if pending.lost:
                raise ServerAbsentError("server absent: it left the bus, or restarted, and forgot the run")
            if not self._take(deadline):
                raise TimeLimitError("the time limit is over")
        pending.answered = True
        return pending.messages.popleft()

    def _pause(self, seconds: float, deadline: float) -> None:
        end = time.monotonic() + seconds
        while self._take(min(end, deadline)):
            pass
        if time.monotonic() >= deadline:
            raise TimeLimitError("the time limit is over")

    def _take(self, deadline: float | None) -> bool:
        """Reads one message and puts it where it belongs. False: none came until the deadline."""
        message = self._bus.receive(deadline)
        if message is None:
            return False
        if is_server_change(message):
            self._on_server_change(bool(message.body[2]))
        elif self._bus.is_from_server(message):
            sent = send_of(message)
            if sent and sent[1] in (0, 1) and sent[0] in self._pending:
                self._pending[sent[0]].messages.append(sent[2])
            elif is_named(message, MessageType.signal, MESSAGES, "Event") and len(message.body) == 2:
                if message.header.fields[HeaderFields.path] == SERVER_PATH:
                    self._on_event(*message.body)
        elif message.header.message_type is MessageType.method_call:
            self._bus.refuse(message, "UnknownObject")  # such as the question what this process owns
        return True

    def _on_server_change(self, present: bool) -> None:
        for pending in self._pending.values():
            pending.lost = True
        if self._watchers:
            self._events.append(ServerEvent(present))
        if present and self._listeners:
            self._subscribe("Subscribe")

    def _on_event(self, event_id: int, data: bytes) -> None:
        event: Event
        try:
            if event_id == 8:
                event = RunEvent(records.decode_result(data))
                self._note_beginning(event.result)
            elif event_id == 9:
                event = BusyEvent(records.decode_busy(data))
            else:
                return
        except Error:
            return  # an owner's record with a text that does not end: whoever ran the item is told
        if self._watchers:
            self._events.append(event)

    def _note_beginning(self, result: records.Result) -> None:
        if (result.status, result.text) == ("running", "begin"):
            for pending in self._pending.values():
                if pending.item == result.name and not (pending.answered or pending.messages):
                    pending.begun = True
