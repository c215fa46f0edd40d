# SPDX-License-Identifier: Apache-2.0
"""A campaign spread over processes, each in a private host; each prints a line of JSON a result.

Not here: what a worker does when it is started with --worker INDEX COUNT.
"""
import argparse
import concurrent.futures
import json
import pathlib
import shutil
import subprocess
import sys
import time
import unittest

import registry_driver as driving
import subjects


def parser(summary):
    """The options that every campaign has."""
    made = argparse.ArgumentParser(description=summary)
    made.add_argument("--driver", type=pathlib.Path, required=True)
    made.add_argument("--injector", type=pathlib.Path, help="crash_injector, beside ../support")
    length = made.add_mutually_exclusive_group()
    length.add_argument("--short", dest="full", action="store_false", default=False)
    length.add_argument("--full", action="store_true")
    made.add_argument("--jobs", type=int, default=2)
    made.add_argument("--format", nargs="+", default=(), choices=subjects.NAMES, help="not all")
    made.add_argument("--scene", default="", help="only scenes whose name has this in it")
    made.add_argument("--progress", action="store_true", help="name each scene that is done on standard error")
    made.add_argument("--worker", type=int, nargs=2, help=argparse.SUPPRESS)
    return made


def read_options(made):
    """What the command line says, with the programs found."""
    options = made.parse_args()
    options.driver, options.injector = programs(options)
    return options


def work_of(options, make_work):
    """The work that make_work(subject) gives for each chosen format: tuples that begin with a scene."""
    chosen = [each for each in subjects.SUBJECTS if each.name in options.format or not options.format]
    work = [each for subject in chosen for each in make_work(subject)]
    return [each for each in work if options.scene in each[0].name]


def start_worker(program, options, index):
    """Runs one worker in a private host: (exit status, what it printed)."""
    folder = driving.scratch_folder()
    command = [sys.executable, str(program), *sys.argv[1:]]
    command += ["--worker", str(index), str(options.jobs)]
    try:
        done = subprocess.run(
            driving.private_command(folder, command),
            env=driving.private_environment(),
            stdout=subprocess.PIPE,
            text=True,
            check=False,
        )
    finally:
        shutil.rmtree(folder, ignore_errors=True)
    return done.returncode, done.stdout


def collect(program, options):
    """The results of `options.jobs` workers, or None when one could not do its work."""
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        ends = list(pool.map(lambda index: start_worker(program, options, index), range(options.jobs)))
    for status, output in ends:
        if status == driving.SKIPPED:
            driving.skip(output.strip() or "this system allows no private mounts")
        if status != 0:
            print(output)
            return None
    return [json.loads(line) for _, output in ends for line in output.splitlines()]


def run(program, options, work, try_scene, report):
    """The whole campaign, or a worker's share of it; the exit status.

    `work` are tuples, try_scene(*tuple, options) makes of one a result that goes into JSON, and
    report(results, seconds) judges all results.
    """
    if options.worker:  # inside a private host: every Nth piece of the work; one line of JSON for each
        first, step = options.worker
        for piece in work[first::step]:
            print(json.dumps(try_scene(*piece, options)), flush=True)
            if options.progress:
                print(piece[0].name, file=sys.stderr, flush=True)
        return 0
    if not driving.have_private_host():
        driving.skip("this system allows no private mounts")
    started = time.monotonic()
    results = collect(program, options)
    return 1 if results is None else report(results, time.monotonic() - started)


def run_tests(summary, found):
    """The tests of the calling program, in a private host; `found` gets the driver and the injector."""
    made = argparse.ArgumentParser(description=summary)
    made.add_argument("--driver", type=pathlib.Path, required=True)
    made.add_argument("--injector", type=pathlib.Path)
    options = made.parse_args()
    found.driver, found.injector = programs(options)
    if not driving.have_private_host():
        driving.skip("this system allows no private mounts")
    driving.go_private()
    unittest.main(argv=sys.argv[:1])


def programs(options):
    """The driver and the injector, made absolute; ends this program where the injector is missing."""
    driver = options.driver.resolve()
    injector = (options.injector or driver.parent.parent / "crash/crash_injector").resolve()
    if not injector.exists():
        driving.skip(f"{injector} is not built")
    return driver, injector
