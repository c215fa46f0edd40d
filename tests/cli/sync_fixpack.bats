#!/usr/bin/env bats
# SPDX-License-Identifier: Apache-2.0
# service sync-fixpack: which records it changes, what a dry run shows, what stops it.
load support

# installed FIXPACK: a level file of version 3.1.0.7.
installed() {
  export VRX_LEVEL_FILE=$PWD/level
  printf 'version=3.1.0.7\nbuild_level=s250131\nfixpack=%s\n' "$1" > level
}

# Two records that a fix pack belongs to, and three that it leaves alone.
copies() {
  installed 9
  vrxreg -q service add VRX/3.1.0.7 text1=/opt/vrx/v3.1 fixpack=7
  vrxreg -q service add KRN/3.1.0.7 fixpack=8 num2=5
  vrxreg -q service add VRX/3.0.0.0 fixpack=7
  vrxreg -q service add OTHER/3.1.0.7 fixpack=7
  vrxreg -q service add vrx/3.1.0.7 fixpack=7
}

numbers() { vrxreg service list --fields service,version,fixpack --no-headings -o tsv; }

@test "sync-fixpack changes the records of the installed version and the second time none" {
  copies
  exits 0 vrxreg service sync-fixpack
  is "$output" "changed VRX/3.1.0.7: fixpack (2 records) (fix pack 9)"
  is "$(numbers)" "$(printf '%s\t%s\t%s\n' VRX 3.1.0.7 9 KRN 3.1.0.7 9 VRX 3.0.0.0 7 OTHER 3.1.0.7 7 vrx 3.1.0.7 7)"
  before=$(checksum)
  exits 0 vrxreg service sync-fixpack
  is "$output" "unchanged 3.1.0.7 (fix pack 9)"
  is "$(checksum)" "$before"
}

@test "sync-fixpack leaves a record without a fix-pack number alone" {
  installed 9
  vrxreg -q service add VRX/3.1.0.7 text1=/opt/vrx
  exits 0 vrxreg service sync-fixpack --detailed-exitcode
  exits 1 vrxreg service get VRX fixpack -o value
}

@test "sync-fixpack keeps the other fields of its records" {
  copies
  vrxreg -q service sync-fixpack
  exits 0 vrxreg service get KRN -o json
  is "$(jq -c '.record | [.fixpack, .num2]' <<<"$output")" "[9,5]"
}

@test "sync-fixpack dry run shows the difference and writes nothing" {
  copies
  before=$(checksum)
  log=$(cat /tmp/globalreg.debug)
  exits 10 vrxreg service sync-fixpack -n --detailed-exitcode
  is "$output" "--- VRX/3.1.0.7
+++ VRX/3.1.0.7 (dry run)
@@ -1,4 +1,4 @@
 service=VRX
 version=3.1.0.7
 text1=/opt/vrx/v3.1
-fixpack=7
+fixpack=9
--- KRN/3.1.0.7
+++ KRN/3.1.0.7 (dry run)
@@ -1,4 +1,4 @@
 service=KRN
 version=3.1.0.7
-fixpack=8
+fixpack=9
 num2=5
would change VRX/3.1.0.7: fixpack (2 records) (fix pack 9)"
  is "$(checksum)" "$before"
  is "$(cat /tmp/globalreg.debug)" "$log"
  is "$(ls -A)" "$(printf '%s\n' .global.reg.lock global.reg level)"
}

@test "sync-fixpack reports as JSON" {
  copies
  exits 0 vrxreg service sync-fixpack -o json
  is "$(jq -c '[.schema, .kind, .key, .action, .changed, .count, .fields.fixpack]' <<<"$output")" \
    '["vrxreg.change/1","service","VRX/3.1.0.7","change",true,2,{"old":7,"new":9}]'
  exits 0 vrxreg service sync-fixpack -o json
  is "$(jq -c '[.key, .action, .changed]' <<<"$output")" '["3.1.0.7","unchanged",false]'
}

@test "sync-fixpack names itself and the command line in the change log" {
  copies
  : > /tmp/globalreg.debug
  vrxreg -q service sync-fixpack
  log=$(cat /tmp/globalreg.debug)
  has "$log" "CALLER=genregSyncGlobalRegFixpackNumber"
  has "$log" "sync-fixpack"
}

@test "sync-fixpack without a registry is exit 4 and creates none" {
  installed 9
  exits 4 vrxreg service sync-fixpack
  [ ! -e "$registry" ]
}

@test "sync-fixpack without a level file is exit 4 and with a malformed one exit 6" {
  copies
  rm level
  exits 4 vrxreg service sync-fixpack
  is "$stderr" "vrxreg: service sync-fixpack: the level file does not exist (0x9000001C)"
  echo version=3.x > level
  exits 6 vrxreg service sync-fixpack
  is "$stderr" "vrxreg: service sync-fixpack: the level file is malformed (0x9000001D)"
}

@test "sync-fixpack of a registry that somebody has locked is exit 3" {
  copies
  before=$(checksum)
  start_holder
  exits 3 vrxreg --timeout 0.2 service sync-fixpack
  has "$stderr" "nothing changed (0x900001BC)"
  stop_holder
  is "$(checksum)" "$before"
}

@test "sync-fixpack of a damaged registry is exit 6 and changes nothing" {
  copies
  printf 'xx' >> "$registry"
  before=$(checksum)
  exits 6 vrxreg service sync-fixpack
  is "$(checksum)" "$before"
}

@test "sync-fixpack that fails at a later record tells how many were changed" {
  copies
  # A second record of KRN, which its key no longer names alone.
  python3 -c "
import sys; data = open(sys.argv[1], 'rb').read()
frames, at = [], 0
while at < len(data):
    size = 4 + int.from_bytes(data[at:at + 4], 'little')
    frames.append(data[at:at + size]); at += size
open(sys.argv[1], 'ab').write(frames[1])" "$registry"
  exits 5 vrxreg service sync-fixpack
  has "$stderr" "; 1 had been changed before (0x900001F8)"
}

@test "sync-fixpack is a verb of service alone and takes no key" {
  exits 2 vrxreg instance sync-fixpack
  exits 2 vrxreg service sync-fixpack VRX
  exits 0 vrxreg service sync-fixpack --help
  has "$output" "Usage: vrxreg service sync-fixpack"
  exits 0 vrxreg --help
  has "$output" "Verbs of service alone:"
}
