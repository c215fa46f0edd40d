#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Prints the one fenced block of the README that is in a given language; also a module."""
import pathlib
import re
import sys

README = pathlib.Path(__file__).resolve().parents[2] / "README.md"


def block(language):
    """The block's text. It is an error when there is none, or more than one."""
    text = README.read_text(encoding="utf-8")
    found = re.findall(rf"^```{re.escape(language)}\n(.*?)^```$", text, re.M | re.S)
    if len(found) != 1:
        sys.exit(f"README.md has {len(found)} blocks of {language}, not one")
    return found[0]


if __name__ == "__main__":
    sys.stdout.write(block(sys.argv[1]))
