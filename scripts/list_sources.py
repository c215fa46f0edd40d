#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Lists the project's source files, one a line; also the module that the checks read sources with.

The tree is walked, not asked of git, so that a plain copy of it is checked alike. Not here: rules.
"""
import argparse
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
NOT_OURS = {"build", ".git"}
CPP = {".h", ".cpp", ".inc"}
SCRIPTS = {".py", ".sh", ".cmake", ".bats"}
SCRIPT_NAMES = {"CMakeLists.txt", "dev", "run"}


def walk(root=ROOT):
    """Every file of the tree as a path relative to it, sorted; links are not followed."""
    found = []
    folders = [root]
    while folders:
        for path in folders.pop().iterdir():
            if path.is_symlink():
                continue
            if path.is_dir():
                # NOT_OURS are folders of the root alone; a cache is not ours anywhere.
                ignored = path.parent == root and path.name in NOT_OURS
                if not ignored and path.name != "__pycache__":
                    folders.append(path)
            else:
                found.append(path.relative_to(root))
    return sorted(found)


def is_cpp(path):
    return path.suffix in CPP


def is_script(path):
    return path.suffix in SCRIPTS or path.name in SCRIPT_NAMES


def is_test(path):
    """Unit tests beside their source, and what stands in the folders of tests."""
    return path.parts[0] in ("tests", "fuzz", "benchmarks") or path.stem.endswith("_test")


_TOKEN = re.compile(
    r"""//[^\n]*|/\*.*?\*/|R"(?P<tag>[^\s()\\]{0,16})\(.*?\)(?P=tag)"|"(?:\\.|[^"\\\n])*\""""
    r"""|(?<![0-9A-Fa-f])'(?:\\.|[^'\\\n])+'""",
    re.S,
)


def blank_out(text, keep_strings=False):
    """The text with comments, and strings unless kept, replaced by blanks; lines keep their numbers."""

    def blank(match):
        token = match.group(0)
        if token[0] != "/" and keep_strings:
            return token
        return re.sub(r"[^\n]", " ", token)

    return _TOKEN.sub(blank, text)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--cpp", action="store_true", help="C++ files alone")
    parser.add_argument("--production", action="store_true", help="leave tests out")
    parser.add_argument("--units", action="store_true", help="translation units alone (.cpp)")
    parser.add_argument("-0", dest="null", action="store_true", help="end each with a NUL")
    options = parser.parse_args()
    for path in walk():
        taken = is_cpp(path) or (is_script(path) and not options.cpp)
        if options.production and is_test(path):
            taken = False
        if options.units and path.suffix != ".cpp":
            taken = False
        # Tables of macros are not laid out by clang-format: one row stays one line.
        if options.cpp and path.suffix == ".inc":
            taken = False
        if taken:
            print(path, end="\0" if options.null else "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
