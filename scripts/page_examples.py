#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Puts the files of docs/examples into docs/programming.md, or (--check) tells where they differ.

The page names each file in a comment, `<!-- file: profile.cpp -->`, and the fenced block below it holds the
file's contents. Every file of the folder stands in the page, and every program has an expected output
beside it. Not here: compiling and running them (tests/consumer).
"""
import argparse
import pathlib
import re
import sys

import list_sources

LANGUAGES = {".cpp": "cpp", ".out": "text"}
BLOCK = re.compile(r"<!-- file: (\S+) -->\n```\w*\n(.*?)^```$", re.M | re.S)


def contents_of(path):
    """A file as the page shows it: without its licence line."""
    text = path.read_text(encoding="utf-8")
    return re.sub(r"\A// SPDX-License-Identifier: .*\n", "", text)


def filled(page, folder, findings):
    """The page with each block replaced by its file."""

    def block(match):
        path = folder / match.group(1)
        if not path.is_file():
            findings.append(f"no such file: {match.group(1)}")
            return match.group(0)
        return f"<!-- file: {path.name} -->\n```{LANGUAGES[path.suffix]}\n{contents_of(path)}```"

    return BLOCK.sub(block, page)


def missing_from(page, folder):
    """Files that the page does not show, and programs without an expected output."""
    shown = {name for name, _ in BLOCK.findall(page)}
    files = sorted(path for path in folder.iterdir() if path.suffix in LANGUAGES)
    findings = [f"not in the page: {path.name}" for path in files if path.name not in shown]
    for path in files:
        if path.suffix == ".cpp" and not path.with_suffix(".out").is_file():
            findings.append(f"without an expected output: {path.name}")
    if len(files) < 2:
        findings.append(f"only {len(files)} files in {folder}")
    return findings


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--check", action="store_true", help="write nothing, fail on a difference")
    parser.add_argument("--root", type=pathlib.Path, default=list_sources.ROOT)
    options = parser.parse_args()
    path, folder = options.root / "docs/programming.md", options.root / "docs/examples"
    page = path.read_text(encoding="utf-8")
    findings = missing_from(page, folder)
    new = filled(page, folder, findings)
    if options.check:
        old_blocks, new_blocks = BLOCK.findall(page), BLOCK.findall(new)
        findings += [f"differs from the page: {old[0]}"
                     for old, now in zip(old_blocks, new_blocks) if old != now]
    elif new != page:
        path.write_text(new, encoding="utf-8")
    for finding in findings:
        print(finding)
    print(f"{len(BLOCK.findall(page))} files in the page, {len(findings)} findings")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
