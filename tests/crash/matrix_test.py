#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The campaigns of deaths and failures see what they are there to see.

Real updates are struck, then what they said or left is altered as a careless change of the library
would: the campaign's own judges must object, and must be content with what was not altered.
"""
import argparse
import contextlib
import fcntl
import io
import os
import pathlib
import struct
import sys
import unittest
from unittest import mock

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "support"))

import faults
import judges
import registry_driver as driving
import registry_model as model
import run_compound
import run_matrix
import scenes
import subjects
import workers
from protocol import ABSENT, IN_VAIN, Continued, Scene
from snapshot import Snapshot
from stage import ATTRIBUTE, TOP, Stage

OPTIONS = argparse.Namespace()
F_OFD_SETLK = 37


class Struck:
    """A fault whose run is altered afterwards by alter(outcome, end), which gives the end."""

    def __init__(self, fault, alter):
        self.fault, self.alter = fault, alter

    def __getattr__(self, name):
        return getattr(self.fault, name)

    def strike(self, stage, more=()):
        outcome, end, missed = self.fault.strike(stage, more)
        return outcome, self.alter(outcome, end) or end, missed


class OneScene(unittest.TestCase):
    scene = ("binvar", "change", 5)

    def setUp(self):
        name, *arguments = self.scene
        subject = next(each for each in subjects.SUBJECTS if each.name == name)
        self.stage = self.enter(Stage(Scene(subject, *arguments), OPTIONS.driver, OPTIONS.injector))
        self.stage.set_up()
        _, self.calls, _ = self.stage.run()

    def enter(self, context):
        self.addCleanup(context.__exit__, None, None, None)
        return context.__enter__()

    def call(self, name, path=""):
        return next(call for call in self.calls if call.name == name and path in "".join(call.paths))

    def drought(self, number=1, more=()):
        return faults.droughts(self.stage, (False,), more)[number - 1]

    def judged(self, fault, alter=lambda *_: None, kind=scenes.FAIL):
        """What is wrong, all on one line."""
        self.stage.set_up()
        judge = run_matrix.JUDGES.get(kind, judges.judge_failure)
        return "; ".join(judge(self.stage, Struck(fault, alter), self.calls))


class FailedUpdates(OneScene):
    def says(self, *statuses):
        def alter(outcome, _):
            outcome.statuses[:] = statuses

        return alter

    def test_a_drought_as_it_is(self):
        self.assertEqual(self.judged(self.drought()), "")

    def test_a_drought_that_strikes_nothing(self):
        self.assertIn("no allocation failed", self.judged(faults.NoMemory(1000, 0)))

    def test_success_without_the_new_contents(self):
        self.assertIn("without the new contents", self.judged(self.drought(), self.says(model.OK)))

    def test_a_fact_about_records_that_is_none(self):
        self.assertIn("is not for this", self.judged(self.drought(), self.says(model.NO_MATCH)))

    def test_a_failure_although_the_new_contents_stand(self):
        def alter(*_):
            self.stage.registry.write_bytes(self.stage.scene.new)

        self.assertIn("although the new contents stand", self.judged(self.drought(), alter))

    def test_a_lost_block(self):
        def alter(outcome, _):
            count, failed, kept = outcome.allocations
            outcome.allocations = (count, failed, kept + 1)

        self.assertIn("lost 1 allocated", self.judged(self.drought(), alter))

    def test_a_lost_descriptor(self):
        def alter(outcome, _):
            outcome.left = (1, 0)

        self.assertIn("left descriptors", self.judged(self.drought(), alter))

    def test_a_held_lock(self):
        def alter(*_):
            file = self.enter(open(TOP / self.stage.scene.lock, "ab+"))
            fcntl.fcntl(file, F_OFD_SETLK, struct.pack(driving.FLOCK, fcntl.F_WRLCK, os.SEEK_SET, 0, 0, 0))

        with mock.patch.object(judges, "judge_next_update", return_value=[]), mock.patch.object(
            self.stage.rounds, "ask", return_value=mock.Mock(statuses=[0, 0], lines=[])
        ):
            self.assertIn("is locked", self.judged(self.drought(), alter))

    def test_one_changed_byte(self):
        def alter(*_):
            self.stage.registry.write_bytes(self.stage.scene.old[:-1] + b"?")

        self.assertIn("neither old nor new", self.judged(self.drought(), alter))

    def test_a_file_of_no_update(self):
        self.assertIn("should not be there", self.judged(self.drought(), lambda *_: (TOP / "reg.x").touch()))

    def test_an_object_that_is_of_no_more_use(self):
        fault = self.drought(more=self.stage.more())
        self.assertEqual(self.judged(fault, kind=scenes.DROUGHT_RETRY), "")
        refused = self.says(0x900001E7, 0x900001BC)
        self.assertIn("the object's next", self.judged(fault, refused, kind=scenes.DROUGHT_RETRY))

    def test_a_retried_success_that_was_none(self):
        fault = self.drought(more=self.stage.more())
        said = self.judged(fault, self.says(model.OK, model.OK), kind=scenes.DROUGHT_RETRY)
        self.assertIn("without the new contents", said)


class Besides(OneScene):
    """What an update does as far as it can: an entry tells of what it could not do."""

    scene = ("global", "change", 5)

    @staticmethod
    def forget(outcome, _):
        outcome.logged.clear()

    def test_a_line_that_the_change_log_lacks(self):
        fault = faults.Fault(self.call("write", str(driving.CHANGE_LOG)), "fail", "EIO")
        self.assertEqual(self.judged(fault), "")
        self.assertIn("the change log has 0 lines", self.judged(fault, self.forget))

    def test_an_attribute_that_is_lost(self):
        if self.stage.belongings[2] is None:
            self.skipTest("no attributes here")
        fault = faults.Fault(self.call("fsetxattr"), "fail", "EIO")
        self.assertEqual(self.judged(fault), "")
        self.assertIn("belongs to", self.judged(fault, self.forget))


class EndlessUpdates(OneScene):
    def test_a_flush_that_is_always_interrupted(self):
        fault = faults.Fault(self.call("fsync"), "fail", "EINTR", lasting=True)
        self.assertEqual(self.judged(fault), "")
        self.assertIn("asks for ever", self.judged(fault, lambda *_: faults.ENDLESS))

    def test_a_single_interruption(self):
        fault = faults.Fault(self.call("fsync"), "fail", "EINTR")
        self.assertEqual(self.judged(fault), "")
        self.assertTrue(fault.passes)


class UpdatesInVain(OneScene):
    scene = ("services", "add", 5, (), IN_VAIN)

    def test_are_refused_and_leave_all(self):
        self.assertEqual(judges.judge_baseline(self.stage)[0], [])

    def test_a_duplicate_that_nobody_has_read(self):
        def alter(outcome, _):
            outcome.statuses[:] = [self.stage.scene.status]

        fault = faults.Fault(self.call("read", "/reg"), "fail", "EIO")
        self.assertEqual(self.judged(fault), "")
        self.assertIn("was not read", self.judged(fault, alter))

    def test_success_is_none(self):
        def alter(outcome, _):
            outcome.statuses[:] = [model.OK]

        self.assertIn("is not for this", self.judged(self.drought(), alter))

    def test_a_registry_that_changes_all_the_same(self):
        def alter(*_):
            self.stage.registry.write_bytes(b"")

        self.assertIn("neither old nor new", self.judged(self.drought(), alter))


class RefusedDeletions(OneScene):
    scene = ("profile", "delete", ABSENT)

    def test_make_no_registry(self):
        self.assertEqual(judges.judge_baseline(self.stage)[0], [])
        with mock.patch.object(self.stage, "put_down", self.stage.registry.touch):
            self.assertIn("status", judges.judge_baseline(self.stage)[0][0])


class SecondUpdates(OneScene):
    scene = ("binvar", "change", 1)

    def continued(self, snapshot, files):
        scene = Continued(self.stage.scene, files, "continued")
        return self.enter(run_compound.ContinuedStage(scene, snapshot, OPTIONS))

    def test_deaths_leave_few_states(self):
        states, findings = run_compound.states_left(self.stage, self.calls)
        self.assertEqual(findings, [])
        self.assertEqual(sum(map(len, states.values())), 2 * len(self.calls))
        self.assertIn(len(states), range(8, 20))
        held = {snapshot.files().get("reg") for snapshot in states}
        self.assertEqual(held, {self.stage.scene.old, self.stage.scene.new})

    def test_a_death_that_did_not_happen(self):
        with mock.patch.object(faults.Fault, "options", return_value=[]):
            _, findings = run_compound.states_left(self.stage, self.calls[:1])
        self.assertEqual(len(findings), 2)

    def test_the_wrong_one_of_two_contents(self):
        self.stage.set_up()
        snapshot = Snapshot(TOP)
        right = self.continued(snapshot, snapshot.files())
        self.assertEqual(judges.judge_baseline(right)[0], [])
        wrong = self.continued(snapshot, {**snapshot.files(), "reg": self.stage.scene.new})
        self.assertNotEqual(judges.judge_baseline(wrong)[0], [])


class Snapshots(OneScene):
    def setUp(self):
        super().setUp()
        self.stage.set_up()
        os.link(TOP / "reg", TOP / ".reg.bkp")
        self.before = Snapshot(TOP)

    def test_put_down_what_they_took(self):
        with mock.patch.object(self.stage, "put_down", lambda: self.before.put_down(TOP)):
            self.stage.set_up()
        self.assertEqual(Snapshot(TOP), self.before)
        self.assertEqual(hash(Snapshot(TOP)), hash(self.before))

    def test_tell_changes(self):
        backup, registry = TOP / ".reg.bkp", TOP / "reg"
        changes = {
            "a mode": lambda: registry.chmod(0o600),
            "a byte": lambda: registry.write_bytes(b"x"),
            "another file": (TOP / "reg.tmp").touch,
            "a file of its own": lambda: (backup.unlink(), registry.rename(backup), registry.touch()),
            "no link": lambda: self.copy(backup),
        }
        if self.stage.belongings[2] is not None:
            changes["an attribute"] = lambda: os.setxattr(registry, ATTRIBUTE, b"there")
        for name, change in changes.items():
            with mock.patch.object(self.stage, "put_down", lambda: self.before.put_down(TOP)):
                self.stage.set_up()
            change()
            self.assertNotEqual(Snapshot(TOP), self.before, name)

    @staticmethod
    def copy(path):
        contents, info = path.read_bytes(), path.stat()
        path.unlink()
        path.write_bytes(contents)
        path.chmod(info.st_mode & 0o7777)


class TheFigures(unittest.TestCase):
    def test_one_bad_trial_is_a_failure(self):
        def status(good):
            with contextlib.redirect_stdout(io.StringIO()):
                return run_matrix.report([{"figures": {"killed": [good, 7]}, "findings": []}], 1)

        self.assertEqual((status(7), status(6)), (0, 1))


if __name__ == "__main__":
    workers.run_tests(__doc__.splitlines()[0], OPTIONS)
