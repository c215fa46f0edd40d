#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Compares what the built libraries export with the lists in tests/checks/exports.

A line of a list is a symbol as the linker knows it, with its version, and then as a reader does. A
symbol that disappears breaks programs linked against the library; one that appears is a promise that
somebody should have meant to make. --update writes the lists anew; look at the difference it makes.

Symbols that the compiler may or may not emit (weak ones: inline functions) are no promise and are not
listed; but one that is exported without belonging to a class of the list is reported.
"""
import argparse
import pathlib
import re
import struct
import subprocess
import sys

import list_sources

LIBRARIES = ["vrxosse", "vrxinstall", "vrxgenreg"]
LISTS = list_sources.ROOT / "tests/checks/exports"
MACHINES = {3: "i386", 62: "amd64"}


def machine_of(library):
    """The architecture named in the ELF header; None for one that has no lists."""
    with open(library, "rb") as file:
        header = file.read(20)
    if header[:4] != b"\x7fELF":
        sys.exit(f"{library}: not an ELF file")
    return MACHINES.get(struct.unpack_from("<H", header, 18)[0])


def run(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, **options).stdout


def demangled(names):
    plain = [name.split("@")[0] for name in names]
    lines = run("c++filt", input="\n".join(plain) + "\n").splitlines()
    return dict(zip(names, lines))


def exports_of(library):
    """The strong symbols exported, and the weak ones: {symbol@@VERSION: demangled}."""
    strong, weak = [], []
    for line in run("nm", "-D", "--defined-only", "--format=posix", str(library)).splitlines():
        name, kind = line.split()[:2]
        if kind == "A":  # the version itself
            continue
        (weak if kind in "VWuvw" else strong).append(name)
    return demangled(sorted(strong)), demangled(sorted(weak))


def soname_of(library):
    found = re.search(r"\(SONAME\)[^\[]*\[(.*)\]", run("readelf", "-d", "-W", str(library)))
    return found.group(1) if found else None


def read_list(path):
    lines = path.read_text(encoding="utf-8").splitlines() if path.exists() else []
    return {line.split()[0] for line in lines if line and not line.startswith("#")}


def write_list(path, exports):
    path.parent.mkdir(parents=True, exist_ok=True)
    body = "".join(f"{symbol}  {name}\n" for symbol, name in sorted(exports.items()))
    path.write_text(body, encoding="utf-8")
    print(f"{path.relative_to(list_sources.ROOT)}: {len(exports)} symbols")


def class_of(name):
    """The class that a demangled member function belongs to; None for anything else."""
    match = re.match(r"(\w+)::~?\w+", name)
    return match.group(1) if match else None


def judge(name, library, machine):
    """The findings about one library."""
    path = LISTS / f"lib{name}.{machine}.txt"
    strong, weak = exports_of(library)
    listed = read_list(path)
    findings = [f"not exported: {symbol}" for symbol in sorted(listed - strong.keys())]
    findings += [f"not listed: {s}  {strong[s]}" for s in sorted(strong.keys() - listed)]
    classes = {class_of(symbol) for symbol in strong.values()} - {None}
    findings += [f"leaks: {s}  {n}" for s, n in weak.items() if class_of(n) not in classes]
    if not listed:
        findings.append(f"no list {path.name}")
    if soname_of(library) != f"lib{name}.so.1":
        findings.append(f"SONAME is {soname_of(library)}, not lib{name}.so.1")
    return findings, len(strong)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True, help="the build folder")
    parser.add_argument("--update", action="store_true", help="write the lists anew")
    options = parser.parse_args()
    failed = False
    for name in LIBRARIES:
        library = options.build / f"lib{name}.so"
        machine = machine_of(library)
        if machine is None:
            print(f"lib{name}: no lists for this architecture")
            return 77
        if options.update:
            write_list(LISTS / f"lib{name}.{machine}.txt", exports_of(library)[0])
            continue
        findings, count = judge(name, library, machine)
        failed = failed or bool(findings)
        print(f"lib{name}.{machine}: {count} symbols, {len(findings)} findings")
        for finding in findings:
            print(f"  {finding}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
