#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Keeps the symbols files of the Debian packages in step with the lists of exports.

A symbols file says since which version of the package each symbol is there, so that a program depends on
no newer one than it needs. Symbols that a file has keep their version; new ones get the project's. Which
symbols there are is tests/checks/exports' alone. --update writes the files, else they are compared.
"""
import argparse
import pathlib
import re
import sys

import list_sources

ROOT = list_sources.ROOT
LIBRARIES = ["vrxosse", "vrxinstall", "vrxgenreg"]
ARCHITECTURES = ["amd64", "i386"]
DEVELOPMENT_PACKAGE = "libvrxgenreg-dev"


def project_version(root):
    text = (root / "CMakeLists.txt").read_text(encoding="utf-8")
    return re.search(r"project\(vrxgenreg VERSION ([0-9.]+)", text).group(1)


def exports_of(root, library, architecture):
    """The symbols of one list, as symbol@VERSION."""
    path = root / f"tests/checks/exports/lib{library}.{architecture}.txt"
    lines = path.read_text(encoding="utf-8").splitlines()
    return {line.split()[0].replace("@@", "@") for line in lines if line and line[0] != "#"}


def tagged_exports(root, library):
    """{symbol@VERSION: tag}; the tag names the architecture of a symbol that not all have."""
    lists = {name: exports_of(root, library, name) for name in ARCHITECTURES}
    tagged = {}
    for symbol in set().union(*lists.values()):
        owners = [name for name in ARCHITECTURES if symbol in lists[name]]
        tagged[symbol] = "" if owners == ARCHITECTURES else f"(arch={' '.join(owners)})"
    for node in {symbol.split("@")[1] for symbol in tagged}:
        tagged[f"{node}@{node}"] = ""
    return tagged


def known_versions(path):
    """{symbol@VERSION: since} of a symbols file as it is."""
    if not path.exists():
        return {}
    rows = re.findall(r"^ (?:\([^)]*\))?(\S+) (\S+)$", path.read_text(encoding="utf-8"), re.M)
    return dict(rows)


def symbols_file(root, library, path):
    tagged, known, version = tagged_exports(root, library), known_versions(path), project_version(root)
    lines = [
        f"lib{library}.so.1 lib{library}1 #MINVER#",
        f"* Build-Depends-Package: {DEVELOPMENT_PACKAGE}",
    ]
    lines += [f" {tagged[symbol]}{symbol} {known.get(symbol, version)}" for symbol in sorted(tagged)]
    return "\n".join(lines) + "\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", type=pathlib.Path, default=ROOT)
    parser.add_argument("--update", action="store_true", help="write the files")
    options = parser.parse_args()
    findings = 0
    for library in LIBRARIES:
        path = options.root / f"packaging/debian/lib{library}1.symbols"
        wanted = symbols_file(options.root, library, path)
        if path.exists() and path.read_text(encoding="utf-8") == wanted:
            continue
        if options.update:
            path.write_text(wanted, encoding="utf-8")
            print(f"{path.relative_to(options.root)}: {wanted.count(chr(10)) - 2} symbols")
            continue
        findings += 1
        print(f"{path.relative_to(options.root)}: not what tests/checks/exports says")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
