#!/usr/bin/env bats
# SPDX-License-Identifier: Apache-2.0
# The sessions with profiles, services files, init tables and binary variables, word by word.
load support

# A services file of 361 lines.
services_file() {
  for number in {1..358}; do printf 'filler%d\t%d/tcp\n' "$number" "$number"; done
  printf 'fido\t\t60179/tcp\t\t\t# fidonet EMSI over TCP\n\n# Local services\n'
}

# A private /etc with a services file and an init table, until the test's process ends.
use_private_etc() {
  mkdir etc
  cp -a /etc/. etc/ 2>/dev/null || true
  services_file > etc/services
  printf '# Default runlevel\nid:2:initdefault:\n' > etc/inittab
  mount --bind etc /etc
}

@test "a dry run on the services file shows its difference" {
  use_private_etc
  before=$(cat /etc/services | sha256sum)
  exits 0 vrxreg ports set vrx_tp1/tcp port=60000 comment='instance tp1' -n
  is "$output" $'--- /etc/services
+++ /etc/services (dry run)
@@ -359,3 +359,4 @@
 fido\t\t60179/tcp\t\t\t# fidonet EMSI over TCP
 
 # Local services
+vrx_tp1\t\t60000/tcp\t\t\t# instance tp1
would add vrx_tp1/tcp'
  is "$(cat /etc/services | sha256sum)" "$before"
  exits 0 vrxreg ports set vrx_tp1/tcp port=60000 comment='instance tp1'
  is "$output" "added vrx_tp1/tcp"
  is "$(tail -n 1 /etc/services)" $'vrx_tp1\t\t60000/tcp\t\t\t# instance tp1'
  is "$(head -n 361 /etc/services | sha256sum)" "$before"
  exits 0 vrxreg inittab set vrx1 runlevels=2345 action=respawn command=/opt/vrx/bin/fmcd
  is "$output" 'added vrx1 (run `telinit q` to make init read it)'
  is "$(tail -n 1 /etc/inittab)" "vrx1:2345:respawn:/opt/vrx/bin/fmcd"
  umount /etc
}

@test "a profile variable is changed in place with its indentation" {
  printf '# settings\n  DIAG = 3   # level\n' > app.env
  exits 0 vrxreg -f app.env profile set DIAG value=4
  is "$output" "changed DIAG: value"
  is "$(cat app.env)" $'# settings\n  DIAG = 4 # level'
  exits 0 vrxreg -f app.env profile set DIAG value=4
  is "$output" "unchanged DIAG"
}

@test "a change of a profile shows the difference of the file" {
  printf 'A=1\n\n# two\nDIAG\t=\t3\nB=2\n' > app.env
  exits 0 vrxreg -f app.env profile set DIAG value=4 --diff
  is "$output" $'--- app.env
+++ app.env (new)
@@ -1,5 +1,5 @@
 A=1
 
 # two
-DIAG\t=\t3
+DIAG\t=\t4
 B=2
changed DIAG: value'
  exits 0 vrxreg -f app.env profile remove A --diff
  is "$output" $'--- app.env
+++ app.env (new)
@@ -1,4 +1,3 @@
-A=1
 
 # two
 DIAG\t=\t4
removed A'
}

@test "an init table entry is added and changed" {
  printf '# Default runlevel\nid:2:initdefault:\n' > inittab
  exits 0 vrxreg -f inittab inittab set vrx1 runlevels=2345 action=respawn command=/opt/vrx/bin/fmcd
  is "$output" 'added vrx1 (run `telinit q` to make init read it)'
  is "$(cat inittab)" $'# Default runlevel\nid:2:initdefault:\nvrx1:2345:respawn:/opt/vrx/bin/fmcd'
  exits 0 vrxreg -f inittab inittab set vrx1 action=off
  is "$output" 'changed vrx1: action (run `telinit q` to make init read it)'
  exits 0 vrxreg -f inittab inittab set vrx1 action=off
  is "$output" 'unchanged vrx1'
  exits 0 vrxreg -f inittab inittab remove vrx1 -n
  has "$output" $'-vrx1:2345:off:/opt/vrx/bin/fmcd\nwould remove vrx1'
  [[ $output != *telinit* ]]
}

@test "binary variables are kept like the others" {
  exits 0 vrxreg -f vars.bin binvar add LEVEL value=-5 comment=low
  is "$output" "added LEVEL (new file vars.bin)"
  exits 0 vrxreg -f vars.bin binvar set LEVEL value=7 --diff
  is "$output" "--- LEVEL
+++ LEVEL (new)
@@ -1,3 +1,3 @@
 name=LEVEL
-value=-5
+value=7
 comment=low
changed LEVEL: value"
  exits 0 vrxreg -f vars.bin binvar list
  is "$output" "NAME  VALUE COMMENT
LEVEL 7     low"
  is "$(stat -c %s vars.bin)" 40
}

@test "the json of a record and of a change" {
  printf 'webcache\t80/tcp cache proxy # web\n' > services
  exits 0 vrxreg -f services ports get webcache -o json
  is "$output" '{"schema":"vrxreg.record/1","kind":"ports","registry":"services","record":{"key":"webcache/tcp","name":"webcache","port":80,"protocol":"tcp","aliases":["cache","proxy"],"comment":"web"}}'
  exits 0 vrxreg -f services ports set webcache aliases=cache,proxy,w3 -o json
  is "$output" '{"schema":"vrxreg.change/1","kind":"ports","key":"webcache/tcp","action":"change","changed":true,"dry_run":false,"fields":{"aliases":{"old":["cache","proxy"],"new":["cache","proxy","w3"]}}}'
  exits 0 vrxreg -f services ports set webcache port=81 -n -o json
  is "$(jq -c '[.fields.port,.dry_run]' <<<"$output")" '[{"old":80,"new":81},true]'
  is "$(jq -j .diff <<<"$output")" $'--- services\n+++ services (dry run)\n@@ -1 +1 @@\n-webcache\t80/tcp\tcache proxy w3\t\t# web\n+webcache\t81/tcp\tcache proxy w3\t\t# web'
}
