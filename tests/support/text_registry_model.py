# SPDX-License-Identifier: Apache-2.0
"""The three text formats and the binary variable store once more, in Python, for plain files.

It is written from docs/text-formats.md and docs/frame-format.md and shares nothing with the library.
A text registry is a list of its lines as they stand in the file, newline and continuation included; a
record is a dictionary of the fields' texts, "alias" being a list. Long lines, NUL bytes, records that
are refused and the like are not here: random files and operations meet another model in C++.
"""
import re
import struct
from unittest import mock

from registry_model import shown_text

UNDERSTOOD = ("tcp", "udp", "ddp", "divert")


def without_comment(text, record):
    """What stands before the first "#"; the rest becomes the record's comment."""
    body, mark, comment = text.partition("#")
    if mark:
        record["comment"] = comment
    return body


class Profile:
    """name = value # comment"""

    name, key_mask, key_fields, order = "profile", 0x1, ("variable",), ("variable", "value", "comment")

    @staticmethod
    def parse(text):
        record = {}
        body = without_comment(text, record).strip()
        if not body:
            return record
        variable, equals, value = body.partition("=")
        if not equals:
            return None
        record["variable"], record["value"] = variable.strip(), value.strip()
        return record

    @staticmethod
    def lay_out(record, old):
        """The line's white space stays, but for what stands before its comment."""
        indent, before, after = "", " ", " "
        if old:
            indent, before, after = re.match(r"([ \t]*)[^ \t=]+([ \t]*)=([ \t]*)", old).groups()
        line = f"{indent}{record['variable']}{before}={after}{record['value']}"
        return line + (f" # {record['comment']}" if "comment" in record else "")

    @staticmethod
    def flags(record, _):
        return ("comment" in record) + 2 * ("variable" in record)


class Services:
    """name port/protocol aliases # comment"""

    name, key_mask, key_fields = "services", 0x5, ("name", "protocol")
    order = ("name", "port", "protocol", "alias", "comment")

    @staticmethod
    def parse(text):
        record = {}
        fields = without_comment(text, record).split()
        if len(fields) == 1:
            return None
        if fields:
            record["name"] = fields[0]
            record["port"], record["protocol"] = fields[1].split("/")
            record["alias"] = fields[2:] if record["protocol"] in UNDERSTOOD else []
        return record

    @staticmethod
    def lay_out(record, _):
        """Anew, with tabs whose number goes by the name and by the port's swapped bytes."""
        port, aliases = int(record["port"]), record.get("alias", [])
        narrow = port % 256 * 256 + port // 256 <= 999
        line = record["name"] + ("\t\t" if len(record["name"]) <= 7 else "\t")
        line += f"{port}/{record['protocol']}"
        if aliases:
            line += ("\t\t" if narrow else "\t") + " ".join(aliases)
        if "comment" not in record:
            return line
        gap = 4 if narrow else 3
        if aliases:
            gap = 2 if len(aliases[0]) <= 7 else 1
        return line + "\t" * gap + "# " + record["comment"]

    @staticmethod
    def flags(record, text):
        if "name" not in record:
            return 1 if "comment" in record or not text else 0
        return 2 + ("comment" in record) + 4 * (record["protocol"] not in UNDERSTOOD)


class InitTable:
    """id:runlevels:action:command # comment"""

    name, key_mask, key_fields = "inittab", 0x1, ("id",)
    order = ("id", "runlevel", "action", "command", "comment")

    @staticmethod
    def parse(text):
        if text.startswith(":"):
            return {"comment": text[1:]}
        record = {}
        body = without_comment(text, record)
        if not body:
            return record
        fields = body.split(":", 3)
        if len(fields) < 4:
            return None
        return {**record, **dict(zip(InitTable.order, (*fields[:3], fields[3].rstrip(" "))))}

    @staticmethod
    def lay_out(record, _):
        line = ":".join(record[name] for name in InitTable.order[:4])
        return line + (f" #{record['comment']}" if "comment" in record else "")

    @staticmethod
    def flags(record, _):
        return ("comment" in record) + 2 * ("id" in record)


def text_of(line):
    """A line as its format sees it: continuations joined, without the newline."""
    return line.decode().replace("\\\n", "").rstrip("\n")


def closed(line):
    return line if line.endswith(b"\n") else line + b"\n"


def is_meant(syntax, line, key):
    record = syntax.parse(text_of(line))
    return record is not None and all(record.get(name) == key[name] for name in syntax.key_fields)


def add(syntax, lines, record):
    """The lines afterwards; like the other two for updates that succeed."""
    return [closed(line) for line in lines] + [syntax.lay_out(record, None).encode() + b"\n"]


def change(syntax, lines, key, record):
    assert any(is_meant(syntax, line, key) for line in lines)
    return [
        syntax.lay_out(record, line.decode()).encode() + b"\n"
        if is_meant(syntax, line, key)
        else closed(line)
        for line in lines
    ]


def delete(syntax, lines, key):
    assert any(is_meant(syntax, line, key) for line in lines)
    return [line for line in lines if not is_meant(syntax, line, key)]


def words(syntax, record):
    """The record in the driver's words."""
    out = []
    for name in syntax.order:
        value = record.get(name, [])
        out += [f"{name}={each}" for each in ([value] if isinstance(value, str) else value)]
    return out


def shown(syntax, line):
    """What the driver's list prints for a line; equal to anything for one that does not parse."""
    text = text_of(line)
    record = syntax.parse(text)
    if record is None:
        return mock.ANY
    fields = [f"{syntax.name}", f"flags={syntax.flags(record, text)}"]
    for word in words(syntax, record):
        name, value = word.split("=", 1)
        fields.append(f"{name}={shown_text(value.encode())}")
    return "\t".join(fields)


class BinaryVariables:
    """Frames of a name, a number and a comment; a record is a tuple of the three."""

    name, key_mask = "binvar", 0x1
    order = ("variable", "value", "comment")
    layout = struct.Struct("<I16si16s")

    @classmethod
    def frame(cls, record):
        variable, value, comment = record
        return cls.layout.pack(cls.layout.size - 4, variable.encode(), value, comment.encode())

    @classmethod
    def words(cls, record):
        return [f"{name}={value}" for name, value in zip(cls.order, record)]

    @classmethod
    def shown(cls, record):
        return "\t".join([cls.name, *cls.words(record)])
