"""A process's place on the message bus: plain D-Bus, without threads.

Messages are read when the process waits for one. What comes while it waits for a reply is kept for later.
"""

from __future__ import annotations

import os
import pwd
import select
import socket
import time
from collections import deque
from typing import Any

from jeepney import (DBusAddress, HeaderFields, Message, MessageFlag, MessageType, new_error, new_method_call,
                     new_method_return)
from jeepney.bus import get_bus
from jeepney.io.blocking import prep_socket
from jeepney.low_level import Header, calc_msg_size

from .errors import (AlreadyOpenError, BusUnreachableError, DeniedError, Error, InvalidArgumentError, RefusedError,
                     ServerAbsentError, TimeLimitError)

MESSAGES = "com.kivo.Msg"
SERVER_NAME = "com.kivo.proc.ominspect"
SERVER_PATH = "/com/kivo/task/iom_5fsrv_5ftask"
_SERVER = DBusAddress(SERVER_PATH, SERVER_NAME, MESSAGES)
_DAEMON = DBusAddress("/org/freedesktop/DBus", "org.freedesktop.DBus", "org.freedesktop.DBus")
_ERROR = "org.freedesktop.DBus.Error."
_LARGEST = 2 * 1024 * 1024  # a payload has at most 1 MiB
# Bodies of other forms are not looked at: to read them may take long, and nobody here expects them.
_SIGNATURES = {"", "s", "ss", "sss", "as", "u", "v", "ay", "uay", "uussay"}
_CALL_LIMIT = 10.0


def escaped(name: str) -> str:
    """A name as one part of an object path, as sd_bus_path_encode(3) has it."""
    out = "".join(
        chr(byte) if chr(byte).isalpha() and byte < 128 or place > 0 and 48 <= byte <= 57 else f"_{byte:02x}"
        for place, byte in enumerate(name.encode()))
    return out or "_"


def bus_name(process: str) -> str:
    """The bus name of a process; requesters have names below one of their own."""
    if process.startswith("ic-") and len(process) > 3:
        return "com.kivo.proc.ic." + escaped(process[3:])
    return "com.kivo.proc." + escaped(process)


def task_path(task: str) -> str:
    """The object of a task."""
    return "/com/kivo/task/" + escaped(task)


def _user() -> str:
    uid = os.geteuid()
    try:
        return f'"{pwd.getpwuid(uid).pw_name}" ({uid})'
    except KeyError:
        return str(uid)


class Bus:
    """A connection that has the name of a process. ``server`` is the server's connection, empty while it is absent."""

    def __init__(self, process: str):
        try:
            size = len(process.encode())
        except UnicodeEncodeError:
            size = 0
        if not 1 <= size <= 15 or "\0" in process:
            raise InvalidArgumentError(f"the process name {process!r} is not of 1 to 15 bytes of UTF-8")
        self.address = os.environ.get("KIVO_BUS_ADDRESS") or "unix:path=/run/dbus/system_bus_socket"
        self.server = ""
        self._process = process
        self._serial = 0
        self._input = bytearray()
        self._kept: deque[Message] = deque()
        self._socket = self._connect()
        try:
            self._join()
        except BaseException:
            self.close()
            raise

    def _connect(self) -> socket.socket:
        try:
            connected: socket.socket = prep_socket(get_bus(self.address), timeout=10.0)
            return connected
        except (OSError, RuntimeError, ValueError, StopIteration) as error:  # also an address of no known form
            why = error.strerror if isinstance(error, OSError) and error.strerror else str(error)
            raise BusUnreachableError(f"bus unreachable at {self.address}: {why}") from None

    def _join(self) -> None:
        self.ask_daemon("Hello")
        self.listen(f"type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='{SERVER_NAME}'")
        self.take_name()
        self.server = self.connection_of(SERVER_NAME)

    def take_name(self) -> None:
        """Takes the process's name."""
        do_not_queue = 4
        try:
            taken = self.ask_daemon("RequestName", "su", bus_name(self._process), do_not_queue)[0] not in (1, 4)
        except DeniedError:
            group = "ominspect" if self._process.startswith("ic-") else "ominspect-owner"
            raise self._denied(f'join as the process "{self._process}"', group) from None
        if taken:
            raise AlreadyOpenError(f'another process is "{self._process}" on the bus at {self.address}')

    def drop_name(self) -> None:
        """Gives the name up. Whoever has one is expected to answer, and so should read what comes."""
        self.ask_daemon("ReleaseName", "s", bus_name(self._process))

    def connection_of(self, name: str) -> str:
        """The connection that has a name; empty if none has."""
        try:
            return str(self.ask_daemon("GetNameOwner", "s", name)[0])
        except ServerAbsentError:
            return ""

    def _denied(self, what: str, group: str) -> DeniedError:
        return DeniedError(f"access denied: the bus at {self.address} does not let user {_user()} {what}; "
                           f'add the user to the group "{group}" and log in again')

    def close(self) -> None:
        """Leaves the bus."""
        self._socket.close()

    def fileno(self) -> int:
        """For select(2) and its like."""
        return self._socket.fileno()

    # ---- out ----

    def send(self, message: Message) -> int:
        """Sends a message and returns its number."""
        self._serial += 1
        try:
            self._socket.sendall(message.serialise(self._serial))
        except OSError:
            raise self._lost() from None
        return self._serial

    def post(self, message_id: int, payload: bytes, task: str, param: int = 0) -> None:
        """Sends a message to the server without waiting; its answers go to the task."""
        message = new_method_call(_SERVER, "Send", "uussay", (message_id, param, task, task, payload))
        message.header.flags = MessageFlag.no_reply_expected | MessageFlag.no_auto_start
        self.send(message)

    def ask(self, message_id: int, payload: bytes = b"", task: str = "", param: int = 0,
            limit: float = _CALL_LIMIT) -> bytes:
        """Sends a message to the server and waits for its reply."""
        message = new_method_call(_SERVER, "Send", "uussay", (message_id, param, task, task, payload))
        body = self.call(message, limit)
        return body[0] if len(body) == 1 and isinstance(body[0], bytes) else b""

    def ask_daemon(self, method: str, signature: str | None = None, *arguments: Any) -> tuple[Any, ...]:
        """Asks the bus daemon."""
        return self.call(new_method_call(_DAEMON, method, signature, arguments), _CALL_LIMIT)

    def listen(self, rule: str) -> None:
        """Has messages that match a rule delivered."""
        self.ask_daemon("AddMatch", "s", rule)

    def call(self, message: Message, limit: float) -> tuple[Any, ...]:
        """Calls a method and waits for its reply; an error in place of a reply is raised.

        The destination is the server, or a connection by its own name.
        """
        message.header.flags |= MessageFlag.no_auto_start
        return self.await_reply(self.send(message), message, time.monotonic() + limit)

    def await_reply(self, serial: int, message: Message, deadline: float) -> tuple[Any, ...]:
        """Waits for the reply to a message that was sent."""
        reply = next((kept for kept in self._kept if self._answers(kept, serial, message)), None)
        if reply is not None:
            self._kept.remove(reply)
        while reply is None:
            received = self._read(deadline)
            if received is None:
                raise TimeLimitError("no reply within the time limit")
            if self._answers(received, serial, message):
                reply = received
            else:
                self._kept.append(received)
        if reply.header.message_type is MessageType.method_return:
            return tuple(reply.body)
        raise self._error_of(str(reply.header.fields.get(HeaderFields.error_name)))

    def _answers(self, reply: Message, serial: int, message: Message) -> bool:
        """Any connection may send a reply: only the one that was asked, and the daemon, are believed."""
        if reply.header.fields.get(HeaderFields.reply_serial) != serial:
            return False
        asked = message.header.fields[HeaderFields.destination]
        sender = reply.header.fields.get(HeaderFields.sender)
        return sender in ("org.freedesktop.DBus", asked) or asked == SERVER_NAME and sender == self.server

    def _error_of(self, name: str) -> Error:
        at = f"on the bus at {self.address}"
        if name in (_ERROR + "ServiceUnknown", _ERROR + "NameHasNoOwner"):
            return ServerAbsentError(f'server absent: no process "ominspect" {at}')
        if name in (_ERROR + "UnknownObject", _ERROR + "UnknownMethod", _ERROR + "UnknownInterface"):
            return ServerAbsentError(f'server absent: the process "ominspect" {at} has no task "iom_srv_task"')
        if name == _ERROR + "NoReply":
            return ServerAbsentError(f'server absent: the process "ominspect" left the bus at {self.address} '
                                     "while it was asked")
        if name == _ERROR + "AccessDenied":
            return self._denied('speak to the process "ominspect"', "ominspect")
        if name == MESSAGES + ".Error.QueueFull":
            return RefusedError("the destination task's queue is full")
        return Error(f"the bus answered with {name}")

    def reply(self, message: Message, signature: str, *body: Any) -> None:
        """Answers a call, if its sender waits for that."""
        self._answer(message, new_method_return(message, signature, body))

    def refuse(self, message: Message, error: str) -> None:
        """Answers a call with one of D-Bus's own errors."""
        self._answer(message, new_error(message, _ERROR + error))

    def _answer(self, message: Message, answer: Message) -> None:
        if not message.header.flags & MessageFlag.no_reply_expected:
            self.send(answer)

    # ---- in ----

    def receive(self, deadline: float | None, wake: int = -1) -> Message | None:
        """The next message; None at the deadline, and when there is something to read at the descriptor ``wake``."""
        return self._kept.popleft() if self._kept else self._read(deadline, wake)

    def _read(self, deadline: float | None, wake: int = -1) -> Message | None:
        while True:
            message = self._next()
            if message is not None:
                return message
            left = None if deadline is None else max(0.0, deadline - time.monotonic())
            ready, _, _ = select.select([self] if wake < 0 else [self, wake], [], [], left)
            if wake in ready or not ready:
                return None
            try:
                data = self._socket.recv(65536)
            except OSError:
                data = b""
            if not data:
                raise self._lost()
            self._input += data

    def _lost(self) -> BusUnreachableError:
        return BusUnreachableError(f"bus unreachable at {self.address}: the connection was lost")

    def _next(self) -> Message | None:
        """The next message among the bytes that have come. One that cannot be read is left out."""
        while len(self._input) >= 16:
            size = calc_msg_size(bytes(self._input[:16]))
            if len(self._input) < size:
                break
            raw = bytes(self._input[:size])
            del self._input[:size]
            try:
                header, _ = Header.from_buffer(raw)
                wanted = size <= _LARGEST and header.fields.get(HeaderFields.signature, "") in _SIGNATURES
                message = Message.from_buffer(raw) if wanted else Message(header, ())
            except (ValueError, KeyError, IndexError, AssertionError, RecursionError):
                continue
            if is_server_change(message):
                self.server = message.body[2]
            return message
        return None

    def is_from_server(self, message: Message) -> bool:
        """Whether the server has sent the message; the bus vouches for that."""
        return bool(self.server) and message.header.fields.get(HeaderFields.sender) == self.server


def is_server_change(message: Message) -> bool:
    """Whether the daemon says that the server has come, or left."""
    return (is_named(message, MessageType.signal, "org.freedesktop.DBus", "NameOwnerChanged")
            and message.header.fields.get(HeaderFields.sender) == "org.freedesktop.DBus"
            and len(message.body) == 3 and message.body[0] == SERVER_NAME)


def is_named(message: Message, kind: MessageType, interface: str, member: str) -> bool:
    """Whether the message is of this kind and has these names."""
    fields = message.header.fields
    return (message.header.message_type is kind and fields.get(HeaderFields.interface) == interface
            and fields.get(HeaderFields.member) == member)


def send_of(message: Message) -> tuple[str, int, bytes] | None:
    """The task's object, the message id and the payload of a message of the platform; None of any other."""
    if not is_named(message, MessageType.method_call, MESSAGES, "Send") or len(message.body) != 5:
        return None
    return message.header.fields[HeaderFields.path], message.body[0], message.body[4]
