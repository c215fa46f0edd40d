#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Shows one frame of a global registry as bytes with their meaning: offset, bytes, what they are.

It reads the file by docs/frame-format.md and docs/packed-record-format.md alone, without the library.
"""
import argparse
import pathlib
import struct
import sys

TEXT, NUMBER, VERSION, BYTE = "text", "number", "version", "byte"

INSTANCE = [
    ("Service", TEXT),
    ("VersionCode", VERSION),
    ("InstanceName", TEXT),
    ("InstancePath", TEXT),
    ("Usage", TEXT),
    ("StartAtBoot", NUMBER),
    ("Maintenance", NUMBER),
    ("AuxPath", TEXT),
    ("AuxName", TEXT),
    ("Comment", TEXT),
]
SERVICE = [
    ("Service", TEXT),
    ("VersionCode", VERSION),
    ("Text1", TEXT),
    ("Text2", TEXT),
    ("Text3", TEXT),
    ("FixpackNumber", NUMBER),
    ("Num2", NUMBER),
    ("Flag", BYTE),
    ("Num3", NUMBER),
    ("Num4", NUMBER),
]
VARIABLE = [("Service", TEXT), ("Variable", TEXT), ("Value", TEXT), ("Comment", TEXT)]
TYPES = {1: ("instance", INSTANCE), 2: ("service", SERVICE), 4: ("variable", VARIABLE)}

LAST_FIELD_BIT = 62
ROW_BYTES = 12


class Damaged(Exception):
    pass


def frames_of(data):
    """The offsets and lengths of the frames; Damaged when one runs past the end."""
    frames, offset = [], 0
    while offset < len(data):
        if offset + 4 > len(data):
            raise Damaged(f"offset {offset}: a cut length field")
        length = struct.unpack_from("<I", data, offset)[0]
        if offset + 4 + length > len(data):
            raise Damaged(f"offset {offset}: a frame of {length} bytes runs past the end")
        frames.append((offset, length))
        offset += 4 + length
    return frames


def printable(raw):
    return "".join(chr(byte) if 32 <= byte < 127 else "." for byte in raw)


def meaning_of(raw, kind):
    """A field's bytes in words; its plain length when they do not have the form of its kind."""
    if kind == TEXT and raw.endswith(b"\0"):
        return f'"{printable(raw[:-1])}"'
    if kind == NUMBER and len(raw) == 4:
        return str(struct.unpack("<I", raw)[0])
    if kind == BYTE and len(raw) == 1:
        return str(raw[0])
    if kind == VERSION and len(raw) == 8:
        parts = struct.unpack("<4H", raw)
        return ".".join(str(part) for part in reversed(parts))
    return f"{len(raw)} bytes"


class Dump:
    """Takes a frame apart from its start and prints each piece."""

    def __init__(self, data, offset, length):
        self.data, self.offset, self.end = data, offset, offset + 4 + length

    def take(self, size, meaning):
        """Prints `size` bytes as one piece, with meaning(bytes); returns the bytes."""
        if self.offset + size > self.end:
            raise Damaged(f"offset {self.offset}: an entry runs past the end of its frame")
        raw = self.data[self.offset : self.offset + size]
        text = meaning(raw)
        for start in range(0, max(size, 1), ROW_BYTES):
            row = raw[start : start + ROW_BYTES]
            print(f"{self.offset + start:06x}  {row.hex(' '):{3 * ROW_BYTES}} {text}".rstrip())
            text = ""
        self.offset += size
        return raw

    def number(self, size, meaning):
        raw = self.take(size, lambda raw: meaning(int.from_bytes(raw, "little")))
        return int.from_bytes(raw, "little")


def names_of(mask, fields):
    """The names of a mask's fields; bits that this format does not know by their number."""
    known = [name for bit, (name, _) in enumerate(fields) if mask >> bit & 1]
    later = [f"bit {bit}" for bit in range(len(fields), 64) if mask >> bit & 1]
    return ", ".join(known + later) or "none"


def dump_entry(dump, bit, fields):
    name, kind = fields[bit] if bit < len(fields) else (f"field of bit {bit}", None)
    length = dump.number(2, lambda value: f"{name}: length {value}")
    dump.take(length, lambda raw: f"{name} = {meaning_of(raw, kind)}")


def dump_frame(data, offset, length):
    dump = Dump(data, offset, length)
    dump.number(4, lambda value: f"frame length: {value} bytes follow")
    kind = dump.number(4, lambda value: f"record type: {TYPES.get(value, ('unknown',))[0]}")
    fields = TYPES.get(kind, ("", []))[1]
    mask = dump.number(8, lambda value: f"fields present: {names_of(value, fields)}")
    dump.number(8, lambda value: f"fields missing at the last read: {names_of(value, fields)}")
    for bit in range(LAST_FIELD_BIT + 1):
        if mask >> bit & 1:
            dump_entry(dump, bit, fields)
    dump.number(4, lambda value: f"checksum word, carried along: {value}")
    if dump.offset != dump.end:
        raise Damaged(f"offset {dump.offset}: {dump.end - dump.offset} bytes behind the record")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("file", type=pathlib.Path)
    parser.add_argument("--frame", type=int, default=1, help="which one, from 1")
    options = parser.parse_args()
    data = options.file.read_bytes()
    try:
        frames = frames_of(data)
        print(f"{options.file.name}: {len(data)} bytes, {len(frames)} frames")
        if not 1 <= options.frame <= len(frames):
            sys.exit(f"{options.file}: no frame {options.frame}")
        offset, length = frames[options.frame - 1]
        print(f"frame {options.frame}, at offset 0x{offset:06x}:")
        print(f"offset  {'bytes':{3 * ROW_BYTES}} meaning")
        dump_frame(data, offset, length)
    except Damaged as damage:
        sys.exit(f"{options.file}: {damage}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
