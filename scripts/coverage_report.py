#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Sums up what gcovr has counted: lines and branches of each room, and the branches of the core not reached.

The core is the code of locking, opening, closing, updates and verification with what they stand on. There
every branch is to be reached by a test. One that cannot be is argued where it stands, with a comment
`// Unreached: REASON` on its line or right above its statement, which moves with the code. Exit status
1: a branch or line of the core is neither reached nor argued, or fewer lines are reached than wanted.
Arguments that are not needed any more are named.

Not here: building and running (scripts/dev/coverage.sh).
"""
import argparse
import collections
import json
import pathlib
import re
import sys

import list_sources

ROOT = list_sources.ROOT
LINES_WANTED = 95.0  # percent of all lines
ARGUMENT = re.compile(r"// Unreached: \S")
COMMENT = re.compile(r"\s*//")
CORE = re.compile(
    r"genreg/[a-z_]+\.cpp|genreg/internal/[a-z_]+\.h"
    r"|genreg/bin/(bin_|frame|record_block)[a-z_]*\.cpp|genreg/text/(text|line)_[a-z_]+\.cpp"
    r"|genreg/(bin|text)/internal/[a-z_]+\.h"
    r"|platform/osse/(directory_create|errors|file_handle|file_lock|files|ownership|sync)\.cpp"
)
NOT_CORE = {"genreg/status.cpp"}


class Count:
    """Reached ones of all."""

    def __init__(self):
        self.reached = self.all = 0

    def add(self, reached):
        self.reached += bool(reached)
        self.all += 1

    def percent(self):
        return 100.0 * self.reached / self.all if self.all else 100.0

    def __str__(self):
        return f"{self.reached:6}/{self.all:<6} {self.percent():5.1f} %"


def room_of(path):
    """The folder, internal headers counted with their owner."""
    folder = pathlib.PurePosixPath(path).parent
    return str(folder.parent if folder.name in ("internal", "detail") else folder)


def is_core(path):
    return bool(CORE.fullmatch(path)) and path not in NOT_CORE


def lines_of(entry):
    """The lines that count, each once: line number, reached or not, its branches reached or not."""
    merged = {}
    for line in entry["lines"]:
        if line.get("gcovr/noncode"):
            continue
        counted, branches = merged.get(line["line_number"], (0, []))
        found = [branch["count"] for branch in line["branches"]]
        if len(found) == len(branches):  # another instance of a template
            found = [a + b for a, b in zip(found, branches)]
        else:
            found += branches
        merged[line["line_number"]] = (counted + line["count"], found)
    return sorted(merged.items())


def first_line_of_statement(source, index):
    """Where the statement begins that goes on at the index; both count from 0."""
    while index > 0:
        before = source[index - 1].split("//")[0].rstrip()
        if not before or before[-1] in ";{}:":
            break
        index -= 1
    return index


def argument_of(source, number):
    """The line on which it is argued why something is not reached here: this one, or one of the comment right
    above the statement. None when it is not argued."""
    if ARGUMENT.search(source[number - 1]):
        return number
    above = first_line_of_statement(source, number - 1) - 1
    while above >= 0 and COMMENT.match(source[above]):
        if ARGUMENT.search(source[above]):
            return above + 1
        above -= 1
    return None


class Report:
    """The counts of all rooms and the findings of the core."""

    def __init__(self, root=ROOT):
        self.root = root
        self.lines = collections.defaultdict(Count)
        self.branches = collections.defaultdict(Count)
        self.findings, self.argued = [], 0
        self.arguments = {}  # by file and line: whether something is not reached there

    def add_file(self, entry):
        path = entry["file"]
        source = (self.root / path).read_text(encoding="utf-8").splitlines()
        for number, (count, branches) in lines_of(entry):
            for room in (room_of(path), "all", *(["the core"] if is_core(path) else [])):
                self.lines[room].add(count)
                for branch in branches:
                    self.branches[room].add(branch)
            if is_core(path):
                self.judge(path, source, number, count, branches)

    def judge(self, path, source, number, count, branches):
        missed = sum(not branch for branch in branches)
        argument = argument_of(source, number)
        needed = missed > 0 or count == 0
        if argument is not None:
            place = (path, argument)
            self.arguments[place] = self.arguments.get(place, False) or needed
        if not needed:
            return
        if argument is not None:
            self.argued += missed or 1
            return
        what = f"{missed} of {len(branches)} branches" if count > 0 else "the line"
        self.findings.append(f"{path}:{number}: {what} not reached: {source[number - 1].strip()}")

    def print_table(self):
        print(f"{'room':18} {'lines':>14}{'branches':>21}")
        rooms = sorted(set(self.lines) - {"all", "the core"})
        for room in [*rooms, "the core", "all"]:
            print(f"{room:18} {self.lines[room]}  {self.branches[room]}")

    def is_good(self):
        """Prints what is wrong."""
        for finding in self.findings:
            print(f"coverage: {finding}")
        for path, line in sorted(place for place, needed in self.arguments.items() if not needed):
            print(f"coverage: {path}:{line}: all is reached, and needs no argument")
        core = self.branches["the core"]
        print(f"coverage: core branches reached or argued {core.reached + self.argued}/{core.all}"
              f", {self.argued} of them argued")  # fmt: skip
        enough = self.lines["all"].percent() >= LINES_WANTED
        if not enough:
            print(f"coverage: fewer than {LINES_WANTED} % of all lines are reached")
        return enough and not self.findings


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("json", type=pathlib.Path, help="what gcovr --json has written")
    parser.add_argument("--root", type=pathlib.Path, default=ROOT)
    options = parser.parse_args()
    report = Report(options.root)
    for entry in json.loads(options.json.read_text(encoding="utf-8"))["files"]:
        report.add_file(entry)
    report.print_table()
    return 0 if report.is_good() else 1


if __name__ == "__main__":
    sys.exit(main())
