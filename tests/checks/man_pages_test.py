#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Builds the man pages (docs/man), lints them, and compares what they say with what there is.

- Every page is made by scdoc, and mandoc and groff have no warning about it.
- vrxreg(1) and `vrxreg --help` name the same nouns, verbs, options, fields and exit statuses.
- libvrxgenreg(3) names every exported class and function of that library, and no other.
- The status codes and the example bytes are those of docs/status-codes.md and docs/packed-record-format.md.

Not here: the sessions that the pages show (man_sessions_test.py).
"""
import argparse
import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGES = ROOT / "docs/man"

# scdoc puts a paragraph macro in front of every paragraph, where some are without effect.
GENERATOR_HABIT = "skipping paragraph macro"


def text_of(page):
    return (PAGES / page).read_text(encoding="utf-8")


def section(page, title):
    """The lines of one section."""
    found = re.search(rf"^# {title}\n(.*?)(?=^# |\Z)", text_of(page), re.M | re.S)
    return found.group(1) if found else ""


def differences(what, shown, written):
    """Findings where two sets of names are not the same."""
    return [f"{what}: not in the page: {name}" for name in sorted(shown - written)] + [
        f"{what}: only in the page: {name}" for name in sorted(written - shown)
    ]


# --- the pages as such


def lint(page):
    source = PAGES / page
    made = subprocess.run(["scdoc"], input=source.read_bytes(), capture_output=True, check=False)
    if made.returncode != 0:
        return [f"{page}: scdoc: {made.stderr.decode()}"]
    findings = []
    for command in (["mandoc", "-T", "lint", "-W", "warning"], ["groff", "-man", "-t", "-ww", "-z"]):
        ran = subprocess.run(command, input=made.stdout, capture_output=True, check=False)
        lines = (ran.stdout + ran.stderr).decode().splitlines()
        findings += [f"{page}: {line}" for line in lines if GENERATOR_HABIT not in line]
    return findings


# --- vrxreg(1)


def help_of(tool, *words):
    return subprocess.run([tool, *words, "--help"], capture_output=True, text=True, check=True).stdout


def names_below(text, heading):
    """The first words of the lines below a heading of the help, up to the next blank line."""
    found = re.search(rf"^{heading}\n(.*?)(?:\n\n|\Z)", text, re.M | re.S)
    return set(re.findall(r"^  (\S+)", found.group(1), re.M)) if found else set()


def options_in(text):
    return set(re.findall(r"(?<![\w-])(--[a-z][a-z-]*|-[a-z0])(?![\w-])", text))


def fields_in_page(noun):
    """The names of a noun's fields, as the page's entry for the noun has them."""
    entry = re.search(rf"^\*{noun}\*\n((?:\t.*\n)+)", section("vrxreg.1.scd", "NOUNS"), re.M)
    if not entry:
        return set()
    text = re.sub(r"\s+", " ", entry.group(1))
    key, _, others = text.partition("Other fields:")
    key = key.partition("Key:")[2]
    return set(re.findall(r"_([a-z]\w*)_", key)) | set(re.findall(r"\*([a-z]\w*)\*", others))


def compare_help(tool):
    page = "vrxreg.1.scd"
    text = help_of(tool)
    findings = []
    nouns = names_below(text, "Nouns:")
    written = set(re.findall(r"^\*(\w+)\*$", section(page, "NOUNS"), re.M))
    findings += differences("nouns", nouns, written)
    for noun in sorted(nouns & written):
        shown = names_below(help_of(tool, noun), "Fields:")
        findings += differences(f"fields of {noun}", shown, fields_in_page(noun))
    verbs = set()
    for heading in re.findall(r"^(.*[Vv]erbs.*:)$", text, re.M):
        verbs |= names_below(text, re.escape(heading))
    written = set(re.findall(r"^\*([a-z][a-z-]*)\*", section(page, "VERBS"), re.M))
    findings += differences("verbs", verbs, written)
    shown = text.partition("\nOptions (anywhere):\n")[2].partition("\nExit status:")[0]
    shown = "\n".join(re.split(r"\s{2,}", line.strip())[0] for line in shown.splitlines())
    heads = "\n".join(re.findall(r"^\*-.*$", section(page, "OPTIONS"), re.M))
    findings += differences("options", options_in(shown), options_in(heads.replace("*", "")))
    statuses = set(re.findall(r"(?:^|[ ,])(\d+) [a-z]", text.partition("Exit status:")[2]))
    written = set(re.findall(r"^\*(\d+)\*$", section(page, "EXIT STATUS"), re.M))
    return findings + differences("exit statuses", statuses, written)


# --- libvrxgenreg(3) and the formats


def exported_names():
    """The classes and the plain functions of the registry library."""
    names = set()
    for line in (ROOT / "tests/checks/exports/libvrxgenreg.amd64.txt").read_text().splitlines():
        name = line.split(None, 1)[1]
        names.add(re.match(r"\w+", name).group(0))
    return names


def compare_library():
    page = "libvrxgenreg.3.scd"
    tables = section(page, "CLASSES") + section(page, "FUNCTIONS")
    rows = re.findall(r"^\|  (.*)$", tables, re.M)
    written = {name for row in rows for name in row.split(", ")} | {"bCompactFormattedLine"}
    if "*bCompactFormattedLine*" not in text_of(page):
        return [f"{page}: does not name bCompactFormattedLine"]
    own = exported_names() | {"OSSHFile", "sqleGetLevelInfo"}  # of the libraries below
    return differences("names of the library", own, written)


def compare_codes():
    """Each status code of the tables means what the page of all codes says."""
    meanings = dict(re.findall(r"^\| (0x[0-9A-F]{8}) \|[^|]*\|([^|]*)\|",
                               (ROOT / "docs/status-codes.md").read_text(encoding="utf-8"), re.M))
    findings = [] if len(meanings) > 100 else ["docs/status-codes.md: not understood"]
    for page in sorted(path.name for path in PAGES.glob("*.scd")):
        for code, meaning in re.findall(r"^\|  (0x9[0-9A-F]{7})\n:  (.*)$", text_of(page), re.M):
            known = meanings.get(code, "").strip()
            if not known or not meaning.startswith(known):
                findings.append(f"{page}: {code} means \"{known}\", not \"{meaning}\"")
        for code in re.findall(r"0x9[0-9A-F]{7}", text_of(page)):
            if code not in meanings and code != "0x90000080":
                findings.append(f"{page}: {code} is no status code")
    return findings


def example_bytes(text):
    """The bytes of a hex dump whose lines begin with an offset."""
    rows = re.findall(r"^[0-9a-f]{6}((?:  ?[0-9a-f]{2})+)(?:  |$)", text, re.M)
    return bytes.fromhex("".join(rows))


def compare_example():
    page = (ROOT / "docs/packed-record-format.md").read_text(encoding="utf-8")
    expected = example_bytes(page.partition("<!-- example: one instance -->")[2])
    shown = example_bytes(section("vrx-global-registry.5.scd", "EXAMPLE"))
    if len(expected) == 72 and shown == expected:
        return []
    return [f"vrx-global-registry.5.scd: the example has {len(shown)} bytes, not those of the other page"]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tool", type=pathlib.Path, required=True)
    options = parser.parse_args()
    missing = [tool for tool in ("scdoc", "mandoc", "groff") if shutil.which(tool) is None]
    if missing:
        print(f"not installed: {', '.join(missing)}")
        return 77
    pages = sorted(path.name for path in PAGES.glob("*.scd"))
    findings = [] if len(pages) >= 4 else [f"only {len(pages)} pages"]
    for page in pages:
        findings += lint(page)
    findings += compare_help(options.tool) + compare_library() + compare_codes() + compare_example()
    for finding in findings:
        print(finding)
    print(f"{len(pages)} pages, {len(findings)} findings")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
