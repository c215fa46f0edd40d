# SPDX-License-Identifier: Apache-2.0
"""A folder as it stands, to be compared with others and to be put down again.

Two snapshots are equal when a program cannot tell the folders apart but by inode numbers and times: the
same names, contents, links between names, modes, owners and attributes. Not here: what should stand there.
"""
import os
import stat

import registry_driver as driving
from stage import ATTRIBUTE, belongings


class Snapshot:
    """Everything below a folder: (name, contents, first name of the inode, mode, belongings) tuples."""

    def __init__(self, folder):
        first, entries = {}, []
        for name, contents in driving.tree(folder).items():
            path = folder / name
            info = path.lstat()
            place = first.setdefault(info.st_ino, name)
            kept = None if path.is_symlink() else belongings(path)
            entries.append((name, contents, place, stat.S_IMODE(info.st_mode), kept))
        self.entries = tuple(entries)

    def __eq__(self, other):
        return self.entries == other.entries

    def __hash__(self):
        return hash(self.entries)

    def files(self):
        """Name to contents, as in driving.tree."""
        return {name: contents for name, contents, *_ in self.entries}

    def put_down(self, folder):
        """Makes an empty folder hold this."""
        for name, contents, place, mode, kept in self.entries:  # a folder sorts before what is in it
            path = folder / name
            if isinstance(contents, str):
                path.symlink_to(contents)
            elif place != name:
                os.link(folder / place, path)
            else:
                make(path, contents)
                give(path, mode, kept)


def make(path, contents):
    if contents is None:
        path.mkdir()
    else:
        path.write_bytes(contents)


def give(path, mode, kept):
    """The owner before the mode: a change of owner may clear bits of it."""
    user, group, attribute = kept
    if belongings(path)[:2] != (user, group):
        os.chown(path, user, group)
    path.chmod(mode)
    if attribute is not None:
        os.setxattr(path, ATTRIBUTE, attribute)
