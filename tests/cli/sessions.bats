#!/usr/bin/env bats
# SPDX-License-Identifier: Apache-2.0
# The sessions that the documentation shows, word by word.
load support

@test "where tells the host-wide default and why" {
  unset VRX_GLOBAL_REG_PATHNAME
  exits 0 vrxreg where --why
  is "$output" "/var/vrx/global.reg
host-wide default: VRX_GLOBAL_REG_PATHNAME is not set, VRXINSTANCE is not set"
}

@test "the host-wide registry is used and changed without any option" {
  unset VRX_GLOBAL_REG_PATHNAME
  exits 0 vrxreg service add VRX/3.1.0.7
  [ -f /var/vrx/global.reg ]
  [ -f /var/vrx/.global.reg.lock ]
  exits 1 vrxreg instance get tp9
  is "$stderr" "vrxreg: instance tp9: not in /var/vrx/global.reg (0x900001F6)"
}

@test "add reports what it added" {
  exits 0 vrxreg service add VRX/3.1.0.7 text1=/opt/vrx/v3.1 fixpack=7
  is "$output" "added VRX/3.1.0.7"
  exits 0 vrxreg instance add VRX/3.1.0.7/tp1 path=/home/tp1/sqllib usage=oltp start_at_boot=yes comment=orders
  is "$output" "added VRX/3.1.0.7/tp1"
}

@test "list shows a table in file order" {
  sample
  exits 0 vrxreg instance list
  is "$output" "SERVICE VERSION INSTANCE BOOT MAINT USAGE PATH
VRX     3.1.0.7 tp1      yes  -     oltp  /home/tp1/sqllib
VRX     3.1.0.7 dw1      -    -     dw    /home/dw1/sqllib
KRN     3.0.2.0 krn1     yes  no    -     /opt/krn/inst"
}

@test "list selects rows and columns" {
  sample
  exits 0 vrxreg instance list --where 'version>=3.1' --fields instance,path -o tsv --no-headings
  is "$output" $'tp1\t/home/tp1/sqllib\ndw1\t/home/dw1/sqllib'
}

@test "get gives one bare value" {
  sample
  exits 0 vrxreg instance get tp1 path -o value
  is "$output" "/home/tp1/sqllib"
}

@test "get of a missing record is exit 1 with the code" {
  sample
  exits 1 vrxreg instance get tp9
  is "$output" ""
  is "$stderr" "vrxreg: instance tp9: not in $registry (0x900001F6)"
}

@test "set shows the difference and reports the fields" {
  sample
  exits 0 vrxreg instance set tp1 maintenance=yes comment='moved 2026-11' --diff
  is "$output" "--- VRX/3.1.0.7/tp1
+++ VRX/3.1.0.7/tp1 (new)
@@ -4,4 +4,5 @@
 path=/home/tp1/sqllib
 usage=oltp
 start_at_boot=yes
-comment=orders
+maintenance=yes
+comment=moved 2026-11
changed VRX/3.1.0.7/tp1: maintenance, comment"
  exits 0 vrxreg instance set tp1 maintenance=yes
  is "$output" "unchanged VRX/3.1.0.7/tp1"
}

@test "a lock that stays busy is exit 3 and names the holder" {
  sample
  start_holder
  exits 3 vrxreg --timeout 0.3 instance remove dw1
  is "$stderr" "vrxreg: $PWD/.global.reg.lock still held by pid $HOLDER_PID (python3) after 0.3 s; nothing changed (0x900001BC)"
  stop_holder
  exits 0 vrxreg --timeout 0 instance remove dw1
  is "$output" "removed VRX/3.1.0.7/dw1"
}

@test "explain tells what a code means and what to do" {
  exits 0 vrxreg explain 0x900001F8
  is "$output" '0x900001F8: more than one record matches where duplicates are not allowed (exit 5)
Raised by: Change, Delete. Do: name the record fully (`ports`: NAME/PROTOCOL), or --all where the format allows duplicates.'
}

@test "the json examples are met to the byte" {
  vrxreg -q instance add VRX/3.1.0.7/tp1 path=/home/tp1/sqllib usage=oltp start_at_boot=yes comment=orders
  exits 0 vrxreg -o json instance list
  is "$output" '{"schema":"vrxreg.list/1","kind":"instance","registry":"'"$registry"'","count":1,"records":[{"key":"VRX/3.1.0.7/tp1","service":"VRX","version":"3.1.0.7","version_code":"0x0003000100000007","instance":"tp1","path":"/home/tp1/sqllib","usage":"oltp","start_at_boot":true,"comment":"orders"}]}'
  exits 1 vrxreg -o json instance get tp9
  is "$stderr" '{"schema":"vrxreg.error/1","exit":1,"code":"0x900001F6","name":"no_match","message":"instance tp9: not in '"$registry"'","path":"'"$registry"'"}'
  exits 0 vrxreg -o json instance set tp1 usage=dw -n
  has "$output" '{"schema":"vrxreg.change/1","kind":"instance","key":"VRX/3.1.0.7/tp1","action":"change","changed":true,"dry_run":true,"fields":{"usage":{"old":"oltp","new":"dw"}},"diff":"--- '
}

@test "services asks which noun was meant" {
  exits 2 vrxreg services list
  is "$stderr" 'vrxreg: services: which one? `service` (installed copies) or `ports` (the host'"'"'s services file)'
}
