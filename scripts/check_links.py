#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Fails on a page or a comment that points at a file of this tree that is not there."""
import argparse
import pathlib
import re
import sys

import list_sources

# A link of a page, relative to it; and a page that a source names, relative to the root.
LINK = re.compile(r"\]\((?!https?://|#|mailto:)([^)#\s]+)")
FENCED = re.compile(r"^```.*?^```", re.M | re.S)
PAGE = re.compile(r"(?<![\w/.-])(docs/[\w.-]+\.md)\b")


def targets_of(path, text, root):
    """(line, target as written, where it should be) of everything that a file points at."""
    if path.suffix == ".md":  # what a page shows as code holds no links
        text = FENCED.sub(lambda block: "\n" * block.group(0).count("\n"), text)
    for number, line in enumerate(text.splitlines(), 1):
        if path.suffix == ".md":
            for target in LINK.findall(line):
                yield number, target, root / path.parent / target
        else:
            for target in PAGE.findall(line):
                yield number, target, root / target


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", type=pathlib.Path, default=list_sources.ROOT)
    root = parser.parse_args().root
    looked_at, missing = 0, []
    for path in list_sources.walk(root):
        if path.suffix != ".md" and not list_sources.is_cpp(path) and not list_sources.is_script(path):
            continue
        text = (root / path).read_text(encoding="utf-8", errors="replace")
        for line, target, place in targets_of(path, text, root):
            looked_at += 1
            if not place.exists():
                missing.append(f"{path}:{line}: no {target}")
    print("\n".join(missing + [f"{looked_at} links, {len(missing)} lead nowhere"]))
    return 1 if missing or not looked_at else 0


if __name__ == "__main__":
    sys.exit(main())
