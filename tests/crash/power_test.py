#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The power-cut campaign sees what it is there to see: updates in a wrong order lose registries.

A real update is recorded, then its events are moved or dropped as a careless change of the library
would; the campaign's own judge must object, and must be content with the update as it is.
"""
import argparse
import contextlib
import io
import pathlib
import sys
import unittest
from unittest import mock

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "support"))

import power_model as power
import power_page
import protocol
import run_power
import subjects
import workers
from power_judge import LOST, UNACKNOWLEDGED, WRONG, Judge
from power_trace import DIRECTORY, Metadata, Names, Reader, Recording, SyncFile, SyncFolder, UnknownCall, Write
from stage import TOP, Stage

OPTIONS = argparse.Namespace()


class OneUpdate(unittest.TestCase):
    """A change of a profile of five records, and what its events become."""

    scene_arguments = ("change", 5)

    def setUp(self):
        profile = next(each for each in subjects.SUBJECTS if each.name == "profile")
        scene = protocol.Scene(profile, *self.scene_arguments)
        self.stage = Stage(scene, OPTIONS.driver, OPTIONS.injector)
        self.recording = run_power.record(self.stage, run_power.STANDARD)
        self.events = self.recording.events

    def tally(self, model=power.ORDERED):
        with Judge(self.stage.scene, self.recording, self.stage.driver) as judge:
            return run_power.judge_states(self.recording, model, power.COARSE, judge)

    def kinds(self, model=power.ORDERED):
        tally = self.tally(model)
        counts = {LOST: tally.lost, UNACKNOWLEDGED: tally.missing, WRONG: tally.wrong}
        return {kind for kind, count in counts.items() if count}

    def index(self, wanted, what=""):
        """Where the first event of a class stands, whose description has this in it."""
        for index, event in enumerate(self.events):
            if isinstance(event, wanted) and what in getattr(event, "what", ""):
                return index
        raise AssertionError(f"no {wanted.__name__} {what}")

    def drop(self, wanted, what=""):
        return self.events.pop(self.index(wanted, what))

    def move(self, wanted, what, to):
        """Moves an event before the one that is now at `to`."""
        event = self.drop(wanted, what)
        self.events.insert(to, event)


class AsItIs(OneUpdate):
    def test_no_state_is_bad(self):
        tally = self.tally()
        self.assertEqual(tally.good, tally.every)
        self.assertGreater(len(tally.distinct), 20)

    def test_no_state_is_bad_where_whole_renames_are_reordered(self):
        tally = self.tally(power.REORDERED)
        self.assertEqual(tally.good, tally.every)

    def test_both_flushes_and_all_names_are_recorded(self):
        wanted = ["create .reg.lock", "create reg.tmp", "link reg .reg.bkp", "rename reg.tmp reg", "remove .reg.bkp"]
        self.assertEqual([event.what for event in self.events if isinstance(event, Names)], wanted)
        syncs = [type(event) for event in self.events if isinstance(event, (SyncFile, SyncFolder))]
        self.assertEqual(syncs, [SyncFile, SyncFolder])

    def test_the_recorded_writes_are_the_new_contents(self):
        written = b"".join(event.data for event in self.events if isinstance(event, Write))
        self.assertEqual(written, self.stage.scene.new)


class InAWrongOrder(OneUpdate):
    def test_without_the_first_flush_the_registry_is_lost(self):
        self.drop(SyncFile)
        self.assertIn(LOST, self.kinds())

    def test_the_rename_before_the_first_flush_loses_the_registry(self):
        self.move(Names, "rename", self.index(SyncFile))
        self.assertIn(LOST, self.kinds())

    def test_a_write_behind_the_first_flush_loses_the_registry(self):
        write = self.drop(Write)
        self.events.insert(self.index(SyncFile) + 1, write)
        self.assertIn(LOST, self.kinds())

    def test_without_the_second_flush_an_acknowledged_update_is_missing(self):
        self.drop(SyncFolder)
        self.assertEqual(self.kinds(), {UNACKNOWLEDGED})

    def test_the_second_flush_before_the_rename_misses_an_acknowledged_update(self):
        self.move(SyncFolder, "", self.index(Names, "rename"))
        self.assertEqual(self.kinds(), {UNACKNOWLEDGED})

    def test_the_mode_set_behind_the_first_flush_may_lag(self):
        mode = self.index(Metadata)
        while self.events[mode].key != "mode":
            mode += 1
        self.events.insert(self.index(SyncFile), self.events.pop(mode))
        self.assertEqual(self.kinds(), {WRONG})

    def test_a_registry_taken_away_before_the_rename_is_lost(self):
        self.events.insert(self.index(Names, "rename"), Names("remove reg", "", (("reg", None),)))
        self.assertIn(LOST, self.kinds())


class WithTornRenames(OneUpdate):
    def test_the_backup_removed_before_the_second_flush_leaves_more_bad_states(self):
        before = self.tally(power.TORN).lost
        self.move(SyncFolder, "", len(self.events) - 1)
        self.assertGreater(self.tally(power.TORN).lost, before)

    def test_a_third_flush_keeps_the_old_contents_in_the_backup(self):
        kinds = {kind[2] for kind in self.tally(power.TORN).kinds}
        self.assertIn("missing", kinds)
        self.recording = run_power.record(self.stage, run_power.FULL)
        self.assertEqual({kind[2] for kind in self.tally(power.TORN).kinds}, {"old"})


class TheJudge(OneUpdate):
    def judge(self, changes):
        """What is wrong with the old registry, other files put beside or over it; None for a folder."""
        metadata = {0: self.recording.metadata[0]}
        entries = {"reg": (0, self.stage.scene.old, tuple(sorted(metadata[0].items())))}
        for number, (name, contents) in enumerate(changes.items(), 1):
            inode = DIRECTORY if contents is None else 0 if name == "reg" else number
            entries[name] = (inode, contents, tuple(sorted(metadata[0].items())))
        files = tuple(sorted((name, *entry) for name, entry in entries.items()))
        with Judge(self.stage.scene, self.recording, self.stage.driver) as judge:
            return {kind for kind, _ in judge.judge(power.State(files, 0, ""), False)}

    def test_is_content_with_the_old_registry(self):
        self.assertEqual(self.judge({}), set())

    def test_sees_one_changed_byte(self):
        self.assertEqual(self.judge({"reg": self.stage.scene.old[:-1] + b"?"}), {LOST})

    def test_sees_a_next_update_that_is_refused(self):
        self.assertEqual(self.judge({"reg.cor": None}), {WRONG})

    def test_sees_a_reader_that_reads_something_else(self):
        lines = self.stage.scene.before
        with mock.patch.object(self.stage.scene, "before", lines[:-1]):
            self.assertEqual(self.judge({}), {WRONG})

    def test_sees_a_file_that_no_update_leaves(self):
        self.assertEqual(self.judge({"reg.other": b"x"}), {WRONG})


class TheModel(unittest.TestCase):
    def test_a_write_is_lost_in_every_part(self):
        found = power.surviving_contents(b"", [Write(0, 0, b"abcdef")], power.FINE)
        self.assertEqual(found[0], b"abcdef")
        for contents in (b"", b"\0" * 6, b"a", b"abcde", b"abc\0\0\0"):
            self.assertIn(contents, found)

    def test_a_middle_piece_is_lost_and_the_later_ones_are_kept(self):
        found = power.surviving_contents(b"", [Write(0, 0, b"abcdefghi")], power.FINE)
        for contents in (b"abc\0\0\0ghi", b"\0\0\0defghi", b"abcd\0fghi"):
            self.assertIn(contents, found)

    def test_an_earlier_write_is_lost_and_a_later_one_kept(self):
        found = power.surviving_contents(b"", [Write(0, 0, b"ab"), Write(0, 2, b"cd")], power.FINE)
        for contents in (b"abcd", b"\0\0cd", b"ab", b"ab\0\0", b"abc", b""):
            self.assertIn(contents, found)

    def test_a_synced_write_stays(self):
        recording = Recording({}, None)
        inode = recording.new_inode(b"", {"mode": 0o600})
        done = [Write(inode, 0, b"ab"), SyncFile(inode), Write(inode, 2, b"cd")]
        found = {contents for contents, _ in power.Inodes(recording, power.FINE).versions(inode, done)}
        self.assertEqual(found, {b"abcd", b"abc", b"ab", b"ab\0\0", b"abc\0", b"ab\0d"})

    def test_names_survive_in_their_order(self):
        recording = Recording({}, None)
        done = [Names(f"create {name}", "", ((name, 0),)) for name in "ab"]
        found = [set(names) for names, _ in power.ordered_names(recording, done)]
        self.assertEqual(found, [set(), {"a"}, {"a", "b"}])
        found = [set(names) for names, _ in power.reordered_names(recording, done, False)]
        self.assertIn({"b"}, found)
        done.append(SyncFolder(""))
        self.assertEqual([set(names) for names, _ in power.ordered_names(recording, done)], [{"a", "b"}])

    def test_a_call_that_is_not_understood_is_no_update(self):
        call = protocol.Call(f"1\tfallocate\t0\t{TOP}/reg\t=0,0,0,0")
        with self.assertRaises(UnknownCall):
            Reader(Recording({"reg": b""}, lambda _: {}), TOP).read([call])


class ThePage(unittest.TestCase):
    """What remains in file systems that reorder is held against docs/reliability-power.md."""

    state = ("torn", "interrupted", "missing", "old", "new")

    def setUp(self):
        self.page = power_page.remaining_states()

    def shown(self, *kinds):
        results = [{"scene": "one", "kinds": kinds}]
        with contextlib.redirect_stdout(io.StringIO()):
            return run_power.show_remaining(results, self.page)

    def test_has_states_of_both_policies(self):
        self.assertEqual({state[0] for state in self.page}, {run_power.STANDARD, run_power.FULL})
        self.assertIn((run_power.FULL, *self.state), self.page)

    def test_knows_a_state_that_it_lists(self):
        known, rest = self.shown((run_power.FULL, power.TORN, *self.state[1:], 3, "example"))
        self.assertTrue(known)
        self.assertEqual(len(rest), len(self.page) - 1)

    def test_does_not_know_another_one(self):
        known, _ = self.shown((run_power.FULL, power.REORDERED, *self.state[1:], 3, "example"))
        self.assertFalse(known)


class TheFigures(unittest.TestCase):
    """[good, every, distinct, lost, missing, wrong] of a format, policy and model."""

    def right(self, key, figures):
        with contextlib.redirect_stdout(io.StringIO()):
            return run_power.show_figures({key: figures})

    def test_one_bad_state_is_a_failure(self):
        self.assertTrue(self.right("profile|standard|ordered", [7, 7, 5, 0, 0, 0]))
        self.assertFalse(self.right("profile|standard|ordered", [6, 7, 5, 0, 0, 1]))
        self.assertFalse(self.right("profile|full|ordered", [6, 7, 5, 0, 1, 0]))

    def test_nothing_lost_without_flushes_is_a_failure(self):
        self.assertTrue(self.right("profile|none|ordered", [6, 7, 5, 1, 0, 0]))
        self.assertFalse(self.right("profile|none|ordered", [7, 7, 5, 0, 0, 0]))


if __name__ == "__main__":
    workers.run_tests(__doc__.splitlines()[0], OPTIONS)
