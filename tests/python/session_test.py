"""Requesters and owners with the real server over a private bus."""

import os
import signal
import struct
import subprocess
import sys
import time
import unittest
from typing import List, Tuple

from jeepney import DBusAddress, Message, MessageType, new_method_call

import ominspect
from ominspect import records
from ominspect.bus import Bus, bus_name, send_of, task_path
from system import System, eventually, send


class Joining(System):
    def test_no_bus(self) -> None:
        self.end(self.bus)
        with self.assertRaises(ominspect.BusUnreachableError) as caught:
            ominspect.Session()
        self.assertRegex(str(caught.exception), "^bus unreachable at unix:path=.*: (No such file|Connection refused)")
        self.assertEqual(caught.exception.word, "bus-unreachable")

    def test_an_address_of_no_known_form(self) -> None:
        for address in ("nonsense", "tcp:host=localhost", "unix:nonsense", ";"):
            os.environ["KIVO_BUS_ADDRESS"] = address
            with self.subTest(address), self.assertRaises(ominspect.BusUnreachableError):
                ominspect.Session()

    def test_names(self) -> None:
        bus = Bus("ic-taken")
        self.addCleanup(bus.close)
        with self.assertRaises(ominspect.AlreadyOpenError) as caught:
            ominspect.Session("ic-taken")
        self.assertIn('another process is "ic-taken" on the bus at unix:', str(caught.exception))
        for name in ("", "n" * 16, "\0", "\udc80"):
            with self.subTest(name), self.assertRaises(ominspect.InvalidArgumentError):
                ominspect.Session(name)

    def test_no_server(self) -> None:
        session = self.session()
        for ask in (lambda: session.run("now"), lambda: session.group(["now"]), session.items):
            with self.assertRaises(ominspect.ServerAbsentError) as caught:
                ask()
            self.assertRegex(str(caught.exception), '^server absent: no process "ominspect" on the bus at unix:')

    def test_the_bus_is_lost(self) -> None:
        self.start_server()
        session = self.session()
        self.end(self.bus)
        with self.assertRaises(ominspect.BusUnreachableError):
            session.items()


class WithOwner(System):
    """With the server and the owner."""

    def setUp(self) -> None:
        super().setUp()
        self.server = self.start_server()
        self.owner = self.start_owner()

    def session_result(self, item: str, cmd: str) -> ominspect.Result:
        with ominspect.Session("ic-other") as session:
            return session.run(item, cmd).result


class Running(WithOwner):
    def test_at_once(self) -> None:
        session = self.session()
        self.assertEqual(session.run("now", "this"),
                         ominspect.Outcome(ominspect.Result("now", "success", "asked for [this]"), False))
        self.assertEqual(session.run("warns").result.text, ("grüße " * 40).encode()[:127].decode("utf-8", "ignore"))
        self.assertEqual(session.run("raises").result, ominspect.Result("raises", "fail", "OSError: no such disk"))
        self.assertEqual(session.run("nothing").result.text, "the item gave no status and text")
        self.assertTrue(session.run("nobody's").result.unknown_item)

    def test_later_with_progress(self) -> None:
        seen: List[str] = []
        outcome = self.session().run("later", "this", on_progress=lambda result: seen.append(result.text))
        self.assertEqual(outcome.result, ominspect.Result("later", "success", "this done"))
        self.assertEqual(seen[0], "step 0")
        self.assertEqual(seen, sorted(set(seen)))
        self.assertGreater(len(seen), 1)

    def test_a_result_right_after_the_answer_is_not_forgotten(self) -> None:
        self.assertEqual(self.session().run("at_once", limit=20).result.text, "before the server had digested that")
        self.assertEqual(self.session().run("breaks", limit=20).result.text, "ValueError: half-way")

    def test_other_items_run_meanwhile(self) -> None:
        session = self.session()
        seen = session.run("later", on_progress=lambda _: self.assertTrue(session.run("now").result.passed)).result
        self.assertTrue(seen.passed)

    def test_the_end_of_the_limit_stops_the_item(self) -> None:
        with self.assertRaises(ominspect.TimeLimitError) as caught:
            self.session().run("endless", limit=0.7)
        self.assertEqual(str(caught.exception), "the time limit is over; the item was stopped")
        self.assertTrue((self.folder / "closed").exists())
        self.assertEqual(self.session_result("endless", "stop").text, "not running")

    def test_an_exception_stops_the_item(self) -> None:
        def interrupt(_result: ominspect.Result) -> None:
            raise KeyboardInterrupt
        with self.assertRaises(KeyboardInterrupt):
            self.session().run("endless", on_progress=interrupt)
        self.assertTrue(eventually((self.folder / "closed").exists))

    def test_the_servers_limit(self) -> None:
        self.assertEqual(self.session().run("short").result, ominspect.Result("short", "fail", "timeout"))
        # The owner still runs it, and the next run joins that.
        self.assertEqual(self.session_result("short", "stop").text, "stopping")


class Groups(WithOwner):
    def session_group_can_start(self) -> bool:
        with ominspect.Session("ic-other") as session:
            return session.group(["now"]).items[0].result.passed

    def test_group(self) -> None:
        record = self.session().group(["now", ("later", "this"), "nobody's"])
        self.assertEqual([entry.result.text for entry in record.items], ["asked for []", "this done", "no support"])
        self.assertTrue(all(entry.start and entry.end and entry.start <= entry.end for entry in record.items[:2]))
        self.assertTrue(self.session_group_can_start())

    def test_a_group_whose_limit_ends_is_stopped(self) -> None:
        with self.assertRaises(ominspect.TimeLimitError) as caught:
            self.session().group(["endless"], limit=0.7)
        self.assertEqual(str(caught.exception), "the time limit is over; the group was stopped")
        self.assertTrue(self.session_group_can_start())

    def test_another_group(self) -> None:
        program = "import ominspect; ominspect.Session().group(['later'])"
        with ominspect.Session("ic-watch") as watching:
            watch = watching.watch(20)
            self.start([sys.executable, "-c", program])
            next(event for event in watch if isinstance(event, ominspect.RunEvent))
        session = self.session()
        with self.assertRaises(ominspect.GroupBusyError) as caught:
            session.group(["now"])
        self.assertEqual(str(caught.exception), "the server runs such a group already")
        self.assertTrue(session.group(["now"], wait=True).items[0].result.passed)


class Others(WithOwner):
    """What other requesters do."""

    def run_elsewhere(self, item: str, *arguments: str) -> "subprocess.Popen[bytes]":
        """Has another process run an item; the run has begun when this returns."""
        with ominspect.Session("ic-watch") as session:
            watch = session.watch(20)
            program = "import sys, ominspect; ominspect.Session().run(*sys.argv[1:], limit=30)"
            other = self.start([sys.executable, "-c", program, item, *arguments])
            for event in watch:
                if isinstance(event, ominspect.RunEvent) and event.result.status == "running":
                    return other
        self.fail("the other run has not begun")

    def test_a_run_of_somebody_else(self) -> None:
        self.run_elsewhere("later", "theirs")
        self.assertEqual(self.session().run("later", "mine", join=True),
                         ominspect.Outcome(ominspect.Result("later", "success", "theirs done"), True))

    def test_its_end_is_waited_for(self) -> None:
        self.run_elsewhere("later", "theirs")
        self.assertEqual(self.session().run("later", "mine"),
                         ominspect.Outcome(ominspect.Result("later", "success", "mine done"), False))

    def test_it_is_not_stopped(self) -> None:
        self.run_elsewhere("endless")
        with self.assertRaises(ominspect.TimeLimitError) as caught:
            self.session().run("endless", join=True, limit=0.5)
        self.assertEqual(str(caught.exception), "the time limit is over; another run of the item goes on")
        self.assertFalse((self.folder / "closed").exists())

    def test_watch(self) -> None:
        session = self.session()
        watch = session.watch(20)
        busy: List[bool] = []
        results: List[ominspect.Result] = []
        other = self.start([sys.executable, "-c", "import ominspect\ns = ominspect.Session()\nwhile 1: s.run('now')"])
        for event in watch:
            if isinstance(event, ominspect.BusyEvent):
                busy.append(event.busy)
            elif isinstance(event, ominspect.RunEvent):
                results.append(event.result)
            if len(busy) > 3 and len(results) > 3:
                break
        self.end(other)
        self.assertIn(ominspect.Result("now", "running", "begin"), results)
        self.assertIn(ominspect.Result("now", "success", "asked for []"), results)
        self.assertEqual(set(busy), {True, False})
        self.assertEqual(list(session.watch(0)), [])

    def test_items(self) -> None:
        items = {item.name: item for item in self.session().items()}
        configured = items["conf_sip_ft"].configuration
        self.assertTrue(configured and configured.level in ("error", "warn"))
        self.assertEqual(items["later"].configuration, None)
        self.assertEqual(items["later"].owners, [ominspect.ItemOwner("com.kivo.proc.pyowner", 30.0, True)])
        self.assertEqual(items["kivo_om_get_log_dir"].owners[0].process, "com.kivo.proc.ominspect")


class Ending(WithOwner):
    """What happens when a part of the system ends, and comes back."""

    def test_the_server_restarts(self) -> None:
        session = self.session()
        watch = session.watch(30)
        # The first event shows that the watch has begun.
        self.start([sys.executable, "-c", "import ominspect; ominspect.Session().run('now')"])
        next(watch)
        self.end(self.server)
        self.assertEqual(next(e for e in watch if isinstance(e, ominspect.ServerEvent)), ominspect.ServerEvent(False))
        self.start_server()
        self.assertEqual(next(e for e in watch if isinstance(e, ominspect.ServerEvent)), ominspect.ServerEvent(True))
        self.await_items()
        self.assertEqual(session.run("now", "again").result.text, "asked for [again]")
        self.assertTrue(next(e for e in watch if isinstance(e, ominspect.RunEvent)).result.name)

    def test_a_run_is_forgotten_by_a_server_that_ends(self) -> None:
        def kill(_result: ominspect.Result) -> None:
            self.server.kill()
        with self.assertRaises(ominspect.ServerAbsentError) as caught:
            self.session().run("endless", limit=30, on_progress=kill)
        self.assertEqual(str(caught.exception), "server absent: it left the bus, or restarted, and forgot the run")
        self.assertTrue(eventually((self.folder / "closed").exists))

    def test_an_owner_that_is_ended_takes_its_items_back(self) -> None:
        self.owner.send_signal(signal.SIGTERM)
        self.assertEqual(self.owner.wait(20), 0)
        self.assertTrue(self.session().run("now").result.unknown_item)

    def test_an_owner_ends_while_an_item_runs(self) -> None:
        def end(_result: ominspect.Result) -> None:
            self.owner.send_signal(signal.SIGINT)
        outcome = self.session().run("endless", limit=30, on_progress=end)
        self.assertEqual(outcome.result.status, "fail")
        self.assertEqual(self.owner.wait(20), 0)
        self.assertTrue((self.folder / "closed").exists())

    def test_an_owner_that_loses_the_bus_says_so(self) -> None:
        self.end(self.bus)
        self.assertEqual(self.owner.wait(20), 1)


class Owning(System):
    def test_an_owner_may_start_first(self) -> None:
        owner = self.start([sys.executable, os.path.join(os.path.dirname(__file__), "an_owner.py")])
        with ominspect.Session("ic-first") as session:
            self.assertTrue(eventually(lambda: "com.kivo.proc.pyowner" in session._bus.ask_daemon("ListNames")[0]))
        self.start_server()
        self.await_items()
        self.assertTrue(self.session().run("now").result.passed)
        self.assertIsNone(owner.poll())

    def test_what_is_no_item(self) -> None:
        owner = ominspect.Owner("o")
        for name, limit in (("", 0.0), ("n" * 32, 0.0), ("n", -1.0), ("n", 2.0**32)):
            with self.subTest(name), self.assertRaises(ominspect.InvalidArgumentError):
                owner.item(name, time_limit=limit)


class Hostile(System):
    """What others than the server send counts for nothing."""

    def setUp(self) -> None:
        super().setUp()
        self.start_server()

    def test_nobody_but_the_server_runs_an_item(self) -> None:
        self.start_owner()
        bus = Bus("stranger")
        self.addCleanup(bus.close)
        text = b'{"name":"now","cmd":""}\0'
        run = b"now".ljust(32, b"\0") + struct.pack("<I", len(text)) + text + b"\0"
        self.assertEqual(send(bus, "pyowner", "owner_items", 4, run), b"")
        for task, message_id in (("owner_items", 5), ("other", 4)):
            with self.subTest(task), self.assertRaises(ominspect.Error):
                send(bus, "pyowner", task, message_id, run)

    def test_results_of_others_are_passed_over(self) -> None:
        self.start_owner()
        session = ominspect.Session("ic-target")
        self.addCleanup(session.close)
        bus = Bus("stranger")
        self.addCleanup(bus.close)
        forged = records.encode_result("later", "success", "forged")

        def forge(_result: ominspect.Result) -> None:
            for task in session._tasks, session._tasks - 1:
                address = DBusAddress(task_path(f"t{task}"), bus_name("ic-target"), "com.kivo.Msg")
                bus.send(new_method_call(address, "Send", "uussay", (0, 0, "", "", forged)))
        self.assertEqual(session.run("later", "true", on_progress=forge).result.text, "true done")

    def answer_with(self, answer: bytes) -> ominspect.Result:
        """Runs an item whose owner gives this answer."""
        owner = Bus("rawowner")
        self.addCleanup(owner.close)
        owner.post(2, b"raw\0", "raw")
        program = ("import sys, ominspect\ntry: print(ominspect.Session('ic-asks').run('raw', limit=20).result.text)\n"
                   "except ominspect.Error as error: print(error)")
        asker = subprocess.Popen([sys.executable, "-c", program], stdout=subprocess.PIPE)
        end = time.monotonic() + 20
        while True:
            message = owner.receive(end)
            assert message is not None
            sent = send_of(message)
            if sent and sent[1] == 4:
                owner.reply(message, "ay", answer)
                break
        text = asker.communicate(timeout=20)[0].decode().strip()
        owner.close()
        return ominspect.Result("raw", "", text)

    def test_records_of_owners(self) -> None:
        self.assertEqual(self.answer_with(records.encode_result("raw", "success", "fine")).text, "fine")

    def test_a_text_that_does_not_end(self) -> None:
        self.assertEqual(self.answer_with(b"raw".ljust(32, b"\0") + b"success".ljust(32, b"\0") + b"t" * 128).text,
                         "a result with a text that does not end")

    def test_a_record_that_is_too_long(self) -> None:
        self.assertEqual(self.answer_with(bytes(193)).text, "run err")

    def test_messages_that_are_none(self) -> None:
        bus = Bus("target")
        other = Bus("stranger")
        self.addCleanup(bus.close)
        self.addCleanup(other.close)
        address = DBusAddress("/com/kivo/inspect", "com.kivo.proc.target", "com.kivo.Msg")
        big = new_method_call(address, "Send", "ay", (bytes(3 * 1024 * 1024),))
        odd = new_method_call(address, "Send", "aas", ([["x"]],))
        last = new_method_call(address, "Send", "ay", (b"last",))
        for message in (big, odd, last):
            other.send(message)
        bodies: List[Tuple[object, ...]] = []
        while not bodies or bodies[-1] != (b"last",):
            received = bus.receive(time.monotonic() + 20)
            self.assertIsInstance(received, Message)
            assert received is not None
            if received.header.message_type is MessageType.method_call:
                bodies.append(received.body)
        self.assertEqual(bodies, [(), (), (b"last",)])


if __name__ == "__main__":
    unittest.main()
