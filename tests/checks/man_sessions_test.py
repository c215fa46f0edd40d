#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the sessions that the man pages show and compares every line.

A session is the `$` lines of a page's EXAMPLES and what stands below them. Those of a page share one folder
and one registry; a block before a page's first `$` line is the file app.env.
"""
import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys

from readme_commands_test import HOST, steps_of

PAGES = pathlib.Path(__file__).resolve().parents[2] / "docs/man"
SESSIONS = {"vrxreg.1.scd": 8, "vrx-profile.5.scd": 1}  # page: how many commands it shows


def blocks_of(page):
    text = (PAGES / page).read_text(encoding="utf-8").partition("\n# EXAMPLES\n")[2]
    return re.findall(r"^```\n(.*?)^```$", text, re.M | re.S)


def prepare(folder, blocks):
    folder.mkdir(parents=True)
    (folder / "level").write_text("version=3.1.0.7\nbuild_level=s250131\nfixpack=9\n")
    for block in blocks:
        if not block.startswith("$ "):
            (folder / "app.env").write_text(block)


def run_page(page, tool, folder):
    """The findings about one page, and how many commands it shows."""
    blocks = blocks_of(page)
    prepare(folder, blocks)
    environment = dict(os.environ, PATH=f"{tool.parent}:{os.environ['PATH']}",
                       VRX_GLOBAL_REG_PATHNAME=str(folder / "global.reg"),
                       VRX_LEVEL_FILE=str(folder / "level"))
    findings = []
    steps = [step for block in blocks if block.startswith("$ ") for step in steps_of(block)]
    for command, expected in steps:
        ran = subprocess.run(
            [HOST, folder / "host", "bash", "-c", command], cwd=folder, env=environment,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False,
        )
        if ran.stdout.splitlines() != expected:
            findings.append(f"{page}: $ {command}\nshown:    {ran.stdout.splitlines()}\nexpected: {expected}")
    return findings, len(steps)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--tool", type=pathlib.Path, required=True)
    parser.add_argument("--work", type=pathlib.Path, required=True)
    options = parser.parse_args()
    if subprocess.run([HOST, "--probe"], check=False).returncode != 0:
        return 77
    shutil.rmtree(options.work, ignore_errors=True)
    findings = []
    for page, commands in SESSIONS.items():
        found, count = run_page(page, options.tool.resolve(), options.work.resolve() / page)
        findings += found
        if count != commands:
            findings.append(f"{page}: {count} commands, not {commands}")
    for finding in findings:
        print(finding)
    print(f"{sum(SESSIONS.values())} commands, {len(findings)} findings")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
