#!/usr/bin/python3
"""A requester without a library of this project: runs the items on its command line over typed D-Bus, which
ominspect-gateway serves, one after the other. Ends with 0 if all have passed."""

import os
import sys
from typing import Any, Tuple

from jeepney import DBusAddress, HeaderFields, MessageType, new_method_call
from jeepney.io.blocking import DBusConnection, open_dbus_connection

INSPECT = DBusAddress("/com/kivo/Inspect1", "com.kivo.Inspect1", "com.kivo.Inspect1")
LIMIT = 320  # seconds; the gateway gives up before


class Refused(Exception):
    """An error in place of a reply."""


def call(bus: DBusConnection, method: str, signature: str, *arguments: str) -> Tuple[Any, ...]:
    """Calls a method and waits for its reply."""
    reply = bus.send_and_get_reply(new_method_call(INSPECT, method, signature, arguments), timeout=LIMIT)
    if reply.header.message_type is MessageType.error:
        raise Refused(f"{reply.body[0]} ({reply.header.fields[HeaderFields.error_name]})")
    return tuple(reply.body)


def main() -> int:
    passed = True
    try:
        with open_dbus_connection(bus=os.environ.get("KIVO_BUS_ADDRESS", "SYSTEM")) as bus:
            for item in sys.argv[1:]:
                status, text, begin, end = call(bus, "Run", "ss", item, "")
                print(f"{item}: {status}, {text} ({(end - begin) / 1e6:.1f} s)")
                passed = passed and status == "success"
    except (Refused, OSError, TimeoutError) as error:
        print(f"requester: {error}", file=sys.stderr)
        return 3
    return 0 if passed else 1


if __name__ == "__main__":
    sys.exit(main())
