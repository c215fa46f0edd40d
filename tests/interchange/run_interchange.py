#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""64-bit and 32-bit builds on one registry: the same bytes, the same locks.

The same random updates made by the one, by the other and by both in turn leave the same files, which
are those of a model besides, after every single update. Either build's readers read what the other
wrote, and either build's lock keeps the other out. Figures are printed as N/N. Exit status 77: there is
only one build, or this machine refuses private mounts.
"""
import argparse
import pathlib
import random
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent / "support"), str(HERE.parent / "concurrency")]

import registry_driver as driving
import registry_model as model
import run_contention as contention

TOP = pathlib.Path("/tmp/interchange")
LOCKED_ELSEWHERE = 0x900001C4
NAMES = ("a", "b", "longer-name", "n" * 63)
MASKS = {"instance": (0x7, 0x4, 0x5), "service": (0x3, 0x1), "variable": (0x3, 0x2)}
VERBS = ("add", "add", "change", "change", "delete")
ELF_CLASS = {1: "32-bit", 2: "64-bit"}


def word_size(program):
    return ELF_CLASS[program.read_bytes()[4]]


def random_text(chance, width):
    length = chance.choice((1, 2, 7, width - 1))
    return "".join(chance.choice("abcXYZ019./ _") for _ in range(length))


def random_value(chance, name, form, width):
    if form == model.TEXT:
        return random_text(chance, width)
    if name in ("StartAtBoot", "Maintenance"):
        return chance.randrange(2)
    bits = {model.NUMBER: 32, model.VERSION: 64, model.BYTE: 8}[form]
    return chance.choice((0, 1, 255, chance.getrandbits(bits))) & (1 << bits) - 1


def random_record(chance, type_name, every=False):
    """A record with its key, from few values so that updates meet, and some other fields."""
    fields = model.FIELDS[model.TYPES[type_name]]
    values = {"Service": chance.choice(NAMES[:2])}
    if type_name != "variable":
        values["VersionCode"] = chance.choice((1, 0x0003000100000007, (1 << 64) - 1))
    if type_name != "service":
        values["InstanceName" if type_name == "instance" else "Variable"] = chance.choice(NAMES)
    for name, form, width in fields:
        if name not in values and (every or chance.random() < 0.4):
            values[name] = random_value(chance, name, form, width)
    return model.make(type_name, **values)


class RandomUpdate:
    """One update, which may succeed or be refused."""

    def __init__(self, chance):
        kind = chance.choice(list(model.TYPES))
        self.verb = chance.choice(VERBS)
        self.mask = chance.choice(MASKS[kind])
        self.key = random_record(chance, kind)
        self.new = random_record(chance, kind, every=chance.random() < 0.1)

    def words(self):
        out = [self.verb, hex(self.mask)]
        if self.verb == "add":
            return out + model.words(self.new)
        out += model.words(self.key)
        return out + (["--", *model.words(self.new)] if self.verb == "change" else [])

    def apply(self, records):
        if self.verb == "add":
            return model.add(records, self.mask, self.new)
        if self.verb == "change":
            return model.change(records, self.mask, self.key, self.new)
        return model.delete(records, self.mask, self.key)


class Line:
    """One registry with the builds that take turns on it."""

    def __init__(self, name, programs):
        self.name = name
        folder = TOP / name
        folder.mkdir(parents=True)
        self.registry = folder / "reg"
        self.drivers = [driving.Driver(program, self.registry) for program in programs]

    def update(self, turn, words):
        return self.drivers[turn % len(self.drivers)].run(*words).status

    def contents(self):
        return self.registry.read_bytes() if self.registry.exists() else b""


def of_a_later_revision(records):
    """The file of these records, each with a field that both builds must carry along."""
    for number, record in enumerate(records):
        record.entries[20 + number % 43] = bytes(range(number % 200))
        record.checksum = 0xFFFFFFFF - number
    return model.frames(records)


def compare_files(check, programs, chance, count):
    """The same updates by each build and by both in turn, held against the model one by one."""
    lines = [Line(word_size(program), [program]) for program in programs]
    lines.append(Line("both", programs))
    records = []
    for _ in range(6):
        _, records = model.add(records, 0x7, random_record(chance, "instance"))
    first = of_a_later_revision(records)
    for line in lines:
        line.registry.write_bytes(first)
    statuses = files = done = 0
    for turn in range(count):
        update = RandomUpdate(chance)
        status, records = update.apply(records)
        done += status == model.OK
        for line in lines:
            statuses += line.update(turn, update.words()) == status
            files += line.contents() == model.frames(records)
    print(f"{count} random updates, {done} of them successful:")
    check.figure("statuses as the model's", statuses, count * len(lines))
    check.figure("files as the model's, byte for byte", files, count * len(lines))
    compare_readers(check, lines, programs, records)


def compare_readers(check, lines, programs, records):
    wanted = (model.OK, [record.line() for record in records])
    good = 0
    for line in lines:
        for program in programs:
            good += driving.Driver(program, line.registry).listed() == wanted
    check.figure("lists as the model's, by each build of each file", good, len(lines) * len(programs))


def keeps_out(holder_driver, other_driver, kind, other_kind):
    """Whether a lock of one build refuses one of the other, until it is given back."""
    holder = holder_driver.start("hold", kind)
    if holder.stdout.readline() != "status 0x00000000\n":
        return False
    refused = other_driver.run("trylock", other_kind).status == LOCKED_ELSEWHERE
    writer = other_driver.start("loop", 0, 1)
    waits = contention.wait_until_waiting(writer)
    released = contention.finish(holder)[0] == 0
    written = contention.finish(writer)[0] == 0
    again = other_driver.run("trylock", other_kind).status == model.OK
    return refused and waits and released and written and again


def compare_locks(check, programs):
    """Exclusive locks keep out everybody, shared ones only writers."""
    good = every = 0
    for holder, other in (programs, programs[::-1]):
        for kind, other_kind in (
            ("exclusive", "exclusive"),
            ("exclusive", "shared"),
            ("shared", "exclusive"),
        ):
            line = Line(f"lock-{word_size(holder)}-{kind}-{other_kind}", [holder, other])
            good += keeps_out(*line.drivers, kind, other_kind)
            every += 1
    print("locks of one build, asked for by the other:")
    check.figure("kept out, then let in", good, every)
    line = Line("shared", programs)
    holder = line.drivers[0].start("hold", "shared")
    holder.stdout.readline()
    shared = line.drivers[1].run("trylock", "shared").status == model.OK
    contention.finish(holder)
    check.fact("shared locks stand side by side", shared)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--driver", type=pathlib.Path, required=True)
    parser.add_argument("--other-driver", type=pathlib.Path, required=True)
    parser.add_argument("--updates", type=int, default=150)
    parser.add_argument("--seed", type=int, default=random.randrange(1 << 32))
    options = parser.parse_args()
    programs = [options.driver.resolve(), options.other_driver.resolve()]
    for program in programs:
        if not program.exists():
            driving.skip(f"{program} is not built")
    if len({word_size(program) for program in programs}) != 2:
        sys.exit("both drivers are of one word size")
    if not driving.have_private_host():
        driving.skip("this system allows no private mounts")
    driving.go_private()
    print(f"seed {options.seed}")
    check = contention.Check()
    TOP.mkdir()
    compare_files(check, programs, random.Random(options.seed), options.updates)
    compare_locks(check, programs)
    drivers = [driving.Driver(program, contention.REGISTRY) for program in programs]
    contention.contend_processes(check, drivers, 4, 25)
    return 1 if check.findings else 0


if __name__ == "__main__":
    sys.exit(main())
