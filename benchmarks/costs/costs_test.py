#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Counts the system calls and allocations of one operation on a small and on a large registry.

Neither may depend on the number of records: allocations and all calls but reads and writes are the
same for both; reads and writes move blocks, as many as the file's size asks for.
"""
import argparse
import collections
import os
import re
import subprocess
import sys
import tempfile

SMALL, LARGE = 100, 10_000
SKIPPED = 77

# Bytes that one read or write has to move at the least while there are as many left.
BLOCK = 32 * 1024

# How often an operation moves the whole file: an update reads the old file, writes the new one, and
# reads both back.
PASSES = {"read": {"update": 2 + 1, "lookup": 1}, "write": {"update": 1, "lookup": 0}}

# Each pass may end with a short block and a read that finds the end.
SLACK_OF_A_PASS = 2

MOVES = {
    "read": ("read", "readv", "pread64", "preadv"),
    "write": ("write", "writev", "pwrite64", "pwritev"),
}

# Memory that the C library takes from the system as its blocks grow, or a mapping of the file: a few
# calls, however many there are for the other size.
MEMORY = ("brk", "mmap", "mmap2", "munmap", "mremap", "madvise")
MOST_MEMORY_CALLS = 16

CALL = re.compile(r"^(\w+)\(")


def kind_of(operation):
    return "update" if operation.endswith(("change", "set")) else "lookup"


def calls_between_marks(trace):
    """The calls between the two getppid calls, by name."""
    names = [match.group(1) for match in map(CALL.match, trace.splitlines()) if match]
    marks = [place for place, name in enumerate(names) if name == "getppid"]
    if len(marks) != 2:
        raise RuntimeError(f"{len(marks)} marks in the trace")
    return collections.Counter(names[marks[0] + 1 : marks[1]])


def count(program, operation, records, folder):
    """(allocations, calls by name, size of the registry) of one operation."""
    path = os.path.join(folder, f"registry-{records}")
    trace = os.path.join(folder, "trace")
    environment = {key: value for key, value in os.environ.items() if not key.startswith("VRX")}
    run = subprocess.run(
        ["strace", "-o", trace, program, operation, path, str(records)],
        stdout=subprocess.PIPE, env=environment, text=True, check=True,
    )
    with open(trace, encoding="utf-8", errors="replace") as lines:
        calls = calls_between_marks(lines.read())
    return int(run.stdout), calls, os.path.getsize(path)


def moves_of(calls, move):
    return sum(calls[name] for name in MOVES[move])


def most_moves(kind, move, size):
    blocks = -(-size // BLOCK)
    return PASSES[move][kind] * (blocks + SLACK_OF_A_PASS)


def other_calls(calls):
    left_out = MEMORY + MOVES["read"] + MOVES["write"]
    return {name: number for name, number in calls.items() if name not in left_out}


def findings(operation, small, large):
    kind = kind_of(operation)
    if small[0] != large[0]:
        yield f"{small[0]} allocations for {SMALL} records, {large[0]} for {LARGE}"
    for move in MOVES:
        for _, calls, size in (small, large):
            most, found = most_moves(kind, move, size), moves_of(calls, move)
            if found > most:
                yield f"{found} calls {move} for a file of {size} bytes, at most {most}"
    for _, calls, size in (small, large):
        if sum(calls[name] for name in MEMORY) > MOST_MEMORY_CALLS:
            yield f"more than {MOST_MEMORY_CALLS} calls for memory for a file of {size} bytes"
    few, many = other_calls(small[1]), other_calls(large[1])
    for name in sorted(few.keys() | many.keys()):
        if few.get(name, 0) != many.get(name, 0):
            yield f"{name}: {few.get(name, 0)} for {SMALL} records, {many.get(name, 0)} for {LARGE}"


def strace_works():
    try:
        return subprocess.run(["strace", "-o", "/dev/null", "true"], check=False,
                              stderr=subprocess.DEVNULL).returncode == 0
    except FileNotFoundError:
        return False


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", required=True)
    parser.add_argument("operation")
    options = parser.parse_args()
    if not strace_works():
        print("strace cannot trace here")
        return SKIPPED
    with tempfile.TemporaryDirectory() as folder:
        small = count(options.program, options.operation, SMALL, folder)
        large = count(options.program, options.operation, LARGE, folder)
    for records, (allocations, calls, size) in ((SMALL, small), (LARGE, large)):
        listed = ", ".join(f"{name} {number}" for name, number in sorted(calls.items()))
        print(f"{records} records, {size} bytes: {allocations} allocations; {listed}")
    found = list(findings(options.operation, small, large))
    print("\n".join(found) if found else "independent of the number of records")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
