"""Each allocation that the gateway makes on a road fails once, or no thread is to be had. The next request is carried
out as always. The environment is that of shortage.py.
"""

from __future__ import annotations

import json
import os
import pwd
import signal
import socket
import subprocess
import unittest
from pathlib import Path
from typing import Callable

from jeepney import DBusAddress, MessageType, new_method_call
from jeepney.io.blocking import open_dbus_connection

from shortage import Shortage
from system import eventually, listens

TYPED = "com.kivo.Inspect1"


class WithGateway(Shortage):
    MORE = ""  # of the gateway's configuration

    def setUp(self) -> None:
        super().setUp()
        (self.folder / "collected").write_text("a log")
        (self.folder / "entries.xml").write_text(
            f'<Diagnose><LogCollect><Log srcPath="{self.folder}/collected" dstPath="{self.folder}/copy" timeout="5" '
            'isFolder="false"/></LogCollect></Diagnose>')
        self.start_items(self.start)
        (self.folder / "tokens").touch(mode=0o600)
        config = self.folder / "gateway.xml"
        config.write_text(f'<Gateway refresh="3600"><History path="{self.folder}/history.db"/>'
                          f'<Http tokens="{self.folder}/tokens"><Unix path="{self.folder}/http"/></Http>'
                          f'<Collection folder="{self.folder}/collection" config="{self.folder}/entries.xml"/>'
                          f'{self.MORE.format(folder=self.folder)}</Gateway>')
        self.start_gateway()

    def command(self) -> list[str]:
        return [os.environ["OMINSPECT_BIN"] + "/ominspect-gateway", "--config", str(self.folder / "gateway.xml")]

    def start_gateway(self) -> None:
        self.gateway = self.start_short(self.command())
        self.assertTrue(eventually(self.is_well))

    def is_well(self) -> bool:
        """Whether it has found everything that it works with."""
        health = self.ask("health")
        return isinstance(health, dict) and health["status"] == "ok" and self.ask("items/now") is not None

    def ask(self, path: str, *more: str) -> object:
        """What the gateway answers; nothing when there is no usable answer."""
        done = subprocess.run(["curl", "-sf", "--max-time", "5", "--unix-socket", str(self.folder / "http"), *more,
                               f"http://localhost/api/v1/{path}"], capture_output=True, check=False)
        return json.loads(done.stdout) if done.returncode == 0 else None

    def history(self) -> list[dict[str, object]]:
        events: list[dict[str, object]] = []
        before = ""
        while True:
            found = self.ask("history?limit=1000" + before)
            assert isinstance(found, dict)
            events += found["events"]
            if "nextBefore" not in found:
                return events
            before = f"&before={found['nextBefore']}"

    def shows_what_is(self) -> bool:
        """Whether the item's state there is the server's."""
        told = subprocess.run([os.environ["OMINSPECT_BIN"] + "/ominspectctl", "state", "now", "--json"],
                              capture_output=True, check=False)
        shown = self.ask("items/now")
        return isinstance(shown, dict) and bool(json.loads(told.stdout)["state"] == shown["state"].replace("-", " "))

    def started_anew(self) -> bool:
        """Whether the gateway has ended. The threads that follow the server end it without memory, and then the service
        manager starts it anew. One that goes on must show what is."""
        self.assertTrue(eventually(lambda: self.gateway.poll() is not None or self.ask("items") is not None))
        if self.gateway.poll() is None:
            self.assertTrue(eventually(self.shows_what_is), self.ask("items/now"))
            return False
        self.assertEqual(self.gateway.returncode, -signal.SIGABRT)
        self.start_gateway()
        return True


class WithOrders(WithGateway):
    def http_status(self, path: str, *more: str) -> str:
        done = subprocess.run(["curl", "-s", "-o", os.devnull, "-w", "%{http_code}", "--max-time", "5", "--unix-socket",
                               str(self.folder / "http"), "--path-as-is", *more, f"http://localhost/{path}"],
                              capture_output=True, check=False, text=True)
        return done.stdout

    def begin(self, path: str, order: str) -> int | None:
        """The number of the operation that was begun."""
        begun = self.ask(path, "-H", "Content-Type: application/json", "-d", order)
        return begun["id"] if isinstance(begun, dict) else None

    def ended(self, number: int) -> dict[str, object] | None:
        """An operation that has ended; an empty one when the gateway has."""
        operation = self.ask(f"operations/{number}")
        if self.gateway.poll() is not None:
            return {}
        return operation if isinstance(operation, dict) and operation["state"] == "ended" else None

    def has_results(self, number: int | None) -> bool:
        """Whether the operation ended with results. One whose result is lost on its way ends with its limit."""
        if number is None:
            return False
        begun = number
        self.assertTrue(eventually(lambda: self.ended(begun) is not None))
        return bool((self.ended(begun) or {}).get("results"))

    def run_now(self) -> bool:
        return self.has_results(self.begin("items/now/run", '{"timeoutSeconds": 2}'))

    def collect(self) -> bool:
        """Whether there is a package afterwards."""
        if self.http_status("api/v1/collection", "-X", "POST") != "202":
            return False
        seen: list[object] = []

        def has_ended() -> bool:
            collection = self.ask("collection")
            seen.append(collection["state"] if isinstance(collection, dict) else None)
            return seen[-1] in ("done", "failed") or self.gateway.poll() is not None
        self.assertTrue(eventually(has_ended))
        return seen[-1] == "done" and self.http_status("api/v1/collection/package") == "200"

    def everywhere_in_an_order(self, road: Callable[[], object], following: Callable[[], object]) -> None:
        """The gateway may end, but for what was ordered nobody waits, and the next order is carried out."""
        deaths: list[bool] = []

        def next_order() -> None:
            deaths.append(self.started_anew())
            self.assertTrue(eventually(following))
        self.everywhere(30, road, next_order)
        gaps = [row for row in self.history() if row.get("text") == "the gateway did not run"]
        self.assertEqual(len(gaps), sum(deaths))
        self.assertEqual(self.end(self.gateway), 0)


class Gateway(WithOrders):
    def everywhere_in_a_question(self, path: str, of: str = "api/v1/") -> None:
        deaths: list[bool] = []

        def road() -> None:
            status = self.http_status(of + path)
            deaths.append(status == "000" and self.started_anew())
            self.assertTrue(deaths[-1] or status in ("200", "503"), status)
        self.everywhere(10, road, lambda: self.assertEqual(self.http_status(of + path), "200"))
        self.assertLess(sum(deaths), 5)  # of other threads than those that answer
        self.assertEqual(self.end(self.gateway), 0)

    def test_a_start(self) -> None:
        """A start that fails is one that the service manager tries again."""
        self.assertEqual(self.end(self.gateway), 0)

        def start() -> None:
            with open(self.folder / "said", "wb") as said:
                self.gateway = self.start_short(self.command(), said)
            self.assertTrue(eventually(lambda: self.gateway.poll() is not None or self.ask("health")))
        self.everywhere(50, start, lambda: self.assertIn(self.end(self.gateway), (0, 1, -signal.SIGABRT)))

    def test_the_items(self) -> None:
        self.everywhere_in_a_question("items")

    def test_the_history(self) -> None:
        self.everywhere_in_a_question("history")

    def test_the_metrics(self) -> None:
        self.everywhere_in_a_question("metrics", of="")

    def test_the_whole_picture(self) -> None:
        self.everywhere_in_a_question("picture")

    def test_a_run(self) -> None:
        self.everywhere_in_an_order(self.run_now, self.run_now)

    def test_the_collection(self) -> None:
        self.assertTrue(self.collect())
        self.everywhere_in_a_question("collection")

    def test_an_operation_without_a_thread(self) -> None:
        (self.folder / "no-threads").touch()
        self.assertEqual(self.http_status("api/v1/items/now/run", "-X", "POST"), "503")
        (self.folder / "no-threads").unlink()
        self.assertTrue(self.run_now())
        self.assertEqual(self.end(self.gateway), 0)


class GatewayOrders(WithOrders):
    def stop(self) -> bool:
        number = self.begin("items/now/stop", "{}")
        if number is None:
            return False
        begun = number
        # One whose result is lost on its way goes on to its limit, which is far away; it can be ended.
        if not eventually(lambda: self.ended(begun) is not None, 3):
            self.http_status(f"api/v1/operations/{begun}/stop", "-X", "POST")
        return self.has_results(begun)

    def test_a_stop(self) -> None:
        self.everywhere_in_an_order(self.stop, self.stop)

    def test_a_reset(self) -> None:
        def reset() -> bool:
            number = self.begin("items/now/reset", "{}")
            self.has_results(number)
            operation = self.ask(f"operations/{number}")
            return isinstance(operation, dict) and operation["state"] == "ended" and "error" not in operation
        self.everywhere_in_an_order(reset, reset)


class WithListener(WithOrders):
    """What an order comes to is heard of, not asked for: each question would need memory on the road."""
    MORE = '<DBus enabled="false"/>'  # which would hear of it, too

    def setUp(self) -> None:
        super().setUp()
        self.listener: subprocess.Popen[bytes] | None = None
        self.heard = self.folder / "heard"

    def listen(self) -> bool:
        """Begins to hear what is told from now on."""
        if self.listener is not None:
            self.end(self.listener)
        with open(self.heard, "wb") as heard:
            self.listener = subprocess.Popen(
                ["curl", "-sfN", "--unix-socket", str(self.folder / "http"), "http://localhost/api/v1/events"],
                stdout=heard)
        self.addCleanup(self.end, self.listener)
        return eventually(lambda: "event: hello" in self.heard.read_text())

    def await_news(self, *words: str) -> None:
        """Waits until one of them was told, or there is nobody to tell it."""
        assert self.listener is not None
        listener = self.listener
        self.assertTrue(eventually(lambda: any(word in self.heard.read_text() for word in words)
                                   or listener.poll() is not None))


class GatewayStoppedRuns(WithListener):
    def setUp(self) -> None:
        super().setUp()
        self.number = 0

    def goes_on(self) -> bool:
        """Whether the item's command does."""
        process = self.folder / "endless"
        return process.exists() and Path("/proc", process.read_text().strip()).exists()

    def stop_operation(self) -> str:
        return self.http_status(f"api/v1/operations/{self.number}/stop", "-X", "POST")

    def is_over(self) -> bool:
        return self.ended(self.number) is not None or self.stop_operation() == "404"

    def begin_run(self) -> bool:
        """Whether a run goes on whose end is listened for. Those before have ended."""
        self.assertTrue(eventually(self.is_over))
        if self.goes_on():  # nobody was left to stop it
            self.assertTrue(self.has_results(self.begin("items/endless/stop", "{}")))
            self.assertTrue(eventually(lambda: not self.goes_on()))
        (self.folder / "endless").unlink(missing_ok=True)
        number = self.begin("items/endless/run", '{"timeoutSeconds": 300}') if self.listen() else None
        if number is None:
            return False
        self.number = number
        self.assertTrue(eventually(self.goes_on))
        return True

    def stop_run(self) -> None:
        """A stop that is taken ends the operation, long before its limit."""
        if self.stop_operation() == "202":
            self.await_news(f'"id":{self.number},"operation":"run","state":"ended"')

    def test_a_run_that_is_stopped(self) -> None:
        self.assertTrue(self.begin_run())
        self.everywhere_in_an_order(self.stop_run, self.begin_run)


class GatewayCollections(WithListener):
    ALONE = True

    def collect_unasked(self) -> None:
        """One that is begun ends."""
        if self.http_status("api/v1/collection", "-X", "POST") == "202":
            self.await_news('"state":"done"', '"state":"failed"')

    def collect_next(self) -> bool:
        """Whether there is a package of the next one. That before does not go on for ever."""
        def goes_on() -> bool:
            collection = self.ask("collection")
            return not isinstance(collection, dict) or collection["state"] == "going-on"
        self.assertTrue(eventually(lambda: not goes_on()))
        return self.collect() and self.listen()

    def test_a_collection(self) -> None:
        self.assertTrue(self.collect_next())
        self.everywhere_in_an_order(self.collect_unasked, self.collect_next)


class GatewayEvents(WithOrders):
    def hears(self) -> bool:
        """Whether a listener gets what the history has."""
        command = ["curl", "-sfN", "--max-time", "5", "--unix-socket", str(self.folder / "http"),
                   "http://localhost/api/v1/events?after=0"]
        with subprocess.Popen(command, stdout=subprocess.PIPE) as listener:
            assert listener.stdout is not None
            heard = listener.stdout.read(1)
            listener.kill()
        return bool(heard)

    def test_the_events(self) -> None:
        self.assertTrue(eventually(lambda: self.run_now() and self.hears()))
        self.everywhere_in_an_order(lambda: (self.hears(), self.run_now()), self.hears)


class TypedCalls(WithGateway):
    def open_operations(self) -> list[object]:
        found = self.ask("operations")
        assert isinstance(found, dict)
        return [operation for operation in found["operations"] if operation["state"] != "ended"]

    def run_now(self) -> bool:
        """Whether a run had a result, by a caller that has a limit of its own."""
        call = new_method_call(DBusAddress("/com/kivo/Inspect1", TYPED, TYPED), "Run", "ss", ("now", ""))
        with open_dbus_connection(bus=os.environ["KIVO_BUS_ADDRESS"]) as caller:
            try:
                reply = caller.send_and_get_reply(call, timeout=2)
            except TimeoutError:
                # Only an operation whose result was lost keeps its caller waiting; it ends with the caller.
                self.assertTrue(self.gateway.poll() is not None or self.open_operations())
                return False
            return reply.header.message_type is MessageType.method_return and reply.body[0] == "success"

    def test_a_run(self) -> None:
        def following() -> None:
            self.assertTrue(eventually(lambda: not self.started_anew() and self.run_now()))
            self.assertTrue(eventually(lambda: not self.open_operations()))
        self.assertTrue(eventually(self.run_now))
        self.everywhere(50, self.run_now, following)
        self.assertEqual(self.end(self.gateway), 0)


class Mqtt(WithGateway):
    ROOT = "ominspect/room12"
    MORE = ('<Mqtt enabled="true" terminal="room12" socket="{folder}/broker" position="{folder}/position" rate="1000">'
            '<Role name="desk"><Run item="now"/></Role></Mqtt>')

    def setUp(self) -> None:
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = str(probe.getsockname()[1])
        self.requests = 0
        super().setUp()

    def start_gateway(self) -> None:
        if not (self.folder / "broker.conf").exists():
            self.start_broker()
        super().start_gateway()

    def start_broker(self) -> None:
        user = pwd.getpwuid(os.getuid()).pw_name
        (self.folder / "broker.conf").write_text(
            f"user {user}\nallow_anonymous true\npersistence false\nlog_dest none\n"
            f"listener 0 {self.folder}/broker\nlistener {self.port} 127.0.0.1\n")
        self.start(["/usr/sbin/mosquitto", "-c", str(self.folder / "broker.conf")])
        self.assertTrue(eventually(lambda: listens(self.folder / "broker")))
        with open(self.folder / "told", "wb") as told:
            listener = subprocess.Popen(["mosquitto_sub", *self.client(), "-t", f"{self.ROOT}/#", "-F", "%t %p"],
                                        stdout=told)
        self.addCleanup(self.end, listener)

        def is_subscribed() -> bool:
            self.publish("mark", "")
            return bool(self.told("mark"))
        self.assertTrue(eventually(is_subscribed))

    def client(self) -> list[str]:
        return ["-V", "5", "-h", "127.0.0.1", "-p", self.port, "-q", "1"]

    def publish(self, topic: str, payload: str, *more: str) -> None:
        subprocess.run(["mosquitto_pub", *self.client(), "-t", f"{self.ROOT}/{topic}", "-m", payload, *more],
                       check=False, stderr=subprocess.DEVNULL)

    def told(self, topic: str) -> list[str]:
        """The payloads that came there so far."""
        lines = (self.folder / "told").read_text().split("\n")[:-1]
        start = f"{self.ROOT}/{topic} "
        return [line[len(start):] for line in lines if line.startswith(start)]

    def run_now(self) -> bool:
        """Whether a run was carried out. A request is answered, or the gateway ends."""
        self.requests += 1
        place = f"reply/{self.requests}"
        self.publish("run/desk", '{"item": "now"}', "-D", "publish", "response-topic", f"{self.ROOT}/{place}")

        def states() -> list[str]:
            return [json.loads(answer)["state"] for answer in self.told(place)]
        self.assertTrue(eventually(lambda: self.gateway.poll() is not None or states()))
        # Of a result that was lost on its way nobody tells.
        return eventually(lambda: self.gateway.poll() is not None or "ended" in states(), 3) and "ended" in states()

    def test_a_run(self) -> None:
        def following() -> None:
            self.assertTrue(eventually(lambda: not self.started_anew() and self.run_now()))
        self.assertTrue(eventually(self.run_now))
        self.everywhere(50, self.run_now, following)
        # What the history holds was told, whatever ended in between.
        kept = {event["seq"] for event in self.history()}
        self.assertTrue(eventually(lambda: kept <= {json.loads(event).get("seq") for event in self.told("events")}))
        self.assertEqual(self.end(self.gateway), 0)


if __name__ == "__main__":
    unittest.main()
