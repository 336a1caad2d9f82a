"""Wire records: golden bytes, and hostile ones."""

import struct
import unittest
from datetime import datetime, timezone

import ominspect
from ominspect import records
from ominspect.bus import bus_name, task_path


def padded(text: bytes, size: int) -> bytes:
    return text + bytes(size - len(text))


def result(name: bytes = b"load", status: bytes = b"success", text: bytes = b"fine") -> bytes:
    return padded(name, 32) + padded(status, 32) + padded(text, 128)


def timed(raw: bytes, start: int = 0, end: int = 0) -> bytes:
    return raw + struct.pack("<QQ", start, end)


def group(count: int, *slots: bytes) -> bytes:
    head = struct.pack("<I", 4711) + bytes(20) + struct.pack("<I", count) + bytes(4)
    return padded(head + b"".join(slots), 6688)


def item_list(count: int, *slots: bytes) -> bytes:
    return padded(b"".join(slots), 12288) + struct.pack("<II", count, 0)


class Requests(unittest.TestCase):
    def test_bytes(self) -> None:
        self.assertEqual(records.encode_request(ominspect.Request("load", "deep")), b'{"name":"load","cmd":"deep"}')
        self.assertEqual(records.encode_request(ominspect.Request("a\"\n", "ü")),
                         '{"name":"a\\"\\n","cmd":"ü"}'.encode())
        self.assertEqual(records.encode_group([ominspect.Request("a"), ominspect.Request("b", "c")]),
                         b'{"name":"a","cmd":""}\0{"name":"b","cmd":"c"}\0\0')

    def test_from_names_and_pairs(self) -> None:
        self.assertEqual(records.request_of("load"), ("load", ""))
        self.assertEqual(records.request_of(("load", "deep")), ("load", "deep"))

    def test_the_longest(self) -> None:
        records.encode_request(ominspect.Request("n" * 31, "c" * 127))
        records.encode_group([ominspect.Request("n")] * 32)

    def test_what_cannot_be_sent(self) -> None:
        for request, text in [(("", ""), "the item name is empty"),
                              (("n" * 32, ""), "the item name is longer than 31 bytes"),
                              (("ü" * 16, ""), "the item name is longer than 31 bytes"),
                              (("a\0", ""), "the item name holds a NUL byte"),
                              (("\udc80", ""), "the item name is not UTF-8"),
                              (("n", "c" * 128), "the cmd is longer than 127 bytes"),
                              (("n", "\0"), "the cmd holds a NUL byte")]:
            with self.subTest(text), self.assertRaises(ominspect.InvalidArgumentError) as caught:
                records.encode_request(ominspect.Request(*request))
            self.assertEqual(str(caught.exception), text)
        for count, text in [(0, "the group is empty"), (33, "the group has more than 32 items")]:
            with self.subTest(text), self.assertRaises(ominspect.InvalidArgumentError) as caught:
                records.encode_group([ominspect.Request("n")] * count)
            self.assertEqual(str(caught.exception), text)


class Results(unittest.TestCase):
    def test_golden(self) -> None:
        raw = result(b"load", b"success", b"load 0.12")
        self.assertEqual(records.encode_result("load", "success", "load 0.12"), raw)
        self.assertEqual(records.decode_result(raw), ominspect.Result("load", "success", "load 0.12"))

    def test_long_texts_are_cut_at_a_character(self) -> None:
        raw = records.encode_result("n", "s" * 40, "x" + "ü" * 70)
        self.assertEqual(raw[32:64], b"s" * 31 + b"\0")
        self.assertEqual(raw[64:], ("x" + "ü" * 63).encode() + b"\0")
        raw = records.encode_result("n", "s", "ü" * 70)
        self.assertEqual(raw[64:], ("ü" * 63).encode() + b"\0\0")

    def test_texts_of_any_content(self) -> None:
        self.assertEqual(records.encode_result("n", "s", "a\0b\udc80")[64:].rstrip(b"\0"), b"a b\\udc80")
        self.assertEqual(records.decode_result(result(text=b"\xff\xc3\xbc")).text, "\\xffü")

    def test_what_follows_a_nul_does_not_count(self) -> None:
        self.assertEqual(records.decode_result(result(text=b"ab\0cd")).text, "ab")

    def test_verdicts(self) -> None:
        self.assertTrue(ominspect.Result("n", "success", "").passed)
        self.assertFalse(ominspect.Result("n", "warn", "").passed)
        self.assertTrue(ominspect.Result("n", "fail", "no support").unknown_item)
        self.assertFalse(ominspect.Result("n", "fail", "other").unknown_item)

    def test_hostile(self) -> None:
        for raw, text in [(b"", "a result of 0 bytes instead of 192"),
                          (result()[:191], "a result of 191 bytes instead of 192"),
                          (result() + b"\0", "a result of 193 bytes instead of 192"),
                          (result(name=b"n" * 32), "a result with a text that does not end"),
                          (result(status=b"s" * 32), "a result with a text that does not end"),
                          (result(text=b"t" * 128), "a result with a text that does not end")]:
            with self.subTest(text), self.assertRaises(ominspect.MalformedReplyError) as caught:
                records.decode_result(raw)
            self.assertEqual(str(caught.exception), text)


class Groups(unittest.TestCase):
    def test_golden(self) -> None:
        record = records.decode_group_record(group(2, timed(result(), 1000, 2500), timed(bytes(192))))
        self.assertEqual(record.task_id, 4711)
        first, second = record.items
        self.assertEqual(first.result, ominspect.Result("load", "success", "fine"))
        self.assertEqual(first.start, datetime(1970, 1, 1, 0, 0, 1, tzinfo=timezone.utc))
        self.assertEqual(first.end, datetime(1970, 1, 1, 0, 0, 2, 500000, tzinfo=timezone.utc))
        self.assertEqual(second, ominspect.GroupItem(ominspect.Result("", "", ""), False, None, None))

    def test_an_item_with_a_text_that_does_not_end_is_cut(self) -> None:
        record = records.decode_group_record(group(2, timed(result(text=b"t" * 128)), timed(result())))
        self.assertEqual([entry.malformed for entry in record.items], [True, False])
        self.assertEqual(record.items[0].result.text, "t" * 128)

    def test_hostile(self) -> None:
        for raw, text in [(group(0)[:-1], "a group record of 6687 bytes instead of 6688"),
                          (group(0) + b"\0", "a group record of 6689 bytes instead of 6688"),
                          (group(33), "a group record of 33 items"),
                          (group(2**32 - 1), "a group record of 4294967295 items"),
                          (group(1, timed(result(), 2**64 - 1)), "a group record with an absurd time"),
                          (group(1, timed(result(), 1, 10**15)), "a group record with an absurd time")]:
            with self.subTest(text), self.assertRaises(ominspect.MalformedReplyError) as caught:
                records.decode_group_record(raw)
            self.assertEqual(str(caught.exception), text)


class Lists(unittest.TestCase):
    def test_golden(self) -> None:
        slots = [padded(b"bsp_mainboard_ft", 32) + padded(b"error", 8) + struct.pack("<q", 1),
                 padded(b"conf_sip_ft", 32) + padded(b"warn", 8) + struct.pack("<q", 2)]
        self.assertEqual(records.decode_list(item_list(2, *slots)),
                         [ominspect.ConfiguredItem("bsp_mainboard_ft", "error", True),
                          ominspect.ConfiguredItem("conf_sip_ft", "warn", False)])

    def test_hostile(self) -> None:
        for raw, text in [(item_list(0)[:-1], "an item list of 12295 bytes instead of 12296"),
                          (item_list(257), "a list of 257 items"),
                          (item_list(1, b"n" * 32 + bytes(16)), "a list with a text that does not end"),
                          (item_list(1, bytes(32) + b"l" * 8 + bytes(8)), "a list with a text that does not end")]:
            with self.subTest(text), self.assertRaises(ominspect.MalformedReplyError) as caught:
                records.decode_list(raw)
            self.assertEqual(str(caught.exception), text)


class Replies(unittest.TestCase):
    def test_group(self) -> None:
        self.assertEqual(records.decode_group_reply(struct.pack("<I", 17)), 17)
        for raw, kind, text in [(b"", ominspect.RefusedError, "the server gave an empty reply"),
                                (b"\x10\0\0\0", ominspect.GroupBusyError, "the server runs such a group already"),
                                (b"\x0e\0\0\0", ominspect.RefusedError, "the server has no worker for the group"),
                                (b"\x05\0\0\0", ominspect.MalformedReplyError, "the task id 5"),
                                (b"\x11\0\0", ominspect.MalformedReplyError, "a task id of 3 bytes instead of 4")]:
            with self.subTest(text), self.assertRaises(kind) as caught:
                records.decode_group_reply(raw)
            self.assertEqual(str(caught.exception), text)

    def test_stop_and_busy(self) -> None:
        for decode in (records.decode_stop_reply, records.decode_busy):
            self.assertTrue(decode(b"\0\0\0\0"))
            self.assertFalse(decode(b"\1\0\0\0"))
            for raw in (b"", b"\2\0\0\0", b"\0\0\0\0\0"):
                with self.subTest(raw), self.assertRaises(ominspect.MalformedReplyError):
                    decode(raw)


class RunRequests(unittest.TestCase):
    @staticmethod
    def request(text: bytes, length: int, name: bytes = b"load") -> bytes:
        return padded(name, 32) + struct.pack("<I", length) + text

    def test_golden(self) -> None:
        text = b'{"name":"load","cmd":"deep"}'
        self.assertEqual(records.decode_run_request(self.request(text + b"\0\0", 29)), ("load", "deep"))

    def test_the_stop_of_a_group_does_not_count_its_nul(self) -> None:
        text = b'{"name":"load", "cmd":"stop"}'
        self.assertEqual(records.decode_run_request(self.request(text + b"\0", 29)), ("load", "stop"))

    def test_hostile(self) -> None:
        text = b'{"cmd":"c"}'
        self.assertEqual(records.decode_run_request(self.request(text + b"\0", 11)).cmd, "c")
        for raw in (b"", self.request(b"", 0), self.request(text + b"\0", 12), self.request(text + b"\0", 2**32 - 1),
                    self.request(text + b"\0", 11, b"n" * 32), self.request(b"no json\0", 7), self.request(b"[]\0", 2),
                    self.request(b'{"cmd":1}\0', 9), self.request(b'{}\0', 2), self.request(b"\xff\xfe\xfd\0", 3),
                    self.request(b"[" * 100000 + b"\0", 100000)):
            with self.subTest(raw[:60]), self.assertRaises(ominspect.MalformedReplyError):
                records.decode_run_request(raw)


class Names(unittest.TestCase):
    def test_on_the_bus(self) -> None:
        for process, name in [("ominspect", "com.kivo.proc.ominspect"), ("a.b", "com.kivo.proc.a_2eb"),
                              ("ic-4711", "com.kivo.proc.ic._34711"), ("ic-", "com.kivo.proc.ic_2d"),
                              ("c9_ü", "com.kivo.proc.c9_5f_c3_bc")]:
            self.assertEqual(bus_name(process), name)
        self.assertEqual(task_path("iom_srv_task"), "/com/kivo/task/iom_5fsrv_5ftask")


if __name__ == "__main__":
    unittest.main()
