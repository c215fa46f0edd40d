#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Kills updates of registries of each format, and lets their system calls fail, at every point; then looks.

After a death at any system call the registry holds exactly the old or the new contents, what stands
beside it is what the update protocol says, nobody holds a lock, a reader reads and the next update
succeeds. After a failing call the status tells the truth besides, and no descriptor and no memory block
is left. The contents are judged by a model that shares nothing with the library.

Figures are printed as N/N. Exit status 77: this machine refuses tracing or private mounts.
"""
import json
import pathlib
import re
import stat
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "support"))

import faults
import protocol
import registry_driver as driving
import registry_model as model
import subjects
import workers
from stage import MODE, TOP, Stage, belongings

NOT_OPENED, NO_LOCK, NOT_UNLOCKED = 0x900001BF, 0x900001BC, 0x900001BD
SHOWN_FINDINGS = 25
ALL_LEFTOVERS = ("tmp", "cor", "bkp")
KILL, FAIL, LASTING, RETRY = "killed", "failing once", "failing from then on", "retried by the object"


def short_work(subject):
    """(scene, kinds of trial) pairs: over a thousand deaths in less than a minute."""
    if subject.name != "global":
        return [(protocol.Scene(subject, verb, 5), (KILL, FAIL)) for verb in subjects.VERBS]
    work = []
    for verb in subjects.VERBS:
        kinds = (KILL, FAIL, RETRY) if verb == "change" else (KILL, FAIL)
        work.append((protocol.Scene(subject, verb, 5), kinds))
        work.append((protocol.Scene(subject, verb, 5, ALL_LEFTOVERS), (KILL,)))
    folder = protocol.Scene(subject, "add", protocol.ABSENT, place=protocol.NO_FOLDER)
    return [*work, (folder, (KILL, FAIL))]


def full_work(subject):
    many = (100,) if subject.name == "global" else ()
    every = (KILL, FAIL, LASTING, RETRY)
    work = []
    for verb in subjects.VERBS:
        for size in (*((protocol.ABSENT, 0) if verb == "add" else ()), 1, 5, *many):
            for leftovers in ((), ("tmp",), ("cor",), ("bkp",), ALL_LEFTOVERS):
                work.append((protocol.Scene(subject, verb, size, leftovers), every))
        work.append((protocol.Scene(subject, verb, 5, place=protocol.LINKED), every))
    folder = protocol.Scene(subject, "add", protocol.ABSENT, place=protocol.NO_FOLDER)
    return [*work, (folder, every)]


def judge_lock(stage):
    paths = (TOP / stage.scene.lock, stage.registry)
    return [f"{path.name} is locked" for path in paths if driving.is_locked(path)]


def judge_mode(stage):
    if not stage.scene.exists:
        return []
    mode = stat.S_IMODE(stage.registry.stat().st_mode)
    return [] if mode == MODE else [f"the registry has mode {mode:o}"]


def judge_reader(stage, records):
    status, lines = stage.driver.listed()
    if not stage.registry.parent.is_dir():
        return [] if status == NOT_OPENED else [f"a reader of no folder: {status}"]
    if status != model.OK:
        return [f"a reader is refused: 0x{status:08X}"]
    wanted = stage.scene.subject.listed(records)
    return [] if lines == wanted else [f"a reader reads {lines}"]


def judge_next_update(stage, records):
    """A further update succeeds; what stood there as a copy is set aside, all else is clean."""
    scene, files = stage.scene, driving.tree(TOP)
    outcome = stage.driver.run(*scene.next_update.words)
    if outcome.status != model.OK:
        return [f"the next update: {outcome.status}"]
    wanted = {name: contents for name, contents in scene.start().items() if not is_bytes(contents)}
    if scene.place == protocol.NO_FOLDER:
        wanted.update({"a": None, "a/b": None})
    wanted[scene.registry] = scene.subject.contents(scene.next_update.apply(records))
    wanted[scene.lock] = b""
    if scene.temporary in files:
        wanted[scene.corrupt] = files[scene.temporary]
    if scene.stray_lock in files:
        wanted[scene.stray_lock] = b""
    wrong = protocol.differences(wanted, driving.tree(TOP), b"")
    return [f"after the next update: {finding}" for finding in wrong]


def is_bytes(contents):
    return isinstance(contents, bytes)


def judge_aftermath(stage):
    """What holds after every trial; the records that stand, or None when the registry is neither."""
    scene, contents = stage.scene, stage.contents()
    wrong = judge_lock(stage) + (judge_mode(stage) if contents else [])
    if contents not in (scene.old, scene.new):
        return [*wrong, f"the registry is neither old nor new: {contents!r:.300}"]
    records = scene.before if contents == scene.old else scene.after
    return wrong + judge_reader(stage, records) + judge_next_update(stage, records)


def judge_log(stage, count):
    """The change log has `count` whole lines, where the format keeps one."""
    count = count if stage.scene.subject.logs_changes else 0
    data = driving.CHANGE_LOG.read_bytes() if driving.CHANGE_LOG.exists() else b""
    try:
        lines = len(model.log_actions(data))
    except model.Damaged as damage:
        return [str(damage)]
    return [] if lines == count else [f"the change log has {lines} lines, not {count}"]


def log_write(calls):
    """The index of the call that writes the change log; one behind all calls without a log."""
    ours = ("write", [str(driving.CHANGE_LOG)])
    return next((call.index for call in calls if (call.name, call.paths) == ours), len(calls) + 1)


def judge_point(calls, fault):
    """The fault struck the call that it was meant for."""
    struck = next((call for call in calls if call.index == fault.call.index), None)
    same = struck and (struck.name, struck.paths) == (fault.call.name, fault.call.paths)
    return [] if same else [f"struck {struck}"]


def judge_death(stage, fault, baseline):
    """After a death: exactly the steps up to it have been made."""
    _, calls, end = stage.run(fault.options())
    if end != "signal 9" or judge_point(calls, fault):
        return [f"was not killed: {end}", *judge_point(calls, fault)]
    last = fault.call.index if fault.action == "kill-after" else fault.call.index - 1
    steps = [index for index, _ in protocol.steps_made(baseline, stage.scene, TOP) if index <= last]
    expected = stage.scene.files_after(len(steps))
    wrong = protocol.differences(expected, driving.tree(TOP), stage.scene.new)
    wrong += judge_log(stage, 1 if last >= log_write(baseline) else 0)
    return wrong + judge_aftermath(stage)


def judge_company(stage):
    """Nothing but the registry's own five stands there."""
    scene = stage.scene
    own = {scene.registry, scene.temporary, scene.corrupt, scene.lock, scene.backup}
    own |= {name for name, contents in scene.start().items() if not is_bytes(contents)}
    own.add(scene.stray_lock)
    if scene.place == protocol.NO_FOLDER:
        own |= {"a", "a/b"}
    files = driving.tree(TOP)
    wrong = [f"{name} should not be there" for name in files if name not in own]
    if files.get(scene.backup, scene.old) not in (scene.old, protocol.STALE_BACKUP):
        wrong.append("the backup holds neither the old contents nor what it held")
    return wrong


def judge_clean_success(stage, fault):
    """A success leaves what the undisturbed update leaves."""
    scene = stage.scene
    expected = scene.files_after(len(scene.steps()))
    found = driving.tree(TOP)
    if fault.call.paths[-1:] == [str(TOP / scene.corrupt)]:
        found.pop(scene.corrupt, None)  # one that cannot be seen is left alone
        expected.pop(scene.corrupt, None)
    return protocol.differences(expected, found, scene.new)


def judge_left(outcome):
    return [] if outcome.left == (0, 0) else [f"left descriptors, memory blocks: {outcome.left}"]


def judge_failure(stage, fault, _):
    """After a failing call: the status tells the truth, nothing is held, the next update succeeds."""
    outcome, calls, end = stage.run(fault.options())
    if not end.startswith("exit") or judge_point(calls, fault):
        return [f"ended by {end}", *judge_point(calls, fault)]
    holds_new = stage.contents() == stage.scene.new
    wrong = faults.judge_status(stage.scene.verb, outcome.status, outcome.logged, holds_new)
    wrong += faults.judge_unwritten(fault, TOP / stage.scene.temporary, outcome.status)
    wrong += judge_left(outcome) + judge_company(stage)
    if outcome.status == model.OK:
        wrong += judge_clean_success(stage, fault)
        if faults.must_fail(fault, stage.registry.parent):
            wrong.append("success without what the update depends on")
    return wrong + judge_aftermath(stage)


def judge_retry(stage, fault, _):
    """After a failing call, the same object makes the next update at once."""
    outcome, calls, end = stage.run(fault.options(), stage.more())
    if not end.startswith("exit") or len(outcome.statuses) != 2 or judge_point(calls, fault):
        return [f"ended by {end}", *judge_point(calls, fault)]
    wrong = judge_left(outcome) + judge_lock(stage)
    if outcome.statuses[0] == NOT_UNLOCKED and outcome.statuses[1] == NO_LOCK:
        return wrong  # an object that could not give its lock back keeps it, and takes no other
    if outcome.statuses[1] != model.OK:
        return [*wrong, f"the object's next update: 0x{outcome.statuses[1]:08X}"]
    scene = stage.scene
    ends = [scene.next_update.apply(records) for records in (scene.before, scene.after)]
    wanted = [scene.subject.contents(records) for records in ends]
    return wrong + ([] if stage.contents() in wanted else ["the registry is neither"])


def faults_of(kind, stage, calls):
    if kind == KILL:
        return faults.kills(calls)
    if kind == RETRY:  # the longer command line moves the heap, and with it the calls for memory
        stage.set_up()
        calls = stage.run(more=stage.more())[1]
    return faults.failures(calls, kind == LASTING)


JUDGES = {KILL: judge_death, FAIL: judge_failure, LASTING: judge_failure, RETRY: judge_retry}


def judge_baseline(stage):
    """The undisturbed update makes the steps that it should, in their order: (findings, calls)."""
    stage.set_up()
    outcome, calls, end = stage.run()
    scene = stage.scene
    if end != "exit 0" or outcome.status != model.OK:
        return [f"undisturbed: {end}, status {outcome.status}"], []
    wrong = []
    made = [step for _, step in protocol.steps_made(calls, scene, TOP)]
    if made != scene.steps():
        wrong.append(f"made the steps {made}\ninstead of {scene.steps()}")
    wrong += protocol.differences(scene.files_after(len(scene.steps())), driving.tree(TOP), b"")
    wrong += judge_left(outcome) + judge_log(stage, 1) + judge_given_away(stage)
    return wrong + judge_aftermath(stage), calls


def judge_given_away(stage):
    """The new registry has the owner and the attribute of the old one."""
    if not stage.scene.exists:
        return []
    found = belongings(stage.registry)
    return [] if found == stage.belongings else [f"the registry belongs to {found}"]


def try_scene(scene, kinds, options):
    """The figures and findings of one scene."""
    stage = Stage(scene, options.driver, options.injector)
    findings, calls = judge_baseline(stage)
    figures = {"undisturbed": [1 if not findings else 0, 1]}
    findings = [f"{scene.name}: undisturbed: {finding}" for finding in findings]
    for kind in kinds if calls else ():
        good, every = 0, faults_of(kind, stage, calls)
        for fault in every:
            wrong = try_one(stage, kind, fault, calls)
            good += not wrong
            findings += [f"{scene.name}: {kind}: {fault}: {finding}" for finding in wrong]
        figures[kind] = [good, len(every)]
    figures = {f"{scene.subject.name}, {kind}": figure for kind, figure in figures.items()}
    return {"scene": scene.name, "figures": figures, "findings": findings}


def try_one(stage, kind, fault, calls):
    stage.set_up()
    try:
        return JUDGES[kind](stage, fault, calls)
    except subprocess.TimeoutExpired:
        return ["hangs"]


def work_of(options):
    return workers.work_of(options, full_work if options.full else short_work)


def run_worker(options):
    """Inside a private host: every Nth scene; one line of JSON for each."""
    first, step = options.worker
    for scene, kinds in work_of(options)[first::step]:
        print(json.dumps(try_scene(scene, kinds, options)), flush=True)
    return 0


def show_findings(findings):
    """Each kind of finding once, with its first example: what differs by scene alone is one kind."""
    kinds = {}
    for finding in findings:
        what = re.sub(r"at call \d+", "at", finding.split(": ", 1)[1])
        kinds.setdefault(what, []).append(finding)
    for examples in list(kinds.values())[:SHOWN_FINDINGS]:
        print(f"{len(examples)} times: {examples[0]}")
    if len(kinds) > SHOWN_FINDINGS:
        print(f"and {len(kinds) - SHOWN_FINDINGS} kinds of findings more")


def report(results, seconds):
    """Prints the figures; 0 when every trial was good and none is missing."""
    sums, findings = {}, [finding for result in results for finding in result["findings"]]
    for result in results:
        for kind, (good, every) in result["figures"].items():
            before = sums.setdefault(kind, [0, 0])
            sums[kind] = [before[0] + good, before[1] + every]
    show_findings(findings)
    print(f"{len(results)} scenes")
    for kind, (good, every) in sums.items():
        print(f"{kind:36}{good}/{every}")
    print(f"in {seconds:.0f} s")
    return 0 if results and all(good == every for good, every in sums.values()) else 1


def main():
    parser = workers.parser(__doc__.splitlines()[0])
    options = parser.parse_args()
    options.driver, options.injector = workers.programs(options)
    if options.worker:
        return run_worker(options)
    if not driving.have_private_host():
        driving.skip("this system allows no private mounts")
    started = time.monotonic()
    results = workers.collect(__file__, options)
    return 1 if results is None else report(results, time.monotonic() - started)


if __name__ == "__main__":
    sys.exit(main())
