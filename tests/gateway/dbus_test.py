"""com.kivo.Inspect1 as its callers see it: a real bus, server, owner and gateway; clients that know no records.

OMINSPECT_SOURCE is the source tree; the rest of the environment is that of tests/python/system.py.
"""

from __future__ import annotations

import json
import os
import signal
import subprocess
import time
import unittest
import xml.etree.ElementTree as ElementTree
from contextlib import contextmanager
from typing import Any, Callable, Iterator

from jeepney import DBusAddress, HeaderFields, MatchRule, Message, MessageFlag, MessageType, new_method_call
from jeepney.bus_messages import message_bus
from jeepney.io.blocking import DBusConnection, open_dbus_connection

from system import System, eventually

NAME = "com.kivo.Inspect1"
ROOT = "/com/kivo/Inspect1"
ITEM = NAME + ".Item"
PROPERTIES = "org.freedesktop.DBus.Properties"
MANAGER = "org.freedesktop.DBus.ObjectManager"
SOURCE = os.environ["OMINSPECT_SOURCE"]
TOKEN = "act-0123456789abcdef0123"


def path_of(item: str) -> str:
    """The object of an item whose name is of ASCII letters, and signs that D-Bus does not know."""
    return f"{ROOT}/item/" + "".join(c if c.isalnum() else f"_{ord(c):02x}" for c in item)


class CallError(Exception):
    """An error in place of a reply."""

    def __init__(self, name: str, text: str):
        super().__init__(f"{name}: {text}")
        self.name = name
        self.text = text


class Client:
    """A connection of plain D-Bus that notes every signal of the interface."""

    def __init__(self) -> None:
        self.connection: DBusConnection = open_dbus_connection(bus=os.environ["KIVO_BUS_ADDRESS"])
        self.signals: list[tuple[str, tuple[Any, ...]]] = []

    def listen(self) -> None:
        """Has signals come."""
        rule = MatchRule(type="signal", sender=NAME)
        self.connection.send_and_get_reply(message_bus.AddMatch(rule))

    def send(self, member: str, signature: str = "", body: tuple[Any, ...] = (), *, path: str = ROOT,
             interface: str = NAME, flags: int = 0) -> int:
        """Sends a call and gives its number."""
        message = new_method_call(DBusAddress(path, NAME, interface), member, signature or None, body)
        message.header.flags |= flags
        serial: int = next(self.connection.outgoing_serial)
        self.connection.send(message, serial=serial)
        return serial

    def reply(self, serial: int, limit: float = 60) -> tuple[Any, ...]:
        """Waits for the reply to a call."""
        end = time.monotonic() + limit
        while True:
            message = self.connection.receive(timeout=max(0.0, end - time.monotonic()))
            if not self._take(message) and message.header.fields.get(HeaderFields.reply_serial) == serial:
                break
        if message.header.message_type is MessageType.error:
            raise CallError(message.header.fields[HeaderFields.error_name], message.body[0] if message.body else "")
        return tuple(message.body)

    def call(self, member: str, signature: str = "", *body: Any, path: str = ROOT,
             interface: str = NAME) -> tuple[Any, ...]:
        """Calls a method and waits for its reply."""
        return self.reply(self.send(member, signature, body, path=path, interface=interface))

    def _take(self, message: Message) -> bool:
        if message.header.message_type is not MessageType.signal:
            return False
        self.signals.append((message.header.fields[HeaderFields.member], message.body))
        return True

    def await_signal(self, member: str, where: Callable[[tuple[Any, ...]], Any] = lambda _: True) -> tuple[Any, ...]:
        """A signal that has come, or comes within a minute."""
        end = time.monotonic() + 60
        while True:
            for name, body in self.signals:
                if name == member and where(body):
                    return body
            self._take(self.connection.receive(timeout=max(0.0, end - time.monotonic())))

    def await_property(self, name: str, value: Any, interface: str = ITEM) -> None:
        """Waits until a property is told to have this value."""
        def holds(body: tuple[Any, ...]) -> bool:
            return bool(body[0] == interface and body[1].get(name, ("", None))[1] == value)
        self.await_signal("PropertiesChanged", holds)

    def properties(self, item: str) -> dict[str, Any]:
        """All properties of an item."""
        body = self.call("GetAll", "s", ITEM, path=path_of(item), interface=PROPERTIES)
        return {name: value for name, (_, value) in body[0].items()}

    def objects(self) -> dict[str, Any]:
        """What the object manager knows."""
        objects: dict[str, Any] = self.call("GetManagedObjects", interface=MANAGER)[0]
        return objects

    def is_there(self) -> bool:
        """Whether somebody has the name."""
        return bool(self.connection.send_and_get_reply(message_bus.NameHasOwner(NAME)).body[0])


class Terminal(System):
    """With the server, an owner, and the gateway."""

    def setUp(self) -> None:
        super().setUp()
        os.environ["PID_FILE"] = str(self.folder / "pid")
        self.server = self.start_server()
        self.items = self.start_items()
        self.gateway = self.start_gateway()
        self.client = self.new_client()
        self.assertTrue(eventually(self.client.is_there))
        self.assertTrue(eventually(lambda: path_of("later_ok") in self.client.objects()))
        self.client.listen()

    def start_items(self) -> subprocess.Popen[bytes]:
        """Starts the owner of the tests' items."""
        return self.start([os.environ["OMINSPECT_BIN"] + "/ominspect-owner", SOURCE + "/tests/integration/owner.xml"])

    def start_gateway(self, more: str = "") -> subprocess.Popen[bytes]:
        """Starts the gateway without the parts that do not matter here."""
        (self.folder / "tokens").touch(mode=0o600)
        config = self.folder / "gateway.xml"
        config.write_text(f'<Gateway refresh="1"><History path="{self.folder}/history.db"/>'
                          f'<Http tokens="{self.folder}/tokens"><Unix path="{self.folder}/http"/></Http>'
                          f'<Collection enabled="false"/>{more}</Gateway>')
        return self.start([os.environ["OMINSPECT_BIN"] + "/ominspect-gateway", "--config", str(config)])

    def new_client(self) -> Client:
        """A client that ends with the test."""
        client = Client()
        self.addCleanup(client.connection.close)
        return client

    def health(self) -> dict[str, str]:
        """The parts, as the gateway says over HTTP."""
        done = subprocess.run(["curl", "-s", "--unix-socket", str(self.folder / "http"), "http://localhost/healthz"],
                              capture_output=True, check=False)
        parts: dict[str, str] = json.loads(done.stdout)["parts"] if done.stdout else {}
        return parts

    @contextmanager
    def refused(self, name: str, text: str = ".") -> Iterator[None]:
        """Expects an error of this name that says this."""
        with self.assertRaises(CallError) as caught:
            yield
        self.assertEqual(caught.exception.name, name)
        self.assertRegex(caught.exception.text, text)


class Calls(Terminal):
    def test_a_run(self) -> None:
        before = time.time() * 1e6
        status, text, begin, end = self.client.call("Run", "ss", "say_argument", "<grüße>")
        self.assertEqual((status, text), ("success", "<grüße>"))
        self.assertTrue(before <= begin <= end <= time.time() * 1e6, (before, begin, end))
        shown = self.client.properties("say_argument")
        self.assertEqual((shown["LastText"], shown["LastCause"]), ("<grüße>", f"user {os.geteuid()}"))
        self.assertEqual(self.client.call("Run", "ss", "always_critical", "")[:2], ("fail", "it is broken"))
        self.assertEqual(self.client.call("Run", "ss", "later_ok", "")[:2], ("success", "late but fine"))

    def test_a_group(self) -> None:
        results = self.client.call("RunGroup", "ass", ["always_ok", "later_ok", "absent"], "")[0]
        self.assertEqual([one[:3] for one in results],
                         [("always_ok", "success", "fine"), ("later_ok", "success", "late but fine"),
                          ("absent", "fail", "no support")])
        self.assertTrue(0 < results[1][3] <= results[1][4])

    def test_the_list(self) -> None:
        self.client.call("Run", "ss", "always_ok", "")
        found = {item[0]: item for item in self.client.call("ListItems")[0]}
        self.assertEqual(found["always_ok"][1], path_of("always_ok"))
        self.assertEqual(found["always_ok"][3:5], ("success", "fine"))
        self.assertGreater(found["always_ok"][5], 0)
        self.assertEqual(found["bsp_mainboard_ft"][2:], ("unknown", "", "", 0))

    def test_a_stop(self) -> None:
        run = self.client.send("Run", "ss", ("long_run", ""))
        self.client.await_property("State", "running")
        self.assertGreater(self.client.properties("long_run")["RunningSince"], 0)
        other = self.new_client()
        self.assertEqual(len(other.call("Stop", "s", "long_run")), 2)
        self.assertEqual(self.client.reply(run)[0], "fail")
        self.assertEqual(other.call("Reset", "s", "long_run"), ())
        self.client.await_property("State", "idle")

    def test_errors(self) -> None:
        for method, signature, body, text in (
                ("Run", "ss", ("x" * 32, ""), "31"), ("Run", "ss", ("always_ok", "x" * 128), "127"),
                ("Run", "ss", ("always_ok", "stop"), "an operation of its own"), ("Run", "ss", ("", ""), "is empty"),
                ("RunGroup", "ass", ([], ""), "at least one"), ("RunGroup", "ass", (["x"] * 257, ""), "at most 256"),
                ("Stop", "s", ("x" * 32,), "31")):
            with self.subTest(method=method, body=body), self.refused(NAME + ".Error.InvalidArgument", text):
                self.client.call(method, signature, *body)
        with self.refused(NAME + ".Error.NoOwner", "absent"):
            self.client.call("Run", "ss", "absent", "")
        with self.refused("org.freedesktop.DBus.Error.InvalidArgs"):
            self.client.call("Run", "s", "always_ok")
        with self.refused("org.freedesktop.DBus.Error.UnknownMethod"):
            self.client.call("Walk")
        with self.refused("org.freedesktop.DBus.Error.UnknownObject"):
            self.client.properties("absent")

    def test_what_an_owner_says_in_no_utf8(self) -> None:
        self.start_owner()  # whose texts are cut within a character
        self.assertTrue(eventually(lambda: path_of("warns") in self.client.objects()))
        self.assertTrue(self.client.call("Run", "ss", "warns", "")[1].startswith("grüße grüße"))
        self.assertTrue(self.client.properties("warns")["LastText"].startswith("grüße grüße"))


class Signals(Terminal):
    def test_results_and_progress(self) -> None:
        self.client.call("Run", "ss", "always_critical", "")
        result = self.client.await_signal("ResultChanged", lambda body: body[0] == "always_critical")
        self.assertEqual(result[1:3], ("fail", "it is broken"))
        self.assertTrue(0 < result[3] <= result[4])
        number, kind, items, who, _, done = self.client.await_signal("Progress", lambda body: body[4] == "ended")
        self.assertEqual((kind, items, who, done), ("run", ["always_critical"], f"user {os.geteuid()}", 1))
        self.assertGreater(number, 0)

    def test_a_group_goes_on_item_by_item(self) -> None:
        group = self.client.send("RunGroup", "ass", (["always_ok", "long_run"], ""))
        first = self.client.await_signal("Progress", lambda body: body[4] == "going-on" and body[5] == 1)
        self.assertEqual((first[1], first[2]), ("group", ["always_ok", "long_run"]))
        self.client.await_property("State", "running")
        self.new_client().call("Stop", "s", "long_run")
        self.assertEqual(len(self.client.reply(group)[0]), 2)
        self.client.await_signal("Progress", lambda body: body[0] == first[0] and body[4:] == ("ended", 2))

    def test_objects_come_and_go(self) -> None:
        path = path_of("always_ok")
        self.assertEqual(self.client.objects()[path][ITEM]["Owners"], ("as", ["test_owner"]))
        self.end(self.items)
        body = self.client.await_signal("InterfacesRemoved", lambda body: body[0] == path)
        self.assertIn(ITEM, body[1])
        self.assertNotIn(path, self.client.objects())
        self.assertIn(path_of("bsp_mainboard_ft"), self.client.objects(), "a configured item stays")
        self.start_items()
        body = self.client.await_signal("InterfacesAdded", lambda body: body[0] == path)
        self.assertEqual(body[1][ITEM]["Name"], ("s", "always_ok"))

    def test_what_others_run_is_told(self) -> None:
        command = [os.environ["OMINSPECT_BIN"] + "/ominspectctl", "run", "always_ok"]
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
        self.client.await_signal("ResultChanged", lambda body: body[:3] == ("always_ok", "success", "fine"))
        self.client.await_property("LastText", "fine")
        self.assertEqual(self.client.properties("always_ok")["LastCause"], "")


class Ending(Terminal):
    def running(self) -> bool:
        return bool(self.client.properties("long_run")["State"] == "running")

    def test_what_a_caller_that_leaves_has_begun_is_stopped(self) -> None:
        other = Client()
        other.send("Run", "ss", ("long_run", ""))
        self.assertTrue(eventually(self.running))
        other.connection.close()
        ended = self.client.await_signal("ResultChanged", lambda body: body[0] == "long_run")
        self.assertEqual(ended[1], "fail")
        self.client.await_signal("Progress", lambda body: body[2] == ["long_run"] and body[4] == "ended")

    def test_a_call_without_a_reply_goes_on(self) -> None:
        other = Client()
        other.send("Run", "ss", ("long_run", ""), flags=MessageFlag.no_reply_expected)
        self.assertTrue(eventually(self.running))
        other.connection.close()
        # Its leaving is known before the reply to a later call.
        self.client.call("Run", "ss", "always_ok", "")
        self.assertTrue(self.running())
        self.client.call("Stop", "s", "long_run")

    def test_calls_are_bounded(self) -> None:
        held = [self.client.send("Run", "ss", ("long_run", "")) for _ in range(8)]
        with self.refused(NAME + ".Error.Refused", "as many calls wait"):
            self.client.call("Run", "ss", "always_ok", "")
        other = self.new_client()
        held_by_other = [other.send("Run", "ss", ("long_run", "")) for _ in range(4)]
        with self.refused(NAME + ".Error.Refused", "as many calls wait"):
            self.new_client().call("Run", "ss", "always_ok", "")
        # The gateway ends in order, and all are told.
        self.gateway.terminate()
        for client, calls in ((self.client, held), (other, held_by_other)):
            for call in calls:
                with self.refused(NAME + ".Error.Cancelled", "the gateway ends"):
                    client.reply(call)
        self.assertEqual(self.gateway.wait(20), 0)

    def test_the_server_leaves_and_comes_back(self) -> None:
        run = self.client.send("Run", "ss", ("long_run", ""))
        self.assertTrue(eventually(self.running))
        self.server.kill()
        with self.refused(NAME + ".Error.ServerAbsent"):
            self.client.reply(run)
        self.client.await_property("ServerUp", False, NAME)
        self.client.await_property("State", "unknown")
        with self.refused(NAME + ".Error.ServerAbsent"):
            self.client.call("Run", "ss", "always_ok", "")
        self.start_server()
        self.client.await_property("ServerUp", True, NAME)
        self.assertTrue(eventually(lambda: self.client.properties("always_ok")["State"] == "idle"))
        self.assertEqual(self.client.call("Run", "ss", "always_ok", "")[0], "success")

    def test_the_bus_leaves_and_comes_back(self) -> None:
        self.end(self.bus)
        self.assertTrue(eventually(lambda: self.health().get("dbus") == "failed"))
        self.bus = self.start(["dbus-daemon", "--config-file=" + os.environ["OMINSPECT_BUS_CONFIG"],
                               "--address=" + os.environ["KIVO_BUS_ADDRESS"], "--nofork", "--nopidfile"])
        self.assertTrue(eventually(lambda: self.health().get("dbus") == "ok"))
        self.assertTrue(self.new_client().is_there())

    def test_a_name_that_somebody_has_is_waited_for(self) -> None:
        self.end(self.gateway)
        reply = self.client.connection.send_and_get_reply(message_bus.RequestName(NAME))
        self.assertEqual(reply.body[0], 1)
        self.start_gateway()
        self.assertTrue(eventually(lambda: self.health().get("dbus") == "failed"))
        self.assertEqual(self.health()["http"], "ok")
        self.client.connection.send_and_get_reply(message_bus.ReleaseName(NAME))
        self.assertTrue(eventually(lambda: self.health().get("dbus") == "ok"))

    def test_switched_off(self) -> None:
        self.end(self.gateway)
        self.start_gateway('<DBus enabled="false"/>')
        self.assertTrue(eventually(lambda: self.health().get("bus") == "ok"))
        self.assertEqual(self.health()["dbus"], "off")
        self.assertFalse(self.client.is_there())

    def test_a_bus_that_hangs_holds_up_nobody_else(self) -> None:
        self.bus.send_signal(signal.SIGSTOP)
        try:
            for _ in range(3):
                self.assertEqual(self.health()["http"], "ok")
        finally:
            self.bus.send_signal(signal.SIGCONT)
        self.assertEqual(self.client.call("Run", "ss", "always_ok", "")[0], "success")


def described(node: ElementTree.Element) -> dict[str, Any]:
    """The interfaces of a document of introspection, as values that can be compared."""
    found: dict[str, Any] = {}
    for interface in node.iter("interface"):
        members = {}
        for kind in ("method", "signal", "property"):
            for member in interface.iter(kind):
                arguments = [(arg.get("name"), arg.get("type"), arg.get("direction", "in" if kind == "method" else ""))
                             for arg in member.iter("arg")]
                annotations = {note.get("name"): note.get("value") for note in member.iter("annotation")}
                members[kind, member.get("name")] = (arguments, member.get("type"), member.get("access"), annotations)
        found[str(interface.get("name"))] = members
    return found


class Introspection(Terminal):
    def live(self, path: str) -> dict[str, Any]:
        text = self.client.call("Introspect", path=path, interface="org.freedesktop.DBus.Introspectable")[0]
        return described(ElementTree.fromstring(text))

    def test_the_shipped_description_is_the_live_one(self) -> None:
        shipped = described(ElementTree.parse(SOURCE + "/packaging/dbus/com.kivo.Inspect1.xml").getroot())
        self.assertEqual(sorted(shipped), [NAME, ITEM])
        self.assertEqual(self.live(ROOT)[NAME], shipped[NAME])
        self.assertEqual(self.live(path_of("always_ok"))[ITEM], shipped[ITEM])
        self.assertIn(MANAGER, self.live(ROOT))

    def test_busctl(self) -> None:
        def busctl(*words: str) -> str:
            done = subprocess.run(["busctl", "--address=" + os.environ["KIVO_BUS_ADDRESS"], "--timeout=60", *words],
                                  capture_output=True, text=True, check=False)
            return done.stdout + done.stderr
        self.assertRegex(busctl("call", NAME, ROOT, NAME, "Run", "ss", "always_ok", ""),
                         r'^sstt "success" "fine" \d{16} \d{16}\n$')
        self.assertEqual(busctl("get-property", NAME, path_of("always_ok"), ITEM, "LastText"), 's "fine"\n')
        self.assertIn(path_of("always_ok"), busctl("tree", "--list", NAME))
        self.assertIn(".RunGroup", busctl("introspect", NAME, ROOT))
        self.assertEqual(busctl("call", NAME, ROOT, NAME, "Run", "ss", "absent", ""),
                         'Call failed: item unknown: no process has registered "absent" with the server\n')

    def test_gdbus(self) -> None:
        command = ["gdbus", "call", "--address", os.environ["KIVO_BUS_ADDRESS"], "--dest", NAME, "--object-path", ROOT,
                   "--method", NAME + ".Run", "always_ok", ""]
        done = subprocess.run(command, capture_output=True, text=True, check=True)
        self.assertRegex(done.stdout, r"^\('success', 'fine', uint64 \d+, uint64 \d+\)\n$")


if __name__ == "__main__":
    unittest.main()
