#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Fails on any include that goes against the layers of the house (docs/house.md).

The tables below are the rules. A room may include itself and the rooms that its row names; everything
else is refused, an unknown folder too. Not here: style (check_style.py).
"""
import argparse
import fnmatch
import pathlib
import re
import sys

import list_sources

# Room: (its files, the rooms it may include beside itself). The first pattern that fits decides.
ROOMS = {
    "osse": ("platform/osse/*", []),
    "install": ("platform/install/*", ["osse"]),
    "bin": ("genreg/bin/*", ["genreg", "osse", "install"]),
    "text": ("genreg/text/*", ["genreg", "osse", "install"]),
    "formats": ("genreg/formats/*", ["text", "bin", "genreg", "osse", "install"]),
    "genreg": ("genreg/*", ["osse", "install"]),
    "globalreg": ("globalreg/*", ["bin", "genreg", "osse", "install"]),
    "oss": ("oss/*", ["globalreg", "bin", "genreg", "osse", "install"]),
    "vrx": (
        "vrx/*",
        ["oss", "globalreg", "formats", "text", "bin", "genreg", "osse", "install"],
    ),
    "cli": (
        "cli/*",
        ["umbrella", "vrx", "oss", "globalreg", "formats", "text", "bin", "genreg", "osse", "install"],
    ),
    "examples": ("docs/examples/*", ["umbrella", "vrx"]),
    "umbrella": (
        "vrxgenreg.h",
        ["oss", "globalreg", "formats", "text", "bin", "genreg", "osse", "install"],
    ),
}

# Tests see everything; nothing else may include them.
TESTS = ["tests/*", "fuzz/*", "benchmarks/*", "*_test.cpp"]

# The only edges against the order of the rooms: (files that include, header included).
UPWARD_EDGES = [
    ("genreg/checksum_header.cpp", "genreg/bin/checksum.h"),
    ("globalreg/*", "oss/version_code.h"),
    ("globalreg/fixpack_sync.cpp", "oss/directory.h"),
]

# Edges refused although the rooms allow them: (files that include, header included, why).
REFUSED_EDGES = [
    ("genreg/text/fields.*", "genreg/registry.h", "string functions know no registry objects"),
    ("genreg/text/line_io.*", "genreg/registry.h", "line functions know no registry objects"),
    ("genreg/text/fields.*", "genreg/text/text_store.h", "string functions know no store"),
    ("genreg/text/line_io.*", "genreg/text/text_store.h", "line functions know no store"),
    ("genreg/bin/checksum.*", "genreg/registry.h", "the checksum is a leaf"),
    ("genreg/registry.h", "genreg/internal/*", "the chief header is public"),
]

# Which library a folder belongs to: internal headers stay within theirs.
LIBRARIES = {
    "libvrxosse": ["platform/osse/*"],
    "libvrxinstall": ["platform/install/*"],
    "libvrxgenreg": ["genreg/*", "globalreg/*", "oss/*"],
    "the face": ["vrx/*"],
    "vrxreg": ["cli/*"],
}

# Folders of third-party headers and the room that may use them. The libraries use none. The examples are
# programs of somebody else, for whom the face is a third party's.
THIRD_PARTY = {"cli": ["CLI", "nlohmann", "fmt", "libsmartcols", "dtl"], "examples": ["vrx"]}

# Folders that system headers stand in; a name without a folder is taken for a system header.
SYSTEM_FOLDERS = {"sys", "netinet", "arpa", "net", "linux"}
SYSTEM_NAME = re.compile(r"[a-z0-9_]+(\.h)?")

# Words kept to the files that have the duty: (files, the ones of them that may, pattern, why).
# Patterns are looked for in the code without its comments.
DUTIES = [
    (
        ["genreg/*", "globalreg/*", "oss/*"],
        ["genreg/registry_close.cpp"],
        r"(?<![\w.>:])(::)?(link|linkat)\(",
        "only registry_close links the registry to its backup",
    ),
    (
        ["genreg/*", "globalreg/*", "oss/*"],
        ["genreg/registry_paths.cpp", "globalreg/internal/fixed_names.h"],
        r'"[^"\n]*\.(tmp|cor|bkp|lock)"',
        "only registry_paths forms a companion name",
    ),
    (
        ["globalreg/*"],
        [],
        r"\b(Lock|UnLock|OpenReg|CloseReg)\(",
        "the global registry leaves locking and opening to the store",
    ),
    (
        ["oss/*"],
        [],
        r"\b(fopen|open|openat|fread|fwrite|stat|lstat|OSSHFile|FILE)\b",
        "the directory interface touches no files",
    ),
]

INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*(?:"([^"\n]*)"|<([^>\n]*)>|(\S+))', re.M)


def fits(path, patterns):
    return any(fnmatch.fnmatchcase(path, pattern) for pattern in patterns)


def room_of(path):
    return next((room for room, (files, _) in ROOMS.items() if fits(path, [files])), None)


def library_of(path):
    return next((name for name, files in LIBRARIES.items() if fits(path, files)), None)


def is_internal(path):
    return "internal" in pathlib.PurePath(path).parts


def judge_rooms(path, header):
    """Why a file of one room may not include a header of another; None when it may."""
    room, other = room_of(path), room_of(header)
    if fits(header, TESTS):
        return "production code includes nothing of the tests"
    if any(fits(path, [a]) and fits(header, [b]) for a, b in UPWARD_EDGES):
        return None
    if other is None:
        return "the header is in no known room"
    if room == other:
        return None
    if other not in ROOMS[room][1]:
        return f"{room} may not include {other}"
    return None


def judge_formats(path, header):
    """Formats do not see each other: within genreg/formats a file includes its own noun's headers."""
    if room_of(path) != "formats" or room_of(header) != "formats" or is_internal(header):
        return None
    if pathlib.PurePath(path).stem.startswith(pathlib.PurePath(header).stem):
        return None
    return "one format may not include another"


def judge_internal(path, header):
    if not is_internal(header):
        return None
    if library_of(path) != library_of(header):
        return f"{header} is internal to {library_of(header)}"
    if path.endswith(".h") and not is_internal(path) and is_public_header(path):
        return "a public header includes no internal one"
    return None


def is_public_header(path):
    return library_of(path) in ("libvrxosse", "libvrxinstall", "libvrxgenreg")


def judge_quoted(path, header, root):
    if not (root / header).is_file():
        return "no such file below the repository root"
    for a, b, why in REFUSED_EDGES:
        if fits(path, [a]) and fits(header, [b]):
            return why
    return judge_rooms(path, header) or judge_formats(path, header) or judge_internal(path, header)


def judge_angled(path, header):
    folder, _, name = header.rpartition("/")
    first = folder.split("/")[0]
    if first in SYSTEM_FOLDERS or (not folder and SYSTEM_NAME.fullmatch(name)):
        return None
    if first in THIRD_PARTY.get(room_of(path), []):
        return None
    return f"<{header}> is neither a system header nor allowed here"


def line_of(text, offset):
    return text.count("\n", 0, offset) + 1


def judge_includes(path, code, root):
    """The findings about one file's includes."""
    findings = []
    for match in INCLUDE.finditer(code):
        quoted, angled, other = match.groups()
        if quoted is not None:
            why = judge_quoted(path, quoted, root)
        elif angled is not None:
            why = judge_angled(path, angled)
        else:
            why = f"include of a macro ({other})"
        if why:
            findings.append((line_of(code, match.start()), f"{match.group(0).strip()}: {why}"))
    return findings


def judge_duties(path, code):
    """The findings about words that belong to other files."""
    findings = []
    for files, exempt, pattern, why in DUTIES:
        if not fits(path, files) or fits(path, exempt):
            continue
        for match in re.finditer(pattern, code):
            findings.append((line_of(code, match.start()), f"{match.group(0)}: {why}"))
    return findings


def judge_file(path, text, root):
    if fits(path, TESTS):
        return []
    if room_of(path) is None:
        return [(1, "the file is in no known room: put it into one, or add its room to the table")]
    code = list_sources.blank_out(text, keep_strings=True)
    return judge_includes(path, code, root) + judge_duties(path, code)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", type=pathlib.Path, default=list_sources.ROOT)
    root = parser.parse_args().root
    files = [path for path in list_sources.walk(root) if list_sources.is_cpp(path)]
    count = 0
    for path in files:
        text = (root / path).read_text(encoding="utf-8", errors="replace")
        for line, finding in judge_file(path.as_posix(), text, root):
            print(f"{path}:{line}: {finding}")
            count += 1
    print(f"{len(files)} files, {count} findings against the layers")
    return 1 if count or not files else 0


if __name__ == "__main__":
    sys.exit(main())
