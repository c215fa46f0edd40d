#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Kills updates of registries of each format, and lets their system calls fail, at every point; then looks.

After a death at any system call the registry holds exactly the old or the new contents, what stands
beside it is what the update protocol says, nobody holds a lock, a reader reads and the next update
succeeds. After a failing call the status tells the truth besides, and no descriptor and no memory block
is left. The contents are judged by a model that shares nothing with the library.

An allocation that fails is looked at in the same way. scenes.py lists what is tried.

Figures are printed as N/N. Exit status 77: this machine refuses tracing or private mounts.
"""
import pathlib
import re
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "support"))

import judges
import scenes
import workers
from stage import Stage

SHOWN_FINDINGS = 25
JUDGES = {
    scenes.KILL: judges.judge_death,
    scenes.KILL_STEPS: judges.judge_death,
    scenes.RETRY: judges.judge_retry,
    scenes.DROUGHT_RETRY: judges.judge_retry,
}


def try_stage(stage, kinds):
    """What is tried on one stage: (figures by kind, findings)."""
    findings, calls = judges.judge_baseline(stage)
    figures = {"undisturbed": [1 if not findings else 0, 1]}
    findings = [f"undisturbed: {finding}" for finding in findings]
    for kind in kinds if calls else ():
        good, every = 0, scenes.faults_of(kind, stage, calls)
        for fault in every:
            wrong = try_one(stage, kind, fault, calls)
            good += not wrong
            findings += [f"{kind}: {fault}: {finding}" for finding in wrong]
        figures[kind] = [good, len(every)]
    return figures, [f"{stage.scene.name}: {finding}" for finding in findings]


def try_scene(scene, kinds, options):
    """The figures and findings of one scene."""
    with Stage(scene, options.driver, options.injector) as stage:
        figures, findings = try_stage(stage, kinds)
    figures = {f"{scene.subject.name}, {kind}": figure for kind, figure in figures.items()}
    return {"scene": scene.name, "figures": figures, "findings": findings}


def try_one(stage, kind, fault, calls):
    stage.set_up()
    try:
        return JUDGES.get(kind, judges.judge_failure)(stage, fault, calls)
    except subprocess.TimeoutExpired:
        return ["hangs"]


def work_of(options):
    return workers.work_of(options, scenes.full_work if options.full else scenes.short_work)


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
        print(f"{kind:44}{good}/{every}")
    print(f"in {seconds:.0f} s")
    return 0 if results and all(good == every for good, every in sums.values()) else 1


def main():
    options = workers.read_options(workers.parser(__doc__.splitlines()[0]))
    return workers.run(__file__, options, work_of(options), try_scene, report)


if __name__ == "__main__":
    sys.exit(main())
