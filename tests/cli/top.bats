#!/usr/bin/env bats
# SPDX-License-Identifier: Apache-2.0
# where, version, explain, help.
load support

@test "where tells every rule" {
  exits 0 vrxreg where --why
  is "$output" "$registry"$'\nVRX_GLOBAL_REG_PATHNAME is set'
  exits 0 vrxreg where --why --registry other.reg
  is "$output" $'other.reg\n--registry is given'
  exits 0 vrxreg where --why --host-wide
  is "$output" "$registry"$'\nVRX_GLOBAL_REG_PATHNAME is set'
  unset VRX_GLOBAL_REG_PATHNAME
  VRXINSTANCE= exits 0 vrxreg where --why
  is "${lines[1]}" "host-wide default: VRX_GLOBAL_REG_PATHNAME is not set, VRXINSTANCE is empty"
  VRXINSTANCE=tp1 exits 0 vrxreg where --why --host-wide
  is "$output" $'/var/vrx/global.reg\nhost-wide default: VRX_GLOBAL_REG_PATHNAME is not set, --host-wide is given'
}

@test "where tells an instance's own registry" {
  unset VRX_GLOBAL_REG_PATHNAME
  export VRXINSTANCE=root
  home=$(getent passwd root | cut -d: -f6)
  mount -t tmpfs tmpfs "$home"
  tool=$home/sqllib/adm/vrxperm
  exits 0 vrxreg where --why
  is "$output" "/var/vrx/global.reg
host-wide default: VRX_GLOBAL_REG_PATHNAME is not set, VRXINSTANCE=root and $tool is not set-user-id root"
  mkdir -p "$home/sqllib/adm"
  touch "$tool"
  chmod 4755 "$tool"
  exits 0 vrxreg where --why
  is "$output" "$home/sqllib/global.reg
instance's own: VRXINSTANCE=root and $tool is set-user-id root"
  exits 0 vrxreg where --host-wide
  is "$output" /var/vrx/global.reg
  umount "$home"
}

@test "where in json" {
  exits 0 vrxreg where --why -o json
  is "$output" '{"schema":"vrxreg.where/1","registry":"'"$registry"'","reason":"VRX_GLOBAL_REG_PATHNAME is set","exists":false}'
  exits 0 vrxreg where -o value
  is "$output" "$registry"
}

@test "version converts text, codes and level numbers" {
  for input in 3.1.0.7 0x0003000100000007 3010007; do
    exits 0 vrxreg version $input
    is "$output" "VERSION CODE               LEVEL
3.1.0.7 0x0003000100000007 3010007"
  done
  is "$(vrxreg version 3 -o value)" $'3.0.0.0\n0x0003000000000000\n3000000'
  is "$(vrxreg version 0x3000100000007 -o json)" \
    '{"schema":"vrxreg.version/1","version":"3.1.0.7","version_code":"0x0003000100000007","level":3010007}'
}

@test "a version with parts above 99 has no level number" {
  exits 0 vrxreg version 3.100 -o json
  is "$(jq -c 'has("level")' <<<"$output")" false
}

@test "what is no version is refused" {
  for input in 3.1a 3. .1 1.2.3.4.5 99999.1 0x10000000000000000 -3 ''; do
    exits 7 vrxreg version "$input"
  done
  exits 2 vrxreg version
  exits 2 vrxreg version 3 1
}

@test "explain takes codes in every shape" {
  for input in 0x900001F6 900001f6 -1879047690 no_match 2415919606; do
    exits 0 vrxreg explain "$input"
    is "$output" "0x900001F6: no record matches (exit 1)
Raised by: Get, Change, Delete. Do: list the registry to see its keys."
  done
}

@test "explain knows system errors and says when a code means nothing" {
  exits 0 vrxreg explain 0x9000009C
  is "$output" "0x9000009C: system error 28: No space left on device (exit 8)"
  exits 1 vrxreg explain 0x90001234
  exits 2 vrxreg explain nonsense
  exits 2 vrxreg explain
}

@test "explain in json" {
  exits 0 vrxreg explain 0x900001F1 -o json
  is "$output" '{"schema":"vrxreg.explain/1","code":"0x900001F1","name":"duplicate_record","meaning":"a record matching the new one already exists","raised_by":"Add","remedy":"change the existing record, or choose another key.","exit":5}'
}

@test "help at every level, and the version" {
  exits 0 vrxreg --help
  has "$output" "Usage: vrxreg [OPTIONS] NOUN VERB [KEY] [FIELD=VALUE ...]"
  exits 0 vrxreg instance -h
  has "$output" "Key: SERVICE/VERSION/NAME, shorter while it is unique"
  exits 0 vrxreg instance set -h
  has "$output" "--must-exist"
  [[ $output != *--missing-ok* ]]
  exits 0 vrxreg where -h
  has "$output" "--why"
  exits 0 vrxreg --version
  [[ $output =~ ^vrxreg\ [0-9]+\.[0-9]+\.[0-9]+$ ]]
}
