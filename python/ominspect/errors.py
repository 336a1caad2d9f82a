"""Errors: each says in one English sentence part what went wrong, and has a stable word for scripts."""

from __future__ import annotations


class Error(Exception):
    """What every error of this module is; ``word`` is its stable word, such as ``server-absent``."""

    word = "internal"


class InvalidArgumentError(Error):
    """The call itself is wrong; nothing was sent."""

    word = "invalid-argument"


class AlreadyOpenError(Error):
    """Another process has this name on the bus."""

    word = "already-open"


class BusUnreachableError(Error):
    """No bus, or it was lost."""

    word = "bus-unreachable"


class ServerAbsentError(Error):
    """The server is not on the bus, or left it while it was asked."""

    word = "server-absent"


class TimeLimitError(Error):
    """No reply, or no result, within the given time."""

    word = "time-limit"


class RefusedError(Error):
    """The server is there and did not take the request."""

    word = "refused"


class GroupBusyError(RefusedError):
    """The server runs a group of this name already."""

    word = "group-busy"


class DeniedError(Error):
    """The bus's policy does not let this process speak to the server."""

    word = "denied"


class MalformedReplyError(Error):
    """A reply that is no such record."""

    word = "malformed-reply"
