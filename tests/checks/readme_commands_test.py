#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the README's command-line session and compares every line it shows."""
import argparse
import os
import pathlib
import shutil
import subprocess
import sys

import readme_block

HOST = pathlib.Path(__file__).resolve().parents[2] / "scripts/private_host.sh"


def steps_of(session):
    """(command, expected output) of each `$` line."""
    steps = []
    for line in session.splitlines():
        if line.startswith("$ "):
            steps.append((line[2:].split("  #")[0].rstrip(), []))
        elif steps:
            steps[-1][1].append(line)
    return steps


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--tool", type=pathlib.Path, required=True)
    parser.add_argument("--work", type=pathlib.Path, required=True)
    options = parser.parse_args()
    if subprocess.run([HOST, "--probe"], check=False).returncode != 0:
        return 77
    shutil.rmtree(options.work, ignore_errors=True)
    options.work.mkdir(parents=True)
    environment = dict(os.environ, PATH=f"{options.tool.parent}:{os.environ['PATH']}")
    environment["VRX_GLOBAL_REG_PATHNAME"] = str(options.work / "global.reg")
    steps = steps_of(readme_block.block("console"))
    failed = len(steps) < 5
    for command, expected in steps:
        ran = subprocess.run(
            [HOST, options.work / "host", "bash", "-c", command],
            env=environment, capture_output=True, text=True, check=False,
        )
        shown = (ran.stdout + ran.stderr).splitlines()
        if [line.rstrip() for line in shown] != [line.rstrip() for line in expected]:
            failed = True
            print(f"$ {command}\nshown:    {shown}\nexpected: {expected}")
    print(f"{len(steps)} commands")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
