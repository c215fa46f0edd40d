# SPDX-License-Identifier: Apache-2.0
"""A campaign spread over processes, each in a private host; each prints a line of JSON a result.

Not here: what a worker does when it is started with --worker INDEX COUNT.
"""
import concurrent.futures
import json
import shutil
import subprocess
import sys

import registry_driver as driving


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


def programs(options):
    """The driver and the injector, made absolute; ends this program where the injector is missing."""
    driver = options.driver.resolve()
    injector = (options.injector or driver.parent.parent / "crash/crash_injector").resolve()
    if not injector.exists():
        driving.skip(f"{injector} is not built")
    return driver, injector
