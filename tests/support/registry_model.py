# SPDX-License-Identifier: Apache-2.0
"""The global registry once more, in Python: frames, packed records, and what updates make of them.

It is written from docs/frame-format.md and docs/packed-record-format.md and shares nothing with the
library, so that one can be held against the other byte by byte. Not here: files, locks, processes.
"""
import re
import struct

TEXT, NUMBER, VERSION, BYTE = "text", "number", "version", "byte"

# The fields of each type of record, in bit order: name, kind, width in the record.
FIELDS = {
    1: [
        ("Service", TEXT, 64),
        ("VersionCode", VERSION, 8),
        ("InstanceName", TEXT, 64),
        ("InstancePath", TEXT, 1024),
        ("Usage", TEXT, 64),
        ("StartAtBoot", NUMBER, 4),
        ("Maintenance", NUMBER, 4),
        ("AuxPath", TEXT, 1024),
        ("AuxName", TEXT, 64),
        ("Comment", TEXT, 256),
    ],
    2: [
        ("Service", TEXT, 64),
        ("VersionCode", VERSION, 8),
        ("Text1", TEXT, 1024),
        ("Text2", TEXT, 1024),
        ("Text3", TEXT, 256),
        ("FixpackNumber", NUMBER, 4),
        ("Num2", NUMBER, 4),
        ("Flag", BYTE, 4),
        ("Num3", NUMBER, 4),
        ("Num4", NUMBER, 4),
    ],
    4: [
        ("Service", TEXT, 64),
        ("Variable", TEXT, 256),
        ("Value", TEXT, 256),
        ("Comment", TEXT, 2000),
    ],
}
TYPE_NAMES = {1: "instance", 2: "service", 4: "variable"}
TYPES = {name: number for number, name in TYPE_NAMES.items()}
ENTRY_SIZES = {NUMBER: 4, VERSION: 8, BYTE: 1}
FIELD_BITS = 63

OK = 0
DUPLICATE = 0x900001F1
NO_MATCH = 0x900001F6
UNCHANGED = 0x900001F7
SEVERAL_MATCH = 0x900001F8
INVALID = 0x900001FC


class Damaged(Exception):
    """The bytes are no registry."""


def known_bits(kind):
    return (1 << len(FIELDS[kind])) - 1


class Record:
    """A record as it is stored: its entries are the bytes between length and next entry."""

    def __init__(self, kind, entries=None, missing=0, checksum=0):
        self.kind = kind
        self.entries = dict(entries or {})  # bit number: bytes
        self.missing = missing
        self.checksum = checksum

    @property
    def mask(self):
        return sum(1 << bit for bit in self.entries)

    def image(self):
        out = struct.pack("<IQQ", self.kind, self.mask, self.missing)
        for bit in sorted(self.entries):
            out += struct.pack("<H", len(self.entries[bit])) + self.entries[bit]
        return out + struct.pack("<I", self.checksum)

    def value(self, bit):
        """A known field as it reads: absent ones are empty or 0."""
        raw = self.entries.get(bit, b"")
        if FIELDS[self.kind][bit][1] == TEXT:
            return raw.split(b"\0")[0]
        return int.from_bytes(raw, "little")

    def read(self):
        """The record as an update writes it back: the missing fields are noted."""
        missing = self.missing | (known_bits(self.kind) & ~self.mask)
        return Record(self.kind, self.entries, missing, self.checksum)

    def matches(self, mask, key):
        if key.kind not in (0, self.kind):
            return False
        bits = [bit for bit in range(len(FIELDS[self.kind])) if mask >> bit & 1]
        return all(self.value(bit) == key.value(bit) for bit in bits)

    def line(self):
        """What the driver's list prints for it."""
        shown = self.read()
        own = shown.mask
        parts = [TYPE_NAMES[self.kind], f"mask=0x{own:x}", f"missing=0x{shown.missing:x}"]
        parts.append(f"checksum={self.checksum}")
        for bit, (name, kind, _) in enumerate(FIELDS[self.kind]):
            if bit in self.entries:
                value = self.value(bit)
                parts.append(f"{name}={shown_text(value) if kind == TEXT else value}")
        return "\t".join(parts)


def shown_text(raw):
    plain = lambda byte: 0x20 <= byte < 0x7F and byte != 0x5C
    return "".join(chr(byte) if plain(byte) else f"\\x{byte:02x}" for byte in raw)


def parse_image(image):
    """The record of a packed image; Damaged unless every byte is accounted for."""
    if len(image) < 24:
        raise Damaged(f"an image of {len(image)} bytes")
    kind, mask, missing = struct.unpack_from("<IQQ", image)
    record, offset = Record(kind, missing=missing), 20
    if kind not in FIELDS:
        raise Damaged(f"record type {kind}")
    for bit in (bit for bit in range(64) if mask >> bit & 1):
        length = int.from_bytes(image[offset : offset + 2], "little")
        record.entries[bit] = image[offset + 2 : offset + 2 + length]
        offset += 2 + length
        check_entry(record, bit, length)
    if offset + 4 != len(image):
        raise Damaged(f"an image of {len(image)} bytes whose entries end at {offset}")
    record.checksum = struct.unpack_from("<I", image, offset)[0]
    return record


def check_entry(record, bit, length):
    raw = record.entries[bit]
    if len(raw) != length or bit >= FIELD_BITS:
        raise Damaged(f"the entry of bit {bit} runs past its image")
    if bit >= len(FIELDS[record.kind]):
        return
    name, kind, width = FIELDS[record.kind][bit]
    if kind == TEXT:
        good = raw.endswith(b"\0") and raw.count(b"\0") == 1 and length <= width
    else:
        good = length == ENTRY_SIZES[kind]
    if not good:
        raise Damaged(f"{name} has an entry of {length} bytes: {raw!r}")


def parse(data):
    """The records of a registry file, in order."""
    records, offset = [], 0
    while offset < len(data):
        if offset + 4 > len(data):
            raise Damaged(f"a cut length field at {offset}")
        length = struct.unpack_from("<I", data, offset)[0]
        image = data[offset + 4 : offset + 4 + length]
        if len(image) != length:
            raise Damaged(f"a frame of {length} bytes at {offset} runs past the end")
        records.append(parse_image(image))
        offset += 4 + length
    return records


def frames(records):
    """The file of these records."""
    out = b""
    for record in records:
        image = record.image()
        out += struct.pack("<I", len(image)) + image
    return out


def entry_of(kind, value):
    if kind == TEXT:
        return (value if isinstance(value, bytes) else value.encode()) + b"\0"
    size = ENTRY_SIZES[kind]
    return (int(value) & (1 << 8 * size) - 1).to_bytes(size, "little")


def make(type_name, **values):
    """A record of this type with these fields."""
    kind = TYPES[type_name]
    record = Record(kind)
    for bit, (name, form, _) in enumerate(FIELDS[kind]):
        if name in values:
            record.entries[bit] = entry_of(form, values.pop(name))
    if values:
        raise KeyError(f"{type_name} has no {', '.join(values)}")
    return record


def words(record):
    """The record in the driver's words."""
    out = [TYPE_NAMES[record.kind]]
    for bit, (name, form, _) in enumerate(FIELDS[record.kind]):
        if bit in record.entries:
            value = record.value(bit)
            out.append(f"{name}={value.decode() if form == TEXT else value}")
    return out


def is_acceptable(mask, record):
    """The rules of fields, as far as tests go: no present text is empty, no required field absent."""
    if mask == 0:
        return True
    for bit, (name, form, _) in enumerate(FIELDS[record.kind]):
        present = bit in record.entries
        if present and form == TEXT and record.value(bit) == b"":
            return False
        if present and name in ("StartAtBoot", "Maintenance") and record.value(bit) > 1:
            return False
        if not present and mask >> bit & 1 and name != "FixpackNumber":
            return False
    return bool(record.entries)


def add(records, mask, new):
    """(status, records afterwards)."""
    if not is_acceptable(mask, new):
        return INVALID, records
    if any(record.matches(mask, new) for record in records):
        return DUPLICATE, records
    return OK, [record.read() for record in records] + [Record(new.kind, new.entries)]


def replaced(old, new):
    """What stands after a change: the new fields, and those of later revisions that the old one had."""
    entries = dict(new.entries)
    if old.kind == new.kind:
        later = {bit: raw for bit, raw in old.entries.items() if not known_bits(old.kind) >> bit & 1}
        entries.update(later)
    return Record(new.kind, entries)


def change(records, mask, key, new):
    if not is_acceptable(mask, new):
        return INVALID, records
    found = [record for record in records if record.matches(mask, key)]
    for position, record in enumerate(found):
        if record.matches((1 << 64) - 1, new):
            return UNCHANGED, records
        if position > 0:
            return SEVERAL_MATCH, records
    if not found:
        return NO_MATCH, records
    return OK, [replaced(old, new) if old is found[0] else old.read() for old in records]


def delete(records, mask, key):
    if not is_acceptable(mask, key):
        return INVALID, records
    found = [record for record in records if record.matches(mask, key)]
    if len(found) > 1:
        return SEVERAL_MATCH, records
    if not found:
        return NO_MATCH, records
    return OK, [record.read() for record in records if record is not found[0]]


LOG_LINE = re.compile(
    rb'TS="[^"\n]{24}";CALLER=[^;\n]*;PID=\d+;U=\d+;BL=[^;\n]*;FP=\d+;PATH=[^;\n]*;'
    rb"ACT=(Add|Change|Delete);CL=[^;\n]*;REC=[ISV],[^\n]*\n"
)


def log_actions(data):
    """The actions of a change log's lines; Damaged when a line is not whole."""
    lines = data.splitlines(keepends=True)
    actions = []
    for line in lines:
        match = LOG_LINE.fullmatch(line)
        if not match:
            raise Damaged(f"a line of the change log: {line!r}")
        actions.append(match.group(1).decode().lower())
    return actions
