#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The dissector understands all that the simulator captures, tells what is wrong with it, and takes
any bytes. In the environment MARLO_SIM, MARLO_DAEMON, and MARLO_CAPTURES: a directory with captures
of all scenarios and of chaos."""
import json
import os
import random
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest
import zlib
from collections import Counter
from concurrent.futures import ThreadPoolExecutor

import capture_format
from capture_format import (CONTROL, DFU, FROM_DAEMON, IS_CLOSE, IS_COMMAND, IS_HANG_UP, IS_PACKET,
                            MISC, RMA, TO_DAEMON)

TOP = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
DISSECTOR = os.path.join(TOP, "tools/wireshark/marlo.lua")
FIELDS = ("frame.number frame.protocols marlo.kind marlo.source marlo.direction marlo.id "
          "marlo.request_in marlo.response_in marlo.unanswered_in marlo.response_time "
          "_ws.expert.severity _ws.expert.message _ws.col.Info").split()
ERROR = 8388608
HOME = tempfile.TemporaryDirectory(prefix="marlo-capture-")  # without anybody's preferences
# The messages of each channel and direction that want an answer; of misc data all do.
ASKING = {(DFU, FROM_DAEMON): {1, 13}, (DFU, TO_DAEMON): {3, 5, 11},
          (RMA, TO_DAEMON): {0, 2, 256, 512}}


def scenarios():
    listed = subprocess.run([os.environ["MARLO_SIM"], "--list"], capture_output=True, text=True)
    return [line.split()[0] for line in listed.stdout.splitlines()]


def capture_of(scenario):
    return os.path.join(os.environ["MARLO_CAPTURES"], scenario + ".pcapng")


def tshark(path, *arguments):
    """Its output; in two passes, so that each frame knows of those that follow it."""
    command = ["tshark", "-n", "-2", "-r", path, "-X", f"lua_script:{DISSECTOR}", *arguments]
    result = subprocess.run(command, capture_output=True, env={**os.environ, "HOME": HOME.name})
    output = result.stdout.decode(errors="replace")
    errors = result.stderr.decode(errors="replace")
    assert result.returncode == 0 and "Lua" not in errors, errors
    assert "Lua Error" not in output, output[output.find("Lua Error"):][:300]
    return output


class Row:
    """What tshark tells of a frame."""

    def __init__(self, line):
        values = dict(zip(FIELDS, line.split("\t")))

        def number(name):
            text = values[name].split(",")[0]
            return int(text, 0) if text else None
        self.number = number("frame.number")
        self.protocols = values["frame.protocols"]
        self.kind, self.source = number("marlo.kind"), number("marlo.source")
        self.direction, self.id = number("marlo.direction"), number("marlo.id")
        self.request_in, self.response_in = number("marlo.request_in"), number("marlo.response_in")
        self.unanswered_in = number("marlo.unanswered_in")
        self.response_time = values["marlo.response_time"]
        severities = values["_ws.expert.severity"]
        self.error = ERROR in [int(text) for text in severities.split(",") if text]
        self.messages, self.info = values["_ws.expert.message"], values["_ws.col.Info"]

    def asks(self):
        if self.kind != IS_PACKET:
            return False
        if self.source == MISC:
            return self.direction == FROM_DAEMON
        return self.id in ASKING.get((self.source, self.direction), ())


def rows(path):
    arguments = ["-T", "fields", "-E", "occurrence=a"]
    for field in FIELDS:
        arguments += ["-e", field]
    return [Row(line) for line in tshark(path, *arguments).split("\n")[:-1]]


def simulate(path, *arguments):
    command = [os.environ["MARLO_SIM"], *arguments, "--daemon", os.environ["MARLO_DAEMON"],
               "--quiet", "--capture", path]
    result = subprocess.run(command, capture_output=True, text=True)
    assert result.returncode == 0, result.stdout + result.stderr


class CaptureTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="marlo-capture-")
        self.addCleanup(directory.cleanup)
        self.path = os.path.join(directory.name, "x.pcapng")

    def check_links(self, seen):
        """Each answer has its request, and the other way round."""
        at = {row.number: row for row in seen}
        for row in seen:
            if row.request_in:
                self.assertEqual(at[row.request_in].response_in, row.number, row.info)
                self.assertTrue(row.response_time)
            if row.response_in:
                self.assertEqual(at[row.response_in].request_in, row.number, row.info)


class Scenarios(CaptureTest):
    """Of each scenario."""

    def check_file(self, name, capture, seen):
        self.assertEqual([row.number for row in seen], list(range(1, len(capture.frames) + 1)))
        times = [frame.time for frame in capture.frames]
        self.assertEqual(times, sorted(times))
        for frame in capture.frames:
            _, _, source, direction, _ = frame.header()
            self.assertEqual((frame.interface, frame.flags), (source, direction), name)

    def check_answers(self, name, seen):
        for row in seen:
            if not row.asks():
                continue
            if row.unanswered_in:  # only because nobody can answer any more
                ending = seen[row.unanswered_in - 1]
                self.assertIn(ending.kind, (IS_CLOSE, IS_HANG_UP), f"{name}: {row.info}")
            else:
                self.assertTrue(row.response_in, f"{name}: {row.number} {row.info}")

    def test_all_is_understood_and_answered(self):
        kinds = Counter()
        names = scenarios()
        with ThreadPoolExecutor(os.cpu_count()) as pool:
            all_rows = list(pool.map(lambda name: rows(capture_of(name)), names))
        for name, seen in zip(names, all_rows):
            self.check_file(name, capture_format.read(capture_of(name)), seen)
            for row in seen:
                what = f"{name}: frame {row.number}, {row.info}: {row.messages}"
                self.assertEqual(row.protocols, "marlo", what)
                self.assertFalse(row.error, what)
                kinds[(row.source, row.direction, row.kind)] += 1
            self.check_links(seen)
            self.check_answers(name, seen)
        for source in (DFU, MISC, RMA):
            for direction in (TO_DAEMON, FROM_DAEMON):
                self.assertGreater(kinds[(source, direction, IS_PACKET)], 10)
        for source in (DFU, RMA):
            self.assertGreater(kinds[(source, TO_DAEMON, IS_HANG_UP)], 0)
        self.assertGreater(kinds[(CONTROL, FROM_DAEMON, IS_COMMAND)], 100)


class Faults(CaptureTest):
    def test_what_goes_wrong_is_told_where_it_does(self):
        transcript = self.path + ".json"
        simulate(self.path, "noflash", "--transcript", transcript, "--fault", "rma-crc-wrong@2",
                 "--fault", "rma-unknown-command@4", "--fault", "misc-answer-missing@3")
        seen = rows(self.path)
        self.assertEqual([row.messages.split(":")[0] for row in seen if row.error],
                         ["CRC", "there is no message 1024"])
        unanswered = [row.info for row in seen if row.unanswered_in]
        self.assertEqual(len(unanswered), 1)
        self.assertIn("data of type 0 Bluetooth firmware, sequence 2", unanswered[0])
        self.check_links(seen)
        # All that the simulator itself has told of is there.
        with open(transcript) as lines:
            events = [json.loads(line) for line in lines]
        told = Counter((e["channel"], e["direction"]) for e in events if e["kind"] == "packet")
        directions = {TO_DAEMON: "to daemon", FROM_DAEMON: "from daemon"}
        channels = {DFU: "dfu", MISC: "misc", RMA: "rma"}
        self.assertEqual(Counter((channels[row.source], directions[row.direction])
                                 for row in seen if row.kind == IS_PACKET), told)
        self.assertEqual(sum(row.kind == IS_COMMAND for row in seen),
                         sum(event["kind"] == "ioctl" for event in events))

    def test_device_out_of_order_is_understood(self):
        seen = rows(capture_of("chaos"))
        self.check_links(seen)
        self.assertEqual({row.protocols for row in seen}, {"marlo"})
        told = " ".join(row.messages for row in seen)
        for words in ("CRC: expected", "it ends the daemon", "without:", "not answered before"):
            self.assertIn(words, told)


def words(*values):
    return struct.pack(f"<{len(values)}I", *(value % 2**32 for value in values))


def frame(source, direction, body, kind=IS_PACKET, result=0):
    data = capture_format.HEADER.pack(1, kind, source, direction, result) + body
    return capture_format.Frame(source, 0, direction, data, len(data))


def dfu(direction, message_id, *payload):
    head, payload = (message_id, 0x0A0B0C0D, 16 + 4 * len(payload)), words(*payload)
    crc = zlib.crc32(words(*head, 0) + payload)
    return frame(DFU, direction, words(*head, crc) + payload)


def misc(*header, data=b""):
    return frame(MISC, FROM_DAEMON, words(*header) + data)


def misc_answer(status, limit):
    return frame(MISC, TO_DAEMON, words(9, 9, 9, 9, status, limit))


def boot_command(cmd, value=0, result=0):
    block = words(value, 0, 0, 0, 0, cmd, 0, 0)
    return frame(CONTROL, FROM_DAEMON, words(0xc0205609, 32) + block, IS_COMMAND, result)


class Protocol(CaptureTest):
    """What the simulator does not send: each frame with its line and what is wrong with it."""

    def check(self, *expected):
        head = capture_format.read(capture_of("host")).head
        frames = [frame for frame, _, _ in expected]
        capture_format.write(self.path, capture_format.Capture(head, frames))
        told = [(row.info.rstrip(), re.sub(",?not answered before frame \\d+", "", row.messages))
                for row in rows(self.path)]
        self.assertEqual(told, [(info, messages) for _, info, messages in expected])

    def test_misc_data(self):
        firmware, settings = "of type 0 Bluetooth firmware", "of type 1 Bluetooth settings"
        data = b"abcdefghi"
        self.check(
            (misc(0, 0, 5, 9), f"start {firmware}, size 5", "Sequence: expected 0, got 9"),
            (misc_answer(0, 64), "answer to start, packets of 64 bytes", ""),
            (misc(2, 0, 9, 1, data=data), f"last data {firmware}, sequence 1, 9 bytes", ""),
            (misc(4, 0, 99, 5, data=words(0)), f"CRC {firmware}",
             "Size: expected 4, got 99,Sequence: expected 0, got 5,bytes sent: expected 5, got 9"),
            (misc_answer(-5, 64), "answer to CRC: refused, status -5", "status -5"),
            (misc_answer(0, 64), "answer", "nobody has asked for it"),
            # Broken off, and begun anew.
            (misc(0, 0, 9, 0), f"start {firmware}, size 9", ""),
            (misc(1, 0, 2, 1, data=data[:2]), f"data {firmware}, sequence 1, 2 bytes", ""),
            (misc(0, 0, 9, 0), f"start {firmware}, size 9", ""),
            (misc(1, 0, 2, 1, data=data[:2]), f"data {firmware}, sequence 1, 2 bytes", ""),
            (misc(2, 0, 7, 2, data=data[2:]), f"last data {firmware}, sequence 2, 7 bytes", ""),
            (misc(4, 0, 4, 0, data=words(zlib.crc32(data))), f"CRC {firmware}", ""),
            (misc(1, 1, 2, 4, data=data[:2]), f"data {settings}, sequence 4, 2 bytes",
             "no start of type 1 before it"),
            (misc(2, 1, 2, 6, data=data[:2]), f"last data {settings}, sequence 6, 2 bytes",
             "sequence: expected 5, got 6"),
            (misc(5, 3, 3, 3), "finish",
             "Type: expected 0, got 3,Size: expected 0, got 3,Sequence: expected 0, got 3,"
             "no CRC of type 1 before it"),
            (misc(4, 7, 4, 0, data=words(0)), "CRC of type 7",
             "Type: there is no 7,no start of type 7 before it"))

    def test_dfu(self):
        name = "DFU_SPCL_OPERATION_RE"
        self.check(
            (dfu(TO_DAEMON, 9), "IMG_UPDT_END_REQ", ""),
            (dfu(TO_DAEMON, 9, 3), "IMG_UPDT_END_REQ image 3", ""),
            (dfu(FROM_DAEMON, 13, 1, 0, 0), name + "Q get state", ""),
            (dfu(TO_DAEMON, 14, 1, 3, 0, 1, 0, 0, 0), name + "SP get state fails: code 3",
             "response code 3"),
            (dfu(FROM_DAEMON, 13, 1, 0, 0), name + "Q get state", ""),
            (dfu(TO_DAEMON, 14, 1, 0, 0, 7, 0, 0, 0), name + "SP state 7", "State: there is no 7"),
            (dfu(FROM_DAEMON, 13, 0, 0, 8), name + "Q erase, offset 0, size 8", ""),
            (dfu(TO_DAEMON, 14, 0, 0, 0, 1, 9, 9, 9), name + "SP erase done", ""))

    def test_commands(self):
        self.check(
            (boot_command(3, result=3), "load returns 3", "result: expected 0, got 3"),
            (boot_command(5, value=-1), "set boot mode -1", "Boot mode: there is no -1"),
            (boot_command(6, result=1), "get boot mode: FLASH", ""),
            (boot_command(6, result=2), "get boot mode: 2", "Boot mode: there is no 2"),
            (boot_command(8, value=9), "boot status 9", "Boot status: there is no 9"))


class Plugin(unittest.TestCase):
    def test_it_may_be_installed_and_named_as_well(self):
        folder = os.path.join(HOME.name, ".local/lib/wireshark/plugins")
        shutil.copytree(os.path.dirname(DISSECTOR), folder)
        self.addCleanup(shutil.rmtree, folder)
        self.assertIn("get boot mode", tshark(capture_of("host")))


class Damage(CaptureTest):
    """Bytes changed, cut off, and added, at random but each time the same."""

    def setUp(self):
        super().setUp()
        self.random = random.Random(1)
        frames = []
        for name in ("update", "noflash", "version-late"):
            capture = capture_format.read(capture_of(name))
            self.head = capture.head
            frames += capture.frames
        self.frames = self.random.sample(frames, 400)

    def seen(self, frames):
        capture_format.write(self.path, capture_format.Capture(self.head, frames))
        seen = rows(self.path)
        self.assertEqual(len(seen), len(frames))
        for row, frame in zip(seen, frames):
            self.assertEqual(row.protocols, "marlo" if frame.data else "")
        tshark(self.path, "-V")  # all that is only in the tree
        return seen

    def changed(self, frame, first, count):
        data = bytearray(frame.data)
        for _ in range(count):
            at = self.random.randrange(min(first, len(data) - 1), len(data))
            data[at] ^= self.random.randrange(1, 256)
        return frame.with_data(data)

    def test_changed_byte_of_a_message_with_a_crc_is_an_error(self):
        frames = [frame for frame in self.frames if len(frame.data) > 8 and
                  frame.header()[1] == IS_PACKET and frame.header()[2] in (DFU, RMA)]
        self.assertGreater(len(frames), 100)
        for row in self.seen([self.changed(frame, 8, 1) for frame in frames]):
            self.assertTrue(row.error, f"{row.number} {row.info}")

    def test_changed_byte_of_misc_data_is_an_error_of_its_checksum(self):
        frames = capture_format.read(capture_of("noflash")).frames
        first = next(index for index, frame in enumerate(frames) if frame.interface == MISC and
                     frame.header()[3] == FROM_DAEMON and frame.data[8:9] == b"\1")
        frames[first] = self.changed(frames[first], 24, 1)
        errors = [row.info for row in self.seen(frames) if row.error]
        self.assertEqual(errors, ["CRC of type 0 Bluetooth firmware"])

    def test_any_bytes_are_taken(self):
        damaged = []
        for index, frame in enumerate(self.frames):
            size = self.random.randrange(len(frame.data) + 1)
            damaged.append([
                lambda: self.changed(frame, 0, 3),
                lambda: self.changed(frame.with_data(frame.data[:64]), 0, 1),
                lambda: frame.with_data(frame.data[:size]),
                lambda: frame.with_data(frame.data[:size], missing=len(frame.data) - size),
                lambda: frame.with_data(frame.data[:8] + self.random.randbytes(size)),
                lambda: frame.with_data(frame.data[:1] + bytes([self.random.randrange(7),
                                        self.random.randrange(4), self.random.randrange(3)]) +
                                        frame.data[4:]),
                lambda: frame.with_data(frame.data + self.random.randbytes(5)),
                lambda: frame.with_data(b""),
            ][index % 8]())
        for row, frame in zip(self.seen(damaged), damaged):
            self.assertEqual("were not captured" in row.messages,
                             len(frame.data) < frame.length, row.info)


if __name__ == "__main__":
    if not shutil.which("tshark"):
        print("SKIPPED: tshark is not installed")
        sys.exit(77)
    missing = [name for name in scenarios() if not os.path.exists(capture_of(name))]
    if missing:
        print("SKIPPED: no captures, as nothing can be mounted here:", *missing)
        sys.exit(77)
    unittest.main()
