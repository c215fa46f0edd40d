# SPDX-License-Identifier: Apache-2.0
"""What a power cut leaves of an update: every state of the disk that a model of a file system allows.

Names and data are apart. Data that is written and not synced may be there, be missing, or be cut
anywhere; an inode's metadata may lag. Of the changes of names,

  ORDERED    survives a beginning: what journalling file systems do. A sync of a folder, or of a file
             that has been created before, makes those before it durable.
  REORDERED  any of them survive, but for those that a sync of their folder has made durable; a rename
             is one of them.
  TORN       as REORDERED, and a rename onto a standing name is three changes: the old meaning taken
             away, the new one put there, the other name taken away.

Not here: whether a state is a good one (power_judge.py).
"""
import collections
import itertools

from power_trace import DIRECTORY, Metadata, Names, SyncFile, SyncFolder, Truncate, Write

ORDERED, REORDERED, TORN = "ordered", "reordered", "reordered and torn"
FINE, COARSE = "every byte", "some bytes"
PIECES = (1, 3, 4096)
MANY_WRITES = 6  # from here on, not every combination of lost writes is tried
MANY_COMBINATIONS = 20000

# files: sorted (name, inode, contents, metadata); count: events before the cut.
State = collections.namedtuple("State", "files count durable")


# --- data

def survivors_of(event, grain):
    """What may survive of one write: (pieces kept as (offset, bytes), length that the file has then)."""
    if isinstance(event, Truncate):
        return [event, None]
    start, data = event.offset, event.data
    end = start + len(data)
    kept = [([(start, data)], end), ([], end), ([], 0)]
    for piece in PIECES:
        for cut in cuts(len(data), piece, grain):
            later = cut + piece
            kept.append(([(start, data[:cut])], 0))  # a beginning, and the length that it has
            kept.append(([(start, data[:cut])], end))  # a beginning, and zeros
            kept.append(([(start, data[:cut]), (start + later, data[later:])], end))  # all but one
    return kept


def cuts(length, piece, grain):
    """Where the pieces of a write of `length` bytes begin."""
    places = range(0, length, piece)
    if grain == FINE or len(places) <= 4:
        return places
    return sorted({places[0], places[1], places[len(places) // 2], places[-1]})


def apply_survivor(data, survivor):
    if survivor is None:
        return data
    if isinstance(survivor, Truncate):
        return data[: survivor.length].ljust(survivor.length, b"\0")
    kept, length = survivor
    data = data.ljust(length, b"\0")
    for offset, part in kept:
        if part:
            data = data.ljust(offset, b"\0")
            data = data[:offset] + part + data[offset + len(part) :]
    return data


def whole(event):
    return survivors_of(event, COARSE)[0]


def combinations(events, grain):
    """Lists of survivors, one for each event."""
    if len(events) <= 1:
        yield from ([survivor] for event in events for survivor in survivors_of(event, grain))
        if not events:
            yield []
        return
    complete = [whole(event) for event in events]
    losses = [survivors_of(event, COARSE)[1:3] for event in events]
    for index, event in enumerate(events):
        rest = [loss[-1] for loss in losses[index + 1 :]]
        for survivor in survivors_of(event, grain):
            yield [*complete[:index], survivor, *complete[index + 1 :]]  # this one lost, later ones kept
            yield [*complete[:index], survivor, *rest]  # a beginning
    if len(events) <= MANY_WRITES:
        yield from map(list, itertools.product(*([each, *lost] for each, lost in zip(complete, losses))))
        return
    for one, two in itertools.combinations(range(len(events)), 2):
        for pair in itertools.product(losses[one], losses[two]):
            survivors = list(complete)
            survivors[one], survivors[two] = pair
            yield survivors


def surviving_contents(durable, unsynced, grain):
    """Every contents that a file may have whose last writes were not synced; the complete ones first."""
    found = {}
    complete = durable
    for event in unsynced:
        complete = apply_survivor(complete, whole(event))
    found[complete] = None
    for survivors in combinations(unsynced, grain):
        contents = durable
        for survivor in survivors:
            contents = apply_survivor(contents, survivor)
        found[contents] = None
    return list(found)


# --- one file

class Inodes:
    """What may be left of each file after the first `count` events; kept while nothing changes."""

    def __init__(self, recording, grain):
        self.recording, self.grain, self.known = recording, grain, {}

    def versions(self, inode, done):
        """(contents, metadata) pairs, the complete one first."""
        own = [event for event in done if getattr(event, "inode", None) == inode]
        synced = last_index(own, lambda event: isinstance(event, SyncFile)) + 1
        key = (inode, len(own))
        if key not in self.known:
            self.known[key] = list(self.make_versions(inode, own[:synced], own[synced:]))
        return self.known[key]

    def make_versions(self, inode, durable, unsynced):
        contents, metadata = self.recording.contents[inode], dict(self.recording.metadata[inode])
        for event in durable:
            if isinstance(event, Metadata):
                metadata[event.key] = event.value
            elif isinstance(event, (Write, Truncate)):
                contents = apply_survivor(contents, whole(event))
        writes = [event for event in unsynced if isinstance(event, (Write, Truncate))]
        changes = [event for event in unsynced if isinstance(event, Metadata)]
        lags = [frozen(metadata, changes[:count]) for count in range(len(changes), -1, -1)]
        every = surviving_contents(contents, writes, self.grain)
        yield from ((each, lags[0]) for each in every)
        few = {every[0]: None, contents: None}
        yield from ((each, lag) for lag in dict.fromkeys(lags[1:]) if lag != lags[0] for each in few)


def frozen(metadata, changes):
    changed = {**metadata, **{event.key: event.value for event in changes}}
    return tuple(sorted(changed.items()))


def last_index(events, wanted):
    """The index of the last one that is wanted, -1 for none."""
    return max((index for index, event in enumerate(events) if wanted(event)), default=-1)


# --- names

def standing(names, units):
    """The names after these changes; what stands in no folder is gone."""
    names = dict(names)
    for unit in units:
        names.update(unit)
    names = {name: inode for name, inode in names.items() if inode is not None}
    return {name: inode for name, inode in names.items() if has_folders(name, names)}


def has_folders(name, names):
    folder = name.rpartition("/")[0]
    return not folder or (names.get(folder) == DIRECTORY and has_folders(folder, names))


def surely_ordered(done):
    """How many of the changes of names are durable for sure, where they become so in their order."""
    sure, count, created = 0, 0, {}
    for event in done:
        if isinstance(event, Names):
            count += 1
            for _, inode in event.parts:
                created.setdefault(inode, count)
        elif isinstance(event, SyncFolder):
            sure = count
        elif isinstance(event, SyncFile):
            sure = max(sure, created.get(event.inode, 0))
    return sure


def ordered_names(recording, done):
    changes = [event for event in done if isinstance(event, Names)]
    for count in range(surely_ordered(done), len(changes) + 1):
        durable = changes[:count]
        label = f"durable: the names up to {durable[-1].what!r}" if durable else "durable: no change of names"
        yield standing(recording.names, [event.parts for event in durable]), label


def reordered_names(recording, done, torn):
    units = []  # (parts, whether surely durable, label)
    for index, event in enumerate(done):
        if not isinstance(event, Names):
            continue
        sure = any(isinstance(e, SyncFolder) and e.folder == event.folder for e in done[index:])
        if torn and len(event.steps) > 1 and not sure:
            parts = [((step,), f"{event.what}: {name_step(step)}") for step in event.steps]
        else:
            parts = [(event.parts, event.what)]
        units += [(part, sure, label) for part, label in parts]
    for choice in itertools.product(*((True,) if sure else (True, False) for _, sure, _ in units)):
        kept = [unit for unit, taken in zip(units, choice) if taken]
        lost = [label for (_, _, label), taken in zip(units, choice) if not taken]
        yield standing(recording.names, [parts for parts, _, _ in kept]), f"not durable: {lost}"


def name_step(step):
    name, inode = step
    return f"{name} taken away" if inode is None else f"{name} put"


def name_states(recording, done, model):
    if model == ORDERED:
        return ordered_names(recording, done)
    return reordered_names(recording, done, model == TORN)


# --- states

def states(recording, model, grain):
    """Every state that a power cut can leave, at every point of the update, without regard to repetition."""
    inodes = Inodes(recording, grain)
    for count in range(len(recording.events) + 1):
        done = recording.events[:count]
        for names, durable in name_states(recording, done, model):
            for versions in file_versions(names, done, inodes):
                files = ((name, inode, *versions[inode]) for name, inode in names.items())
                yield State(tuple(sorted(files)), count, durable)


def file_versions(names, done, inodes):
    """Dictionaries of inode to (contents, metadata)."""
    named = sorted(set(names.values()) - {DIRECTORY})
    every = [inodes.versions(inode, done) for inode in named]
    total = 1
    for versions in every:
        total *= len(versions)
    choices = itertools.product(*every) if total <= MANY_COMBINATIONS else one_at_a_time(every)
    for choice in choices:
        yield {DIRECTORY: (None, ()), **dict(zip(named, choice))}


def one_at_a_time(every):
    complete = [versions[0] for versions in every]
    yield complete
    for index, versions in enumerate(every):
        for version in versions[1:]:
            yield [*complete[:index], version, *complete[index + 1 :]]
