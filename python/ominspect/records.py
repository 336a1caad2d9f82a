"""Wire records as bytes and as Python values; pure functions.

Bytes from outside become values only after their size and the ends of their texts are checked. Texts are bytes that
need not be UTF-8: what is none is shown as ``\\xhh``.
"""

from __future__ import annotations

import json
import struct
from dataclasses import dataclass
from datetime import datetime, timedelta, timezone
from typing import Iterable, NamedTuple, Tuple, Union

from .errors import GroupBusyError, InvalidArgumentError, MalformedReplyError, RefusedError

GROUP_SLOTS = 32
LIST_SLOTS = 256

_RESULT = struct.Struct("<32s32s128s")
_TIMED_RESULT = struct.Struct("<192sQQ")
_GROUP_HEAD = struct.Struct("<I20xI4x")
_ITEM = struct.Struct("<32s8sq")
_LIST_TAIL = struct.Struct("<II")
_RUN_HEAD = struct.Struct("<32sI")
_NUMBER = struct.Struct("<I")
_GROUP_SIZE = _GROUP_HEAD.size + GROUP_SLOTS * _TIMED_RESULT.size
_LIST_SIZE = LIST_SLOTS * _ITEM.size + _LIST_TAIL.size
_SYNC_BIT = 1
_EPOCH = datetime(1970, 1, 1, tzinfo=timezone.utc)


class Request(NamedTuple):
    """A request for one item. ``cmd`` is its argument; "stop" stops the item and "done" resets it to "idle"."""

    item: str
    cmd: str = ""


AnyRequest = Union[str, Tuple[str, str], Request]


@dataclass(frozen=True)
class Result:
    """An item's result."""

    name: str
    status: str  # "idle", "running", "success", "fail", or the owner's own word
    text: str

    @property
    def passed(self) -> bool:
        """Whether the check passed."""
        return self.status == "success"

    @property
    def unknown_item(self) -> bool:
        """Whether no process has registered the item with the server."""
        return (self.status, self.text) == ("fail", "no support")


@dataclass(frozen=True)
class GroupItem:
    """One item of a group's record."""

    result: Result  # all empty: the group was stopped before the item's turn
    malformed: bool  # the owner gave a text that does not end; it is cut at the end of its field
    start: datetime | None  # None: it never ran
    end: datetime | None  # None: it never ended


@dataclass(frozen=True)
class GroupRecord:
    """The result of a group run, with the items in the order of the request."""

    task_id: int
    items: tuple[GroupItem, ...]


@dataclass(frozen=True)
class ConfiguredItem:
    """An item that the server's configuration names."""

    name: str
    level: str  # "error" or "warn"
    synchronous: bool  # its owner answers at once


def shown(text: bytes) -> str:
    """The text of a record for people and programs."""
    return text.decode("utf-8", "backslashreplace")


def _text_of(field: bytes) -> bytes | None:
    text, end, _ = field.partition(b"\0")
    return text if end else None


def _checked(what: str, text: str, longest: int) -> bytes:
    try:
        data = text.encode()
    except UnicodeEncodeError:
        raise InvalidArgumentError(f"{what} is not UTF-8") from None
    if len(data) > longest:
        raise InvalidArgumentError(f"{what} is longer than {longest} bytes")
    if 0 in data:
        raise InvalidArgumentError(f"{what} holds a NUL byte")
    return data


def item_name(item: str) -> bytes:
    """An item's name as it is sent: 1 to 31 bytes without NUL."""
    if not item:
        raise InvalidArgumentError("the item name is empty")
    return _checked("the item name", item, 31)


def request_of(request: AnyRequest) -> Request:
    """A request from an item's name, or from a pair of name and cmd."""
    return Request(request) if isinstance(request, str) else Request(*request)


def encode_request(request: Request) -> bytes:
    """A request's JSON text."""
    item_name(request.item)
    _checked("the cmd", request.cmd, 127)
    return json.dumps({"name": request.item, "cmd": request.cmd}, ensure_ascii=False, separators=(",", ":")).encode()


def encode_group(requests: Iterable[Request]) -> bytes:
    """The texts of 1 to 32 requests, each with its NUL, and an empty one."""
    texts = [encode_request(request) for request in requests]
    if not texts:
        raise InvalidArgumentError("the group is empty")
    if len(texts) > GROUP_SLOTS:
        raise InvalidArgumentError(f"the group has more than {GROUP_SLOTS} items")
    return b"".join(text + b"\0" for text in texts) + b"\0"


def _fitting(text: str, longest: int) -> bytes:
    data = text.encode("utf-8", "backslashreplace").replace(b"\0", b" ")[:longest]
    return data.decode("utf-8", "ignore").encode()  # no half character at the end


def encode_result(item: str, status: str, text: str) -> bytes:
    """A result record; a status of more than 31 and a text of more than 127 bytes are cut."""
    return _RESULT.pack(item_name(item), _fitting(status, 31), _fitting(text, 127))


def _sized(data: bytes, size: int, what: str) -> bytes:
    if len(data) != size:
        raise MalformedReplyError(f"{what} of {len(data)} bytes instead of {size}")
    return data


def decode_result(data: bytes) -> Result:
    """A 192-byte result record."""
    texts = [_text_of(field) for field in _RESULT.unpack(_sized(data, _RESULT.size, "a result"))]
    if None in texts:
        raise MalformedReplyError("a result with a text that does not end")
    return Result(*(shown(text) for text in texts if text is not None))


def _time_of(milliseconds: int) -> datetime | None:
    try:
        return _EPOCH + timedelta(milliseconds=milliseconds) if milliseconds else None
    except OverflowError:
        raise MalformedReplyError("a group record with an absurd time") from None


def decode_group_record(data: bytes) -> GroupRecord:
    """The 6688-byte record of a group run."""
    task_id, count = _GROUP_HEAD.unpack_from(_sized(data, _GROUP_SIZE, "a group record"))
    if count > GROUP_SLOTS:
        raise MalformedReplyError(f"a group record of {count} items")
    items = []
    for slot in range(count):
        raw, start, end = _TIMED_RESULT.unpack_from(data, _GROUP_HEAD.size + slot * _TIMED_RESULT.size)
        fields = _RESULT.unpack(raw)
        malformed = any(_text_of(field) is None for field in fields)
        result = Result(*(shown(field.partition(b"\0")[0]) for field in fields))
        items.append(GroupItem(result, malformed, _time_of(start), _time_of(end)))
    return GroupRecord(task_id, tuple(items))


def decode_list(data: bytes) -> list[ConfiguredItem]:
    """The 12296-byte list of configured items."""
    _sized(data, _LIST_SIZE, "an item list")
    count, _ = _LIST_TAIL.unpack_from(data, LIST_SLOTS * _ITEM.size)
    if count > LIST_SLOTS:
        raise MalformedReplyError(f"a list of {count} items")
    items = []
    for slot in range(count):
        raw_name, raw_level, features = _ITEM.unpack_from(data, slot * _ITEM.size)
        name, level = _text_of(raw_name), _text_of(raw_level)
        if name is None or level is None:
            raise MalformedReplyError("a list with a text that does not end")
        items.append(ConfiguredItem(shown(name), shown(level), bool(features & _SYNC_BIT)))
    return items


def decode_number(data: bytes, what: str) -> int:
    """A reply that is one number; ``what`` is its name in an error."""
    number: int = _NUMBER.unpack(_sized(data, _NUMBER.size, what))[0]
    return number


def decode_group_reply(data: bytes) -> int:
    """The reply to a group request: the task's id."""
    if not data:
        raise RefusedError("the server gave an empty reply")
    number = decode_number(data, "a task id")
    if number == 16:
        raise GroupBusyError("the server runs such a group already")
    if number == 14:
        raise RefusedError("the server has no worker for the group")
    if number < 17:
        raise MalformedReplyError(f"the task id {number}")
    return number


def decode_stop_reply(data: bytes) -> bool:
    """The reply to a stop: whether the server knows such a task."""
    if data not in (b"\0\0\0\0", b"\1\0\0\0"):
        raise MalformedReplyError("a reply to a stop that is neither 0 nor 1")
    return data == b"\0\0\0\0"


def decode_busy(data: bytes) -> bool:
    """The data of the busy event: whether the server is busy."""
    if data not in (b"\0\0\0\0", b"\1\0\0\0"):
        raise MalformedReplyError("a busy event that is neither busy nor idle")
    return data == b"\0\0\0\0"


def decode_run_request(data: bytes) -> Request:
    """What the server asks an owner: message 4. The request's text ends at its first NUL."""
    if len(data) <= _RUN_HEAD.size:
        raise MalformedReplyError(f"a run request of {len(data)} bytes")
    raw_name, length = _RUN_HEAD.unpack_from(data)
    name = _text_of(raw_name)
    if name is None or length > len(data) - _RUN_HEAD.size - 1:
        raise MalformedReplyError("a run request with a text that does not end")
    text = data[_RUN_HEAD.size:_RUN_HEAD.size + length].partition(b"\0")[0]
    try:
        cmd = json.loads(text)["cmd"]
    except (ValueError, TypeError, KeyError, RecursionError):
        raise MalformedReplyError("a run request without a cmd") from None
    if not isinstance(cmd, str):
        raise MalformedReplyError("a run request without a cmd")
    return Request(shown(name), cmd)
