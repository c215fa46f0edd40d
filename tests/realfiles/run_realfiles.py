#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs realfile_check on private copies of files as they are found on hosts.

The files come from this host, from Debian packages that are downloaded and unpacked below the work
folder (never installed), or are generated in the shape of such files. What the library counted is
held against a count of our own. Exit status 77: the files cannot be had here; the reason is printed.
"""
import argparse
import collections
import json
import pathlib
import re
import shutil
import subprocess
import sys

SKIPPED = 77
PROTOCOLS = {"udp", "tcp", "ddp", "divert"}
COLON_TABLE = """# an init table whose lines begin with two colons
::sysinit:/etc/init.d/rcS
::respawn:/sbin/getty 115200 console
tty1::askfirst:-/bin/sh
::ctrlaltdel:/sbin/reboot

::shutdown:/bin/umount -a -r \\
  -v
tty2::respawn:/sbin/getty 38400 tty2 # second
"""
TWENTY_THOUSAND = 20000


class NotHere(Exception):
    """The files of a scene cannot be had on this machine."""


# Where a scene keeps its copies, and where unpacked packages are shared by all builds.
Folders = collections.namedtuple("Folders", "work packages")


def packaged(package, name, folders):
    """A file of a Debian package, which is downloaded once for all builds."""
    tree = folders.packages / package
    if not (tree / name).is_file():
        shutil.rmtree(tree, ignore_errors=True)
        tree.mkdir(parents=True)
        download(package, tree)
    if not (tree / name).is_file():
        raise NotHere(f"package {package} holds no {name}")
    return tree / name


def download(package, tree):
    if not shutil.which("apt-get") or not shutil.which("dpkg-deb"):
        raise NotHere("not a Debian system")
    command = ["apt-get", "download", "-q", package]
    try:
        got = subprocess.run(command, cwd=tree, capture_output=True, text=True, timeout=240)
    except subprocess.TimeoutExpired:
        raise NotHere(f"package {package}: the download takes too long") from None
    archives = list(tree.glob("*.deb"))
    if got.returncode != 0 or len(archives) != 1:
        raise NotHere(f"package {package} cannot be downloaded: {got.stderr.strip()[-200:]}")
    subprocess.run(["dpkg-deb", "-x", archives[0], tree], check=True)


def on_host(name):
    path = pathlib.Path(name)
    if not path.is_file():
        raise NotHere(f"no {name} on this host")
    return path


def generated(work, name, text):
    path = work / name
    path.write_text(text, encoding="utf-8")
    return path


def many_services(work):
    lines = (f"svc{i}\t\t{i % 65535 + 1}/{'tcp' if i % 2 else 'udp'}\n" for i in range(TWENTY_THOUSAND))
    return generated(work, "many-services", "".join(lines))


def defaults():
    files = []
    for path in sorted(pathlib.Path("/etc/default").glob("*")):
        try:
            if path.is_file() and path.read_bytes() is not None:
                files.append(path)
        except PermissionError:
            continue
    if not files:
        raise NotHere("no readable file in /etc/default")
    return files


SCENES = {
    "services": ("services", lambda _: [on_host("/etc/services")]),
    "nmap-services": (
        "services",
        lambda folders: [packaged("nmap-common", "usr/share/nmap/nmap-services", folders)],
    ),
    "wireshark-services": (
        "services",
        lambda folders: [packaged("libwireshark-data", "usr/share/wireshark/services", folders)],
    ),
    "many-services": ("services", lambda folders: [many_services(folders.work)]),
    "inittab": (
        "inittab",
        lambda folders: [packaged("sysvinit-core", "usr/share/sysvinit/inittab", folders)],
    ),
    "colon-inittab": ("inittab", lambda folders: [generated(folders.work, "colon-inittab", COLON_TABLE)]),
    "defaults": ("profile", lambda _: defaults()),
    "os-release": ("profile", lambda _: [on_host("/etc/os-release")]),
    "login-defs": ("profile", lambda _: [on_host("/etc/login.defs")]),
}


def count_services(data):
    """Entries that are understood, and lines kept although their port/protocol is not."""
    known = unknown = 0
    for line in data.split(b"\n"):
        fields = line.split(b"#")[0].split()
        if len(fields) < 2:
            continue
        _, slash, protocol = fields[1].partition(b"/")
        if slash and protocol.decode("latin-1") in PROTOCOLS:
            known += 1
        else:
            unknown += 1
    return known, unknown


def count_profile(data):
    known = unknown = 0
    for line in data.split(b"\n"):
        text = line.split(b"#")[0].strip()
        if not text:
            continue
        if re.fullmatch(rb'[^=]*=\s*([^"\s].*|".*"\s*[^"]*)?', text):
            known += 1
        else:
            unknown += 1
    return known, unknown


def count_inittab(data):
    known = unknown = 0
    for line in data.replace(b"\\\n", b"").split(b"\n"):
        text = line.split(b"#")[0]
        if line.startswith(b":") or not text:
            continue
        if text.count(b":") >= 3:
            known += 1
        else:
            unknown += 1
    return known, unknown


COUNTERS = {"services": count_services, "profile": count_profile, "inittab": count_inittab}


def check(program, kind, source, work):
    """Runs the program on a private copy; the counts on success, None after a finding."""
    copy = work / "copy" / source.name
    shutil.rmtree(copy.parent, ignore_errors=True)
    copy.parent.mkdir(parents=True)
    shutil.copyfile(source, copy)
    done = subprocess.run([program, kind, copy], capture_output=True, text=True)
    if done.returncode != 0:
        print(f"{source}: {done.stderr.strip() or done.returncode}")
        return None
    counted = json.loads(done.stdout)
    known, unknown = COUNTERS[kind](source.read_bytes())
    if (counted["entries"], counted["not_understood"]) != (known, unknown):
        print(f"{source}: counted {counted}, our own count is {known} and {unknown}")
        return None
    return counted


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", type=pathlib.Path, required=True)
    parser.add_argument("--work", type=pathlib.Path, required=True)
    parser.add_argument("--packages", type=pathlib.Path, required=True)
    parser.add_argument("scene", choices=sorted(SCENES))
    options = parser.parse_args()
    folders = Folders(options.work.resolve() / options.scene, options.packages.resolve())
    folders.work.mkdir(parents=True, exist_ok=True)
    kind, find = SCENES[options.scene]
    try:
        sources = find(folders)
    except NotHere as reason:
        print(f"skipped: {reason}")
        return SKIPPED
    failed = lines = 0
    for source in sources:
        counted = check(options.program, kind, source, folders.work)
        if counted is None:
            failed += 1
            continue
        lines += counted["lines"]
        print(f"{source}: {counted}")
    if not lines and not failed:
        print("every file is empty: the check proves nothing")
        return 1
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
