"""Asks the inspection server, and owns items of it, over plain D-Bus.

    import ominspect

    with ominspect.Session() as session:
        outcome = session.run("memory")
        print(outcome.result.status, outcome.result.text)

``Session`` runs items and groups, lists them and watches the server. ``Owner`` makes functions inspection items. Both
speak to the bus at ``KIVO_BUS_ADDRESS``, else to the system bus, start no threads, and raise an ``Error``.
"""

from .errors import (AlreadyOpenError, BusUnreachableError, DeniedError, Error, GroupBusyError, InvalidArgumentError,
                     MalformedReplyError, RefusedError, ServerAbsentError, TimeLimitError)
from .owner import Answer, ItemFunction, Owner
from .records import ConfiguredItem, GroupItem, GroupRecord, Request, Result
from .session import BusyEvent, Event, Item, ItemOwner, Outcome, RunEvent, ServerEvent, Session

__all__ = [
    "AlreadyOpenError", "Answer", "BusUnreachableError", "BusyEvent", "ConfiguredItem", "DeniedError", "Error", "Event",
    "GroupBusyError", "GroupItem", "GroupRecord", "InvalidArgumentError", "Item", "ItemFunction", "ItemOwner",
    "MalformedReplyError", "Outcome", "Owner", "RefusedError", "Request", "Result", "RunEvent", "ServerAbsentError",
    "ServerEvent", "Session", "TimeLimitError",
]
