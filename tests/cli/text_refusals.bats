#!/usr/bin/env bats
# SPDX-License-Identifier: Apache-2.0
# Values that no line can hold, lines that are left alone, files that cannot be updated: refused
# before anything is written, with the reason.
load support

profile() { vrxreg -f app.env profile "$@"; }
ports() { vrxreg -f services ports "$@"; }
inittab() { vrxreg -f inittab inittab "$@"; }

setup_files() {
  printf 'A=1 # one\n' > app.env
  printf 'ftp 21/tcp\n' > services
  printf 'x:1:wait:/bin/y\n' > inittab
  sha256sum app.env services inittab > sums
}

# refuses REASON COMMAND...: exit 7 with the reason, nothing written, no file left.
refuses() {
  local expected=$1
  shift
  exits 7 "$@"
  has "$stderr" "$expected"
  sha256sum --quiet -c sums
  is "$(ls -A | grep -c -e '\.tmp$' -e '\.cor$' -e '\.bkp$')" 0
}

@test "profile values that would not read back the same" {
  setup_files
  refuses 'value: "a#b" would not read back the same: "#" begins a comment' profile set A value='a#b'
  refuses 'value: "a\nb" would not read back the same: a line end' profile set A value=$'a\nb'
  refuses 'value: "a  b" would not read back the same, but as "a b"' profile set A value='a  b'
  refuses 'value: " a" would not read back the same, but as "a"' profile set A value=' a'
  refuses 'value: "a " would not read back the same' profile add B value='a '
  refuses 'a tab becomes a blank' profile set A value=$'a\tb'
  refuses 'opening double quote' profile set A value='"a'
  refuses 'but as ""a""' profile set A value='"a" b'
  refuses 'value: "a\r" would not read back the same' profile set A value=$'a\r'
  refuses 'comments are printable ASCII' profile set A comment=$'caf\xc3\xa9'
  refuses 'a line end ends the record' profile set A comment=$'a\nb = 1'
  exits 0 profile set A value='"a  b"'
  exits 7 profile set A value='"a"b'
}

@test "profile names that would not read back the same" {
  setup_files
  refuses 'name: "a b" would not read back the same: a blank ends a name' profile add 'a b' value=1
  refuses '"=" ends a name' profile add 'a=b' value=1
  refuses '"#" begins a comment' profile add 'a#b' value=1
  refuses 'a line end' profile add $'a\nb' value=1
  refuses 'bytes are too long, the limit is 2046' profile add "$(printf 'x%.0s' {1..2047})" value=1
}

@test "lines that would be too long" {
  setup_files
  long=$(printf 'x%.0s' {1..2044})
  refuses '(0x90000273)' profile set A value="$long"
  refuses '(0x90000273)' ports set ftp comment="$long"
  refuses '(0x90000273)' inittab set x command="$long"
  exits 0 profile set A value="${long:10}" --unset comment
  is "$(profile get A value -o value)" "${long:10}"
}

@test "ports values that would not read back the same" {
  setup_files
  refuses 'aliases: "a b" would not read back the same: a blank ends it' ports set ftp aliases='x,a b'
  refuses 'aliases: "a#b"' ports set ftp aliases='a#b'
  refuses 'aliases: an empty one in "a,,b"' ports set ftp aliases=a,,b
  refuses 'a line end' ports set ftp aliases=$'a\nb'
  refuses 'aliases: 128 are too many, the limit is 127' ports set ftp aliases="$(seq -s, 1 128)"
  refuses 'name: "a b"' ports add 'a b/tcp' port=1
  refuses 'protocol: "sctp" is none of udp, tcp, ddp, divert' ports add a/sctp port=1
  refuses 'protocol: "TCP" is none of' ports add a/TCP port=1
  refuses 'port: "0" is no port from 1 to 65535' ports set ftp port=0
  refuses 'port: "65536"' ports set ftp port=65536
  refuses 'comments are printable ASCII' ports set ftp comment=$'\xff'
  exits 0 ports set ftp aliases="$(seq -s, 1 127)" port=65535
  is "$(ports get ftp -o json | jq '.record.aliases | length')" 127
}

@test "init table values that would not read back the same" {
  setup_files
  refuses 'runlevels: "1:2" would not read back the same: ":" ends a field' inittab set x runlevels=1:2
  refuses 'action: "a:b"' inittab set x action=a:b
  refuses 'id: "a:b"' inittab add a:b action=off
  refuses 'command: "a#b"' inittab set x command='a#b'
  refuses 'command: "a " would not read back the same, but as "a"' inittab set x command='a '
  refuses 'command: "a\" would not read back the same' inittab set x command='a\'
  refuses 'comment: "c\" would not read back the same' inittab set x comment='c\'
  refuses 'a line end' inittab set x command=$'a\nb:1:off:'
  exits 0 inittab set x command='a:b  c' comment='#1'
  is "$(cat inittab)" 'x:1:wait:a:b  c ##1'
}

@test "binary values that do not fit" {
  exits 7 vrxreg -f v binvar add 1234567890123456 value=1
  is "$stderr" "vrxreg: name: 16 bytes are too long, the limit is 15"
  exits 7 vrxreg -f v binvar add A value=1 comment=1234567890123456
  exits 7 vrxreg -f v binvar add A value=2147483648
  exits 7 vrxreg -f v binvar add A value=-2147483649
  exits 7 vrxreg -f v binvar add A value=x
  is "$(ls -A)" ""
}

@test "refusals in json name the field" {
  setup_files
  exits 7 profile set A value='a#b' -o json
  is "$(jq -c '[.schema,.exit,.field]' <<<"$stderr")" '["vrxreg.error/1",7,"value"]'
  exits 7 profile set A value='"a' -o json
  is "$(jq -c '[.exit,.code,.name]' <<<"$stderr")" '[7,"0x90000208","unterminated_quote"]'
}

@test "a dry run refuses what the real run refuses" {
  setup_files
  refuses '"#" begins a comment' profile set A value='a#b' -n
  refuses 'port: "0"' ports set ftp port=0 -n
}

@test "service lines that are not understood are left alone" {
  printf 'a 1/sctp x # k\nb 2\nc 0/tcp\na 3/tcp\n' > services
  sha256sum services > sums
  refuses 'ports a/sctp: line 1 is not understood and is left alone: "a 1/sctp x # k"' ports set a/sctp comment=x
  refuses 'line 2 is not understood' ports set b port=5
  refuses 'line 2 is not understood' ports remove b
  refuses 'line 3 is not understood' ports set c port=5
  exits 0 ports set a/tcp port=4 comment=x
  exits 0 ports add d/tcp port=1
  exits 0 ports remove d
  is "$(cat services)" $'a 1/sctp x # k\nb 2\nc 0/tcp\na\t\t4/tcp\t\t\t# x'
}

@test "text that no field shows is not dropped unasked" {
  printf 'P="a b" tail\nQ=a\tb\n' > app.env
  printf 'a 021/tcp\n' > services
  sha256sum app.env services > sums
  refuses 'profile P: its line holds ""a b" tail", which would not be kept as it stands; with --replace' profile set P comment=x
  refuses 'profile Q: its line holds "a\tb"' profile set Q comment=x
  refuses 'ports a/tcp: its line holds "021/tcp"' ports set a comment=x
  exits 0 profile set P value=new
  exits 0 profile set Q --replace value='a b' comment=x
  exits 0 ports set a port=22
  is "$(cat app.env services)" $'P=new\nQ=a b # x\na\t\t22/tcp'
}

@test "a line that is too long is carried through, and refuses additions" {
  long=$(printf 'x%.0s' {1..5000})
  printf 'A=1\nL=%s\nB=2\n' "$long" > app.env
  exits 0 profile set B value=3
  is "$(sha256sum < app.env)" "$(printf 'A=1\nL=%s\nB=3\n' "$long" | sha256sum)"
  sha256sum app.env > sums
  exits 6 profile add C value=1
  is "$stderr" "vrxreg: app.env: line 2 is longer than 2047 bytes, with its line end (0x90000008)"
  exits 6 profile set C value=1 -o json
  is "$(jq -c '[.exit,.code]' <<<"$stderr")" '[6,"0x90000008"]'
  exits 1 profile get L
  is "$(profile list --all-lines -o tsv --no-headings --fields line,kind | tr '\t\n' ' ;')" "1 entry;2 unparsed;3 entry;"
  is "$(profile list --all-lines -o value --fields text --where line=2)" "L=$long"
  sha256sum --quiet -c sums
  is "$(ls -A | grep -c '\.tmp$')" 0
}

@test "a last line that its line end would make too long refuses additions" {
  printf 'A=1\n#%s' "$(printf 'x%.0s' {1..2046})" > app.env
  sha256sum app.env > sums
  exits 6 profile add B value=1
  is "$stderr" "vrxreg: app.env: line 2 is longer than 2047 bytes, with its line end (0x90000008)"
  sha256sum --quiet -c sums
  is "$(ls -A)" $'app.env\nsums'
}

@test "an entry behind a backslash that joins it is exit 9" {
  for end in '\n' ''; do
    printf 'x:1:wait:/bin/y \\'"$end" > inittab
    sha256sum inittab > sums
    exits 9 inittab add a action=off
    is "$stderr" "vrxreg: inittab: line 1 ends in a backslash, which would join the next one to it (0x900001FB)"
    sha256sum --quiet -c sums
  done
  exits 0 inittab set x command=/bin/z
  exits 0 inittab add a action=off
  is "$(cat inittab)" $'x:1:wait:/bin/z\na::off:'
}

@test "a file with a NUL byte can be read and is not updated" {
  printf 'A=1\nB=2\0x\nC=3\n' > app.env
  sha256sum app.env > sums
  is "$(profile get B value -o value)" 2
  is "$(profile list --all-lines -o value --fields line | tr '\n' ' ')" "1 2 3 "
  for command in "set A value=2" "add D value=1" "remove A"; do
    exits 6 profile $command
    is "$stderr" "vrxreg: app.env: line 2 holds a NUL byte (0x900001CD)"
  done
  sha256sum --quiet -c sums
  is "$(ls -A | grep -c '\.tmp$')" 0
}

@test "lines that do not parse and comments survive every update" {
  printf '::old\nbroken:1:wait\n  # c\nx:1:wait:/bin/y\n\n' > inittab
  exits 0 inittab set x command=/bin/z
  exits 0 inittab add y action=off
  exits 0 inittab remove y
  is "$(cat inittab; echo .)" $'::old\nbroken:1:wait\n  # c\nx:1:wait:/bin/z\n\n.'
}

@test "a file that is busy, read-only or none" {
  setup_files
  start_holder "$PWD/.app.env.lock"
  exits 3 profile set A value=2 --timeout 0
  has "$stderr" ".app.env.lock still held by pid $HOLDER_PID (python3) after 0 s; nothing changed (0x900001BC)"
  exits 0 profile set A value=2 -n
  stop_holder
  mkdir dir
  exits 8 vrxreg -f dir profile list
  exits 8 vrxreg -f dir profile set A value=1
  exits 4 vrxreg -f "$(printf '/x%.0s' {1..600})" profile list
  mkdir ro
  cp app.env ro/
  mount --bind ro ro
  mount -o remount,ro,bind ro
  is "$(vrxreg -f ro/app.env profile get A value -o value)" 1
  exits 8 vrxreg -f ro/app.env profile set A value=2
  umount ro
}

@test "a full file system is exit 8 and the file stays" {
  mkdir full
  mount -t tmpfs -o size=64k tmpfs full
  printf 'A=1\n' > full/app.env
  vrxreg -q -f full/app.env profile set A value=2
  dd if=/dev/zero of=full/filler bs=4k 2>/dev/null || true
  exits 8 vrxreg -f full/app.env profile set A value=3
  is "$(cat full/app.env)" "A=2"
  umount full
}
