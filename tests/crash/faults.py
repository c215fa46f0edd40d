# SPDX-License-Identifier: Apache-2.0
"""Which failures are put into which system calls, and which answers to them are right.

Not here: running anything (run_matrix.py), what a killed update leaves (protocol.py).
"""
import errno

import registry_model as model

OPENING = ("EACCES", "EMFILE", "ENOSPC", "EINTR", "EIO")
LOOKING = ("EIO", "EACCES", "ENOMEM")
NAMING = ("EIO", "EACCES", "ENOSPC", "EROFS")
FLUSHING = ("EIO", "ENOSPC", "EINTR")
DRESSING = ("EIO", "EPERM", "EROFS")

# The errors of each call. A call that is not named here fails with EIO.
ERRORS = {
    "open": OPENING,
    "openat": OPENING,
    "read": ("EIO", "EINTR"),
    "write": ("EIO", "ENOSPC", "EDQUOT", "EINTR"),
    "fsync": FLUSHING,
    "fdatasync": FLUSHING,
    "link": (*NAMING, "EMLINK"),
    "rename": (*NAMING, "EBUSY"),
    "unlink": (*NAMING, "EBUSY"),
    "mkdir": NAMING,
    "fchmod": DRESSING,
    "fchown": DRESSING,
    "fsetxattr": (*DRESSING, "ENOTSUP"),
    "fcntl": ("EIO", "ENOLCK", "EINTR"),
    "close": ("EIO", "EINTR", "ENOSPC"),
    "brk": ("ENOMEM",),
    "mmap": ("ENOMEM",),
    "munmap": ("ENOMEM",),
    "stat": LOOKING,
    "lstat": LOOKING,
    "fstat": LOOKING,
    "newfstatat": LOOKING,
    "statx": LOOKING,
    "access": LOOKING,
    "readlink": LOOKING,
}
# A call that reports these for ever is asked again for ever, as it should be.
ASKED_AGAIN = ("EINTR",)
SHORTENED = ("read", "write")


class Fault:
    """What the injector is told to do at one point."""

    def __init__(self, call, action, error=None, lasting=False):
        self.call, self.action, self.error, self.lasting = call, action, error, lasting

    def options(self):
        out = ["--point", str(self.call.index), "--action", self.action]
        if self.error:
            out += ["--error", str(getattr(errno, self.error))]
        return out + (["--lasting"] if self.lasting else [])

    def __str__(self):
        how = " ".join(filter(None, [self.action, self.error, "from then on" if self.lasting else ""]))
        return f"{how} at {self.call}"


def kills(calls):
    return [Fault(call, action) for call in calls for action in ("kill-before", "kill-after")]


def failures(calls, lasting=False):
    """Each call failing with each of its errors; a descriptor is closed even when close fails."""
    out = []
    for call in calls:
        action = "fail-after" if call.name == "close" else "fail"
        for error in ERRORS.get(call.name, ("EIO",)):
            if not (lasting and error in ASKED_AGAIN):
                out.append(Fault(call, action, error, lasting))
        if call.name in SHORTENED:
            out.append(Fault(call, "shorten", lasting=lasting))
    return out


# Calls without which no update is made, or made safely.
INDISPENSABLE = ("write", "fsync", "fdatasync", "link", "rename")

OPEN_FAILED, CLOSE_FAILED, VERIFY_FAILED = 0x900001C5, 0x900001C6, 0x900001FB
BACKUP_NOT_DELETED = 0x900003F6
# Reported although the new contents stand.
STANDING = {0x900001BD: "lock not released", 0x900001EE: "memory not released"}

# What an update may report when the system fails it, by the contents of the headers. Codes that tell
# something about records (no match, a duplicate, nothing to change, damage) are not among them: a
# system error must not be taken for a fact about the registry.
FAILED = {
    0x900001E7: "no memory",
    0x900001BC: "no lock",
    OPEN_FAILED: "not opened",
    0x900001CD: "not read",
    0x900001D0: "not copied",
    CLOSE_FAILED: "not closed",
    VERIFY_FAILED: "not verified or not committed",
    0x90000254: "not unpacked, for want of memory",
    0x90000255: "not packed, for want of memory",
}
FAILED_OF = {
    "add": {0x900001CB: "no file information", 0x900001DF: "no end", 0x900001D2: "not written"},
    "change": {0x900001D3: "copy not deleted"},
    "delete": {0x900001D3: "copy not deleted"},
}


def must_fail(fault, registry_folder):
    """Whether the update cannot succeed: a call on the registry's own files that it depends on."""
    own = fault.call.paths and fault.call.paths[0].startswith(str(registry_folder))
    if not own or fault.action == "shorten" or fault.error in ASKED_AGAIN:
        return False
    return fault.call.name in INDISPENSABLE


# A copy that could not be written is told of as such, before anything is compared with it.
NOT_WRITTEN = (CLOSE_FAILED, 0x900001D0, 0x900001D2, 0x900001DF)


def judge_unwritten(fault, temporary, status):
    """What is wrong with the status when the temporary copy could not be written or flushed."""
    unwritten = fault.call.paths == [str(temporary)] and fault.call.name in ("write", "fsync")
    if not unwritten or fault.action == "shorten" or status in NOT_WRITTEN:
        return []
    if fault.error in ASKED_AGAIN and status == model.OK:
        return []
    return [f"a copy that is not written is reported as 0x{status:08X}"]


def judge_status(verb, status, logged, holds_new):
    """What is wrong with a status, given what the registry holds afterwards."""
    if status == model.OK or status in STANDING:
        return [] if holds_new else [f"status 0x{status:08X} without the new contents"]
    if status not in {**FAILED, **FAILED_OF[verb]}:
        return [f"status 0x{status:08X} is not for this" if status else "no status"]
    if holds_new and not (status == VERIFY_FAILED and BACKUP_NOT_DELETED in logged):
        return [f"status 0x{status:08X} although the new contents stand"]
    return []
