#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Compares the packaging files with what an installation lays down.

Every installed file belongs to exactly one package, every line of an install list finds a file, every
file named after a package names one of the control file, and the newest changelog entry has the
project's version. Not here: the symbols files (debian_symbols.py), and building packages (./dev package).
"""
import argparse
import fnmatch
import pathlib
import re
import sys

import debian_symbols
import list_sources

ROOT = list_sources.ROOT
SOURCE_FILES = {"changelog", "control", "copyright", "rules"}


def packages_of(debian):
    return re.findall(r"^Package: (\S+)$", (debian / "control").read_text(encoding="utf-8"), re.M)


def install_lines(debian, packages):
    """(package, pattern) of all install lists."""
    lines = []
    for package in packages:
        path = debian / f"{package}.install"
        text = path.read_text(encoding="utf-8") if path.exists() else ""
        lines += [(package, line.split()[0]) for line in text.splitlines() if line.strip()]
    return lines


def packaged_name(path):
    """Where a package has a file of an installed prefix; libraries go to the architecture's folder."""
    name = path.as_posix()
    return "usr/" + re.sub(r"^lib/", "lib/ARCHITECTURE/", name)


def takes(pattern, name):
    """Whether a line takes a file: by its own name, or by a folder above it."""
    parts = name.split("/")
    above = ("/".join(parts[: end + 1]) for end in range(len(parts)))
    depth = pattern.count("/")
    return any(p.count("/") == depth and fnmatch.fnmatchcase(p, pattern) for p in above)


def judge_files(names, lines):
    findings = []
    for name in names:
        owners = sorted({package for package, pattern in lines if takes(pattern, name)})
        if len(owners) != 1:
            findings.append(f"{name}: in {' and '.join(owners) or 'no package'}")
    for package, pattern in lines:
        if not any(takes(pattern, name) for name in names):
            findings.append(f"{package}.install: nothing is called {pattern}")
    return findings


def judge_names(debian, packages):
    """Files that debhelper would pass over, since no package has their name."""
    named = [path.name for path in debian.iterdir() if path.is_file()]
    return [
        f"{name}: no package of this name"
        for name in sorted(named)
        if name not in SOURCE_FILES and name.rsplit(".", 1)[0] not in packages
    ]


def judge_version(root, debian):
    found = re.match(r"\S+ \(([^-)]+)", (debian / "changelog").read_text(encoding="utf-8")).group(1)
    wanted = debian_symbols.project_version(root)
    return [] if found == wanted else [f"changelog: version {found}, the project has {wanted}"]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", type=pathlib.Path, default=ROOT)
    parser.add_argument("--prefix", type=pathlib.Path, required=True, help="an installed tree")
    options = parser.parse_args()
    debian = options.root / "packaging/debian"
    packages = packages_of(debian)
    names = [
        packaged_name(path.relative_to(options.prefix))
        for path in sorted(options.prefix.rglob("*"))
        if path.is_symlink() or path.is_file()
    ]
    findings = judge_files(names, install_lines(debian, packages))
    findings += judge_names(debian, packages) + judge_version(options.root, debian)
    for finding in findings:
        print(finding)
    print(f"{len(names)} installed files, {len(packages)} packages, {len(findings)} findings")
    return 1 if findings or not names else 0


if __name__ == "__main__":
    sys.exit(main())
