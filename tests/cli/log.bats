#!/usr/bin/env bats
# SPDX-License-Identifier: Apache-2.0
# log: the change log, filtered and followed.
load support

log=/tmp/globalreg.debug

# entry RECORDS [ACTION]: an entry as the library writes it.
entry() {
  echo "TS=\"Mon Jan  1 12:00:00 2024\";CALLER=UNKNOWN;PID=42;U=0;BL=s1;FP=7;PATH=/r;ACT=${2-Add};CL=N/A;REC=$1"
}

# start_follower OPTION...: vrxreg log -F, which prints to the descriptor FOLLOWER[0] until
# stop_follower.
start_follower() {
  coproc FOLLOWER { exec "$VRXREG" log -F "$@" 3>&-; }
}

stop_follower() {
  local pid=$FOLLOWER_PID
  kill "$pid"
  wait "$pid" || true
}

# follows TEXT: the follower's next line. A follower that says nothing ends with the test's time.
follows() {
  local line
  IFS= read -r -u "${FOLLOWER[0]}" line
  is "$line" "$1"
}

setup_file() { rm -f /tmp/globalreg.debug; }

teardown() {
  [[ -z ${FOLLOWER_PID-} ]] || kill "$FOLLOWER_PID"
  rm -f "$log"
}

@test "log without a log is exit 4 and makes none" {
  exits 4 vrxreg log
  is "$stderr" "vrxreg: $log: there is no such log"
  exits 4 vrxreg log -f other.log -o json
  is "$stderr" '{"schema":"vrxreg.error/1","exit":4,"message":"other.log: there is no such log","path":"other.log"}'
  [[ ! -e $log ]]
}

@test "log shows who has changed what" {
  sample
  vrxreg -q instance set tp1 maintenance=yes
  vrxreg -q instance remove dw1
  exits 0 vrxreg log --fields action,kind,key,uid,registry -o tsv --no-headings
  is "$output" "add	service	VRX/3.1.0.7	0	$registry
add	instance	VRX/3.1.0.7/tp1	0	$registry
add	instance	VRX/3.1.0.7/dw1	0	$registry
add	instance	KRN/3.0.2.0/krn1	0	$registry
change	instance	VRX/3.1.0.7/tp1	0	$registry
delete	instance	VRX/3.1.0.7/dw1	0	$registry"
  exits 0 vrxreg log --where action=change --fields command -o value
  is "$output" "$VRXREG -q instance set tp1 maintenance=yes"
}

@test "log of the library's lines in json holds the records" {
  vrxreg -q variable add VRX/A value=1
  vrxreg -q variable set VRX/A value=2 comment=why
  exits 0 vrxreg log -o json
  is "$(jq -c '[.schema, .count, (.records[] | .key, .line, .old, .new, .pid > 0, has("problem"))]' <<<"$output")" \
    '["vrxreg.log/1",2,"VRX/A",1,null,{"service":"VRX","variable":"A","value":"1"},true,false,"VRX/A",2,{"service":"VRX","variable":"A","value":"1"},{"service":"VRX","variable":"A","value":"2","comment":"why"},true,false]'
}

@test "log of given lines in every form" {
  { entry "S,VRX,3.1.0.7,/opt/vrx,,,7,,A,,"; entry "V,VRX,A,1,!V,VRX,A,2," Change; } > saved.log
  exits 0 vrxreg log -f saved.log
  is "$output" "TIME                ACTION KIND     KEY         UID COMMAND
2024-01-01T12:00:00 add    service  VRX/3.1.0.7 0   -
2024-01-01T12:00:00 change variable VRX/A       0   -"
  exits 0 vrxreg log -f saved.log -o ndjson --where kind=service
  is "$output" '{"key":"VRX/3.1.0.7","line":1,"time":"2024-01-01T12:00:00","action":"add","kind":"service","caller":"UNKNOWN","pid":42,"uid":0,"registry":"/r","build_level":"s1","fixpack":7,"new":{"service":"VRX","version":"3.1.0.7","version_code":"0x0003000100000007","text1":"/opt/vrx","fixpack":7,"flag":65}}'
  exits 0 vrxreg log -f saved.log -o csv --fields key,old,new
  is "$output" $'key,old,new\r\nVRX/3.1.0.7,,"service=VRX,version=3.1.0.7,text1=/opt/vrx,fixpack=7,flag=65"\r\nVRX/A,"service=VRX,variable=A,value=1","service=VRX,variable=A,value=2"\r'
  exits 0 vrxreg log -f saved.log -o name --sort -line
  is "$output" $'VRX/A\nVRX/3.1.0.7'
}

@test "log marks what can be read in several ways and shows it raw" {
  vrxreg -q instance add VRX/3.1.0.7/tp1 path=/home/tp1 'comment=moved, twice'
  vrxreg -q variable add VRX/A $'value=two\nlines'
  exits 0 vrxreg log -o json
  is "$(jq -c '.records[] | [.line, .problem, has("new"), has("key")]' <<<"$output")" \
    $'[1,"ambiguous",false,false]\n[2,"ambiguous",false,false]'
  is "$(jq -r '.records[].text' <<<"$output")" "$(cat "$log")"
  exits 0 vrxreg log
  has "$output" 'ambiguous TS="'
  has "$output" 'REC=V,VRX,A,two\nlines,'
}

@test "log marks foreign and cut lines and goes on behind them" {
  { echo foreign; entry V,VRX,A,1,; entry V,VRX,B; entry V,VRX,C,3,; printf 'TS="Mon'; } > saved.log
  exits 0 vrxreg log -f saved.log -o tsv --no-headings --fields line,key,problem,text
  is "$output" "1		unreadable	foreign
2	VRX/A		
3		unreadable	$(entry V,VRX,B)
4	VRX/C		
5		cut	TS=\"Mon"
}

@test "log filters never hide what could not be read" {
  { entry V,VRX,A,1,; entry V,VRX,B,a,b,; entry V,VRX,C,3,; } > saved.log
  exits 0 vrxreg log -f saved.log --where key=VRX/C --fields line -o value
  is "$output" $'2\n3'
  exits 0 vrxreg log -f saved.log --where key=VRX/C --where problem= --fields line -o value
  is "$output" 3
  exits 0 vrxreg log -f saved.log --where problem=ambiguous --fields line -o value
  is "$output" 2
  exits 0 vrxreg log -f saved.log --where 'line>=3' --fields line -o value
  is "$output" 3
  exits 0 vrxreg log -f saved.log --where 'text~VRX,B' --where key=VRX/A --fields line -o value
  is "$output" 2
}

@test "log selects a range of time" {
  { entry V,VRX,A,1,; entry V,VRX,B,1, | sed 's/2024/2025/'; } > saved.log
  exits 0 vrxreg log -f saved.log --where 'time>=2024-06' -o name
  is "$output" VRX/B
  exits 0 vrxreg log -f saved.log --where 'time<2025' -o name
  is "$output" VRX/A
  exits 2 vrxreg log -f saved.log --where 'time>='
}

@test "log of a line that was cut is not read as the next one" {
  vrxreg -q variable add VRX/A value=1
  written=$(wc -c < "$log")
  offset=$(grep -ob ';BL=' "$log" | cut -d: -f1)
  # An instrumented program cannot write what it has counted then, either.
  run prlimit --fsize=$((written + offset + 5)) -- "$VRXREG" -q variable add VRX/B value=1
  vrxreg -q variable add VRX/C value=1
  exits 0 vrxreg log --fields line,key,problem -o tsv --no-headings
  is "$output" $'1\tVRX/A\t\n2\t\tambiguous'
}

@test "log shows a change of which one record is of no known type" {
  { entry '!V,VRX,A,1,' Change; entry '!' Change; } > saved.log
  exits 0 vrxreg log -f saved.log -o ndjson --fields kind,old,new
  is "$output" $'{"key":"VRX/A","kind":"variable","new":{"service":"VRX","variable":"A","value":"1"}}\n{}'
}

@test "log in lines comes as it is read" {
  for ((i = 0; i < 1000; ++i)); do entry V,VRX,A$i,1,; done > saved.log
  is "$(vrxreg log -f saved.log -o csv --fields line | sed -n '1p;2p;$p')" $'line\r\n1\r\n1000\r'
  is "$(vrxreg log -f saved.log -o csv --fields line --sort -line | sed -n '1p;2p;$p')" $'line\r\n1000\r\n1\r'
  is "$(vrxreg log -f saved.log -o csv --fields line --where key=none)" $'line\r'
  is "$(vrxreg log -f saved.log -o json | jq .count)" 1000
}

@test "log that is too long for a table is told so" {
  truncate -s 300M saved.log
  exits 8 vrxreg log -f saved.log
  is "$stderr" "vrxreg: the log is too long to be shown at once: use --where, or -o ndjson without --sort"
}

@test "log shows no control characters of a line on a terminal" {
  entry $'V,VRX,A,\e[31m,' > saved.log
  printf 'TS="\e[2J\n' >> saved.log
  exits 0 vrxreg log -f saved.log -o wide
  [[ $output != *$'\e'* ]]
}

@test "log follows no link and waits for no pipe" {
  entry V,VRX,A,1, > target
  ln -s "$PWD/target" "$log"
  exits 8 vrxreg log
  is "$stderr" "vrxreg: $log: a symbolic link, which is not followed"
  exits 8 vrxreg log -F
  exits 0 vrxreg log -f "$log" -o name
  is "$output" VRX/A
  rm "$log"
  mkfifo "$log"
  exits 8 vrxreg log
  is "$stderr" "vrxreg: $log: no regular file"
  rm "$log"
  mkdir "$log"
  exits 8 vrxreg log
  rmdir "$log"
}

@test "log reads lines of any length" {
  { entry V,VRX,A,1,; head -c 300000 /dev/zero | tr '\0' x; echo; entry V,VRX,B,2,; } > saved.log
  exits 0 vrxreg log -f saved.log --where problem= -o name
  is "$output" VRX/B
  is "$(vrxreg log -f saved.log -o json --where problem!= | jq -j '[.records[].text] | add' | wc -c)" \
    "$(($(wc -c < saved.log) - $(entry V,VRX,B,2, | wc -c) - 1))"
}

@test "log follows what is logged" {
  start_follower -o tsv --fields action,key
  vrxreg -q variable add VRX/A value=1
  follows $'action\tkey'
  follows $'add\tVRX/A'
  vrxreg -q variable set VRX/A value=2
  follows $'change\tVRX/A'
  stop_follower
}

@test "log follows the log that takes another one's place" {
  entry V,VRX,A,1, > "$log"
  start_follower -o ndjson --fields line
  follows '{"key":"VRX/A","line":1}'
  mv "$log" "$log.1"
  entry V,VRX,B,1, > "$log"
  follows '{"key":"VRX/B","line":1}'
  entry V,VRX,C,1, >> "$log"
  follows '{"key":"VRX/C","line":2}'
  : > "$log"
  entry V,VRX,D,1, >> "$log"
  follows '{"key":"VRX/D","line":1}'
  stop_follower
  rm "$log.1"
}

@test "log follows lines that come in parts" {
  entry V,VRX,A,1, > "$log"
  entry V,VRX,B,1, > whole
  head -c 38 whole >> "$log"
  start_follower -o tsv --no-headings --fields key,problem
  follows $'VRX/A\t'
  tail -c +39 whole >> "$log"
  follows $'VRX/B\t'
  stop_follower
}

@test "log that is followed has no end to sort or enclose" {
  exits 2 vrxreg log -F -o json
  is "$stderr" '{"schema":"vrxreg.error/1","exit":2,"message":"-o json does not go with -F, which has no end: use ndjson"}'
  exits 2 vrxreg log -F --sort time
  exits 2 vrxreg where -F
  exits 2 vrxreg log --registry "$registry"
  exits 2 vrxreg log here
}
