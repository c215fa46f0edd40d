#!/usr/bin/env bats
# SPDX-License-Identifier: Apache-2.0
# list, get, exists and count on lines: every form, keys, lines that are no entries.
load support

profile_file() {
  printf '# settings\n  DIAG = 3   # level\n\nPATH = "a  b"\njunk\nEMPTY=\nD=1\nD=2 # two\n' > app.env
}

services_file() {
  cat > services <<'EOF'
# Network services
ftp             21/tcp
domain          53/tcp                          # names
domain          53/udp
http            80/tcp          www
webcache        80/tcp          cache proxy     # web
sctponly        99/sctp         alias           # kept
noslash 12

EOF
}

inittab_file() {
  cat > inittab <<'EOF'
# Default
id:2:initdefault:
si::sysinit:/etc/init.d/rcS
1:2345:respawn:/sbin/getty \
38400 tty1
::old
x:1:wait:/bin/y # note
broken:1:wait
EOF
}

profile() { vrxreg -f app.env profile "$@"; }
ports() { vrxreg -f services ports "$@"; }
inittab() { vrxreg -f inittab inittab "$@"; }

@test "a profile in every form" {
  profile_file
  exits 0 profile list
  is "$output" 'NAME  VALUE  COMMENT
DIAG  3      level
PATH  "a  b" -
EMPTY ""     -
D     1      -
D     2      two'
  is "$(profile list -o csv)" $'name,value,comment\r
DIAG,3,level\r
PATH,"""a  b""",\r
EMPTY,"",\r
D,1,\r
D,2,two\r'
  is "$(profile list -o tsv --where name=D)" $'name\tvalue\tcomment\nD\t1\t\nD\t2\ttwo'
  is "$(profile list -o sh --where name=DIAG)" "vrx_name='DIAG' vrx_value='3' vrx_comment='level'"
  is "$(profile list -o name --sort -name | tr '\n' ' ')" "PATH EMPTY DIAG D D "
  is "$(profile list -o value --fields value --where 'comment!=' | tr '\n' ' ')" "3 2 "
  is "$(profile list -o ndjson | head -n 1)" '{"key":"DIAG","name":"DIAG","value":"3","comment":"level"}'
  is "$(profile list -o json | jq -c '[.schema,.kind,.registry,.count,.records[2]]')" \
    '["vrxreg.list/1","profile","app.env",5,{"key":"EMPTY","name":"EMPTY","value":""}]'
  is "$(profile count)" 5
  is "$(profile count --where 'value~^[0-9]')" 3
}

@test "an empty value is a value" {
  profile_file
  exits 0 profile get EMPTY value -o value
  is "$output" ""
  exits 1 profile get EMPTY comment
  exits 0 profile exists EMPTY
  exits 1 profile exists junk
  exits 1 profile get settings
}

@test "all lines of a profile with their numbers" {
  profile_file
  exits 0 profile list --all-lines
  is "$output" 'LINE KIND     TEXT
1    comment  # settings
2    entry      DIAG = 3   # level
3    blank    ""
4    entry    PATH = "a  b"
5    unparsed junk
6    entry    EMPTY=
7    entry    D=1
8    entry    D=2 # two'
  is "$(profile list --all-lines -o json | jq -c '[.schema,.kind,.registry,.count,.records[4]]')" \
    '["vrxreg.lines/1","profile","app.env",8,{"line":5,"kind":"unparsed","text":"junk"}]'
  is "$(profile list --all-lines --where kind=entry --sort -line -o value --fields line | tr '\n' ' ')" "8 7 6 4 2 "
  exits 2 profile list --all-lines -o name
  exits 2 vrxreg instance list --all-lines
}

@test "a services file in every form" {
  services_file
  exits 0 ports list
  is "$output" "NAME     PORT PROTOCOL ALIASES     COMMENT
ftp      21   tcp      -           -
domain   53   tcp      -           names
domain   53   udp      -           -
http     80   tcp      www         -
webcache 80   tcp      cache,proxy web
sctponly 99   sctp     -           kept
noslash  -    -        -           -"
  is "$(ports list -o csv --where name=webcache)" $'name,port,protocol,aliases,comment\r\nwebcache,80,tcp,"cache,proxy",web\r'
  is "$(ports list -o sh --where name=webcache)" "vrx_name='webcache' vrx_port='80' vrx_protocol='tcp' vrx_aliases='cache,proxy' vrx_comment='web'"
  is "$(ports list -o wide --where name=ftp --no-headings)" "ftp 21 tcp - -"
  is "$(ports list -o json --where name=webcache | jq -c '.records[0]')" \
    '{"key":"webcache/tcp","name":"webcache","port":80,"protocol":"tcp","aliases":["cache","proxy"],"comment":"web"}'
  is "$(ports list -o value --fields name --where 'port>=53' --where 'port<99' --sort -port | tr '\n' ' ')" "http webcache domain domain "
  is "$(ports count --where 'aliases=*cache*')" 1
}

@test "service lines that are not understood are listed as they stand" {
  services_file
  exits 0 ports list -o json --where understood=no
  is "$(jq -c '.records' <<<"$output" | tr -s ' ')" \
    '[{"key":"sctponly/sctp","name":"sctponly","port":99,"protocol":"sctp","comment":"kept","understood":false,"text":"sctponly 99/sctp alias # kept"},{"key":"noslash","name":"noslash","understood":false,"text":"noslash 12"}]'
  exits 0 ports get noslash --no-headings
  is "$(tr -s ' ' <<<"$output" | tail -n 2)" $'understood no\ntext noslash 12'
  exits 0 ports get ftp
  [[ $output != *understood* ]]
}

@test "ports keys are names or ports with a protocol, shorter while unique" {
  services_file
  is "$(ports get domain/udp port -o value)" 53
  is "$(ports get 53/tcp comment -o value)" names
  is "$(ports get ftp port -o value)" 21
  is "$(ports get 21 name -o value)" ftp
  exits 5 ports get domain
  is "$stderr" "vrxreg: ports domain: 2 records match: domain/tcp, domain/udp (0x900001F8)"
  exits 5 ports get 80/tcp -o json
  is "$(jq -c '[.exit,.code,.candidates]' <<<"$stderr")" '[5,"0x900001F8",["http/tcp","webcache/tcp"]]'
  exits 1 ports get ftp/udp
  is "$stderr" "vrxreg: ports ftp/udp: not in services (0x900001F6)"
  exits 1 ports get tcp
}

@test "records of one name and protocol are told apart by their ports" {
  printf 'x 1/tcp\nx 2/tcp\n' > services
  exits 5 ports get x/tcp -o json
  is "$(jq -c .candidates <<<"$stderr")" '["1/tcp","2/tcp"]'
  is "$(ports get 2/tcp name -o value)" x
}

@test "names may hold a slash" {
  printf 'a/b 1/tcp\n' > services
  is "$(ports get a/b/tcp port -o value)" 1
  is "$(ports get a/b port -o value)" 1
  is "$(ports get --name a/b port -o value)" 1
  exits 0 ports add c/d/udp port=5
  is "$(tail -n 1 services)" $'c/d\t\t5/udp'
  printf 'a/b = 1\n' > app.env
  exits 0 profile set a/b value=2
  exits 0 profile add c/d value=3
  is "$(cat app.env)" $'a/b = 2\nc/d = 3'
}

@test "an init table in every form" {
  inittab_file
  exits 0 inittab list
  is "$output" "ID RUNLEVELS ACTION      COMMAND                COMMENT
id 2         initdefault -                      -
si -         sysinit     /etc/init.d/rcS        -
1  2345      respawn     /sbin/getty 38400 tty1 -
x  1         wait        /bin/y                  note"
  is "$(inittab list -o ndjson | sed -n 2p)" '{"key":"si","id":"si","action":"sysinit","command":"/etc/init.d/rcS"}'
  is "$(inittab get x -o sh)" "vrx_id='x' vrx_runlevels='1' vrx_action='wait' vrx_command='/bin/y' vrx_comment=' note'"
  exits 0 inittab list --all-lines -o tsv --no-headings
  is "$output" '1	comment	# Default
2	entry	id:2:initdefault:
3	entry	si::sysinit:/etc/init.d/rcS
4	entry	1:2345:respawn:/sbin/getty \\\n38400 tty1
6	comment	::old
7	entry	x:1:wait:/bin/y # note
8	unparsed	broken:1:wait'
}

@test "an id that is there twice is ambiguous and its lines are named" {
  printf 'a:1:off:x\nb:1:off:x\na:2:off:y\n' > inittab
  exits 5 inittab get a
  is "$stderr" "vrxreg: inittab a: 2 records match: a (line 1), a (line 3) (0x900001F8)"
  exits 5 inittab set a action=wait
  exits 2 inittab set a action=wait --all
}

@test "binary variables in every form" {
  vrxreg -q -f v binvar add B value=-2147483648
  vrxreg -q -f v binvar add A value=2147483647 comment=top
  is "$(vrxreg -f v binvar list -o csv)" $'name,value,comment\r\nB,-2147483648,\r\nA,2147483647,top\r'
  is "$(vrxreg -f v binvar list -o json --sort -value | jq -c '.records')" \
    '[{"key":"A","name":"A","value":2147483647,"comment":"top"},{"key":"B","name":"B","value":-2147483648}]'
  is "$(vrxreg -f v binvar count --where 'value<-1')" 1
  exits 2 vrxreg -f v binvar list --all-lines
}

@test "a file that is missing is exit 4 for readers and is not made" {
  for noun in profile ports inittab binvar; do
    for command in list count "get x" "exists x" "remove x" "remove x --missing-ok"; do
      exits 4 vrxreg -f gone $noun $command
      is "$stderr" "vrxreg: gone: the registry file does not exist (0x90000513)"
    done
  done
  is "$(ls -A)" ""
}

@test "profiles and binary files have no default" {
  exits 2 vrxreg profile list
  is "$stderr" "vrxreg: profile: which file? Give -f FILE"
  exits 2 vrxreg binvar list
  exits 2 vrxreg -f '' profile list
  exits 2 vrxreg -f a -f b profile list
}

@test "options of other nouns are refused, never ignored" {
  exits 2 vrxreg -f x instance list
  is "$stderr" "vrxreg: --file does not apply to instance list"
  exits 2 vrxreg --registry x ports list
  exits 2 vrxreg --host-wide ports list
  exits 2 vrxreg -f x profile get --service a
}

@test "bytes that are no ASCII reach terminals safely and json whole" {
  printf 'A=caf\xc3\xa9\nB=\xe9\nC=a\x1b[31mb\n' > app.env
  is "$(profile get A value -o value)" "café"
  is "$(profile list -o json | jq -c '.records[1]')" '{"key":"B","name":"B","value_b64":"6Q=="}'
  is "$(profile get C value --no-headings)" 'value a\x1b[31mb'
  exits 0 profile set C value=x --diff
  [[ $output != *$'\e'* ]]
}

@test "an empty file has no records and a file of blanks has only lines" {
  : > app.env
  is "$(profile count)" 0
  is "$(profile list -o json | jq -c .records)" '[]'
  is "$(profile list --all-lines -o json | jq -c .records)" '[]'
  printf '\n  \n\t\n' > services
  is "$(ports list --all-lines -o value --fields kind | uniq)" blank
  is "$(ports count)" 0
}
