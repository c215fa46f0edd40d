#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes the seeds of the targets that read binary files, level files, paths and versions.

fuzz/corpus/TARGET/NAME, each small and telling. Inputs that showed a defect stand there, too,
under names of their own; this program neither writes nor removes those. Not here: the seeds of the
targets for single lines and single text updates, which were written by hand.
"""
import pathlib
import struct

CORPUS = pathlib.Path(__file__).parent / "corpus"


def frame(body, order="<"):
    return struct.pack(order + "I", len(body)) + body


def plain(name, value):
    return name.encode().ljust(16, b"\0") + struct.pack("<i", value)


def plain_file(order="<"):
    return b"".join(frame(plain(name, i), order) for i, name in enumerate(("a", "aa", "b")))


def frame_files():
    head, ends = bytes([0, 1, 0, 24]), {
        "sound": plain_file(),
        "empty": b"",
        "cut-in-length": plain_file() + b"\x14\0",
        "cut-in-body": plain_file()[:-1],
        "empty-body": frame(b"") + plain_file(),
        "short-body": frame(b"a\0b") + plain_file(),
        "long-body": frame(plain("a", 1) + b"later") + plain_file(),
        "huge-length": plain_file() + b"\xff\xff\xff\xff" + plain("a", 0),
        "wrong-order": plain_file(">"),
    }
    seeds = {name: head + bytes_ for name, bytes_ in ends.items()}
    seeds["big-endian"] = bytes([1, 2, 0, 0]) + plain_file(">")
    seeds["repeated"] = bytes([0xE2, 1, 0, 4]) + frame(plain("a", 1) + bytes(6000)) + plain_file()
    return seeds


def entry(body):
    return struct.pack("<H", len(body)) + body


def text(value):
    return entry(value.encode() + b"\0")


def image(kind, mask, entries, missing=0):
    return struct.pack("<IQQ", kind, mask, missing) + b"".join(entries) + bytes(4)


VERSION = entry(struct.pack("<Q", 0x0003000100000007))
SWITCH = entry(struct.pack("<I", 1))


def images():
    instance = [text("a"), VERSION, text("b"), text("/home/b"), text("test"), SWITCH, SWITCH,
                text("/aux"), text("aux"), text("note")]
    service = [text("a"), VERSION, text("/opt/a"), text("two"), text("three"), SWITCH, SWITCH,
               entry(b"x"), SWITCH, SWITCH]
    variable = [text("a"), text("b"), text("value"), text("note")]

    def named(name):
        return [text("a"), text(name)]

    return {
        "instance": image(1, 0x3FF, instance),
        "instance-key": image(1, 7, instance[:3], 0x3F8),
        "service": image(2, 0x3FF, service),
        "service-key": image(2, 3, service[:2], 0x3FC),
        "variable": image(4, 0xF, variable),
        "variable-key": image(4, 3, variable[:2], 0xC),
        "missing-not-told": image(4, 3, named("m")),
        "later-field": image(4, 0x4003, named("l") + [entry(b"later")], 0xC),
        "bit-63": image(4, 1 << 63 | 3, variable[:2], 0xC),
        "unknown-type": image(3, 3, variable[:2]),
        "empty-entries": image(4, 0xF, [entry(b"")] * 4),
        "unterminated": image(4, 3, [entry(b"a"), entry(b"b")], 0xC),
        "text-behind-nul": image(4, 3, [entry(b"a\0x\0"), text("b")], 0xC),
        "overlong-entry": image(4, 3, [entry(b"a" * 300 + b"\0"), text("b")], 0xC),
        "short-number": image(2, 3, [text("a"), entry(b"\x07\0")], 0x3FC),
        "tail": image(4, 3, named("t"), 0xC) + b"tail",
        "long-flag": image(2, 0x83, service[:2] + [entry(b"x\0")], 0x37C),
        "lying-length": image(4, 3, [text("a"), b"\xff\xffb\0"], 0xC),
    }


def packed_records():
    head = struct.pack("<Q", 7) + bytes(8)
    seeds = {name: head + body for name, body in images().items()}
    seeds["cut"] = seeds["variable"][:-3]
    changed_key = bytes([1, 0, 22, 66, 0, 0, 0, 0])
    seeds["other-key"] = struct.pack("<Q", 3) + changed_key + images()["variable"]
    return seeds


# The first byte of bin_update: plain records, the features, a long record among the others.
PLAIN, VERIFY, DUPLICATES, BIG, KEEP, LONG = 1, 2, 4, 8, 16, 32
# Its verbs.
ADD, CHANGE, REMOVE, GET, SCAN, NEXT, REWIND, TELL, SEEK, CLOSE = range(10)


def plain_operation(verb, mask=1, key=(0, 0), record=(0, 0), position=(0, 0)):
    return bytes([verb, mask, *key, *record, *position])


def stored(number):
    return [0, number, 1]


def global_operation(verb, key=(), mask=3):
    """With a new record, a variable "b" of the service "b"."""
    return bytes([verb, 1, mask, *(key or stored(0)), 1, 1, 1, 2, 1, 0, 0])


def sequence(first, operations, content):
    """The long record, if any, stands behind the first one."""
    head = bytes([first, 1, len(operations) - 1]) + b"".join(operations)
    return head.ljust(64, b"\0")[:64] + content


def global_updates():
    whole = images()

    def frames(*names):
        return b"".join(frame(whole[name]) for name in names)

    some = frames("instance", "service-key", "variable")
    odd = some + frames("later-field", "missing-not-told", "tail", "long-flag")
    contents = {
        "sound": some,
        "odd": odd,
        "refused": odd + frames("overlong-entry", "text-behind-nul"),
        "damaged": odd + frames("lying-length"),
        "cut": odd[:-1],
        "unknown": some + frames("unknown-type"),
        "empty": b"",
    }
    verbs = {"add": ADD, "change": CHANGE, "remove": REMOVE, "get": GET}
    seeds = {}
    for name, content in contents.items():
        for verb_name, verb in verbs.items():
            steps = [global_operation(verb, stored(2)), global_operation(verb, stored(0))]
            seeds[f"global-{verb_name}-{name}"] = sequence(VERIFY, steps, content)
            if name == "odd":
                seeds[f"global-{verb_name}-long"] = sequence(VERIFY | LONG, steps, content)
    scan = [global_operation(verb, mask=0) for verb in (SCAN, NEXT, NEXT, GET)]
    seek = [global_operation(verb, mask=0) for verb in (SCAN, SEEK, NEXT, CLOSE)]
    seeds["global-scan"] = sequence(KEEP, scan, odd)
    seeds["global-seek"] = sequence(0, seek, some)
    return seeds


def bin_updates():
    updates = [
        plain_operation(ADD, 1, (0, 0), (3, 1)), plain_operation(ADD, 1, (0, 0), (2, 2)),
        plain_operation(CHANGE, 1, (1, 1), (0, 2)), plain_operation(REMOVE, 1, (0, 1)),
        plain_operation(GET, 1, (1, 0)),
    ]
    scan = [
        plain_operation(SCAN), plain_operation(NEXT), plain_operation(TELL),
        plain_operation(SEEK, position=(2, 1)), plain_operation(NEXT, 0), plain_operation(GET),
        plain_operation(ADD),
    ]
    odd = plain_file() + frame(b"short") + frame(plain("z", 9) + b"long")
    seeds = global_updates()
    for chosen in (0, VERIFY, DUPLICATES, VERIFY | DUPLICATES, KEEP | VERIFY, LONG | VERIFY):
        seeds[f"plain-updates-{chosen}"] = sequence(PLAIN | chosen, updates, odd)
        seeds[f"plain-scan-{chosen}"] = sequence(PLAIN | chosen, scan, plain_file() + b"\x14")
    big = [plain_operation(ADD, 3, (0, 0), (2, 1)), plain_operation(REMOVE, 3, (1, 1))]
    seeds["plain-big-endian"] = sequence(PLAIN | BIG | VERIFY, big, plain_file(">"))
    return seeds


def checksum(body):
    total = 0
    for at in range(0, len(body) & ~3, 4):
        total ^= struct.unpack_from("<I", body, at)[0]
    for byte in body[len(body) & ~3:]:
        total ^= byte | (0xFFFFFF00 if byte & 0x80 else 0)
    return struct.unpack("<i", struct.pack("<I", total))[0]


def stamped(body):
    return str(checksum(body)).encode().ljust(32, b"\0") + body


def checksum_files():
    records = plain_file()
    as_it_stands = {
        "none": records,
        "empty": b"",
        "stamped": stamped(records),
        "negative": stamped(records + frame(plain("n", -5))),
        "of-nothing": stamped(b""),
        "cut-header": stamped(records)[:31],
        "wrong-sum": stamped(records)[:-1] + b"\x01",
        "plus-sign": b"+" + stamped(records),
        "no-end-of-text": b"1" * 32 + records,
        "rubbish-behind-text": stamped(records)[:31] + b"x" + records,
        "damaged-records": stamped(records + b"\xff\xff"),
    }
    seeds = {name: b"\0" + content for name, content in as_it_stands.items()}
    seeds["given-a-header"] = b"\xff" + records
    seeds["given-a-spoilt-header"] = b"\x01" + records
    return seeds


def variable(name, value, comment=b""):
    return frame(name.ljust(16, b"\0") + struct.pack("<i", value) + comment.ljust(16, b"\0"))


def binary_variables():
    contents = {
        "sound": variable(b"a", 1, b"note") + variable(b"aa", 2) + variable(b"a", 0),
        "full-names": variable(b"sixteen-bytes-..", 1) + variable(b"a\0b", 2),
        "odd-lengths": frame(b"a\0") + frame(b"a".ljust(36, b"\0") + b"later") + variable(b"a", 1),
        "damaged": variable(b"a", 1) + b"\x24\0\0\0a",
        "empty": b"",
    }
    seeds = {}
    for name, content in contents.items():
        for verb, verb_name in enumerate(("add", "change", "remove", "find")):
            step = bytes([verb, 1, 0, 1, 0, 0, 2, 33])
            seeds[f"{verb_name}-{name}"] = (b"\1" + step * 2).ljust(40, b"\0") + content
    return seeds


def paths():
    return {
        "absolute": b"/var/lib/vrx/global.reg",
        "bare": b"global.reg",
        "empty": b"",
        "folder": b"/var/lib/",
        "root": b"/",
        "in-the-root": b"/reg",
        "slashes": b"//a///b",
        "here": b"./reg",
        "above": b"../reg",
        "hidden-folder": b".vrx/reg",
        "longest": b"/" + b"a/" * 508,
        "longest-usable": b"/a" * 508 + b"b",
        "one-too-long": b"/a" * 509,
        "long-base": b"/tmp/" + b"b" * 1010,
        "link-to-itself": b"link",
        "strange-bytes": b"/\xff\x01 \n/\x80",
    }


def text_operation(kind, verb, name):
    """One with the mask of the name, a key of this name, and a record of another value."""
    def record(value):
        profile = [0, 0, name, 0, value, 0, 0]
        services = [0, 0, name, 0, value, value, 0, 0, 0, 0]
        init = [0, 0, name, 0, value, 0, value, 0, 0, 0, 0]
        return bytes((profile, services, init)[kind])
    return bytes([verb, 0]) + record(0) + record(1)


def text_lines():
    """Each also with the many comments that the target adds, behind the first line."""
    contents = {
        "profile": b"# head\n\n\tA = 1  # one\nexport\t A = 2\nB=2\nA = 3\nx\nC=" + b"x" * 2100,
        "services": b"a 1/tcp b c # n\nb\t80/udp\nlongname 256/tcp\na 1/udp\n",
        "init": b"a:1:wait:/bin/x # n\nb:2:once:/bin/y \\\n -z\nne\\\nw:3:x:/bin/n\n",
    }
    add, change, remove, find = 0, 1, 3, 5
    scan, step, rewind, run = 0, 1, 2, 7
    seeds = {}
    for kind, (title, content) in enumerate(contents.items()):
        plans = {
            "find": [(run, find, 1), (run, find, 0)],
            "add": [(run, add, 2), (run, find, 2)],
            "change": [(run, change, 1), (run, find, 1)],
            "remove": [(run, remove, 1), (run, find, 1)],
            "scan": [(scan, find, 0), (step, find, 0), (step, find, 0)],
            "name-in-two-lines": [(run, find, 2), (run, remove, 2)],
            "white-space-in-name": [(run, find, 3), (run, remove, 3)],
        }
        if kind == 0:
            plans["rewind"] = [(each, find, 0) for each in (scan, step, step, rewind, step)]
        for plan, steps in plans.items():
            chosen = bytes([len(steps) - 1]) + b"".join(
                bytes([each, 9]) + text_operation(kind, verb, name) for each, verb, name in steps)
            rest = chosen.ljust(95, b"\0") + content
            seeds[f"{title}-{plan}"] = bytes([kind, 0]) + rest
            seeds[f"{title}-{plan}-long"] = bytes([129 + kind, 1]) + rest
    return seeds


def level_files():
    sound = b"version=3.1.0.7\nbuild_level=s250131\nfixpack=7\n"
    return {
        "sound": sound,
        "empty": b"",
        "comments": b"# setup\n\n" + sound + b"later = x\r\n",
        "blanks": b"\tversion = 3\r\n build_level =\tx y \nfixpack= 4294967295",
        "twice": sound + b"fixpack=8\n",
        "nul": sound.replace(b"7\n", b"7\0\n"),
        "large-part": sound.replace(b"3.1", b"65536.1"),
        "zeros": sound.replace(b"=7", b"=00000000000000000000007"),
        "five-parts": sound.replace(b"0.7", b"0.7.1"),
        "longest-version": sound.replace(b"3.1.0.7", b"65535.65535.65535.65535"),
        "long-line": sound + b"# " + b"x" * 254 + b"\n",
        "nameless": sound + b"=1\n",
        "long-build": sound.replace(b"s250131", b"b" * 64),
    }


def version_strings():
    return {
        "four": b"3.1.0.7",
        "empty": b"",
        "one": b"9",
        "points": b"...",
        "five": b"1.2.3.4.5",
        "empty-parts": b"1..2.",
        "letters": b"3.1a",
        "over-16-bits": b"65536.70000.1.1",
        "over-31-bits": b"99999999999.1",
        "longest": b"65535.65535.65535.65535",
        "beyond-the-longest": b"65535.65535.65535.65535x",
        "code": struct.pack("<Q", 0x0003000100000007),
        "largest-code": b"\xff" * 8,
        "hundreds": struct.pack("<HHHH", 100, 9, 1000, 20),
    }


def log_entry(records, action=b"Add", command=b"N/A", path=b"/var/vrx/global.reg", level=b"s1"):
    return (b'TS="Mon Jan  1 12:00:00 2024";CALLER=UNKNOWN;PID=42;U=-2;BL=' + level + b";FP=7;PATH=" + path
            + b";ACT=" + action + b";CL=" + command + b";REC=" + records)


def change_logs():
    variable = b"V,VRX,A,1,"
    instance = b"I,VRX,3.1.0.7,tp1,/home/tp1,oltp,1,0,,,orders"
    service = b"S,VRX,3.1.0.7,/opt/vrx,,,-1,,A,0,0"
    change = log_entry(instance + b"!" + instance + b"!", b"Change", b'"vrxreg instance set"')
    entries = [log_entry(variable), log_entry(service, b"Delete", b'""'), change]
    seeds = {
        "empty": b"",
        "variable": entries[0],
        "service": entries[1],
        "change": change,
        "no-record": log_entry(b"", b"Unknown"),
        "no-records": log_entry(b"!", b"Change"),
        "spare-commas": log_entry(variable + b"a, comment"),
        "two-command-ends": log_entry(variable, command=b'"a";REC=V,b,c,d,"'),
        "two-path-ends": log_entry(variable, path=b"/r;ACT=Add;CL=N/A;REC=x"),
        "two-level-ends": log_entry(variable, level=b"s1;FP=1;PATH=/q"),
        "cut": entries[0][:-9],
        "cut-and-glued": entries[0][:entries[0].index(b";FP=")] + entries[1],
        "other-second": log_entry(instance + b"!" + variable, b"Change"),
        "second-alone": log_entry(b"!" + variable, b"Change"),
        "log": b"\n".join(entries) + b"\n",
        "log-with-more": b"foreign\n" + b"\nmore\n".join(entries),
    }
    for action in range(4):
        for kind in range(4):
            chosen = [action, 0, 1, kind] + [3, 20, 97, 21, 98, 0, 0, 0] * (4 + action)
            seeds[f"update-{action}-{kind}"] = bytes(chosen)
    return seeds


def main():
    targets = {
        "frame_file": frame_files(),
        "level_file": level_files(),
        "version_strings": version_strings(),
        "packed_record": packed_records(),
        "bin_update": bin_updates(),
        "text_lines": text_lines(),
        "checksum_header": checksum_files(),
        "binary_variables": binary_variables(),
        "paths": paths(),
        "change_log": change_logs(),
    }
    for target, seeds in targets.items():
        folder = CORPUS / target
        folder.mkdir(parents=True, exist_ok=True)
        for name, content in seeds.items():
            (folder / name).write_bytes(content)


if __name__ == "__main__":
    main()
