# SPDX-License-Identifier: Apache-2.0
"""Captures as the tests read and write them, apart from the simulator's own writing: pcapng files,
and the header in front of each frame."""
import struct
from dataclasses import dataclass, replace

SECTION, INTERFACE, PACKET = 0x0A0D0D0A, 1, 6
HEADER = struct.Struct("<BBBBi")  # layout, kind, source, direction, result
IS_PACKET, IS_COMMAND, IS_CLOSE, IS_HANG_UP = 0, 1, 3, 4
TO_DAEMON, FROM_DAEMON = 1, 2
CONTROL, DFU, MISC, RMA = range(4)


@dataclass(frozen=True)
class Frame:
    interface: int
    time: int  # nanoseconds since 1970
    flags: int
    data: bytes
    length: int  # before it was cut

    def header(self):
        return HEADER.unpack_from(self.data)

    def with_data(self, data, missing=0):
        return replace(self, data=bytes(data), length=len(data) + missing)


@dataclass(frozen=True)
class Capture:
    head: bytes  # the section and its interfaces
    frames: list


def _options(block):
    while len(block) >= 4:
        code, size = struct.unpack_from("<HH", block)
        yield code, block[4:4 + size]
        block = block[4 + (size + 3) // 4 * 4:]


def _frame(body):
    interface, high, low, kept, length = struct.unpack_from("<5I", body)
    options = dict(_options(body[20 + (kept + 3) // 4 * 4:]))
    flags = struct.unpack("<I", options[2])[0]
    return Frame(interface, high << 32 | low, flags, body[20:20 + kept], length)


def read(path):
    with open(path, "rb") as file:
        content = file.read()
    head, frames, at = b"", [], 0
    while at < len(content):
        kind, size = struct.unpack_from("<II", content, at)
        block = content[at:at + size]
        assert size % 4 == 0 and struct.unpack_from("<I", block, size - 4)[0] == size, (path, at)
        if kind == PACKET:
            frames.append(_frame(block[8:-4]))
        else:
            assert kind in (SECTION, INTERFACE) and not frames, (path, at)
            head += block
        at += size
    return Capture(head, frames)


def write(path, capture):
    with open(path, "wb") as file:
        file.write(capture.head)
        for frame in capture.frames:
            body = struct.pack("<5I", frame.interface, frame.time >> 32, frame.time & 0xFFFFFFFF,
                               len(frame.data), frame.length)
            body += frame.data + bytes(-len(frame.data) % 4)
            body += struct.pack("<HHIHH", 2, 4, frame.flags, 0, 0)
            size = len(body) + 12
            file.write(struct.pack("<II", PACKET, size) + body + struct.pack("<I", size))
