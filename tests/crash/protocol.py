# SPDX-License-Identifier: Apache-2.0
"""What an update may leave on disk at any moment, after docs/update-protocol.md.

A scene is an operation on a registry in some state. From it follow the steps of the update that change
a folder or flush something, in their order, and so what stands in the folder after each of them. A
trace of system calls is held against the steps. Not here: running anything (run_matrix.py).
"""
import os

STALE_TEMPORARY = b"a copy that was cut short"
STALE_CORRUPT = b"an older copy, set aside"
STALE_BACKUP = b"a backup from long ago"
ABSENT, NO_FOLDER, LINKED = "absent", "no folder", "linked"
IN_VAIN = "in vain"  # an add of what is there, a change or deletion of what is not
OK, NOT_OPENED_FOR_UPDATE, NO_LOCK, NO_MATCH, DUPLICATE = 0, 0x900001C5, 0x900001BC, 0x900001F6, 0x900001F1
UNFINISHED = object()  # a temporary copy that may hold any part of the new contents


class Scene:
    """An operation on a registry in some state: where it stands, what stands beside it."""

    def __init__(self, subject, verb, records, leftovers=(), place=None):
        self.subject, self.leftovers, self.place = subject, frozenset(leftovers), place
        self.verb = verb
        self.exists = records != ABSENT
        count = records if self.exists else 0
        self.refused = place == IN_VAIN or verb != "add" and count == 0
        make_update = subject.vain_update if place == IN_VAIN else subject.update
        self.settle(subject.standing(count), make_update(verb, count), subject.next_update())
        self.name = f"{subject.name}, {verb}, {records} records"
        self.name += f", leftovers {'+'.join(sorted(leftovers)) or 'none'}"
        self.name += f", {place}" if place else ""
        self.has_lock = bool(leftovers)

    def settle(self, before, update, next_update):
        """Works out the records and the contents before and after the update."""
        self.before, self.update, self.next_update = before, update, next_update
        self.old = self.subject.contents(before)
        self.after = before if self.refused else update.apply(before)
        self.new = self.subject.contents(self.after)
        # What a whole copy begins with; an add appends to a copy of all.
        self.copy = self.subject.contents(next_update.apply(before)) if self.refused else self.new

    @property
    def status(self):
        """What the undisturbed update reports: there may be nothing to change or to delete."""
        if not self.refused:
            return OK
        if self.place == NO_FOLDER:
            return NO_LOCK
        if self.verb == "add":
            return DUPLICATE
        return NO_MATCH if self.exists else NOT_OPENED_FOR_UPDATE

    @property
    def makes_folder(self):
        return self.place == NO_FOLDER and not self.refused

    @property
    def folder(self):
        return {NO_FOLDER: "a/b/", LINKED: "real/"}.get(self.place, "")

    def folders_upwards(self):
        """The folders in which the names stand that lead to the registry, the nearest first."""
        names = self.folder.split("/")[:-1]
        return ["/".join(names[:count]) for count in range(len(names), -1, -1)]

    @property
    def registry(self):
        """Where the contents are."""
        return self.folder + "reg"

    @property
    def given(self):
        """The path that the program is given."""
        return "link" if self.place == LINKED else self.registry

    @property
    def temporary(self):
        return self.folder + "reg.tmp"

    @property
    def corrupt(self):
        return self.folder + "reg.cor"

    @property
    def lock(self):
        return self.folder + ".reg.lock"

    @property
    def stray_lock(self):
        """The lock file of one who could not read the link, and so made no update; None without a link."""
        return ".link.lock" if self.place == LINKED else None

    @property
    def backup(self):
        return self.folder + ".reg.bkp"

    def start(self):
        """What stands there before: name to contents; None for folders, a str for links."""
        files = {}
        if self.place == LINKED:
            files.update({"real": None, "link": "real/reg"})
        if self.exists:
            files[self.registry] = self.old
        if self.has_lock:
            files[self.lock] = b""
        stale = {
            "tmp": (self.temporary, STALE_TEMPORARY),
            "cor": (self.corrupt, STALE_CORRUPT),
            "bkp": (self.backup, STALE_BACKUP),
        }
        files.update(stale[kind] for kind in self.leftovers)
        return files

    def steps(self):
        """The steps of the update, in their order."""
        if self.refused and not self.exists:
            return [] if self.has_lock or self.place == NO_FOLDER else [("create", self.lock)]
        steps = [("create", "a"), ("create", "a/b")] if self.makes_folder else []
        if not self.has_lock:
            steps.append(("create", self.lock))
        if not self.exists:
            steps.append(("create", self.registry))
        if self.verb == "add" and not self.old:
            steps += [("flush", name) for name in self.folders_upwards()]
        if "cor" in self.leftovers:
            steps.append(("remove", self.corrupt))
        if "tmp" in self.leftovers:
            steps.append(("rename", self.temporary, self.corrupt))
        steps.append(("create", self.temporary))
        return [*steps, *(self.abandoning() if self.refused else self.committing())]

    def abandoning(self):
        """The steps of an update that finds nothing to do: an add leaves its copy."""
        return [] if self.verb == "add" else [("remove", self.temporary)]

    def committing(self):
        steps = [("flush", self.temporary)]
        if "bkp" in self.leftovers:
            steps.append(("remove", self.backup))
        return [
            *steps,
            ("link", self.registry, self.backup),
            ("rename", self.temporary, self.registry),
            ("flush", self.folder.rstrip("/")),
            ("remove", self.backup),
        ]

    def take(self, files, step):
        """Makes one step on a dictionary like that of start()."""
        verb, name = step[:2]
        if verb == "create":
            is_folder = self.makes_folder and name in ("a", "a/b")
            files[name] = None if is_folder else UNFINISHED if name == self.temporary else b""
        elif verb == "flush" and name == self.temporary:
            files[name] = self.new
        elif verb == "remove":
            del files[name]
        elif verb == "rename":
            files[step[2]] = files.pop(name)
        elif verb == "link":
            files[step[2]] = files[name]

    def files_after(self, count):
        """What stands there after the first `count` steps."""
        files = self.start()
        for step in self.steps()[:count]:
            self.take(files, step)
        return files


class Continued(Scene):
    """The next update of a scene, on the files that an interrupted one has left."""

    def __init__(self, scene, files, name):
        """`files` are like those of start()."""
        self.subject, self.place, self.verb, self.refused = scene.subject, scene.place, "add", False
        self.files, self.name = files, name
        self.exists, self.has_lock = self.registry in files, self.lock in files
        stale = {"tmp": self.temporary, "cor": self.corrupt, "bkp": self.backup}
        self.leftovers = frozenset(kind for kind, path in stale.items() if path in files)
        before = scene.after if files.get(self.registry) == scene.new else scene.before
        self.settle(before, scene.next_update, scene.subject.next_update(turn=1))

    def start(self):
        return dict(self.files)


def differences(expected, found, copy):
    """What is wrong with the files found; an unfinished copy holds a beginning of `copy`."""
    wrong = [f"{name} is missing" for name in expected if name not in found]
    for name, contents in found.items():
        if name not in expected:
            wrong.append(f"{name} should not be there")
            continue
        wanted = expected[name]
        good = copy.startswith(contents) if wanted is UNFINISHED else contents == wanted
        if not good:
            wrong.append(f"{name} holds {contents!r:.200}")
    return wrong


class Call:
    """A line of a trace."""

    def __init__(self, line):
        index, self.name, result, *more = line.rstrip("\n").split("\t")
        self.index = int(index)
        self.paths = [field for field in more if not field.startswith("=")]
        self.details = [field[1:] for field in more if field.startswith("=")]
        self.result = None if result == "killed" else int(result)

    def made(self):
        return self.result is not None and self.result >= 0

    def __str__(self):
        return f"call {self.index} {self.name}({', '.join(self.paths)})"


def read_trace(path):
    """(calls, last line) of an injector's trace."""
    lines = path.read_text().splitlines()
    return [Call(line) for line in lines if "\t" in line], lines[-1] if lines else ""


def steps_made(calls, scene, top):
    """The steps that a trace shows, as (index of the call, step)."""
    standing = set(scene.start())
    made = []
    for call in calls:
        names = [relative_name(path, top) for path in call.paths]
        step = step_of(call, names, standing) if call.made() else None
        if step:
            made.append((call.index, step))
    return made


def relative_name(path, top):
    """The path below `top`, "" for itself, None for another place."""
    path = os.path.normpath(path) if path.startswith("/") else "/"
    if path == str(top):
        return ""
    return path[len(str(top)) + 1 :] if path.startswith(f"{top}/") else None


def step_of(call, names, standing):
    """The step that this call makes, or None; `standing` are the names that exist."""
    if not names or any(name is None for name in names):
        return None
    if call.name in ("open", "openat", "mkdir") and names[0] not in standing | {""}:
        standing.add(names[0])
        return ("create", names[0])
    if call.name in ("fsync", "fdatasync"):
        return ("flush", names[0])
    if call.name in ("unlink", "unlinkat"):
        standing.discard(names[0])
        return ("remove", names[0])
    if call.name in ("rename", "link"):
        standing.add(names[1])
        if call.name == "rename":
            standing.discard(names[0])
        return (call.name, *names)
    return None
