#!/usr/bin/python3
"""An owner that speaks plain D-Bus, without a library of ours: the load of this machine. Other languages do the same;
the protocol's document is wire-format.md of the sources. owner.py is the way to do it in Python."""

import os
import signal
import struct
import sys

from jeepney import (DBusAddress, HeaderFields, MatchRule, MessageFlag, MessageType, message_bus, new_error,
                     new_method_call, new_method_return)
from jeepney.io.blocking import DBusConnection, Proxy, open_dbus_connection

SERVER = "com.kivo.proc.ominspect"
TASK = "load"  # messages for this task come to its object
ITEM = b"load_average"
RUN = 4  # message ids
REGISTER = 2
TAKE_BACK = 3


def tell_server(connection: DBusConnection, message_id: int) -> None:
    """An item's registration: parameter (the time limit), own task, task for what comes later, and the payload."""
    address = DBusAddress("/com/kivo/task/iom_5fsrv_5ftask", SERVER, "com.kivo.Msg")
    message = new_method_call(address, "Send", "uussay", (message_id, 0, TASK, TASK, ITEM + b"\0"))
    message.header.flags = MessageFlag.no_reply_expected | MessageFlag.no_auto_start
    connection.send(message)


def check() -> bytes:
    """The result record: name, status and text, each with its NUL."""
    load = os.getloadavg()[0]
    status = b"success" if load < 2 * (os.cpu_count() or 1) else b"warn"
    return struct.pack("<31sx31sx127sx", ITEM, status, f"load {load:.2f}".encode())


def main() -> None:
    address = os.environ.get("KIVO_BUS_ADDRESS") or "unix:path=/run/dbus/system_bus_socket"
    connection = open_dbus_connection(address)
    daemon = Proxy(message_bus, connection)
    daemon.AddMatch(MatchRule(type="signal", sender=message_bus.bus_name, member="NameOwnerChanged"))
    if daemon.RequestName("com.kivo.proc.example_2ddbus", 4) != (1,):  # the process "example-dbus"; 4: do not queue
        sys.exit("owner: another process has this name")
    server = ""
    if daemon.NameHasOwner(SERVER)[0]:
        server = daemon.GetNameOwner(SERVER)[0]
        tell_server(connection, REGISTER)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit())
    try:
        while True:
            message = connection.receive()
            fields, body = message.header.fields, message.body
            sender, member = fields.get(HeaderFields.sender), fields.get(HeaderFields.member)
            if member == "NameOwnerChanged" and sender == "org.freedesktop.DBus" and body[0] == SERVER:
                server = body[2]
                if server:  # it has come (back), and knows no items
                    tell_server(connection, REGISTER)
            elif message.header.message_type is not MessageType.method_call:
                continue
            elif member == "Send" and sender == server and body[0] == RUN:
                connection.send(new_method_return(message, "ay", (check(),)))
            elif member == "Get" and body == ("com.kivo.Inspect.Owner", "Items"):  # so that it shows in lists
                items = [(ITEM.decode(), 0, server)]
                connection.send(new_method_return(message, "v", (("a(sus)", items),)))
            else:
                connection.send(new_error(message, "org.freedesktop.DBus.Error.UnknownMethod"))
    finally:
        tell_server(connection, TAKE_BACK)
        connection.close()


main()
