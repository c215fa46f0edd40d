#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Kills an update at every point, and the next update, over what that left, again at every point.

The second update is also failed once at every system call. Kills that leave the same files leave the same
second update: they are told apart by what stands there, names, contents, links, modes, owners and
attributes, and the second update is tried once for each such state. After it, the same must hold as
after a single fault, from the state that the first death left.

The change log is not part of a state: an update does not read it. Figures are printed as N/N. Exit
status 77: this machine refuses tracing or private mounts.
"""
import pathlib
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "support"))

import faults
import judges
import protocol
import run_matrix
import scenes
import subjects
import workers
from snapshot import Snapshot
from stage import TOP, Stage, belongings

FORMAT = "global"  # that of the binary store which logs its changes, too
DEATHS, UNDISTURBED, PAIRS, TRIALS = "first deaths", "undisturbed", "pairs covered", "trials run"


class ContinuedStage(Stage):
    """One that starts with what an interrupted update has left."""

    def __init__(self, scene, snapshot, options):
        super().__init__(scene, options.driver, options.injector)
        self.snapshot = snapshot

    def put_down(self):
        self.snapshot.put_down(TOP)
        if self.scene.exists:
            self.mode = self.registry.stat().st_mode & 0o7777
            self.belongings = belongings(self.registry)


def short_work(subject):
    """The second update is disturbed only where it changes or flushes something."""
    return [(protocol.Scene(subject, "change", 1), (scenes.KILL_STEPS, scenes.FAIL_STEPS))]


def full_work(subject):
    kinds = (scenes.KILL, scenes.FAIL)
    work = [(protocol.Scene(subject, "add", protocol.ABSENT), kinds)]
    for leftovers in ((), scenes.ALL_LEFTOVERS):
        work += [(protocol.Scene(subject, verb, scenes.FEW, leftovers), kinds) for verb in subjects.VERBS]
    return work


def states_left(stage, calls):
    """What the deaths at these calls leave: (snapshot to the deaths that leave it, findings)."""
    states, findings = {}, []
    for fault in faults.kills(calls):
        stage.set_up()
        _, end, missed = fault.strike(stage)
        findings += [] if end == "signal 9" and not missed else [f"{fault}: {end} {missed}"]
        states.setdefault(Snapshot(TOP), []).append(fault)
    return states, findings


def try_states(scene, states, kinds, options):
    """The second updates: (figures, findings)."""
    sums, findings = {UNDISTURBED: [0, 0], PAIRS: [0, 0], TRIALS: [0, 0]}, []
    for snapshot, deaths in states.items():
        name = f"{scene.name}: {deaths[0]}"
        with ContinuedStage(protocol.Continued(scene, snapshot.files(), name), snapshot, options) as stage:
            figures, wrong = run_matrix.try_stage(stage, kinds)
        findings += wrong
        add(sums[UNDISTURBED], figures.pop("undisturbed"))
        for figure in figures.values():
            add(sums[TRIALS], figure)
            add(sums[PAIRS], figure, len(deaths))
    return sums, findings


def add(total, figure, times=1):
    for place, count in enumerate(figure):
        total[place] += count * times


def try_scene(scene, kinds, options):
    """The figures and findings of one scene."""
    with Stage(scene, options.driver, options.injector) as stage:
        findings, calls = judges.judge_baseline(stage)
        states, missed = states_left(stage, calls)
    sums, wrong = try_states(scene, states, kinds, options)
    add(sums[UNDISTURBED], [0 if findings else 1, 1])  # the first update; the others are the second ones
    deaths = sum(map(len, states.values()))
    figures = {DEATHS: [deaths - len(missed), deaths], **sums}
    findings = [f"{scene.name}: {finding}" for finding in findings + missed] + wrong
    return {"scene": scene.name, "figures": figures, "states": len(states), "findings": findings}


def work_of(options):
    options.format = options.format or (FORMAT,)
    return workers.work_of(options, full_work if options.full else short_work)


def report(results, seconds):
    """Prints the figures; 0 when every trial was good and none is missing."""
    for result in results:
        deaths = result["figures"][DEATHS][1]
        print(f"{result['scene']}: {deaths} deaths leave {result['states']} states")
    return run_matrix.report(results, seconds)


def main():
    options = workers.read_options(workers.parser(__doc__.splitlines()[0]))
    return workers.run(__file__, options, work_of(options), try_scene, report)


if __name__ == "__main__":
    sys.exit(main())
