#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""every_name_check.py PROGRAM: proves that every_name refers to every name that the libraries export.

A program that was linked against the libraries asks the dynamic linker for symbols with the versions of
the libraries' maps. Those symbols must be exactly the checked-in lists of exports (tests/checks/exports) of
the program's architecture, but for what no program can refer to, which stands below with its reason.
A variable may be defined in the program itself: the linker copies it there and keeps its version.
"""
import pathlib
import re
import struct
import subprocess
import sys

EXPORTS = pathlib.Path(__file__).resolve().parents[1] / "checks/exports"
MACHINES = {3: "i386", 62: "amd64"}

# Exported, and out of every program's reach.
UNREACHABLE = {
    "_ZN12GenRegVarVal4findEPKc": "a private member, exported with its class",
}


def machine_of(program):
    with open(program, "rb") as file:
        return MACHINES.get(struct.unpack_from("<H", file.read(20), 18)[0])


def referred_to_by(program):
    """The symbols with a version of ours that the program asks for."""
    lines = subprocess.run(
        ["nm", "-D", "--with-symbol-versions", str(program)],
        check=True, capture_output=True, text=True,
    ).stdout.splitlines()
    found = (re.search(r"\s[A-Z]\s(\S+?)@@?VRX\w+_\d+$", line) for line in lines)
    return {match.group(1) for match in found if match}


def exported(machine):
    """{symbol: demangled} of all lists of this architecture."""
    lists = sorted(EXPORTS.glob(f"*.{machine}.txt"))
    if not lists:
        sys.exit(f"no lists of exports for {machine}")
    names = {}
    for path in lists:
        for line in path.read_text(encoding="utf-8").splitlines():
            if line and not line.startswith("#"):
                symbol, name = line.split(None, 1)
                names[symbol.split("@")[0]] = name
    return names


def judge(names, referred):
    """What is wrong, as lines of text."""
    missing = sorted(names.keys() - referred - UNREACHABLE.keys())
    findings = [f"not called: {symbol}  {names[symbol]}" for symbol in missing]
    findings += [f"not listed: {symbol}" for symbol in sorted(referred - names.keys())]
    stale = sorted(UNREACHABLE.keys() & referred) + sorted(UNREACHABLE.keys() - names.keys())
    findings += [f"an exception no more: {symbol}" for symbol in stale]
    return findings


def main():
    program = sys.argv[1]
    machine = machine_of(program)
    if machine is None:
        print("no lists of exports for this architecture")
        return 77
    names, referred = exported(machine), referred_to_by(program)
    findings = judge(names, referred)
    for finding in findings:
        print(finding)
    print(f"{machine}: {len(names)} exported names, {len(names.keys() & referred)} called, "
          f"{len(UNREACHABLE)} unreachable, {len(findings)} findings")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
