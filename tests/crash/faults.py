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

# The errors of each call. A call that is not named here fails with EIO; these two cannot fail.
ERRORS = {
    "getpid": (),
    "getuid": (),
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
# What every call fails with, whether or not it would: an update must not rely on a list of errors.
EVERY_ERROR = ("EIO", "ENOSPC", "EDQUOT", "EROFS", "EMFILE", "ENOMEM", "EACCES", "ENOLCK", "EINTR")
# A call may be made again when it reports an interruption, but not for ever when it always does.
ASKED_AGAIN = ("EINTR",)
ENDLESS = "endless"  # the end of a run that does
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

    def strike(self, stage, more=()):
        """Runs the update with this fault: (outcome, how it ended, what is wrong with the strike)."""
        outcome, calls, end = stage.run(self.options(), more)
        struck = next((call for call in calls if call.index == self.call.index), None)
        same = struck and (struck.name, struck.paths) == (self.call.name, self.call.paths)
        return outcome, end, [] if same else [f"struck {struck}"]

    @property
    def passes(self):
        """Whether the call may succeed when it is made again."""
        return self.error in ASKED_AGAIN and not self.lasting

    @staticmethod
    def judge_kept(_):
        return []

    def __str__(self):
        how = " ".join(filter(None, [self.action, self.error, "from then on" if self.lasting else ""]))
        return f"{how} at {self.call}"


class Allocation:
    """An allocation in the place of a system call."""

    name, paths = "allocation", ()

    def __init__(self, index):
        self.index = index

    def __str__(self):
        return f"allocation {self.index}"


class NoMemory(Fault):
    """An allocation that fails; `kept` is how many blocks an undisturbed run has at the second mark."""

    def __init__(self, index, kept, lasting=False):
        super().__init__(Allocation(index), "fail", "ENOMEM", lasting)
        self.kept = kept

    def strike(self, stage, more=()):
        outcome = stage.run_short_of_memory(self.call.index, self.lasting, more)
        end = f"exit {outcome.exit_status}" if outcome.exit_status >= 0 else f"signal {-outcome.exit_status}"
        struck = outcome.allocations is not None and outcome.allocations[1] > 0
        return outcome, end, [] if struck or end.startswith("signal") else ["no allocation failed"]

    def judge_kept(self, outcome):
        """More blocks than the undisturbed update keeps are lost, the C library's own included."""
        lost = outcome.allocations[2] - self.kept
        return [f"lost {lost} allocated blocks"] if lost > 0 else []


def kills(calls):
    return [Fault(call, action) for call in calls for action in ("kill-before", "kill-after")]


def failures_with(call, errors, lasting):
    """The call failing with each of these errors; a descriptor is closed even when close fails."""
    action = "fail-after" if call.name == "close" else "fail"
    return [Fault(call, action, error, lasting) for error in errors]


def failures(calls, lasting=False):
    """Each call failing with each of its errors."""
    out = []
    for call in calls:
        out += failures_with(call, ERRORS.get(call.name, ("EIO",)), lasting)
        if call.name in SHORTENED:
            out.append(Fault(call, "shorten", lasting=lasting))
    return out


def every_failure(calls, lasting):
    """Each call failing with every error. brk, which reports none, fails in one way."""
    out = []
    for call in calls:
        errors = EVERY_ERROR if ERRORS.get(call.name, EVERY_ERROR) else ()
        out += failures_with(call, errors if call.name != "brk" else ("ENOMEM",), lasting)
    return out


def droughts(stage, extents, more=()):
    """Each allocation failing; `extents` has False for once, True for from then on."""
    stage.set_up()
    count, _, kept = stage.run_short_of_memory(0, False, more).allocations
    return [NoMemory(number, kept, lasting) for lasting in extents for number in range(1, count + 1)]


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
    if not own or fault.action == "shorten" or fault.passes:
        return False
    return fault.call.name in INDISPENSABLE


# A copy that could not be written is told of as such, before anything is compared with it.
NOT_WRITTEN = (CLOSE_FAILED, 0x900001D0, 0x900001D2, 0x900001DF)


def judge_unwritten(fault, temporary, status):
    """What is wrong with the status when the temporary copy could not be written or flushed."""
    unwritten = fault.call.paths == [str(temporary)] and fault.call.name in ("write", "fsync")
    if not unwritten or fault.action == "shorten" or status in NOT_WRITTEN:
        return []
    if fault.passes and status == model.OK:
        return []
    return [f"a copy that is not written is reported as 0x{status:08X}"]


def judge_status(scene, fault, outcome, holds_new):
    """What is wrong with the status, given what the registry holds afterwards."""
    status = outcome.status
    if scene.refused:
        return judge_refusal(scene, fault, status)
    if status == model.OK or status in STANDING:
        return [] if holds_new else [f"status 0x{status:08X} without the new contents"]
    if status not in {**FAILED, **FAILED_OF[scene.verb]}:
        return [f"status 0x{status:08X} is not for this" if status else "no status"]
    if holds_new and not (status == VERIFY_FAILED and BACKUP_NOT_DELETED in outcome.logged):
        return [f"status 0x{status:08X} although the new contents stand"]
    return []


def judge_refusal(scene, fault, status):
    """Where there is nothing to do, that is said, or what failed; but not of what was not read."""
    if status == scene.status:
        return [f"0x{status:08X} from a registry that was not read"] if is_unread(fault, scene) else []
    if status in {**FAILED, **FAILED_OF[scene.verb]}:
        return []
    return ["no status" if status is None else f"status 0x{status:08X} is not for this"]


def is_unread(fault, scene):
    """Whether the fault kept the update from reading all of the registry."""
    call = fault.call
    lost = fault.action == "fail" and not fault.passes and call.name in ("read", "pread64")
    return lost and call.paths[0].endswith(f"/{scene.registry}")
