# SPDX-License-Identifier: Apache-2.0
"""What must hold after an update that was killed, or failed by the system: lists of what is wrong.

The contents are held against a model that shares nothing with the library. Not here: which faults there
are and what a status may tell (faults.py), what a death may leave (protocol.py).
"""
import stat

import faults
import protocol
import registry_driver as driving
import registry_model as model
from stage import TOP, belongings

NOT_OPENED, NO_LOCK, NOT_UNLOCKED = 0x900001BF, 0x900001BC, 0x900001BD


def judge_lock(stage):
    paths = (TOP / stage.scene.lock, stage.registry)
    return [f"{path.name} is locked" for path in paths if driving.is_locked(path)]


def judge_mode(stage):
    if not stage.scene.exists:
        return []
    mode = stat.S_IMODE(stage.registry.stat().st_mode)
    return [] if mode == stage.mode else [f"the registry has mode {mode:o}"]


def judge_reader(stage, records, files, outcome):
    status, scene = outcome.statuses[0], stage.scene
    if scene.folder and scene.folder.rstrip("/") not in files:
        return [] if status == NOT_OPENED else [f"a reader of no folder: 0x{status:08X}"]
    if status != model.OK:
        return [f"a reader is refused: 0x{status:08X}"]
    return [] if outcome.lines == scene.subject.listed(records) else [f"a reader reads {outcome.lines}"]


def judge_next_update(stage, records, files, outcome):
    """A further update succeeds; what stood in `files` as a copy is set aside, all else is clean."""
    scene, status = stage.scene, outcome.statuses[1]
    if status != model.OK:
        return [f"the next update: 0x{status:08X}"]
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
    files = driving.tree(TOP)
    outcome = stage.rounds.ask()
    wrong += judge_reader(stage, records, files, outcome)
    return wrong + judge_next_update(stage, records, files, outcome)


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


def judge_death(stage, fault, baseline):
    """After a death: exactly the steps up to it have been made."""
    _, end, missed = fault.strike(stage)
    if end != "signal 9" or missed:
        return [f"was not killed: {end}", *missed]
    last = fault.call.index if fault.action == "kill-after" else fault.call.index - 1
    steps = [index for index, _ in protocol.steps_made(baseline, stage.scene, TOP) if index <= last]
    expected = stage.scene.files_after(len(steps))
    wrong = protocol.differences(expected, driving.tree(TOP), stage.scene.copy)
    wrong += judge_log(stage, 1 if last >= log_write(baseline) else 0)
    return wrong + judge_aftermath(stage)


def judge_company(stage):
    """Nothing but the registry's own five stands there."""
    scene = stage.scene
    own = {scene.registry, scene.temporary, scene.corrupt, scene.lock, scene.backup}
    own |= {name for name, contents in scene.start().items() if not is_bytes(contents)}
    own.add(scene.stray_lock)
    if scene.makes_folder:
        own |= {"a", "a/b"}
    files = driving.tree(TOP)
    wrong = [f"{name} should not be there" for name in files if name not in own]
    if files.get(scene.backup, scene.old) not in (scene.old, scene.start().get(scene.backup)):
        wrong.append("the backup holds neither the old contents nor what it held")
    return wrong


def judge_clean_end(stage, fault):
    """What has ended as the undisturbed update does leaves what that leaves."""
    scene = stage.scene
    expected = scene.files_after(len(scene.steps()))
    found = driving.tree(TOP)
    # A corrupt copy that cannot be seen is left alone; who has nothing to change says that first.
    for name in (scene.corrupt, *([scene.temporary] if scene.refused else [])):
        if fault.call.paths[-1:] == [str(TOP / name)]:
            found.pop(name, None)
            expected.pop(name, None)
    return protocol.differences(expected, found, scene.copy)


def judge_left(outcome):
    return [] if outcome.left == (0, 0) else [f"left descriptors, memory blocks: {outcome.left}"]


def judge_failure(stage, fault, _):
    """After a failing call: the status tells the truth, nothing is held, the next update succeeds."""
    outcome, end, missed = fault.strike(stage)
    if end == faults.ENDLESS:
        return ["asks for ever"]
    if not end.startswith("exit") or missed:
        return [f"ended by {end}", *missed]
    scene = stage.scene
    wrong = faults.judge_status(scene, fault, outcome, stage.contents() == scene.new)
    wrong += judge_left(outcome) + fault.judge_kept(outcome) + judge_company(stage)
    if outcome.status == scene.status:
        wrong += judge_clean_end(stage, fault) + ([] if outcome.logged else judge_besides(stage))
    if not scene.refused:  # whose copy is thrown away, written or not
        wrong += faults.judge_unwritten(fault, TOP / scene.temporary, outcome.status)
        if outcome.status == model.OK and faults.must_fail(fault, stage.registry.parent):
            wrong.append("success without what the update depends on")
    return wrong + judge_aftermath(stage)


def judge_retry(stage, fault, _):
    """After a failing call, the same object makes the next update at once."""
    outcome, end, missed = fault.strike(stage, stage.more())
    if not end.startswith("exit") or len(outcome.statuses) != 2 or missed:
        return [f"ended by {end}", *missed]
    wrong = judge_left(outcome) + fault.judge_kept(outcome) + judge_lock(stage)
    unlocked = NOT_UNLOCKED not in outcome.logged
    if not unlocked and outcome.statuses[1] == NO_LOCK:
        return wrong  # an object that could not give its lock back keeps it, and takes no other
    if outcome.statuses[1] != model.OK:
        return [*wrong, f"the object's next update: 0x{outcome.statuses[1]:08X}"]
    scene = stage.scene
    ends = [scene.next_update.apply(records) for records in (scene.before, scene.after)]
    wanted = [scene.subject.contents(records) for records in ends]
    if stage.contents() not in wanted:
        return [*wrong, "the registry is neither"]
    return wrong + faults.judge_status(scene, fault, outcome, stage.contents() == wanted[1])


def judge_baseline(stage):
    """The undisturbed update makes the steps that it should, in their order: (findings, calls)."""
    stage.set_up()
    outcome, calls, end = stage.run()
    scene = stage.scene
    if not end.startswith("exit") or outcome.status != scene.status:
        return [f"undisturbed: {end}, status {outcome.status}"], []
    wrong = []
    made = [step for _, step in protocol.steps_made(calls, scene, TOP)]
    if made != scene.steps():
        wrong.append(f"made the steps {made}\ninstead of {scene.steps()}")
    wrong += protocol.differences(scene.files_after(len(scene.steps())), driving.tree(TOP), scene.copy)
    wrong += judge_left(outcome) + judge_besides(stage)
    return wrong + judge_aftermath(stage), calls


def judge_besides(stage):
    """What an update sees to as far as it can, and writes a log entry where it could not."""
    return judge_log(stage, 0 if stage.scene.refused else 1) + judge_given_away(stage)


def judge_given_away(stage):
    """The new registry has the owner and the attribute of the old one."""
    if not stage.scene.exists:
        return []
    found = belongings(stage.registry)
    return [] if found == stage.belongings else [f"the registry belongs to {found}"]
