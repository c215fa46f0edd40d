#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Makes the mistakes listed in tests/mutants one at a time, and expects the tests to notice each.

The sources are copied to a folder of their own, so that the tree is never touched. One mutant after the
other is written there, built and tested, until a test fails: first the unit tests of the commit, then the
others, at last the short power cuts. `mutants killed N/N` is the result; exit status 1 tells of a survivor,
or of a mutant that did not compile, which proves nothing. Before that, a change that changes nothing must
survive everything: else the tests are red for another reason.

Not here: the mistakes themselves.
"""
import argparse
import os
import pathlib
import re
import signal
import subprocess
import sys
import time

import list_sources

ROOT = list_sources.ROOT
sys.path.insert(0, str(ROOT / "tests" / "mutants"))
import commit_path  # noqa: E402
import stores  # noqa: E402

# A mutant may wait for ever. The change of nothing shows how long the tests take here and now.
PATIENCE, SHORTEST_LIMIT, FIRST_LIMIT = 4, 30, 3600
UNTOUCHED = "a change of nothing"
CONTROL = ("genreg/registry_close.cpp", UNTOUCHED, "// Closing a registry", "// Closing of a registry")
FIRST_SUITES = "Registry*:Update*:Guards.*:Bin*:OssSync.*:OssFile*:OssDescriptor*:ChecksumHeader.*"
FAILED_TEST = re.compile(r"\[  FAILED  \] (\S+)")
CONFIGURATION = (
    "-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-O0 -w", "-DVRX_BUILD_CLI=OFF", "-DVRX_BUILD_CHECKS=OFF",
)  # fmt: skip
# Nothing here has to survive a power cut: the tests' files stay in memory where they can.
MEMORY = "/dev/shm"
ENVIRONMENT = {**os.environ, **({"TMPDIR": MEMORY} if os.access(MEMORY, os.W_OK) else {})}
SKIPPED = 77  # this machine cannot run it
KILLED, SURVIVED, UNBUILT = "killed", "SURVIVED", "DID NOT COMPILE"


def listed():
    """Every mutant as (file, name, text, replacement)."""
    tables = (commit_path.MUTANTS, stores.MUTANTS)
    return [(path, *row) for table in tables for path, rows in table.items() for row in rows]


def mutate(source, text, replacement):
    """The source with its one occurrence of the text replaced."""
    if source.count(text) != 1:
        raise ValueError(f"stands there {source.count(text)} times")
    if text == replacement:
        raise ValueError("replaces a text by itself")
    return source.replace(text, replacement)


def misfits(mutants, root=ROOT):
    """What is wrong with the list: texts that do not stand exactly once in their file, names used twice."""
    found, names = [], set()
    for path, name, text, replacement in mutants:
        try:
            mutate((root / path).read_text(encoding="utf-8"), text, replacement)
        except (ValueError, OSError) as reason:
            found.append(f"{path}: {name}: {reason}")
        if (path, name) in names:
            found.append(f"{path}: {name}: listed twice")
        names.add((path, name))
    return found


class Command:
    """A finished command: whether it succeeded, and what it printed. One that takes too long is killed."""

    def __init__(self, arguments, seconds, log):
        with open(log, "wb") as out:
            process = subprocess.Popen(
                [str(argument) for argument in arguments],
                stdin=subprocess.DEVNULL, stdout=out, stderr=out, start_new_session=True,
                env=ENVIRONMENT,
            )  # fmt: skip
            try:
                self.status = process.wait(seconds)
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, signal.SIGKILL)
                process.wait()
                self.status = None
        self.text = pathlib.Path(log).read_text(encoding="utf-8", errors="replace")

    def killer(self, name):
        """Which test of `name` noticed, by what was printed."""
        if self.status is None:
            return f"{name} (waits for ever)"
        failed = FAILED_TEST.search(self.text)
        if failed:
            return failed.group(1).rstrip(",")
        return f"{name} (ended by signal {-self.status})" if self.status < 0 else name


class Workshop:
    """A copy of the sources with its build."""

    def __init__(self, folder, jobs):
        self.tree, self.build, self.log = folder / "tree", folder / "build", folder / "log"
        self.jobs = jobs
        self.limits = {}  # seconds, by what is run
        folder.mkdir(parents=True, exist_ok=True)

    def refresh(self):
        """Makes the copy agree with the sources; what agrees is not written, so that it is not built."""
        wanted = set(list_sources.walk(ROOT))
        for path in wanted:
            target = self.tree / path
            contents = (ROOT / path).read_bytes()
            if not target.exists() or target.read_bytes() != contents:
                target.parent.mkdir(parents=True, exist_ok=True)
                target.write_bytes(contents)
                target.chmod((ROOT / path).stat().st_mode)
        if self.tree.exists():
            for path in set(list_sources.walk(self.tree)) - wanted:
                (self.tree / path).unlink()

    def configure(self):
        command = ["cmake", "-S", self.tree, "-B", self.build, "-G", "Ninja", *CONFIGURATION]
        if not Command(command, None, self.log).status == 0:
            sys.exit(f"mutants: the copy cannot be configured ({self.log})")

    def make(self, *targets):
        command = ["cmake", "--build", self.build, "-j", self.jobs, "--target", *targets]
        return Command(command, None, self.log).status == 0

    def timed(self, name, command):
        """What noticed, or None when the command passed. Its first time sets the limit for the next ones."""
        started = time.monotonic()
        run = Command(command, self.limits.get(name, FIRST_LIMIT), self.log)
        taken = time.monotonic() - started
        self.limits.setdefault(name, max(SHORTEST_LIMIT, PATIENCE * taken))
        return None if run.status in (0, SKIPPED) else run.killer(name)

    def units(self, name, choice):
        command = [self.build / "tests/vrx_unit_tests", "--gtest_brief=1", "--gtest_fail_fast"]
        return self.timed(name, [*command, f"--gtest_filter={choice}"])

    def power_cuts(self):
        if not self.make("regdriver", "crash_injector"):
            return "the driver, which does not compile"
        return self.timed("the power cuts", [
            self.tree / "tests/crash/run_power.py", "--short", "--jobs", self.jobs,
            "--driver", self.build / "tests/support/regdriver",
            "--injector", self.build / "tests/crash/crash_injector",
        ])  # fmt: skip

    def first_failure(self):
        """The test that noticed, or None when all pass."""
        return (
            self.units("the tests of the commit", FIRST_SUITES)
            or self.units("the other tests", f"*-{FIRST_SUITES}")
            or self.power_cuts()
        )

    def try_one(self, mutant):
        """(outcome, what noticed)."""
        path, _, text, replacement = mutant
        target = self.tree / path
        source = target.read_text(encoding="utf-8")
        target.write_text(mutate(source, text, replacement), encoding="utf-8")
        try:
            if not self.make("vrx_unit_tests"):
                return UNBUILT, str(self.log)
            noticed = self.first_failure()
            return (KILLED, noticed) if noticed else (SURVIVED, "no test")
        finally:
            target.write_text(source, encoding="utf-8")


def report(mutant, outcome, noticed, seconds):
    path, name, _, _ = mutant
    print(f"{outcome:8} {path}: {name}: {noticed} ({seconds:.0f} s)", flush=True)


def try_all(workshop, mutants):
    """The number of killed mutants; tells each one's fate."""
    killed = 0
    for mutant in mutants:
        started = time.monotonic()
        outcome, noticed = workshop.try_one(mutant)
        killed += outcome == KILLED
        report(mutant, outcome, noticed, time.monotonic() - started)
    return killed


def chosen(pattern):
    """The mutants whose file or name has a match of the pattern."""
    found = [mutant for mutant in listed() if re.search(pattern, f"{mutant[0]}: {mutant[1]}")]
    return found or sys.exit(f"mutants: none is called {pattern}")


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--only", default="", metavar="PATTERN", help="those whose file or name matches")
    parser.add_argument("--check", action="store_true", help="only see whether every mutant fits its file")
    parser.add_argument("--work", type=pathlib.Path, default=ROOT / "build/mutants")
    parser.add_argument("--jobs", default=str(os.cpu_count()))
    return parser.parse_args()


def main():
    options = parse_arguments()
    wrong = misfits([CONTROL, *listed()])
    for finding in wrong:
        print(f"mutants: {finding}")
    if wrong or options.check:
        return 1 if wrong else 0
    mutants = chosen(options.only)
    workshop = Workshop(options.work, options.jobs)
    workshop.refresh()
    workshop.configure()
    outcome, noticed = workshop.try_one(CONTROL)
    print(f"control: {UNTOUCHED} {outcome.lower()}", flush=True)
    if outcome != SURVIVED:
        print(f"mutants: nothing can be told: {noticed} fails without a mutant")
        return 1
    killed = try_all(workshop, mutants)
    print(f"mutants killed {killed}/{len(mutants)}")
    return 0 if killed == len(mutants) else 1


if __name__ == "__main__":
    sys.exit(main())
