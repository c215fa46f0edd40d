# SPDX-License-Identifier: Apache-2.0
"""Holds an exclusive lock on a file until standard input ends."""
import fcntl
import struct
import sys

F_OFD_SETLK = 37
F_WRLCK = 1

with open(sys.argv[1], "a+") as file:
    whole_file = struct.pack("hhqqi4x", F_WRLCK, 0, 0, 0, 0)
    fcntl.fcntl(file.fileno(), F_OFD_SETLK, whole_file)
    print("locked", flush=True)
    sys.stdin.read()
