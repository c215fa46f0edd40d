# SPDX-License-Identifier: Apache-2.0
"""Which updates are killed and failed, and how: the scenes of the matrix, each with its kinds of trial.

Not here: what an update does in a scene (protocol.py), what is right after a trial (judges.py).
"""
import faults
import protocol
import subjects
from protocol import ABSENT, IN_VAIN, LINKED, NO_FOLDER, Scene
from stage import TOP

KILL = "killed"
KILL_STEPS, FAIL_STEPS = "killed at a step", "failing once at a step"
FAIL, LASTING, RETRY = "failing once", "failing from then on", "retried by the object"
ANY, ANY_LASTING = "with any error once", "with any error from then on"
DROUGHT, DROUGHT_LASTING = "allocation failing once", "allocation failing from then on"
DROUGHT_RETRY = "allocation retried by the object"

ALL_LEFTOVERS = ("tmp", "cor", "bkp")
LEFTOVERS = ((), ("tmp",), ("cor",), ("bkp",), ALL_LEFTOVERS)
SIZES = (ABSENT, 0, 1, 100)
FEW = 5  # records: all kinds of lines and records

DROUGHTS = (DROUGHT, DROUGHT_LASTING, DROUGHT_RETRY)
PLAUSIBLE = (KILL, FAIL, LASTING, RETRY, *DROUGHTS)
EVERY = (*PLAUSIBLE, ANY, ANY_LASTING)


def short_work(subject):
    """(scene, kinds of trial) pairs: over a thousand deaths in less than a minute."""
    if subject.name != "global":
        work = [(Scene(subject, verb, FEW), (KILL, FAIL, *DROUGHTS)) for verb in subjects.VERBS]
        work.append((Scene(subject, "change", FEW, place=IN_VAIN), (KILL, FAIL)))
        return [*work, (Scene(subject, "delete", ABSENT), (FAIL,))]
    work = []
    for verb in subjects.VERBS:
        retried = (RETRY,) if verb == "change" else ()
        work.append((Scene(subject, verb, FEW), (KILL, FAIL, *DROUGHTS, *retried)))
        work.append((Scene(subject, verb, FEW, ALL_LEFTOVERS), (KILL,)))
    work += [(Scene(subject, "delete", size), (KILL, FAIL)) for size in (ABSENT, 0)]
    return [*work, (Scene(subject, "add", ABSENT, place=NO_FOLDER), (KILL, FAIL))]


def full_work(subject):
    work = []
    for verb in subjects.VERBS:
        for leftovers in LEFTOVERS:
            work += [(Scene(subject, verb, size, leftovers), PLAUSIBLE) for size in SIZES]
        work += [(Scene(subject, verb, FEW, leftovers), EVERY) for leftovers in ((), ALL_LEFTOVERS)]
        work.append((Scene(subject, verb, FEW, place=LINKED), PLAUSIBLE))
        work.append((Scene(subject, verb, ABSENT, place=NO_FOLDER), PLAUSIBLE))
        if verb != "add" or subject.refuses_duplicates:
            work += [(Scene(subject, verb, size, place=IN_VAIN), PLAUSIBLE) for size in (FEW, 100)]
    return work


def faults_of(kind, stage, calls):
    """The faults of one kind, for an update that makes these calls when nothing disturbs it."""
    if kind == KILL:
        return faults.kills(calls)
    if kind in (KILL_STEPS, FAIL_STEPS):  # the calls that change or flush something
        steps = {index for index, _ in protocol.steps_made(calls, stage.scene, TOP)}
        made = [call for call in calls if call.index in steps]
        return faults.kills(made) if kind == KILL_STEPS else faults.failures(made)
    if kind in DROUGHTS:
        extents = {DROUGHT: (False,), DROUGHT_LASTING: (True,), DROUGHT_RETRY: (False, True)}
        return faults.droughts(stage, extents[kind], stage.more() if kind == DROUGHT_RETRY else ())
    if kind == RETRY:  # the longer command line moves the heap, and with it the calls for memory
        stage.set_up()
        calls = stage.run(more=stage.more())[1]
    if kind in (ANY, ANY_LASTING):
        return faults.every_failure(calls, kind == ANY_LASTING)
    return faults.failures(calls, kind == LASTING)
