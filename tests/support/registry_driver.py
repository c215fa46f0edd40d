# SPDX-License-Identifier: Apache-2.0
"""Running the test driver, looking at locks, and the private host that its fixed paths need.

Not here: what a registry should hold (registry_model.py).
"""
import fcntl
import os
import pathlib
import re
import select
import shutil
import struct
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
PRIVATE_HOST = ROOT / "scripts/private_host.sh"
CHANGE_LOG = pathlib.Path("/tmp/globalreg.debug")
INSIDE = "REGDRIVER_PRIVATE_HOST"
SKIPPED = 77
PATIENCE = 60  # seconds after which a process counts as stuck

# Locks of open files, which Python has no names for.
F_OFD_GETLK = 36
FLOCK = "hhqqi4x"


def scratch_folder():
    """A new folder in memory where the system has one: thousands of updates wear no disk."""
    base = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    return pathlib.Path(tempfile.mkdtemp(prefix="regdriver.", dir=base))


def private_command(folder, command):
    return ["bash", str(PRIVATE_HOST), str(folder), *map(str, command)]


def private_environment():
    return {**os.environ, INSIDE: "1", "PYTHONDONTWRITEBYTECODE": "1", "LC_ALL": "C", "TZ": "UTC0"}


def have_private_host():
    return subprocess.run(["bash", str(PRIVATE_HOST), "--probe"], check=False).returncode == 0


def go_private():
    """Returns inside a private host; outside of one, runs this program in one and ends as it ends."""
    if os.environ.get(INSIDE):
        return
    folder = scratch_folder()
    try:
        command = private_command(folder, [sys.executable, *sys.argv])
        status = subprocess.run(command, env=private_environment(), check=False).returncode
    finally:
        shutil.rmtree(folder, ignore_errors=True)
    sys.exit(status)


def skip(reason):
    print(f"SKIPPED: {reason}")
    sys.exit(SKIPPED)


class Outcome:
    """What a run of the driver said."""

    def __init__(self, exit_status, text):
        self.exit_status = exit_status
        self.statuses = [int(code, 16) for code in re.findall(r"^status (0x[0-9A-F]{8})$", text, re.M)]
        self.logged = [int(code, 16) for code in re.findall(r"^log (0x[0-9A-F]{8}) ", text, re.M)]
        left = re.search(r"^left descriptors (-?\d+) blocks (-?\d+)$", text, re.M)
        self.left = tuple(map(int, left.groups())) if left else None
        counted = re.search(r"^allocations (\d+) failed (\d+) kept (-?\d+)$", text, re.M)
        self.allocations = tuple(map(int, counted.groups())) if counted else None
        self.lines = [line for line in text.splitlines() if "\t" in line]

    @property
    def status(self):
        return self.statuses[0] if self.statuses else None


class Driver:
    """The driver program, for one registry; `options` tell the format of one that is not global."""

    def __init__(self, program, registry, options=()):
        self.command = [str(program), *options]
        if options:
            self.command += ["--file", str(registry)]
        self.registry = pathlib.Path(registry)
        self.environment = {
            "VRX_GLOBAL_REG_PATHNAME": str(registry),
            "REGDRIVER_LOG": "1",
            "PATH": "/usr/bin:/bin",
            "TZ": "UTC0",
        }

    def run(self, *words, under=(), settings=None):
        """Runs one command to its end; `under` is put before it, `settings` into its environment."""
        done = subprocess.run(
            [*under, *self.command, *words],
            env={**self.environment, **(settings or {})},
            stdout=subprocess.PIPE,
            stdin=subprocess.DEVNULL,
            timeout=PATIENCE,
            check=False,
        )
        return Outcome(done.returncode, done.stdout.decode())

    def start(self, *words):
        return subprocess.Popen(
            [*self.command, *map(str, words)],
            env=self.environment,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            text=True,
        )

    def listed(self):
        """The status of a list and its lines."""
        outcome = self.run("list")
        return outcome.status, outcome.lines


class Rounds:
    """One driver process that lists the registry and then updates it, each time that it is asked."""

    def __init__(self, driver, words, options=()):
        """`words` are those of the update, `options` the driver's own."""
        self.command = [*driver.command, *options, "rounds", *words]
        self.environment, self.process = driver.environment, None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    def start(self):
        pipe = subprocess.PIPE
        self.process = subprocess.Popen(self.command, env=self.environment, stdin=pipe, stdout=pipe, bufsize=0)

    def stop(self):
        """Ends the process, even one that waits for a lock."""
        if self.process:
            self.process.kill()
            self.process.communicate()
        self.process = None

    def ask(self):
        """The outcome of one round; its statuses are those of the list and of the update."""
        if self.process is None:
            self.start()
        self.process.stdin.write(b"\n")
        answer = b""
        while not (b"\n" + answer).endswith(b"\n.\n"):
            answer += self.read_some()
        return Outcome(0, answer.decode())

    def read_some(self):
        if not select.select([self.process.stdout], [], [], PATIENCE)[0]:
            self.stop()
            raise subprocess.TimeoutExpired(self.command, PATIENCE)
        read = self.process.stdout.read(1 << 16)
        if not read:
            self.stop()
            raise RuntimeError("the driver died")
        return read


def is_locked(path):
    """Whether anybody holds a lock on the file. A file that does not exist is not locked."""
    try:
        with open(path, "rb+") as file:
            request = struct.pack(FLOCK, fcntl.F_WRLCK, os.SEEK_SET, 0, 0, 0)
            answer = fcntl.fcntl(file, F_OFD_GETLK, request)
    except FileNotFoundError:
        return False
    return struct.unpack(FLOCK, answer)[0] != fcntl.F_UNLCK


def lock_path(registry):
    registry = pathlib.Path(registry)
    return registry.with_name(f".{registry.name}.lock")


def tree(folder):
    """Everything below a folder: relative name to bytes, None for folders, a str for links."""
    found = {}
    for path in sorted(pathlib.Path(folder).rglob("*")):
        name = str(path.relative_to(folder))
        if path.is_symlink():
            found[name] = os.readlink(path)
        else:
            found[name] = None if path.is_dir() else path.read_bytes()
    return found
