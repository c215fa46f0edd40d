# SPDX-License-Identifier: Apache-2.0
"""Writes registry files that no tool would write: fields of later revisions, damaged frames, doubled
keys, values without meaning.

    registry_file.py FILE RECORD...

A RECORD is TYPE:BIT=VALUE,BIT=VALUE,... or RAW:HEX for a frame's body as it stands. A VALUE is
s<text>, x<hex>, n<32-bit number> or v<a.b.c.d>; bits count from 0.
"""
import struct
import sys


def entry(value):
    kind, text = value[0], value[1:]
    if kind == "s":
        return text.encode("utf-8", "surrogateescape") + b"\0"
    if kind == "x":
        return bytes.fromhex(text)
    if kind == "n":
        return struct.pack("<I", int(text))
    parts = [int(part) for part in text.split(".")]
    return struct.pack("<Q", parts[0] << 48 | parts[1] << 32 | parts[2] << 16 | parts[3])


def body(record):
    kind, _, rest = record.partition(":")
    if kind == "RAW":
        return bytes.fromhex(rest)
    fields = sorted((int(bit), value) for bit, value in (f.split("=", 1) for f in rest.split(",")))
    mask = sum(1 << bit for bit, _ in fields)
    packed = struct.pack("<IQQ", int(kind), mask, 0)
    for _, value in fields:
        data = entry(value)
        packed += struct.pack("<H", len(data)) + data
    return packed + struct.pack("<I", 0)


with open(sys.argv[1], "wb") as out:
    for argument in sys.argv[2:]:
        frame = body(argument)
        out.write(struct.pack("<I", len(frame)) + frame)
