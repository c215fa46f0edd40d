#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Many writers of one registry at once: nothing lost, nothing doubled, nothing torn.

Each writer adds, changes and removes records of its own; readers list the registry all the while and
judge every list; some writers are killed in the middle. What a writer of the global registry does, and
what a list may show, is in workload.h; what must stand at the end is computed here by a model that shares
nothing with it. The scenes that treat all formats alike are a program's own (contention_check.cpp); here
stand their sizes. Figures are printed as N/N. Exit status 77: this machine refuses private mounts.
"""
import argparse
import os
import pathlib
import random
import re
import select
import shutil
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))

import registry_driver as driving
import registry_model as model

FOLDER = pathlib.Path("/tmp/contention")
REGISTRY = FOLDER / "reg"
KEPT_EVERY = 4
VERSION = 0x0003000100000007
LONGEST_UPDATE = 12000  # microseconds, the 99th percentile of contended updates
LONGEST_WAIT = 10000  # microseconds from a holder's death to the lock
SLOWEST_WAKING = 5.0  # seconds; a waiter that takes longer was not woken by its holder's death

# A finding of the thread sanitizer's ends its program with another status than a wrong figure does.
SANITIZED = {**os.environ, "TSAN_OPTIONS": "halt_on_error=0 exitcode=66"}


def updates_of(count):
    """How many updates one writer of `count` records makes."""
    return 2 * count + sum(1 for number in range(count) if number % KEPT_EVERY)


def expected_record(writer, number, form):
    name = f"w{writer}-{number}"
    sign = f"{name}/form{form}"
    return model.make(
        "instance",
        Service="CopyOne",
        VersionCode=VERSION,
        InstanceName=name,
        InstancePath=f"/home/{sign}",
        Usage=sign,
        StartAtBoot=form,
        Comment=sign + "." * ((number * 7 + form * 31) % 100),
    )


def after(writer, count, updates):
    """A writer's records after that many of its updates, in the order of its additions."""
    added = min(updates, count)
    changed = min(max(updates - count, 0), count)
    removals = [number for number in range(count) if number % KEPT_EVERY]
    removed = set(removals[: max(updates - 2 * count, 0)])
    numbers = [number for number in range(added) if number not in removed]
    return [expected_record(writer, number, 1 if number < changed else 0) for number in numbers]


def identity(record):
    return (record.kind, tuple(sorted(record.entries.items())))


def records_by_writer(records):
    """The records' contents in file order, by writer."""
    found = {}
    for record in records:
        writer = int(re.match(rb"w(\d+)-", record.value(2)).group(1))
        found.setdefault(writer, []).append(identity(record))
    return found


class Check:
    """Counts what was looked at and what was good, and prints it as N/N."""

    def __init__(self):
        self.findings = 0

    def figure(self, what, good, every):
        print(f"  {what:56}{good}/{every}", flush=True)
        self.findings += good != every

    def fact(self, what, holds, detail=""):
        self.figure(what, 1 if holds else 0, 1)
        if not holds and detail:
            print(f"    {detail}")


def clean_start():
    subprocess.run(["rm", "-rf", str(FOLDER)], check=True)
    FOLDER.mkdir()
    driving.CHANGE_LOG.unlink(missing_ok=True)


def finish(process):
    """The exit status and the output of a process whose input ends now."""
    output, _ = process.communicate(timeout=driving.PATIENCE * 10)
    return process.returncode, output


def judge_files(check, companions):
    names = sorted(path.name for path in FOLDER.iterdir())
    surplus = set(names) - {"reg", ".reg.lock"} - companions
    check.fact("no leftovers beside the registry", not surplus, names)
    check.fact("nobody holds the lock", not driving.is_locked(FOLDER / ".reg.lock"))


def judge_contents(check, expected):
    """`expected`: writer to the lists of records that are right for it."""
    found = records_by_writer(model.parse(REGISTRY.read_bytes()))
    good = 0
    for writer, choices in expected.items():
        right = [[identity(record) for record in records] for records in choices]
        good += found.pop(writer, []) in right
    check.figure("writers whose records stand, each once, in order", good, len(expected))
    check.fact("no records of others", not found)


def judge_log(check, updates, possible):
    actions = model.log_actions(driving.CHANGE_LOG.read_bytes())
    good = updates <= len(actions) <= possible
    check.fact(f"whole lines in the change log ({len(actions)} for {updates} updates)", good)


def tally_of(output):
    updates, failures, first = re.search(
        r"updates (\d+) failures (\d+) first (0x\w+)", output
    ).groups()
    return int(updates), int(failures), first


def judge_watchers(check, watchers):
    good = scans = changes = 0
    for watcher in watchers:
        status, output = finish(watcher)
        match = re.search(r"scans (\d+) changes (\d+)", output)
        if status == 0 and match:
            good, scans, changes = good + 1, scans + int(match[1]), changes + int(match[2])
    check.figure(f"readers content ({scans} lists, {changes} of them new)", good, len(watchers))
    check.fact("the readers saw the registry change", changes > 0)


def judge_tallies(check, outputs):
    tallies = [tally_of(output) for output in outputs]
    updates = sum(tally[0] for tally in tallies)
    failures = sum(tally[1] for tally in tallies)
    check.figure("updates with status 0", updates - failures, updates)
    if failures:
        print(f"    the first: {next(tally[2] for tally in tallies if tally[1])}")
    return updates


def contend_processes(check, drivers, writers, count):
    """`writers` processes of `count` records each, and two readers."""
    clean_start()
    started = time.monotonic()
    watchers = [driver.start("watch", writers, count) for driver in (drivers * 2)[:2]]
    loops = [
        drivers[writer % len(drivers)].start("loop", writer, count) for writer in range(writers)
    ]
    outputs = [finish(loop)[1] for loop in loops]
    seconds = time.monotonic() - started
    print(f"{writers} processes x {count} records, {seconds:.1f} s:")
    updates = judge_tallies(check, outputs)
    check.figure("updates made", updates, writers * updates_of(count))
    judge_watchers(check, watchers)
    judge_contents(
        check, {writer: [after(writer, count, updates_of(count))] for writer in range(writers)}
    )
    judge_files(check, set())
    judge_log(check, updates, updates)


def contend_threads(check, driver, threads, count):
    """The same by threads of one process, each with an object of its own."""
    clean_start()
    started = time.monotonic()
    watcher = driver.start("watch", threads, count)
    output = finish(driver.start("threads", threads, count))[1]
    print(f"{threads} threads x {count} records, {time.monotonic() - started:.1f} s:")
    updates = judge_tallies(check, [output])
    check.figure("updates made", updates, threads * updates_of(count))
    judge_watchers(check, [watcher])
    everyone = {writer: [after(writer, count, updates_of(count))] for writer in range(threads)}
    judge_contents(check, everyone)
    judge_files(check, set())
    judge_log(check, updates, updates)


def read_acknowledged(process, limit):
    """Reads acknowledgements up to `limit`; the last number read."""
    last = 0
    while last < limit:
        line = process.stdout.readline()
        if not line.strip().isdigit():
            break
        last = int(line)
    return last


def kill_victims(driver, victims, count, chance):
    """Starts writers one after the other and kills each in the middle: what each was told was done."""
    told = {}
    for writer in victims:
        victim = driver.start("loop", writer, count, "acknowledge")
        last = read_acknowledged(victim, chance.randrange(1, updates_of(count)))
        victim.kill()
        rest = victim.stdout.read()
        victim.wait()
        victim.stdout.close()
        victim.stdin.close()
        numbers = [int(line) for line in rest.splitlines() if line.isdigit()]
        told[writer] = max([last, *numbers])
    return told


def contend_with_deaths(check, driver, writers, victims, count, chance):
    """Writers that live beside writers that are killed: what was acknowledged stands."""
    clean_start()
    started = time.monotonic()
    everybody = writers + victims
    watchers = [driver.start("watch", everybody, count) for _ in range(2)]
    loops = [driver.start("loop", writer, count) for writer in range(writers)]
    told = kill_victims(driver, range(writers, everybody), count, chance)
    outputs = [finish(loop)[1] for loop in loops]
    seconds = time.monotonic() - started
    print(f"{writers} processes beside {victims} that are killed, after {sum(told.values())} updates")
    print(f"that these were told of, {seconds:.1f} s:")
    updates = judge_tallies(check, outputs)
    judge_watchers(check, watchers)
    expected = {writer: [after(writer, count, updates_of(count))] for writer in range(writers)}
    for writer, done in told.items():  # the update in which it died may have been made
        expected[writer] = [after(writer, count, done), after(writer, count, done + 1)]
    judge_contents(check, expected)
    judge_files(check, {"reg.tmp", "reg.cor", ".reg.bkp"})
    judge_log(check, updates + sum(told.values()), updates + sum(told.values()) + victims)


def is_waiting(process):
    """Whether the process waits for a lock, by the system's own list of them."""
    waiting = re.compile(rf"^\d+: -> \S+ +\S+ +\S+ (?:{process.pid}|-1) ", re.M)
    return bool(waiting.search(pathlib.Path("/proc/locks").read_text()))


def wait_until_waiting(process):
    """Looks until the process waits. False when it ends or does not come to wait."""
    give_up = time.monotonic() + driving.PATIENCE
    while time.monotonic() < give_up and process.poll() is None:
        if is_waiting(process):
            return True
    return False


def judge_death_of_holder(check, driver, rounds):
    """A writer that waits for the lock has it when the holder is killed."""
    clean_start()
    good, slowest = 0, 0.0
    for writer in range(rounds):
        holder = driver.start("hold", "exclusive")
        held = holder.stdout.readline() == "status 0x00000000\n"
        waiter = driver.start("loop", writer, 1)
        waited = wait_until_waiting(waiter)
        tried = driver.run("trylock", "exclusive").status == 0x900001C4
        started = time.monotonic()
        holder.kill()
        select.select([waiter.stdout], [], [], driving.PATIENCE)
        taken = time.monotonic() - started
        status, _ = finish(waiter)
        finish(holder)
        slowest = max(slowest, taken)
        good += held and waited and tried and status == 0 and taken < SLOWEST_WAKING
    print("a holder killed while a writer waits:")
    check.figure(f"waiters that had the lock of a dead holder ({1000 * slowest:.1f} ms)", good, rounds)


def contend_for_global(check, options):
    """The driver's loops on the global registry, whose change log is judged, too."""
    writers, count, threads, victims = (16, 200, 8, 24) if options.full else (8, 50, 8, 8)
    programs = [options.driver] + ([options.other_driver] if options.other_driver else [])
    drivers = [driving.Driver(program.resolve(), REGISTRY) for program in programs]
    contend_processes(check, drivers, writers, count)
    contend_threads(check, drivers[0], threads, count)
    contend_with_deaths(
        check, drivers[0], writers // 2, victims, count, random.Random(options.seed)
    )
    judge_death_of_holder(check, drivers[0], 20 if options.full else 5)


# Scenes of contention_check and their sizes.
SHORT_SCENES = (
    "processes --writers 8 --updates 25 --pace 20",
    "threads --writers 8 --updates 15 --readers 2",
    "fairness --writers 8 --updates 25",
    "deaths --deaths 10",
    "broken --updates 10",
)
FULL_SCENES = (
    "processes --writers 16 --updates 1000 --readers 4 --pace 50",
    "processes --writers 16 --updates 1000 --readers 0 --pace 50",
    "processes --writers 16 --updates 50 --readers 4 --pace 50 --sync standard",
    "threads --writers 8 --updates 1000 --readers 4",
    f"fairness --writers 8 --updates 1000 --limit {LONGEST_UPDATE}",
    f"deaths --deaths 200 --limit {LONGEST_WAIT}",
    "broken --updates 50",
)


def play_scene(check, program, scene, seed, disk):
    """Runs one scene, which prints its own figures. Syncing is worth the name on `disk` only."""
    words = scene.split()
    if "standard" in words:
        words += ["--folder", str(disk)]
    status = subprocess.run(
        [program, words[0], "--seed", str(seed), *words[1:]], env=SANITIZED, check=False
    ).returncode
    check.fact(f"scene of {words[0]}", status == 0, scene)


def play_scenes(check, options):
    """All scenes; those of threads by the thread sanitizer's build, where there is one."""
    disk = pathlib.Path(tempfile.mkdtemp(prefix="contention.", dir=options.program.parent))
    try:
        for scene in FULL_SCENES if options.full else SHORT_SCENES:
            program = options.program
            if scene.startswith("threads") and options.threads_program.exists():
                program = options.threads_program
            play_scene(check, program, scene, options.seed, disk)
    finally:
        shutil.rmtree(disk)


def read_options():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--driver", type=pathlib.Path, required=True)
    parser.add_argument("--other-driver", type=pathlib.Path, help="writes along, turn by turn")
    parser.add_argument("--full", action="store_true")
    parser.add_argument("--seed", type=int, default=random.randrange(1 << 32))
    parser.add_argument("--program", type=pathlib.Path, help="contention_check; beside the driver")
    parser.add_argument("--threads-program", type=pathlib.Path, help="its thread sanitizer's build")
    parser.add_argument("--scenes-only", action="store_true", help="leave out what the driver does")
    options = parser.parse_args()
    beside = options.driver.resolve().parents[1] / "concurrency"
    options.program = (options.program or beside / "contention_check").resolve()
    options.threads_program = (options.threads_program or beside / "contention_threads").resolve()
    return options


def main():
    options = read_options()
    if not driving.have_private_host():
        driving.skip("this system allows no private mounts")
    driving.go_private()
    print(f"seed {options.seed}", flush=True)
    check = Check()
    if not options.scenes_only:
        contend_for_global(check, options)
    if not options.other_driver:
        play_scenes(check, options)
    return 1 if check.findings else 0


if __name__ == "__main__":
    sys.exit(main())
