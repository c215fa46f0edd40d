# SPDX-License-Identifier: Apache-2.0
"""A scene set up in a folder, and its update run under the injector, or short of memory.

Not here: what is made of the trace and of what stands there afterwards (judges.py, run_power.py).
"""
import contextlib
import os
import pathlib
import shutil

import protocol
import registry_driver as driving

TOP = pathlib.Path("/tmp/case")
TRACE = pathlib.Path("/tmp/trace")
MODE = 0o640
ATTRIBUTE = "user.origin"


class Stage:
    """One scene, set up again for each trial."""

    def __init__(self, scene, driver_program, injector):
        self.scene, self.injector = scene, str(injector)
        self.driver = driving.Driver(driver_program, TOP / scene.given, scene.subject.options)
        self.failing_malloc = pathlib.Path(driver_program).parent.parent / "crash/libfailing_malloc.so"
        self.rounds = driving.Rounds(self.driver, scene.next_update.words)
        self.registry = TOP / scene.registry
        self.mode, self.belongings = MODE, None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.rounds.stop()

    def set_up(self):
        shutil.rmtree(TOP, ignore_errors=True)
        TOP.mkdir()
        driving.CHANGE_LOG.unlink(missing_ok=True)
        self.put_down()

    def put_down(self):
        """Makes what the scene starts with."""
        for name, contents in self.scene.start().items():
            path = TOP / name
            if contents is None:
                path.mkdir()
            elif isinstance(contents, str):
                path.symlink_to(contents)
            else:
                path.write_bytes(contents)
        if self.scene.exists:
            self.registry.chmod(MODE)
            give_away(self.registry)
            self.belongings = belongings(self.registry)

    def run(self, options=(), more=(), before=()):
        """The update under the injector: (outcome, calls, last line of the trace).

        `before` are words of the driver's before the update, `more` those behind it.
        """
        TRACE.unlink(missing_ok=True)
        under = [self.injector, "--trace", str(TRACE), *options, "--"]
        outcome = self.driver.run(*before, *self.scene.update.words, *more, under=under)
        if outcome.exit_status == driving.SKIPPED:
            driving.skip("this system refuses the tracing of processes")
        return (outcome, *protocol.read_trace(TRACE))

    def run_short_of_memory(self, number, lasting, more=()):
        """The update with its `number`th allocation failing (0: none); see failing_malloc.cpp."""
        settings = {
            "LD_PRELOAD": str(self.failing_malloc),
            "FAILING_ALLOCATION": f"{number}{'+' if lasting else ''}",
        }
        return self.driver.run(*self.scene.update.words, *more, settings=settings)

    def more(self):
        """A second update by the same object."""
        return ("++", *self.scene.next_update.words)

    def contents(self):
        return self.registry.read_bytes() if self.registry.exists() else b""


def give_away(path):
    """Another owner and an attribute, where this process may: the copy has more to take over."""
    for gift in (
        lambda: os.chown(path, 1, 1),
        lambda: os.setxattr(path, ATTRIBUTE, b"here"),
    ):
        with contextlib.suppress(OSError):
            gift()


def belongings(path):
    """Owner, group and attribute of a file."""
    info, attribute = path.stat(), None
    with contextlib.suppress(OSError):
        attribute = os.getxattr(path, ATTRIBUTE)
    return info.st_uid, info.st_gid, attribute
