#!/usr/bin/env bats
# SPDX-License-Identifier: Apache-2.0
# leftovers list and diff: what interrupted updates leave, explained and compared; words and options.
load leftovers_support

@test "without leftovers the list says so and makes nothing" {
  exits 0 vrxreg leftovers list
  is "$output" "nothing beside $registry"
  exits 0 vrxreg leftovers list -o json
  is "$output" '{"schema":"vrxreg.leftovers/1","registry":"'"$registry"'","count":0,"records":[]}'
  exits 0 vrxreg leftovers list --registry no/such/folder/global.reg
  exits 0 vrxreg leftovers clean --yes
  is "$output" "nothing to do"
  is "$(ls -A)" ""
}

@test "every companion has a row with what it is and what it means" {
  with_older global.reg.tmp global.reg.cor .global.reg.bkp
  touch -d '2001-02-03 04:05:06 UTC' global.reg.tmp
  chmod 600 global.reg.tmp
  touch -r global.reg global.reg.cor
  exits 0 vrxreg leftovers list --where key!=lock --fields key,what,type,size,mode,time,records,age -o tsv
  is "${lines[1]}" $'tmp\ttemporary copy\tfile\t160\t0600\t2001-02-03T04:05:06Z\t3\tolder'
  has "${lines[2]}" $'cor\tset-aside copy\tfile\t160\t0644\t'
  has "${lines[2]}" $'\t3\tsame time'
  has "${lines[3]}" $'bkp\tbackup\tfile\t160\t0644\t'
  has "${lines[3]}" $'\t3\tnewer'
  exits 0 vrxreg leftovers list
  has "${lines[0]}" "KEY  SIZE MODE TIME                 RECORDS AGE       MEANING"
  has "$output" "an update failed or was interrupted before its commit; the registry does not need it"
  has "$output" "free; it stands from the first update on and means nothing"
  is "$(vrxreg leftovers list -o name)" $'tmp\ncor\nbkp\nlock'
  is "$(vrxreg leftovers list --sort -size -o name | tail -1)" lock
}

@test "a backup that is the registry is told from an older one" {
  with_older
  ln global.reg .global.reg.bkp
  exits 0 vrxreg leftovers list -o json
  is "$(jq -r '.records[0] | [.key,.age,.records] | @tsv' <<<"$output")" $'bkp\tsame file\t4'
  has "$(jq -r '.records[0].meaning' <<<"$output")" "a second name of the registry"
  exits 0 vrxreg leftovers diff bkp
  exits 0 vrxreg leftovers promote bkp --yes
  is "$output" "nothing to do"
}

@test "damage is named with its place and hides no other row" {
  with_older global.reg.tmp global.reg.cor
  truncate -s 100 global.reg.tmp
  exits 0 vrxreg leftovers list -o json
  is "$(jq -c '[.records[] | has("problem")]' <<<"$output")" '[true,false,false]'
  has "$(jq -r '.records[0].problem' <<<"$output")" ", at byte "
  has "$(jq -r '.records[0].meaning' <<<"$output")" "; damaged;"
}

@test "a companion that may not be read is listed all the same" {
  [[ $(id -u) == 0 ]] || skip "needs root, to become somebody else"
  somebody="setpriv --reuid=65534 --regid=65534 --clear-groups"
  $somebody "$VRXREG" --version > /dev/null || skip "others cannot run the tool"
  with_older global.reg.tmp
  chmod 600 global.reg.tmp
  open=$(mktemp -d /tmp/open.XXXXXX)
  chmod 755 "$open"
  cp -a . "$open"
  exits 0 $somebody "$VRXREG" --registry "$open/global.reg" leftovers list -o json
  is "$(jq -r '.records[0] | [.key,.size,has("records")] | @tsv' <<<"$output")" $'tmp\t160\tfalse'
  has "$(jq -r '.records[0].problem' <<<"$output")" "Permission denied"
  exits 8 $somebody "$VRXREG" --registry "$open/global.reg" leftovers diff tmp
  rm -r "$open"
}

@test "the list tells a running update and its holder" {
  with_older global.reg.tmp
  start_holder
  exits 0 vrxreg leftovers list -o json
  is "$(jq -r '.records[1] | [.key,.locked,.holder] | @tsv' <<<"$output")" $'lock\ttrue\tpid '"$HOLDER_PID (python3)"
  has "$(jq -r '.records[0].meaning' <<<"$output")" "an update is going on"
  stop_holder
  exits 0 vrxreg leftovers list -o json
  is "$(jq -r '.records[1].locked' <<<"$output")" false
}

@test "a missing registry makes its leftovers matter" {
  with_older global.reg.tmp .global.reg.bkp
  rm global.reg
  exits 0 vrxreg leftovers list -o json
  is "$(jq -c '[.records[] | has("age")]' <<<"$output")" '[false,false,false]'
  has "$(jq -r '.records[0].meaning' <<<"$output")" "the registry is missing"
  has "$(jq -r '.records[1].meaning' <<<"$output")" "before the last update"
  [[ ! -e global.reg ]]
}

@test "names are those of the real file behind a link" {
  mkdir real
  with_older
  mv global.reg .global.reg.lock real/
  cp older real/global.reg.tmp
  ln -s real/global.reg global.reg
  is "$(vrxreg leftovers list --fields path -o value | head -1)" "$PWD/real/global.reg.tmp"
  exits 0 vrxreg leftovers promote tmp --yes
  [[ -L global.reg ]]
  same real/global.reg older
  same real/.global.reg.bkp newer
}

@test "diff shows records of every noun and exits 1" {
  with_older .global.reg.bkp
  exits 1 vrxreg leftovers diff bkp
  is "$output" '--- VRX/3.1.0.7/tp1
+++ VRX/3.1.0.7/tp1 (backup)
@@ -2,4 +2,3 @@
 version=3.1.0.7
 instance=tp1
 path=/a
-comment=new
--- VRX/A
+++ /dev/null
@@ -1,3 +0,0 @@
-service=VRX
-variable=A
-value=1'
  exits 0 vrxreg leftovers diff bkp service
  exits 1 vrxreg leftovers diff variable bkp -o json
  is "$(jq -c '[.schema,.differs,(.diff|length > 0)]' <<<"$output")" '["vrxreg.leftovers.diff/1",true,true]'
  cp newer .global.reg.bkp
  exits 0 vrxreg leftovers diff bkp
  is "$output" ""
}

@test "diff shows fields of later revisions and doubled keys" {
  python3 "$TESTS/registry_file.py" global.reg 4:0=sVRX,1=sA,12=x0a00 4:0=sVRX,1=sB 4:0=sVRX,1=sB
  python3 "$TESTS/registry_file.py" global.reg.cor 4:0=sVRX,1=sA,12=x0b00 4:0=sVRX,1=sB
  exits 1 vrxreg leftovers diff cor
  has "$output" $'-unknown field 12=0a00\n+unknown field 12=0b00'
  has "$output" $'--- VRX/B\n+++ /dev/null'
}

@test "diff of a text is that of its lines" {
  printf '# one\nA = 1\nB = 2\n' > app.env
  printf '# one\nA = 1\nB = 3' > app.env.tmp
  exits 1 vrxreg -f app.env leftovers diff profile tmp
  is "$output" '--- app.env
+++ app.env (temporary copy)
@@ -1,3 +1,3 @@
 # one
 A = 1
-B = 2
+B = 3
\ No newline at end of file'
  is "$(vrxreg -f app.env leftovers list profile -o tsv --no-headings --fields key,records,lines)" $'tmp\t2\t3'
}

@test "diff without its leftover is exit 4, with a damaged one exit 6" {
  with_older
  exits 4 vrxreg leftovers diff tmp
  has "$stderr" "there is no temporary copy beside it"
  head -c 100 older > global.reg.tmp
  exits 6 vrxreg leftovers diff tmp
  has "$stderr" "$registry.tmp: "
  has "$stderr" "at byte"
  rm global.reg
  cp older global.reg.tmp
  exits 1 vrxreg leftovers diff tmp
  has "$output" "--- /dev/null"
  [[ ! -e global.reg ]]
}

@test "words and options that do not fit are exit 2" {
  exits 2 vrxreg leftovers
  has "$stderr" "there are list, diff, promote, clean"
  exits 2 vrxreg leftovers lst
  has "$stderr" 'did you mean "list"?'
  exits 2 vrxreg leftovers diff
  exits 2 vrxreg leftovers diff tmp cor
  exits 2 vrxreg leftovers diff lock
  exits 2 vrxreg leftovers clean bak
  has "$stderr" "there are tmp, cor, bkp, lock"
  exits 2 vrxreg leftovers list tmp
  exits 2 vrxreg leftovers list -f app.env
  has "$stderr" "Name the noun"
  exits 2 vrxreg leftovers list profile
  exits 2 vrxreg leftovers list profile -f app.env --registry x
  exits 2 vrxreg leftovers promote tmp -o csv
  exits 2 vrxreg leftovers list -n
  is "$(ls -A)" ""
}
