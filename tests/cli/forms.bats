#!/usr/bin/env bats
# SPDX-License-Identifier: Apache-2.0
# Every form of output, to the byte.
load support

# Compares the bytes of standard output, trailing line ends included.
bytes_are() {
  local expected=$1
  shift
  "$VRXREG" "$@" > actual
  printf '%s' "$expected" > expected
  cmp actual expected || { cat -A actual; return 1; }
}

@test "wide tables show all fields" {
  sample
  bytes_are "SERVICE VERSION INSTANCE BOOT MAINT USAGE PATH             AUX_PATH AUX_NAME COMMENT
VRX     3.1.0.7 tp1      yes  -     oltp  /home/tp1/sqllib -        -        orders
VRX     3.1.0.7 dw1      -    -     dw    /home/dw1/sqllib -        -        -
KRN     3.0.2.0 krn1     yes  no    -     /opt/krn/inst    -        -        -
" instance list -o wide
}

@test "tables of services" {
  sample
  bytes_are "SERVICE VERSION FIXPACK TEXT1
VRX     3.1.0.7 7       /opt/vrx/v3.1
" service list
}

@test "tables without headings and empty tables" {
  sample
  bytes_are "KRN 3.0.2.0 krn1 yes no - /opt/krn/inst
" instance list --no-headings --where service=KRN
  bytes_are "SERVICE VERSION INSTANCE BOOT MAINT USAGE PATH
" instance list --where service=none
  bytes_are "" instance list --where service=none --no-headings
}

@test "get shows one field a line" {
  sample
  bytes_are "FIELD         VALUE
service       KRN
version       3.0.2.0
instance      krn1
path          /opt/krn/inst
usage         -
start_at_boot yes
maintenance   no
aux_path      -
aux_name      -
comment       -
" instance get krn1
  bytes_are "path  /opt/krn/inst
usage -
" instance get krn1 path usage --no-headings
}

@test "csv follows RFC 4180" {
  vrxreg -q variable add VRX/A value='say "hi", all' comment=$'two\nlines'
  vrxreg -q variable add VRX/B value=plain
  bytes_are $'service,variable,value,comment\r\nVRX,A,"say ""hi"", all","two\nlines"\r\nVRX,B,plain,\r\n' variable list -o csv
  bytes_are $'B,plain\r\n' variable list -o csv --fields variable,value --where variable=B --no-headings
  vrxreg variable list -o csv | python3 -c '
import csv, sys, io
rows = list(csv.DictReader(io.TextIOWrapper(sys.stdin.buffer, newline="")))
assert rows[0]["value"] == "say \"hi\", all" and rows[0]["comment"] == "two\nlines", rows'
}

@test "tsv escapes what would break a line" {
  vrxreg -q variable add VRX/A value=$'a\tb\\c' comment=$'two\nlines\e'
  bytes_are $'service\tvariable\tvalue\tcomment\nVRX\tA\ta\\tb\\\\c\ttwo\\nlines\\x1b\n' variable list -o tsv
}

@test "shell words read back in a shell" {
  vrxreg -q variable add VRX/A value="it's; \$(touch broken)" comment=$'two\nlines'
  bytes_are "vrx_service='VRX' vrx_variable='A' vrx_value='it'\\''s; \$(touch broken)' vrx_comment='two
lines'
" variable list -o sh
  eval "$(vrxreg variable get A -o sh)"
  is "$vrx_value" "it's; \$(touch broken)"
  is "$vrx_comment" $'two\nlines'
  [ ! -e broken ]
}

@test "names and values, with line ends or with NUL bytes" {
  sample
  bytes_are "VRX/3.1.0.7/tp1
VRX/3.1.0.7/dw1
KRN/3.0.2.0/krn1
" instance list -o name
  bytes_are "tp1

krn1
no
" instance list -o value --fields instance,maintenance --where start_at_boot=yes
  vrxreg instance list -o name -0 | tr '\0' ';' > actual
  is "$(cat actual)" "VRX/3.1.0.7/tp1;VRX/3.1.0.7/dw1;KRN/3.0.2.0/krn1;"
  is "$(vrxreg instance get tp1 path -o value -0 | tr '\0' ';')" "/home/tp1/sqllib;"
}

@test "json of every verb is one line and well-formed" {
  sample
  for command in "list" "get tp1" "exists tp1" "count" "set tp1 usage=x" "add VRX/3.2/y" "remove y"; do
    exits 0 vrxreg instance $command -o json
    is "${#lines[@]}" 1
    jq -e '.schema | test("^vrxreg\\.[a-z]+/1$")' <<<"$output"
  done
  for command in where "version 3.1" "explain 0x900001F6"; do
    exits 0 vrxreg $command -o json
    jq -e '.schema | test("^vrxreg\\.[a-z]+/1$")' <<<"$output"
  done
}

@test "json of get, count and exists" {
  sample
  exits 0 vrxreg service get VRX -o json
  is "$output" '{"schema":"vrxreg.record/1","kind":"service","registry":"'"$registry"'","record":{"key":"VRX/3.1.0.7","service":"VRX","version":"3.1.0.7","version_code":"0x0003000100000007","text1":"/opt/vrx/v3.1","fixpack":7}}'
  exits 0 vrxreg instance count --where usage=dw -o json
  is "$output" '{"schema":"vrxreg.count/1","kind":"instance","registry":"'"$registry"'","count":1}'
  exits 0 vrxreg instance exists tp1 -o json
  is "$output" '{"schema":"vrxreg.exists/1","kind":"instance","registry":"'"$registry"'","key":"VRX/3.1.0.7/tp1","exists":true}'
  exits 1 vrxreg instance exists tp9 -o json
  is "$output" '{"schema":"vrxreg.exists/1","kind":"instance","registry":"'"$registry"'","key":"tp9","exists":false}'
  is "$stderr" ""
}

@test "json shows only the fields asked for, and the key" {
  sample
  exits 0 vrxreg instance list -o json --fields path --where instance=krn1
  is "$(jq -c .records <<<"$output")" '[{"key":"KRN/3.0.2.0/krn1","path":"/opt/krn/inst"}]'
}

@test "ndjson is one record a line" {
  sample
  exits 0 vrxreg instance list -o ndjson --fields usage
  is "$output" '{"key":"VRX/3.1.0.7/tp1","usage":"oltp"}
{"key":"VRX/3.1.0.7/dw1","usage":"dw"}
{"key":"KRN/3.0.2.0/krn1"}'
}

@test "exists says nothing: its exit status is the answer" {
  sample
  bytes_are "" instance exists tp1
  exits 1 vrxreg instance exists tp9
  is "$output$stderr" ""
  is "$(vrxreg instance exists tp1 -o value)" yes
}

@test "where selects by glob, regular expression and order" {
  sample
  names() { vrxreg instance list -o value --fields instance "$@" | tr '\n' ' '; }
  is "$(names --where 'instance=?p*')" "tp1 "
  is "$(names --where 'service!=VRX')" "krn1 "
  is "$(names --where 'path~^/home/.+lib$')" "tp1 dw1 "
  is "$(names --where 'version>3.0.2')" "tp1 dw1 "
  is "$(names --where 'version<=3.0.2')" "krn1 "
  is "$(names --where 'version<3.1.0.7')" "krn1 "
  is "$(names --where usage=)" "krn1 "
  is "$(names --where 'usage!=')" "tp1 dw1 "
  is "$(names --where 'usage=*')" "tp1 dw1 "
  is "$(names --where 'start_at_boot=1' --where service=KRN)" "krn1 "
  is "$(names --where 'maintenance!=yes')" "tp1 dw1 krn1 "
  is "$(names --where 'key=KRN/*')" "krn1 "
  is "$(vrxreg service count --where 'fixpack>6')" 1
  is "$(vrxreg service count --where 'num2<6')" 0
}

@test "sort orders by type, absent last, and keeps the order of equals" {
  for version in 3.9 3.10 3.2; do vrxreg -q service add S/$version fixpack=${version#3.}; done
  vrxreg -q service add S/4
  column() { vrxreg service list -o value --fields version "$@" | tr '\n' ' '; }
  is "$(column --sort version)" "3.2.0.0 3.9.0.0 3.10.0.0 4.0.0.0 "
  is "$(column --sort -version)" "4.0.0.0 3.10.0.0 3.9.0.0 3.2.0.0 "
  is "$(column --sort=fixpack)" "3.2.0.0 3.9.0.0 3.10.0.0 4.0.0.0 "
  is "$(column --sort service)" "3.9.0.0 3.10.0.0 3.2.0.0 4.0.0.0 "
}

@test "colour only on request when there is no terminal" {
  sample
  bytes_are $'\e[1mSERVICE VERSION FIXPACK TEXT1\e[0m\nVRX     3.1.0.7 7       /opt/vrx/v3.1\n' service list --color always
  exits 0 vrxreg instance set tp1 usage=x -n --color always
  has "$output" $'\e[31m-usage=oltp\e[0m\n\e[32m+usage=x\e[0m'
  exits 0 vrxreg instance set tp1 usage=x -n
  [[ $output != *$'\e'* ]]
}

@test "colour on a terminal unless NO_COLOR or a dumb terminal" {
  sample
  on_terminal() { script -qec "$VRXREG service list $*" /dev/null; }
  has "$(on_terminal)" $'\e[1m'
  [[ $(on_terminal --color never) != *$'\e['* ]]
  [[ $(NO_COLOR=1 on_terminal) != *$'\e['* ]]
  [[ $(TERM=dumb on_terminal) != *$'\e['* ]]
  has "$(NO_COLOR= on_terminal)" $'\e[1m'
}

@test "tables are measured in characters in every locale" {
  vrxreg -q variable add VRX/ä value=größer comment=x
  vrxreg -q variable add VRX/b value=y comment=z
  for locale in C C.UTF-8 POSIX; do
    exits 0 env LC_ALL=$locale "$VRXREG" variable list
    is "$output" "SERVICE VARIABLE VALUE  COMMENT
VRX     ä        größer x
VRX     b        y      z"
  done
}
