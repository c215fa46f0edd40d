#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes docs/status-codes.md from the tables of status codes, or with --check says that it is stale."""
import argparse
import pathlib
import re
import sys

import list_sources

PAGE = "docs/status-codes.md"
TABLES = [
    ("The registry library", "genreg/status_codes.inc"),
    ("The platform layer", "platform/osse/status_codes.inc"),
]
HEAD = """# Status codes

Generated from the tables in the sources by `./dev docs`; edit those.

Every function that can fail returns 0 or one of these values, unsigned 32-bit; one value means one
condition everywhere. `vrxreg explain CODE` prints a row. A system error that has no code of its own is
0x90000080 + errno.
"""
STRING = r'"((?:\\.|[^"\\])*)"'
ROW = re.compile(
    r"^VRX_STATUS\(\s*(\w+),\s*(0x[0-9A-Fa-f]+|0),\s*"
    + r",\s*".join([f"((?:{STRING}\\s*)+)"] * 3).replace(STRING, r'"(?:\\.|[^"\\])*"')
    + r"\)$",
    re.M,
)


def join_literals(text):
    """The text of adjacent string literals."""
    return "".join(re.findall(STRING, text)).replace('\\"', '"').replace("\\\\", "\\")


def rows_of(path):
    text = path.read_text(encoding="utf-8")
    rows = [
        (int(value, 16), name, *(join_literals(part) for part in parts))
        for name, value, *parts in ROW.findall(text)
    ]
    if len(rows) != len(re.findall(r"^\s*VRX_STATUS\(", text, re.M)):
        sys.exit(f"{path}: a row is not understood")
    if len({row[0] for row in rows}) != len(rows):
        sys.exit(f"{path}: a code stands twice")
    return sorted(rows)


def cell(text):
    return text.replace("|", "\\|").replace("<", "&lt;")


def page(root):
    parts = [HEAD]
    for title, table in TABLES:
        parts.append(f"\n## {title}\n\n| Code | Name | Meaning | Raised by | What to do |")
        parts.append("\n|---|---|---|---|---|\n")
        for code, name, meaning, raised_by, remedy in rows_of(root / table):
            value = f"0x{code:08X}" if code else "0"
            cells = (value, f"`{name}`", cell(meaning), cell(raised_by), cell(remedy))
            parts.append(f"| {' | '.join(cells)} |\n")
    return "".join(parts)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", type=pathlib.Path, default=list_sources.ROOT)
    parser.add_argument("--check", action="store_true", help="compare instead of writing")
    options = parser.parse_args()
    target = options.root / PAGE
    text = page(options.root)
    if not options.check:
        target.parent.mkdir(exist_ok=True)
        target.write_text(text, encoding="utf-8")
        print(PAGE)
        return 0
    if target.exists() and target.read_text(encoding="utf-8") == text:
        print(f"{PAGE} is fresh")
        return 0
    print(f"{PAGE} is stale: run ./dev docs")
    return 1


if __name__ == "__main__":
    sys.exit(main())
