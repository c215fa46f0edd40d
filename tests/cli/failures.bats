#!/usr/bin/env bats
# SPDX-License-Identifier: Apache-2.0
# Every exit status that is no success, reached by a real condition.
load support

@test "reading a missing registry is exit 4 and creates nothing" {
  for command in "list" "get tp1" "exists tp1" "count" "remove tp1"; do
    exits 4 vrxreg instance $command
    is "$stderr" "vrxreg: $registry: the registry file does not exist (0x90000513)"
  done
  is "$(ls -A)" ""
}

@test "a registry below a file is exit 4" {
  touch file
  exits 4 vrxreg --registry file/global.reg instance list
  exits 4 vrxreg --registry file/global.reg service add VRX/3.1
}

@test "a folder that cannot be created is exit 4" {
  exits 4 vrxreg --registry /proc/none/global.reg service add VRX/3.1
  has "$stderr" "registry directory cannot be created (0x90000512)"
}

@test "a registry without a usable path is exit 4" {
  VRX_GLOBAL_REG_PATHNAME= exits 4 vrxreg where
  is "$stderr" "vrxreg: the global registry: VRX_GLOBAL_REG_PATHNAME is set, and empty (0x900001BA)"
  exits 4 vrxreg --registry "/$(printf 'x%.0s' {1..1017})" instance list
  has "$stderr" "a path of 1018 bytes, the limit is 1017"
  unset VRX_GLOBAL_REG_PATHNAME
  VRXINSTANCE=no-such-user exits 4 vrxreg instance list
  has "$stderr" "VRXINSTANCE=no-such-user: no such user"
}

@test "a registry that is no file is exit 8" {
  mkdir "$registry"
  exits 8 vrxreg instance list
  exits 8 vrxreg service add VRX/3.1
  rmdir "$registry"
  mkfifo "$registry"
  exits 8 vrxreg instance list
  exits 8 vrxreg service add VRX/3.1
}

@test "a lock file that cannot be opened is exit 8 at once" {
  sample
  rm .global.reg.lock
  mkdir .global.reg.lock
  exits 8 vrxreg instance remove tp1
  has "$stderr" "lock file cannot be opened (0x900001DA)"
  exits 0 vrxreg instance count
  is "$output" 3
}

@test "a read-only file system is exit 8 for changes and no hindrance for reading" {
  sample
  mkdir ro
  mv global.reg .global.reg.lock ro/
  mount --bind ro ro
  mount -o remount,ro,bind ro
  exits 0 vrxreg --registry ro/global.reg instance count
  is "$output" 3
  exits 8 vrxreg --registry ro/global.reg instance remove tp1
  exits 8 vrxreg --registry ro/new.reg service add VRX/3.1
  umount ro
}

@test "a full file system is exit 8 and the registry stays" {
  mkdir full
  mount -t tmpfs -o size=64k tmpfs full
  export VRX_GLOBAL_REG_PATHNAME=$PWD/full/global.reg
  registry=$VRX_GLOBAL_REG_PATHNAME
  sample
  dd if=/dev/zero of=full/filler bs=4k 2>/dev/null || true
  before=$(checksum)
  exits 8 vrxreg instance add VRX/3.1/new path=/p
  is "$(checksum)" "$before"
  umount full
}

@test "a full device or a vanished reader of standard output is exit 8" {
  sample
  run --separate-stderr bash -c '"$VRXREG" instance list > /dev/full'
  is "$status" 8
  is "$stderr" "vrxreg: standard output: No space left on device"
  run --separate-stderr bash -c 'exec 5> >(exec true); wait $!; "$VRXREG" instance list >&5'
  is "$status" 8
}

@test "a damaged registry is exit 6 with the place" {
  sample
  size=$(stat -c %s "$registry")
  truncate -s $((size - 1)) "$registry"
  before=$(checksum)
  for command in "list" "get tp1" "count" "set tp1 usage=x" "add VRX/3.1/n" "remove tp1"; do
    exits 6 vrxreg instance $command
  done
  has "$stderr" "a record of the registry cannot be read, at byte "
  exits 6 vrxreg instance set tp1 usage=x -n
  has "$stderr" "vrxreg: $registry: "
  is "$(checksum)" "$before"
}

@test "a record that cannot be unpacked is exit 6" {
  python3 "$TESTS/registry_file.py" "$registry" 2:0=sVRX,1=v3.1.0.0 RAW:08000000
  exits 6 vrxreg service list -o json
  is "$(jq -c '[.exit,.code]' <<<"$stderr")" '[6,"0x90000254"]'
}

@test "a busy lock is exit 3 at once with a time limit of 0" {
  sample
  start_holder
  exits 3 vrxreg instance set tp1 usage=x --timeout 0 -o json
  is "$(jq -c '[.exit,.code,.name]' <<<"$stderr")" '[3,"0x900001BC","lock_not_taken"]'
  has "$stderr" "held by pid $HOLDER_PID (python3) after 0 s; nothing changed"
  exits 0 vrxreg instance count
  is "$output" 3
  stop_holder
}

@test "a lock that is released in time is waited for" {
  sample
  start_holder
  "$VRXREG" instance set tp1 usage=x --timeout inf > report 3>&- &
  waiter=$!
  stop_holder
  wait $waiter
  is "$(cat report)" "changed VRX/3.1.0.7/tp1: usage"
}

@test "somebody at a terminal is told after a second who holds the lock" {
  sample
  start_holder
  exits 3 script -qec "$VRXREG --timeout 1.2 instance remove dw1" /dev/null
  is "${lines[0]%$'\r'}" "vrxreg: waiting for $PWD/.global.reg.lock, held by pid $HOLDER_PID (python3), 1 s"
  is "${lines[1]%$'\r'}" "vrxreg: $PWD/.global.reg.lock still held by pid $HOLDER_PID (python3) after 1.2 s; nothing changed (0x900001BC)"
  stop_holder
}

@test "a registry file that is locked elsewhere is exit 3 for readers" {
  sample
  start_holder "$registry"
  exits 3 vrxreg instance list --timeout 0
  has "$stderr" "registry file cannot be locked (0x90000272)"
  stop_holder
}

@test "verbose shows the library's own log" {
  exits 4 vrxreg -v --registry /proc/none/global.reg service add VRX/3.1
  has "$stderr" "vrxreg: log: GenRegFile::Lock"
  has "$stderr" "No such file or directory"
}

@test "usage failures in json are one line too" {
  exits 2 vrxreg -o json instance lst
  is "$(jq -c '[.schema,.exit,has("code")]' <<<"$stderr")" '["vrxreg.error/1",2,false]'
  exits 2 vrxreg --output=ndjson --nonsense
  is "$(jq -c .exit <<<"$stderr")" 2
}

@test "every status of the table has an exit status below 128" {
  exits 0 bash -c 'for code in $(sed -n "s/^VRX_STATUS([a-z0-9_]*, \(0x[0-9A-F]*\),.*/\1/p" "$TESTS"/../../genreg/status_codes.inc); do "$VRXREG" explain $code -o value || exit 1; done | grep -c .'
  [ "$output" -gt 800 ]
}
