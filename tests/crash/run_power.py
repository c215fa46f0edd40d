#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Cuts the power of updates of registries of each format, at every point, and judges what may be left.

The system calls of an update are recorded once; from them follow all states that a journalling file
system can leave. After each, the registry holds exactly the old or the new contents, the new ones when
the update had returned success, a reader reads and the next update succeeds. Where names become durable
in any order, only the states that docs/reliability-power.md lists may be left. Without flushes
registries must get lost: else the judge is blind.

Figures are printed as N/N. Exit status 77: this machine refuses tracing or private mounts.
"""
import pathlib
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "support"))

import power_model as power
import power_page
import protocol
import subjects
import workers
from power_judge import LOST, UNACKNOWLEDGED, WRONG, Judge
from power_trace import Reader, Recording
from stage import TOP, Stage

NONE, STANDARD, FULL = POLICIES = ("none", "standard", "full")
WHEN = {False: "interrupted", True: "acknowledged"}
WHOLE, SPLIT = "whole", "torn"
RENAMES = {power.REORDERED: WHOLE, power.TORN: SPLIT}
LEFTOVERS = ("tmp", "cor", "bkp")
SHOWN_FINDINGS = 25
MANY = 100  # records, for an update of several writes


def without_folder(subject):
    return protocol.Scene(subject, "add", protocol.ABSENT, place=protocol.NO_FOLDER)


def short_work(subject):
    """(scene, models, grain) triples."""
    work = [(protocol.Scene(subject, verb, 5), (power.ORDERED,), power.COARSE) for verb in subjects.VERBS]
    work.append((protocol.Scene(subject, "change", 5, LEFTOVERS), (power.ORDERED, power.TORN), power.COARSE))
    work.append((without_folder(subject), (power.ORDERED, power.REORDERED), power.COARSE))
    return [*work, (protocol.Scene(subject, "add", protocol.ABSENT), (power.ORDERED,), power.COARSE)]


def full_work(subject):
    every = (power.ORDERED, power.REORDERED, power.TORN)
    work = []
    for verb in subjects.VERBS:
        for size in (*((protocol.ABSENT, 0) if verb == "add" else ()), 1, 5):
            for leftovers in ((), ("tmp",), ("cor",), ("bkp",), LEFTOVERS):
                work.append((protocol.Scene(subject, verb, size, leftovers), every, power.FINE))
        work.append((protocol.Scene(subject, verb, MANY), every, power.COARSE))
    return [*work, (without_folder(subject), every, power.FINE)]


def record(stage, policy):
    """The events of the scene's update under a sync policy."""
    stage.set_up()

    def metadata_of(name):
        info = (TOP / name).stat()
        return {"mode": info.st_mode & 0o7777, "uid": info.st_uid, "gid": info.st_gid}

    reader = Reader(Recording(stage.scene.start(), metadata_of), TOP)
    outcome, calls, end = stage.run(("--details",), before=("--sync", policy))
    if end != "exit 0":
        raise RuntimeError(f"{stage.scene.name}: ended by {end}, {outcome.statuses}")
    return reader.read(calls)


class Tally:
    """The figures of one policy and model."""

    def __init__(self):
        self.good = self.every = self.lost = self.missing = self.wrong = 0
        self.distinct, self.findings, self.kinds = set(), {}, {}

    def add(self, state, wrong):
        self.every += 1
        self.good += not wrong
        self.distinct.add(state.files)
        kinds = {kind for kind, _ in wrong}
        self.lost += LOST in kinds
        self.missing += UNACKNOWLEDGED in kinds
        self.wrong += WRONG in kinds
        for kind, text in wrong:
            self.findings.setdefault(f"{kind}: {text}", f"after event {state.count}, {state.durable}")

    def add_kind(self, kind, state):
        """One that remains, with its first example."""
        count, example = self.kinds.get(kind, (0, state.durable))
        self.kinds[kind] = (count + 1, example)

    def figures(self):
        return [self.good, self.every, len(self.distinct), self.lost, self.missing, self.wrong]


def judge_states(recording, model, grain, judge):
    """The tally of all states of one recording under one model."""
    tally = Tally()
    for state in power.states(recording, model, grain):
        acknowledged = state.count == len(recording.events)
        wrong = judge.judge(state, acknowledged)
        tally.add(state, wrong)
        if wrong:
            tally.add_kind((WHEN[acknowledged], *judge.kind_of_state(state.files)), state)
    return tally


def try_scene(scene, models, grain, options):
    """The figures and findings of one scene under every policy."""
    started = time.monotonic()
    stage = Stage(scene, options.driver, options.injector)
    recordings = {policy: record(stage, policy) for policy in POLICIES}
    figures, findings, kinds = {}, [], []
    with Judge(scene, recordings[STANDARD], stage.driver) as judge:
        for policy, model in ((policy, model) for model in models for policy in POLICIES):
            if policy == NONE and model != power.ORDERED:
                continue  # enough is lost in order
            tally = judge_states(recordings[policy], model, grain, judge)
            figures[f"{scene.subject.name}|{policy}|{model}"] = tally.figures()
            findings += [(policy, model, scene.name, *each) for each in tally.findings.items()]
            kinds += [(policy, model, *kind, *found) for kind, found in tally.kinds.items()]
    seconds = time.monotonic() - started
    return {"scene": scene.name, "seconds": seconds, "figures": figures, "findings": findings, "kinds": kinds}


def work_of(options):
    return workers.work_of(options, full_work if options.full else short_work)


def sum_figures(results):
    sums = {}
    for result in results:
        for key, figures in result["figures"].items():
            sums[key] = [a + b for a, b in zip(sums.get(key, [0] * len(figures)), figures)]
    return sums


def show_findings(results):
    """What is wrong where nothing may be: each kind once, with an example."""
    kinds = {}
    for result in results:
        for policy, model, scene, text, example in result["findings"]:
            if policy != NONE and model == power.ORDERED:
                kinds.setdefault((policy, text), []).append((scene, example))
    for (policy, text), where in list(kinds.items())[:SHOWN_FINDINGS]:
        print(f"{policy}: {text}\n  in {len(where)} scenes, as in {where[0][0]}, {where[0][1]}")


def show_figures(sums):
    """A line for each format, policy and model; whether each is as it should be."""
    right = True
    for key, (good, every, distinct, lost, missing, wrong) in sorted(sums.items()):
        name, policy, model = key.split("|")
        place = f"power, {name}, {policy}" + ("" if model == power.ORDERED else f", {model}")
        line = f"{place + ':':54}{good}/{every} states, {distinct} distinct"
        if good != every:
            line += f" ({lost} lost, {missing} acknowledged missing, {wrong} otherwise wrong)"
        print(line)
        if model == power.ORDERED:
            right = right and (lost > 0 if policy == NONE else good == every)
    return right


def remaining(results):
    """What file systems that reorder may leave: (policy, rename, moment, files...) to (states, example).

    A state that remains where renames are whole is not told again for torn ones.
    """
    found = {}
    for result in results:
        for policy, model, *kind, count, example in result["kinds"]:
            if model != power.ORDERED:
                key = (policy, RENAMES[model], *kind)
                before, first = found.get(key, (0, f"{result['scene']}, {example}"))
                found[key] = (before + count, first)
    whole = {(policy, *kind) for policy, rename, *kind in found if rename == WHOLE}
    return {key: value for key, value in found.items() if key[1] == WHOLE or (key[0], *key[2:]) not in whole}


def show_remaining(results, page):
    """Holds the states that remain against the page: (whether it has all, what it has too much)."""
    found = remaining(results)
    unknown = [key for key in sorted(found) if key not in page]
    for key in unknown:
        print(f"not on the page: {', '.join(key)}: {found[key][0]} states, as in {found[key][1]}")
    print(f"power, reordered: {len(found) - len(unknown)}/{len(found)} kinds of remaining states documented")
    return not unknown, set(page) - set(found)


def report(results, options, seconds):
    """Prints the figures; 0 when every state is a good one."""
    if not results:
        return 1
    for result in results if options.times else ():
        print(f"{result['seconds']:6.1f} s  {result['scene']}")
    sums = sum_figures(results)
    show_findings(results)
    right = show_figures(sums)
    documented, stale = show_remaining(results, power_page.remaining_states())
    if stale and options.full and not options.format and not options.scene:
        print(f"the page lists what does not remain: {sorted(stale)}")
        documented = False
    kept = [sums[key] for key in sums if "|none|" not in key and key.endswith(f"|{power.ORDERED}")]
    good, every, distinct, lost, missing, _ = [sum(column) for column in zip(*kept)]
    print(f"power: {good}/{every} states, {distinct} distinct")
    print(f"registries lost {lost}, acknowledged updates missing {missing}")
    print(f"{len(results)} scenes in {seconds:.0f} s")
    return 0 if right and documented else 1


def main():
    parser = workers.parser(__doc__.splitlines()[0])
    parser.add_argument("--times", action="store_true", help="show the seconds of each scene")
    options = workers.read_options(parser)

    def report_all(results, seconds):
        return report(results, options, seconds)

    return workers.run(__file__, options, work_of(options), try_scene, report_all)


if __name__ == "__main__":
    sys.exit(main())
