"""An owner of inspection items: a process whose functions are the items."""

from __future__ import annotations

import logging
import os
import signal
import time
from contextlib import contextmanager
from dataclasses import dataclass
from types import FrameType
from typing import Callable, Generator, Iterator, Tuple, Union

from jeepney import DBusAddress, HeaderFields, Message, MessageType, new_signal

from . import records
from .bus import Bus, is_named, is_server_change, send_of, task_path
from .errors import InvalidArgumentError, MalformedReplyError

Answer = Tuple[str, str]
ItemFunction = Callable[[str], Union[Answer, Generator[str, None, Answer]]]

_LOG = logging.getLogger("ominspect")
_TASK = "owner_items"
_ITEMS_PATH = "/com/kivo/inspect"
_ITEMS_INTERFACE = "com.kivo.Inspect.Owner"
_PROPERTIES = "org.freedesktop.DBus.Properties"
# The server forgets a report that comes before it has digested the answer "running".
_SETTLE = 0.5
_BETWEEN_PROGRESS = 0.5


@dataclass
class _Item:
    function: ItemFunction
    time_limit: int  # in ms
    pause: float
    server: str = ""  # the connection of the server with which it was registered last


class _Job:
    """A run that was answered with "running"."""

    def __init__(self, steps: Generator[str, None, Answer], pause: float, progress: str):
        now = time.monotonic()
        self.steps = steps
        self.pause = pause
        self.progress = progress
        self.answer: Answer | None = None
        self.due = now + pause
        self.settled = now + _SETTLE
        self.progress_from = self.settled

    def end(self, answer: Answer) -> None:
        """The run has ended; it is told as soon as the server can take that."""
        self.answer = answer
        self.due = max(time.monotonic(), self.settled)


class Owner:
    """Owns items, each of which is a function, and carries out their runs. No threads.

    A function gets the request's argument and returns a status and a text: "success", "warn", "fail" or a word of its
    own, and what a person should read. A generator function is a run that takes its time: each text that it yields is
    its progress, and what it returns is the result. Between its steps the owner serves others, so each step should be
    short. When the run is stopped, the generator is closed. An exception is the status "fail" with its text, and goes
    to the log "ominspect".

        owner = Owner("diskowner")

        @owner.item("disk_space")
        def disk_space(cmd):
            return "success", "12 GiB free"

        owner.serve()

    ``process`` is its name on the bus, 1 to 15 bytes.
    """

    def __init__(self, process: str):
        self._process = process
        self._items: dict[str, _Item] = {}
        self._jobs: dict[str, _Job] = {}
        self._bus: Bus

    def item(self, name: str, *, time_limit: float = 0.0,
             pause: float = 0.0) -> Callable[[ItemFunction], ItemFunction]:
        """Makes a function an item of this owner.

        ``time_limit``: the seconds after which the server gives up a generator's run, 0 for none. ``pause``: the
        seconds between two of its steps.
        """
        records.item_name(name)
        if not 0 <= time_limit < 2**32 / 1000:
            raise InvalidArgumentError(f"no time limit of {time_limit} seconds")

        def add(function: ItemFunction) -> ItemFunction:
            self._items[name] = _Item(function, round(time_limit * 1000), pause)
            return function

        return add

    def serve(self) -> None:
        """Joins the bus and carries out runs until SIGTERM or SIGINT; then takes the items back.

        The items are registered with the server when it is there, and again whenever it restarts. To be called from the
        main thread. Raises AlreadyOpenError, BusUnreachableError (also when the bus is lost), DeniedError and
        InvalidArgumentError.
        """
        with _end_signals() as ended:
            self._bus = Bus(self._process)
            try:
                self._register()
                while True:
                    message = self._bus.receive(self._next_step(), ended.descriptor)
                    if message is not None:
                        self._handle(message)
                    elif ended.told():
                        break
                    self._step()
                for name in self._items:
                    self._bus.post(3, records.item_name(name) + b"\0", _TASK)
            finally:
                self._drop_jobs()
                self._bus.close()

    # ---- the server ----

    def _register(self) -> None:
        for name, item in self._items.items():
            item.server = self._bus.server
            if item.server:
                self._bus.post(2, records.item_name(name) + b"\0", _TASK, item.time_limit)
        emitter = DBusAddress(_ITEMS_PATH, interface=_PROPERTIES)
        self._bus.send(new_signal(emitter, "PropertiesChanged", "sa{sv}as", (_ITEMS_INTERFACE, {}, ["Items"])))

    def _handle(self, message: Message) -> None:
        if is_server_change(message):
            self._drop_jobs()  # nobody waits for them any more
            if self._bus.server:
                self._register()
        elif message.header.message_type is MessageType.method_call:
            sent = send_of(message)
            if sent and sent[0] == task_path(_TASK) and sent[1] == 4:
                self._bus.reply(message, "ay", self._answer(message, sent[2]))
            elif is_named(message, MessageType.method_call, _PROPERTIES, "Get"):
                self._show(message)
            else:
                self._bus.refuse(message, "UnknownMethod")

    def _show(self, message: Message) -> None:
        """The items, for those who list them."""
        if message.header.fields[HeaderFields.path] != _ITEMS_PATH or message.body != (_ITEMS_INTERFACE, "Items"):
            self._bus.refuse(message, "UnknownProperty")
            return
        items = [(name, item.time_limit, item.server) for name, item in self._items.items()]
        self._bus.reply(message, "v", ("a(sus)", items))

    def _answer(self, message: Message, payload: bytes) -> bytes:
        """Carries out what the server asks for; nobody else is answered."""
        if not self._bus.is_from_server(message):
            return b""
        try:
            name, cmd = records.decode_run_request(payload)
        except MalformedReplyError:
            return b""
        if name not in self._items:
            return records.encode_result(name or "?", "fail", "no support")
        return records.encode_result(name, *(self._stop(name) if cmd == "stop" else self._run(name, cmd)))

    # ---- runs ----

    def _run(self, name: str, cmd: str) -> Answer:
        job = self._jobs.get(name)
        if job:  # the server has given that run up, and joins it now
            return "running", job.progress
        item = self._items[name]
        try:
            made = item.function(cmd)
            if not isinstance(made, Generator):
                return _checked(made)
            progress = str(next(made))
        except StopIteration as end:
            return _checked(end.value)
        except Exception as error:  # the item's own code: whatever is wrong with it is a result
            return _failure(name, error)
        self._jobs[name] = _Job(made, item.pause, progress)
        return "running", progress

    def _stop(self, name: str) -> Answer:
        job = self._jobs.get(name)
        if job is None or job.answer:
            return "fail", "not running"
        _close(name, job)
        job.end(("fail", "stopped"))
        return "success", "stopping"

    def _next_step(self) -> float | None:
        return min((job.due for job in self._jobs.values()), default=None)

    def _step(self) -> None:
        """One step of each run that is due."""
        for name, job in list(self._jobs.items()):
            now = time.monotonic()
            if now < job.due:
                continue
            if job.answer:
                del self._jobs[name]
                self._report(name, job.answer)
                continue
            try:
                job.progress = str(next(job.steps))
            except StopIteration as end:
                job.end(_checked(end.value))
            except Exception as error:
                job.end(_failure(name, error))
            else:
                job.due = time.monotonic() + job.pause
                if now >= job.progress_from:
                    job.progress_from = now + _BETWEEN_PROGRESS
                    self._report(name, ("running", job.progress))

    def _report(self, name: str, answer: Answer) -> None:
        self._bus.post(5, records.encode_result(name, *answer), _TASK)

    def _drop_jobs(self) -> None:
        for name, job in self._jobs.items():
            _close(name, job)
        self._jobs.clear()


def _checked(value: object) -> Answer:
    if isinstance(value, tuple) and len(value) == 2:
        status, text = value
        # At "running" the server would wait for a report.
        if isinstance(status, str) and isinstance(text, str) and status != "running":
            return status, text
    return "fail", "the item gave no status and text"


def _failure(name: str, error: Exception) -> Answer:
    _LOG.error("item %s", name, exc_info=error)
    return "fail", f"{type(error).__name__}: {error}"


def _close(name: str, job: _Job) -> None:
    try:
        job.steps.close()
    except Exception as error:
        _failure(name, error)


class _Ended:
    """Whether a signal has asked for the end; the descriptor becomes readable with it."""

    def __init__(self, descriptor: int):
        self.descriptor = descriptor

    def told(self) -> bool:
        """Reads what has come."""
        try:
            return bool(set(os.read(self.descriptor, 64)) & {signal.SIGTERM, signal.SIGINT})
        except BlockingIOError:
            return False


@contextmanager
def _end_signals() -> Iterator[_Ended]:
    def ignore(_number: int, _frame: FrameType | None) -> None:
        pass  # the number is written to the pipe

    read, write = os.pipe2(os.O_NONBLOCK | os.O_CLOEXEC)
    before = {number: signal.signal(number, ignore) for number in (signal.SIGTERM, signal.SIGINT)}
    descriptor = signal.set_wakeup_fd(write)
    try:
        yield _Ended(read)
    finally:
        signal.set_wakeup_fd(descriptor)
        for number, handler in before.items():
            signal.signal(number, handler)
        os.close(read)
        os.close(write)
