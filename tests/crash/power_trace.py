# SPDX-License-Identifier: Apache-2.0
"""What an update asks of the disk, out of a trace of its system calls.

An event changes names, data or an inode's metadata, or waits until such changes are on the disk.
Inodes are numbered in the order of their creation, so that the same update has the same numbers under
every sync policy. Not here: what of it survives a power cut (power_model.py).
"""
import dataclasses
import os

import protocol

DIRECTORY = -1  # the inode of every folder: folders have no contents of their own here
NO_CHANGE = 0xFFFFFFFF  # the owner or group that a chown leaves alone
HARMLESS = frozenset(
    "read pread64 readv close stat fstat lstat newfstatat statx lseek fcntl access faccessat faccessat2 "
    "readlink readlinkat getxattr fgetxattr flistxattr getdents64 mmap dup".split()
)


@dataclasses.dataclass(frozen=True)
class Names:
    """Names that now mean an inode, or none; `steps` are what a file system without atomic renames does."""

    what: str
    folder: str
    parts: tuple
    steps: tuple = ()


@dataclasses.dataclass(frozen=True)
class Write:
    inode: int
    offset: int
    data: bytes


@dataclasses.dataclass(frozen=True)
class Truncate:
    inode: int
    length: int


@dataclasses.dataclass(frozen=True)
class Metadata:
    inode: int
    key: str
    value: object


@dataclasses.dataclass(frozen=True)
class SyncFile:
    inode: int


@dataclasses.dataclass(frozen=True)
class SyncFolder:
    folder: str


class UnknownCall(Exception):
    """A call that may change files and is not understood: nothing can be said about the update."""


class Recording:
    """The files before an update, and the events of the update."""

    def __init__(self, start, metadata_of):
        """start: name to contents, None for folders; metadata_of(name) is a dictionary."""
        self.names, self.contents, self.metadata, self.events = {}, {}, {}, []
        for name, contents in start.items():
            self.names[name] = DIRECTORY if contents is None else self.new_inode(contents, metadata_of(name))

    def new_inode(self, contents, metadata):
        inode = len(self.contents)
        self.contents[inode], self.metadata[inode] = contents, metadata
        return inode

    def final_names(self):
        names = dict(self.names)
        for event in self.events:
            if isinstance(event, Names):
                names.update(event.parts)
        return {name: inode for name, inode in names.items() if inode is not None}


class Reader:
    """Turns calls into a recording's events; `names` and `sizes` are what the program saw."""

    def __init__(self, recording, top):
        self.recording, self.top = recording, top
        self.names = dict(recording.names)
        self.umask = os.umask(0o022)
        os.umask(self.umask)

    def read(self, calls):
        for call in calls:
            names = [protocol.relative_name(path, self.top) for path in call.paths]
            if not call.made() or all(name is None for name in names):
                continue
            if call.name in HARMLESS:
                continue
            reader = getattr(self, f"read_{call.name}", None)
            if reader is None or None in names:
                raise UnknownCall(str(call))
            reader(call, names)
        return self.recording

    def change_names(self, what, parts, steps=()):
        for name, inode in parts:
            self.names[name] = inode
        folder = os.path.dirname(parts[0][0])
        self.recording.events.append(Names(what, folder, tuple(parts), tuple(steps or parts)))

    def add(self, event):
        self.recording.events.append(event)

    def inode(self, name):
        return self.names[name]

    def read_open(self, call, names):
        self.opened(names[0], *arguments(call)[1:3])

    def read_openat(self, call, names):
        self.opened(names[0], *arguments(call)[2:4])

    def opened(self, name, flags, mode):
        if name == "" or self.names.get(name) == DIRECTORY:
            return
        if self.names.get(name) is None:
            owner = {"uid": os.geteuid(), "gid": os.getegid()}
            inode = self.recording.new_inode(b"", {"mode": mode & 0o7777 & ~self.umask, **owner})
            self.change_names(f"create {name}", [(name, inode)])
        elif flags & os.O_TRUNC:
            self.add(Truncate(self.inode(name), 0))

    def read_mkdir(self, _, names):
        self.change_names(f"create {names[0]}", [(names[0], DIRECTORY)])

    def read_write(self, call, names):
        position, data = int(call.details[1]), bytes.fromhex(call.details[2])[: call.result]
        self.add(Write(self.inode(names[0]), position, data))

    def read_pwrite64(self, call, names):
        data = bytes.fromhex(call.details[2])[: call.result]
        self.add(Write(self.inode(names[0]), arguments(call)[3], data))

    def read_ftruncate(self, call, names):
        self.add(Truncate(self.inode(names[0]), arguments(call)[1]))

    def read_fchmod(self, call, names):
        self.add(Metadata(self.inode(names[0]), "mode", arguments(call)[1] & 0o7777))

    def read_fchown(self, call, names):
        for key, value in zip(("uid", "gid"), arguments(call)[1:3]):
            if value != NO_CHANGE:
                self.add(Metadata(self.inode(names[0]), key, value))

    def read_fsetxattr(self, call, names):
        """An attribute that has become another one; what it holds plays no part in a power cut."""
        inode = self.inode(names[0])
        earlier = [event for event in self.recording.events if getattr(event, "inode", None) == inode]
        count = sum(getattr(event, "key", "").startswith("attribute") for event in earlier)
        self.add(Metadata(inode, f"attribute {count + 1}", call.name))

    read_fremovexattr = read_fsetxattr

    def read_fsync(self, _, names):
        inode = self.names.get(names[0], DIRECTORY)
        self.add(SyncFolder(names[0]) if inode == DIRECTORY else SyncFile(inode))

    read_fdatasync = read_fsync

    def read_unlink(self, _, names):
        self.change_names(f"remove {names[0]}", [(names[0], None)])

    read_unlinkat = read_unlink

    def read_link(self, _, names):
        self.change_names(f"link {names[0]} {names[1]}", [(names[1], self.inode(names[0]))])

    def read_rename(self, _, names):
        old, new = names
        put, taken = (new, self.inode(old)), (old, None)
        steps = [(new, None), put, taken] if self.names.get(new) is not None else [put, taken]
        self.change_names(f"rename {old} {new}", [put, taken], steps)


def arguments(call):
    return [int(argument, 16) for argument in call.details[0].split(",")]
