#!/usr/bin/env bats
# SPDX-License-Identifier: Apache-2.0
# add, set and remove: what they write, what they leave alone, what they refuse.
load support

@test "add refuses a record that exists and leaves nothing behind" {
  sample
  before=$(checksum)
  exits 5 vrxreg instance add VRX/3.1.0.7/tp1 path=/elsewhere
  is "$stderr" "vrxreg: instance VRX/3.1.0.7/tp1: exists in $registry (0x900001F1)"
  is "$(checksum)" "$before"
  [ ! -e "$registry.tmp" ]
}

@test "set keeps the fields that are not named" {
  sample
  vrxreg -q instance set tp1 usage=dw
  exits 0 vrxreg instance get tp1 -o json
  is "$(jq -c '.record | del(.key, .version_code)' <<<"$output")" \
    '{"service":"VRX","version":"3.1.0.7","instance":"tp1","path":"/home/tp1/sqllib","usage":"dw","start_at_boot":true,"comment":"orders"}'
}

@test "set adds a record that is missing, and the registry with it" {
  exits 0 vrxreg instance set VRX/3.1.0.7/new1 path=/new
  is "$output" "added VRX/3.1.0.7/new1"
  exits 0 vrxreg instance count
  is "$output" "1"
}

@test "set with must-exist refuses to add" {
  sample
  exits 1 vrxreg instance set VRX/3.1.0.7/new1 path=/new --must-exist
  exits 0 vrxreg instance count
  is "$output" "3"
}

@test "set with must-exist and no registry is exit 4 and creates none" {
  exits 4 vrxreg instance set VRX/3.1.0.7/new1 path=/new --must-exist
  [ ! -e "$registry" ]
}

@test "set of a short key that names nothing is exit 1" {
  sample
  exits 1 vrxreg instance set tp9 path=/new
}

@test "set with replace leaves exactly the fields given" {
  sample
  exits 0 vrxreg instance set tp1 --replace path=/p
  is "$output" "changed VRX/3.1.0.7/tp1: path, usage, start_at_boot, comment"
  exits 0 vrxreg instance get tp1 -o json
  is "$(jq -c '.record | keys' <<<"$output")" '["instance","key","path","service","version","version_code"]'
}

@test "an empty value and unset make a field absent" {
  sample
  exits 0 vrxreg instance set tp1 usage= --unset comment
  is "$output" "changed VRX/3.1.0.7/tp1: usage, comment"
  exits 0 vrxreg instance get tp1 -o json
  is "$(jq -c '[.record.usage, .record.comment]' <<<"$output")" '[null,null]'
}

@test "no is not absent: both are written and both are unchanged the second time" {
  sample
  exits 0 vrxreg instance set dw1 maintenance=no
  is "$output" "changed VRX/3.1.0.7/dw1: maintenance"
  exits 0 vrxreg instance set dw1 maintenance=no
  is "$output" "unchanged VRX/3.1.0.7/dw1"
  exits 0 vrxreg instance get dw1 maintenance -o value
  is "$output" "no"
  exits 0 vrxreg instance set dw1 maintenance=
  is "$output" "changed VRX/3.1.0.7/dw1: maintenance"
  exits 1 vrxreg instance get dw1 maintenance -o value
  is "$stderr" "vrxreg: instance VRX/3.1.0.7/dw1: no maintenance"
}

@test "a number of 0 is not absent" {
  exits 0 vrxreg service add VRX/3.1 num2=0
  exits 0 vrxreg service get VRX -o json
  is "$(jq -c '[.record.num2, .record.num3]' <<<"$output")" '[0,null]'
}

@test "all words for yes and no are understood" {
  sample
  for word in 1 true T yes Y on; do
    vrxreg -q instance set tp1 maintenance= start_at_boot=$word
    is "$(vrxreg instance get tp1 start_at_boot -o value)" yes
  done
  for word in 0 FALSE f no n off; do
    vrxreg -q instance set tp1 start_at_boot=$word
    is "$(vrxreg instance get tp1 start_at_boot -o value)" no
  done
}

@test "a flag is a number or one character and reads back the same" {
  vrxreg -q service add VRX/3.1 flag=A
  is "$(vrxreg service get VRX flag -o value)" 65
  for number in 0 5 9 10 65 128 255; do
    vrxreg -q service set VRX flag=$number
    is "$(vrxreg service get VRX -o json | jq .record.flag)" "$number"
  done
  vrxreg -q service set VRX flag=5
  is "$(vrxreg service get VRX flag -o value)" 5
  exits 7 vrxreg service set VRX flag=256
  exits 7 vrxreg service set VRX flag=AB
}

@test "numbers keep all 32 bits" {
  vrxreg -q service add VRX/3.1 fixpack=4294967295 num4=0x10
  is "$(vrxreg service get VRX -o json | jq -c '[.record.fixpack,.record.num4]')" '[4294967295,16]'
  exits 7 vrxreg service set VRX fixpack=4294967296
  is "$stderr" 'vrxreg: fixpack: "4294967296" is no number from 0 to 4294967295'
}

@test "remove removes, and tells when there is nothing to remove" {
  sample
  exits 0 vrxreg instance remove dw1
  is "$output" "removed VRX/3.1.0.7/dw1"
  exits 1 vrxreg instance remove dw1
  exits 0 vrxreg instance remove dw1 --missing-ok
  is "$output" "unchanged dw1"
}

@test "remove without a registry is exit 4 and creates none" {
  exits 4 vrxreg instance remove dw1
  exits 4 vrxreg instance remove dw1 --missing-ok
  [ ! -e "$registry" ]
}

@test "a dry run changes nothing, logs nothing and leaves nothing" {
  sample
  before=$(checksum)
  log=$(cat /tmp/globalreg.debug)
  exits 0 vrxreg instance set tp1 usage=dw -n
  is "$output" "--- VRX/3.1.0.7/tp1
+++ VRX/3.1.0.7/tp1 (dry run)
@@ -2,6 +2,6 @@
 version=3.1.0.7
 instance=tp1
 path=/home/tp1/sqllib
-usage=oltp
+usage=dw
 start_at_boot=yes
 comment=orders
would change VRX/3.1.0.7/tp1: usage"
  exits 0 vrxreg instance remove tp1 --dry-run
  has "$output" "would remove VRX/3.1.0.7/tp1"
  exits 0 vrxreg instance add VRX/3.1/x path=/x -n
  is "$output" "--- /dev/null
+++ VRX/3.1.0.0/x (dry run)
@@ -0,0 +1,4 @@
+service=VRX
+version=3.1.0.0
+instance=x
+path=/x
would add VRX/3.1.0.0/x"
  is "$(checksum)" "$before"
  is "$(cat /tmp/globalreg.debug)" "$log"
  is "$(find /tmp -maxdepth 1 -name 'vrxreg.*')" ""
}

@test "a dry run without a registry creates none" {
  exits 0 vrxreg instance set VRX/3.1/x path=/x -n
  has "$output" "would add VRX/3.1.0.0/x"
  [ ! -e "$registry" ]
}

@test "a dry run refuses what the real run refuses" {
  sample
  exits 5 vrxreg instance add VRX/3.1.0.7/tp1 -n
  exits 1 vrxreg instance remove tp9 -n
  exits 7 vrxreg instance set tp1 usage="$(printf 'x%.0s' {1..64})" -n
}

@test "detailed exit codes tell changed from unchanged" {
  exits 10 vrxreg instance set VRX/3.1/x path=/x --detailed-exitcode
  exits 0 vrxreg instance set VRX/3.1/x path=/x --detailed-exitcode
  exits 10 vrxreg instance set VRX/3.1/x path=/y --detailed-exitcode -n
  exits 10 vrxreg instance set VRX/3.1/x path=/y --detailed-exitcode
  exits 10 vrxreg instance remove x --detailed-exitcode
  exits 0 vrxreg instance remove x --detailed-exitcode --missing-ok
  exits 10 vrxreg instance add VRX/3.1/x --detailed-exitcode
}

@test "quiet reports nothing and keeps failures" {
  exits 0 vrxreg -q instance add VRX/3.1/x path=/x
  is "$output$stderr" ""
  exits 1 vrxreg -q instance get y
  is "$output$stderr" ""
  exits 5 vrxreg -q instance add VRX/3.1/x
  has "$stderr" "exists"
}

@test "the key of a record cannot be changed by set" {
  sample
  exits 2 vrxreg instance set tp1 instance=tp2
  has "$stderr" "instance is part of the key of VRX/3.1.0.7/tp1"
  exits 0 vrxreg instance set tp1 instance=tp1
  is "$output" "unchanged VRX/3.1.0.7/tp1"
}

@test "the change log shows the command line" {
  sample
  vrxreg -q instance set tp1 usage=dw
  has "$(tail -n 1 /tmp/globalreg.debug)" 'ACT=Change;CL="'"$VRXREG"' -q instance set tp1 usage=dw";REC=I,VRX,3.1.0.7,tp1,'
}

@test "change reports in json tell old and new" {
  sample
  exits 0 vrxreg instance set tp1 usage=dw maintenance=no --unset comment -o json
  is "$output" '{"schema":"vrxreg.change/1","kind":"instance","key":"VRX/3.1.0.7/tp1","action":"change","changed":true,"dry_run":false,"fields":{"usage":{"old":"oltp","new":"dw"},"maintenance":{"new":false},"comment":{"old":"orders"}}}'
  exits 0 vrxreg instance set tp1 usage=dw -o json
  is "$output" '{"schema":"vrxreg.change/1","kind":"instance","key":"VRX/3.1.0.7/tp1","action":"unchanged","changed":false,"dry_run":false,"fields":{}}'
  exits 0 vrxreg instance remove dw1 -o json
  is "$(jq -c '[.action,.fields.path,.fields.version]' <<<"$output")" '["remove",{"old":"/home/dw1/sqllib"},{"old":"3.1.0.7"}]'
}

@test "fields of later revisions survive a change and are shown in json" {
  python3 "$TESTS/registry_file.py" "$registry" 1:0=sVRX,1=v3.1.0.7,2=stp1,3=s/p,12=x0a00,40=x
  exits 0 vrxreg instance get tp1 -o json
  is "$(jq -c .record.unknown_fields <<<"$output")" '[{"bit":12,"hex":"0a00"},{"bit":40,"hex":""}]'
  vrxreg -q instance set tp1 comment=new
  exits 0 vrxreg instance list -o ndjson
  is "$(jq -c '[.comment,.unknown_fields]' <<<"$output")" '["new",[{"bit":12,"hex":"0a00"},{"bit":40,"hex":""}]]'
}

@test "variables are kept like the others" {
  exits 0 vrxreg variable set VRX/DIAG value=3 comment='level of detail'
  is "$output" "added VRX/DIAG"
  exits 0 vrxreg variable set DIAG value=4
  is "$output" "changed VRX/DIAG: value"
  exits 0 vrxreg variable list
  is "$output" "SERVICE VARIABLE VALUE COMMENT
VRX     DIAG     4     level of detail"
  exits 0 vrxreg variable remove VRX/DIAG
}

@test "nouns with the same key do not meet" {
  vrxreg -q service add VRX/3.1
  vrxreg -q variable add VRX/3.1
  vrxreg -q service remove VRX
  exits 0 vrxreg variable exists VRX/3.1
  exits 1 vrxreg service exists VRX/3.1
}

@test "a registry behind a link is changed where it lies" {
  mkdir real
  ln -s real/there.reg global.reg
  touch real/there.reg
  vrxreg -q service add VRX/3.1
  [ -L global.reg ]
  [ -s real/there.reg ]
  exits 0 vrxreg service list -o name
  is "$output" "VRX/3.1.0.0"
}
