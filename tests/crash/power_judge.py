# SPDX-License-Identifier: Apache-2.0
"""Judges what a power cut has left, with the library itself.

The state is put on a real folder; a reader must read the old or the new contents, the next update must
succeed, and leave what the update protocol says. The library runs in one process for all states of a
scene. Not here: which states there are (power_model.py).
"""
import dataclasses
import os

import protocol
import registry_driver as driving
import registry_model as model
from power_trace import DIRECTORY
from stage import TOP

NOT_OPENED = 0x900001BF
OLD, NEW = "old", "new"
LOST, UNACKNOWLEDGED, WRONG = "registry lost", "acknowledged update missing", "otherwise wrong"


@dataclasses.dataclass
class Verdict:
    holds: object  # OLD, NEW or None
    findings: list


class Judge:
    """The judge of one scene's states; remembers those it has seen."""

    def __init__(self, scene, recording, driver):
        self.scene, self.recording = scene, recording
        self.known = {}
        self.final_metadata = final_metadata(recording)
        self.folder = TOP / scene.folder
        self.rounds = driving.Rounds(driver, scene.next_update.words, ("--sync", "none"))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.rounds.stop()

    def judge(self, state, acknowledged):
        """The kinds of what is wrong, as (kind, text) pairs."""
        if state.files not in self.known:
            self.known[state.files] = self.look(state.files)
        verdict = self.known[state.files]
        if verdict.holds is None:
            return [(LOST, finding) for finding in verdict.findings]
        wrong = [(WRONG, finding) for finding in verdict.findings]
        if acknowledged and verdict.holds != NEW:
            wrong.append((UNACKNOWLEDGED, "the update had returned success, the registry is the old one"))
        return wrong

    def look(self, files):
        standing = {name: entry for name, *entry in files}
        holds = self.what_holds(standing)
        if holds is None:
            return Verdict(None, ["the registry is " + self.describe(standing, self.scene.registry)])
        records = self.scene.before if holds == OLD else self.scene.after
        put_down(files)
        answer = self.rounds.ask()
        wrong = self.judge_metadata(standing, holds) + self.judge_reader(standing, records, answer)
        return Verdict(holds, wrong + self.judge_next_update(standing, records, answer))

    def what_holds(self, standing):
        """A registry that did not exist may be missing, or empty: an add creates it before it commits."""
        if self.scene.registry not in standing:
            return None if self.scene.exists else OLD
        contents = standing[self.scene.registry][1]
        return {self.scene.old: OLD, self.scene.new: NEW}.get(contents)

    def judge_metadata(self, standing, holds):
        """The mode, owner and attributes are those of the inode when all is done."""
        if holds == OLD and not self.scene.exists:
            return []
        inode, _, metadata = standing[self.scene.registry]
        wanted = self.final_metadata[inode]
        return [] if metadata == wanted else [f"the registry has {dict(metadata)}, not {dict(wanted)}"]

    def judge_reader(self, standing, records, answer):
        status = answer.statuses[0]
        folder = self.scene.folder.rstrip("/")
        if folder and folder not in standing:
            return [] if status == NOT_OPENED else [f"a reader of no folder: 0x{status:08X}"]
        if status != model.OK:
            return [f"a reader is refused: 0x{status:08X}"]
        wanted = self.scene.subject.listed(records)
        return [] if answer.lines == wanted else [f"a reader reads {answer.lines}"]

    def judge_next_update(self, standing, records, answer):
        """It succeeds; what stood there as a copy is set aside, all else is clean."""
        if answer.statuses[1] != model.OK:
            return [f"the next update: 0x{answer.statuses[1]:08X}"]
        scene = self.scene
        wanted = {scene.registry: scene.subject.contents(scene.next_update.apply(records)), scene.lock: b""}
        if scene.temporary in standing:
            wanted[scene.corrupt] = standing[scene.temporary][1]
        wrong = protocol.differences(wanted, contents_of(self.folder, scene.folder), b"")
        return [f"after the next update: {finding}" for finding in wrong]

    def describe(self, standing, name):
        """What a file holds, in a word."""
        if name not in standing:
            return "missing"
        contents = standing[name][1]
        words = {
            protocol.STALE_TEMPORARY: "stale",
            protocol.STALE_CORRUPT: "stale",
            protocol.STALE_BACKUP: "stale",
            b"": "empty",
            self.scene.old: OLD,
            self.scene.new: NEW,
        }
        return words.get(contents, "damaged")

    def kind_of_state(self, files):
        """Registry, backup and temporary copy, each in a word."""
        standing = {name: entry for name, *entry in files}
        scene = self.scene
        names = (scene.registry, scene.backup, scene.temporary)
        return tuple(self.describe(standing, name) for name in names)


def final_metadata(recording):
    """Inode to its metadata when every event is done."""
    final = {inode: dict(metadata) for inode, metadata in recording.metadata.items()}
    for event in recording.events:
        if hasattr(event, "key"):
            final[event.inode][event.key] = event.value
    return {inode: tuple(sorted(metadata.items())) for inode, metadata in final.items()}


def put_down(files):
    """Makes the folder TOP hold exactly these files, with their links and modes."""
    clear(TOP)
    first = {}
    for name, inode, contents, metadata in files:  # a folder sorts before what is in it
        path = os.path.join(TOP, name)
        if inode == DIRECTORY:
            os.mkdir(path)
        elif inode in first:
            os.link(first[inode], path)
        else:
            first[inode] = path
            descriptor = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600)
            os.write(descriptor, contents)
            os.fchmod(descriptor, dict(metadata)["mode"])
            os.close(descriptor)


def clear(folder):
    with os.scandir(folder) as entries:
        for entry in entries:
            if entry.is_dir(follow_symlinks=False):
                clear(entry.path)
                os.rmdir(entry.path)
            else:
                os.unlink(entry.path)


def contents_of(folder, prefix):
    """The files of a folder, by their names with the prefix before them."""
    found = {}
    with os.scandir(folder) as entries:
        for entry in entries:
            with open(entry.path, "rb", buffering=0) as file:
                found[prefix + entry.name] = file.read()
    return found
