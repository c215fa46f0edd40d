#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Sums up the results that `./dev test` filed in a folder.

A preset PRESET leaves PRESET.xml (ctest's JUnit report), PRESET.red when ctest reported a failure, or
PRESET.failed when it could not be built. With --preset: one line about that preset, and the output of
what failed in it. Without: the last line of all, `N passed, M failed`, and exit status 1 when M is not 0.
"""
import argparse
import pathlib
import sys
import xml.etree.ElementTree as xml

SHOWN_FAILURES = 20  # more than these are named without their output
SHOWN_LINES = 40  # of the output of one failure
SHOWN_COLUMNS = 300
SHOWN_SKIPS = 12


class Results:
    """What became of the tests of one preset."""

    def __init__(self):
        self.passed = []
        self.failed = []  # (name, output)
        self.skipped = []  # (name, reason)

    def add(self, case):
        name = case.get("name")
        output = case.findtext("system-out") or ""
        status = case.get("status")
        skip = case.find("skipped")
        reason = skip.get("message", "") if skip is not None else ""
        if status == "run":
            self.passed.append(name)
        elif status == "disabled":
            self.skipped.append((name, "disabled"))
        elif status == "notrun" and reason.startswith("SKIP_"):
            self.skipped.append((name, output))
        else:  # failed, timed out, crashed; or not run for want of its program or fixture
            self.failed.append((name, reason or output))


def load(folder, preset):
    """The results of one preset; whatever is missing or contradictory is a failure."""
    results = Results()
    broken = folder / f"{preset}.failed"
    if broken.exists():
        results.failed.append((broken.read_text().strip(), ""))
        return results
    try:
        for case in xml.parse(folder / f"{preset}.xml").iter("testcase"):
            results.add(case)
    except (OSError, xml.ParseError) as error:
        results.failed.append((f"report of {preset}", str(error)))
    if not (results.passed or results.failed or results.skipped):
        results.failed.append((f"tests of {preset}", "no test ran"))
    if (folder / f"{preset}.red").exists() and not results.failed:
        results.failed.append((f"ctest of {preset}", f"see {folder}/{preset}.log"))
    return results


def counts(passed, failed, skipped):
    text = f"{passed} passed, {failed} failed"
    return text + (f", {skipped} skipped" if skipped else "")


def show_failures(failed):
    for name, output in failed[:SHOWN_FAILURES]:
        print(f"\n--- failed: {name}")
        lines = output.rstrip().splitlines()
        if len(lines) > SHOWN_LINES:
            print(f"... {len(lines) - SHOWN_LINES} lines before")
        print("\n".join(line[:SHOWN_COLUMNS] for line in lines[-SHOWN_LINES:]))
    for name, _ in failed[SHOWN_FAILURES:]:
        print(f"--- failed: {name}")


def report_preset(folder, preset, built, tested):
    results = load(folder, preset)
    line = counts(len(results.passed), len(results.failed), len(results.skipped))
    print(f"{preset:8} built in {built} s; tests: {line} in {tested} s", flush=True)
    for name, _ in results.skipped[:SHOWN_SKIPS]:
        print(f"         skipped: {name}")
    if len(results.skipped) > SHOWN_SKIPS:
        print(f"         and {len(results.skipped) - SHOWN_SKIPS} more skipped")
    show_failures(results.failed)


def report_all(folder):
    presets = sorted({path.stem for path in folder.iterdir() if path.suffix in (".xml", ".failed")})
    presets += sorted({path.stem for path in folder.glob("*.red")} - set(presets))
    every = [load(folder, preset) for preset in presets]
    passed, failed, skipped = (
        sum(len(getattr(results, kind)) for results in every)
        for kind in ("passed", "failed", "skipped")
    )
    if not presets:
        failed = 1
    print(counts(passed, failed, skipped))
    return 1 if failed else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--preset")
    parser.add_argument("--built", default="?")
    parser.add_argument("--tested", default="?")
    options = parser.parse_args()
    if options.preset:
        report_preset(options.folder, options.preset, options.built, options.tested)
        return 0
    return report_all(options.folder)


if __name__ == "__main__":
    sys.exit(main())
