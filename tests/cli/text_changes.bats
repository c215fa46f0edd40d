#!/usr/bin/env bats
# SPDX-License-Identifier: Apache-2.0
# add, set and remove on lines: what they write, what stays as it was, to the byte.
load support

profile() { vrxreg -f app.env profile "$@"; }
ports() { vrxreg -f services ports "$@"; }
inittab() { vrxreg -f inittab inittab "$@"; }

# holds FILE CONTENTS
holds() {
  printf '%s' "$2" > expected
  cmp "$1" expected || { cat -A "$1"; return 1; }
}

@test "add and set make a missing profile and a missing binary file, and say so" {
  exits 0 profile add A value=1 comment=first
  is "$output" "added A (new file app.env)"
  holds app.env $'A = 1 # first\n'
  exits 0 profile add B
  is "$output" "added B"
  holds app.env $'A = 1 # first\nB = \n'
  exits 0 vrxreg -f vars.bin binvar set A value=1
  is "$output" "added A (new file vars.bin)"
}

@test "no folder is made, and no services file or init table" {
  exits 4 vrxreg -f none/app.env profile set A value=1
  is "$stderr" "vrxreg: none/app.env: there is no folder none/"
  exits 4 vrxreg -f none/vars.bin binvar set A value=1
  exits 4 ports set a/tcp port=1
  exits 4 ports add a/tcp port=1 -n
  exits 4 inittab set a action=off
  exits 4 profile set A value=1 --must-exist
  is "$(ls -A)" ""
}

@test "add refuses what exists and leaves nothing behind" {
  printf 'A=1\n' > app.env
  exits 5 profile add A value=2
  is "$stderr" "vrxreg: profile A: exists in app.env (0x900001F1)"
  printf 'ftp 21/tcp\n' > services
  exits 5 ports add ftp/tcp port=2121
  exits 5 ports set 2121/tcp name=ftp
  printf 'a:1:off:x\n' > inittab
  exits 5 inittab add a action=wait
  holds services $'ftp 21/tcp\n'
  is "$(ls -A)" $'app.env\nexpected\ninittab\nservices'
}

@test "every other byte of a profile stays" {
  printf '\n# head\n\tA\t=\t1\t# one\njunk \\\nB="x  y"   \n  # tail\nC=3' > app.env
  exits 0 profile set A value=2
  holds app.env $'\n# head\n\tA\t=\t2 # one\njunk \\\nB="x  y"   \n  # tail\nC=3\n'
  exits 0 profile set B value='"p  q"'
  exits 0 profile remove A
  exits 0 profile add D value=4
  holds app.env $'\n# head\njunk \\\nB="p  q"\n  # tail\nC=3\nD = 4\n'
}

@test "a comment alone is changed in place, and so is its end" {
  printf '  A = 1   # one\nB=2\n' > app.env
  exits 0 profile set A comment=two
  is "$output" "changed A: comment"
  holds app.env $'  A = 1 # two\nB=2\n'
  exits 0 profile set A comment=two
  is "$output" "unchanged A"
  exits 0 profile set A --unset comment
  is "$output" "changed A: comment"
  exits 0 profile set B comment=new
  holds app.env $'  A = 1\nB=2 # new\n'
}

@test "aliases and comments alone are changed in place" {
  printf 'web\t80/tcp one two # c\nmail 25/tcp\n' > services
  exits 0 ports set web aliases=one,three
  is "$output" "changed web/tcp: aliases"
  holds services $'web\t\t80/tcp\tone three\t\t# c\nmail 25/tcp\n'
  exits 0 ports set web comment=d
  is "$output" "changed web/tcp: comment"
  exits 0 ports set mail comment=m aliases=smtp
  is "$output" "changed mail/tcp: aliases, comment"
  exits 0 ports set web aliases= --unset comment
  holds services $'web\t\t80/tcp\nmail\t\t25/tcp\tsmtp\t\t# m\n'
  exits 0 ports set mail comment=m
  is "$output" "unchanged mail/tcp"
}

@test "an init table's comment alone is changed in place and keeps its blanks" {
  printf 'x:1:wait:/bin/y # note\n' > inittab
  exits 0 inittab set x comment='  other'
  is "$output" 'changed x: comment (run `telinit q` to make init read it)'
  holds inittab $'x:1:wait:/bin/y #  other\n'
  exits 0 inittab set x command=/bin/z
  holds inittab $'x:1:wait:/bin/z #  other\n'
  exits 0 inittab set x --unset comment
  holds inittab $'x:1:wait:/bin/z\n'
  printf 'id:2:initdefault:\n' > inittab
  exits 0 inittab set id comment=c
  exits 0 inittab set id runlevels=3
  holds inittab $'id:3:initdefault: #c\n'
  exits 0 inittab set id comment=
  holds inittab $'id:3:initdefault:\n'
}

@test "a binary comment alone is changed in place" {
  vrxreg -q -f v binvar add A value=1
  exits 0 vrxreg -f v binvar set A comment=x
  is "$output" "changed A: comment"
  is "$(vrxreg -f v binvar get A comment -o value)" x
  exits 0 vrxreg -f v binvar set A comment=x
  is "$output" "unchanged A"
  exits 0 vrxreg -f v binvar set A comment=
  exits 1 vrxreg -f v binvar get A comment
}

@test "fields that are not named stay" {
  printf 'web\t80/tcp one two # c\n' > services
  exits 0 ports set web port=8080
  holds services $'web\t\t8080/tcp\tone two\t\t# c\n'
  printf 'x:1:wait:/bin/y # note\n' > inittab
  exits 0 inittab set x runlevels=23
  holds inittab $'x:23:wait:/bin/y # note\n'
  exits 0 inittab set x runlevels=
  holds inittab $'x::wait:/bin/y # note\n'
}

@test "bytes of a comment that readers replace are kept" {
  printf 'A=1 # caf\xc3\xa9\n' > app.env
  is "$(profile get A comment -o value)" "caf.."
  exits 0 profile set A value=2
  holds app.env $'A=2 # caf\xc3\xa9\n'
  printf 'web 80/tcp # caf\xc3\xa9\n' > services
  exits 0 ports set web port=81
  holds services $'web\t\t81/tcp\t\t\t# caf\xc3\xa9\n'
}

@test "replace leaves exactly the fields given" {
  printf 'A=1 # one\n' > app.env
  exits 0 profile set A value=2 --replace
  is "$output" "changed A: value, comment"
  holds app.env $'A=2\n'
  printf 'web 80/tcp one # c\n' > services
  exits 0 ports set web port=80 comment=d --replace
  is "$output" "changed web/tcp: aliases, comment"
  exits 7 ports set web comment=d --replace
  is "$stderr" "vrxreg: port: is missing"
}

@test "records of a new name need what no record can do without" {
  : > services
  : > inittab
  exits 7 ports add a/tcp
  is "$stderr" "vrxreg: port: is missing"
  exits 2 ports add 80/tcp
  exits 2 ports add a port=1
  exits 1 ports set a port=1
  exits 7 inittab add a command=x
  is "$stderr" "vrxreg: action: is missing"
  exits 7 vrxreg -f v binvar add A
  exits 0 ports add 80/tcp name=web
  exits 0 ports add --name mail protocol=tcp port=25
  holds services $'web\t\t80/tcp\nmail\t\t25/tcp\n'
  exits 2 ports set 90/tcp name=x port=91
}

@test "the twin of another protocol is another record" {
  printf 'domain 53/tcp\ndomain 53/udp # u\n' > services
  exits 0 ports set domain/udp port=5353
  holds services $'domain 53/tcp\ndomain\t\t5353/udp\t\t\t# u\n'
  exits 0 ports remove 53/tcp
  holds services $'domain\t\t5353/udp\t\t\t# u\n'
  exits 0 ports set domain/ddp port=1
  is "$output" "added domain/ddp"
}

@test "several lines of one name are changed with all only" {
  printf 'A=1\nB=0\nA=2 # two\nA=1\n' > app.env
  cp app.env before
  exits 5 profile set A value=3
  is "$stderr" "vrxreg: profile A: 3 records match: A (line 1), A (line 3), A (line 4); --all takes all of them (0x900001F8)"
  exits 5 profile remove A
  cmp app.env before
  exits 0 profile set A value=3 --all
  is "$output" "changed A: value (3 records)"
  holds app.env $'A=3\nB=0\nA=3 # two\nA=3\n'
  exits 0 profile set A value=3 --all
  is "$output" "unchanged A"
  exits 0 profile set A comment=c --all -o json
  is "$(jq -c '[.action,.count,.fields]' <<<"$output")" '["change",3,{"comment":{"old":"two","new":"c"}}]'
  exits 0 profile remove A --all
  is "$output" "removed A (3 records)"
  holds app.env $'B=0\n'
}

@test "of several lines none is changed when one is refused" {
  printf 'A=1 # one\nA="a b" tail # two\n' > app.env
  cp app.env before
  exits 7 profile set A comment=new --all
  cmp app.env before
}

@test "several lines that hold the value already are no hindrance" {
  printf 'A=1\nA=2\n' > app.env
  exits 0 profile set A value=2 --all
  is "$output" "changed A: value"
  holds app.env $'A=2\nA=2\n'
}

@test "several binary records of one name are changed with all only" {
  python3 -c '
import struct, sys
for value, comment in ((1, b""), (2, b"two"), (1, b"")):
    sys.stdout.buffer.write(struct.pack("<I16si16s", 36, b"A", value, comment))' > v
  exits 5 vrxreg -f v binvar set A value=3
  exits 0 vrxreg -f v binvar set A value=3 --all
  is "$output" "changed A: value (3 records)"
  is "$(vrxreg -f v binvar list -o tsv --no-headings)" $'A\t3\t\nA\t3\ttwo\nA\t3\t'
  exits 0 vrxreg -f v binvar remove A --all
  is "$(vrxreg -f v binvar count)" 0
}

@test "bytes behind the terminators of binary texts stay" {
  python3 -c '
import struct, sys
sys.stdout.buffer.write(struct.pack("<I16si16s", 36, b"A\0rest of name", 1, b"c\0rest"))' > v
  exits 0 vrxreg -f v binvar set A value=2
  is "$(od -An -c -v v | tr -s ' \n' ' ' | grep -c 'A \\0 r e s t')" 1
  is "$(grep -c 'rest of name' v)" 1
}

@test "a dry run changes nothing and leaves nothing" {
  printf 'A=1\n' > app.env
  exits 0 profile set A value=2 -n
  has "$output" $'-A=1\n+A=2\nwould change A: value'
  exits 0 profile remove A -n
  exits 10 profile add B value=1 -n --detailed-exitcode
  exits 0 vrxreg -f new.env profile add B value=1 -n
  is "$output" $'--- /dev/null\n+++ new.env (dry run)\n@@ -0,0 +1 @@\n+B = 1\nwould add B (new file new.env)'
  holds app.env $'A=1\n'
  is "$(ls -A)" $'app.env\nexpected'
  is "$(find /tmp -maxdepth 1 -name 'vrxreg.*')" ""
}

@test "differences are patches that lead to the new file" {
  for round in {1..12}; do
    python3 - "$round" <<'EOF' > app.env
import random, sys
random.seed(int(sys.argv[1]))
lines = [random.choice(["", "# note", "junk", "\tV%d\t=\tx", "V%d=x # c", "V%d = x"]) for _ in range(random.randint(1, 40))]
text = "\n".join(line % i if "%d" in line else line for i, line in enumerate(lines))
sys.stdout.write("NAME=0\n" + text + random.choice(["", "\n"]))
EOF
    for command in "set NAME value=$round" "add NEW value=1" "remove NAME" "set NEW comment=c" "remove NEW"; do
      cp app.env before
      exits 0 profile $command --diff
      printf '%s\n' "$output" | sed '$d' > change.diff
      diff -u --label app.env --label "app.env (new)" before app.env | cmp - change.diff
      patch -s before change.diff
      cmp before app.env
    done
  done
}

@test "detailed exit codes and quiet" {
  exits 10 profile set A value=1 --detailed-exitcode
  exits 0 profile set A value=1 --detailed-exitcode
  exits 10 profile set A comment=c --detailed-exitcode
  exits 0 profile remove B --missing-ok --detailed-exitcode
  is "$output" "unchanged B"
  exits 10 profile remove A --detailed-exitcode -q
  is "$output" ""
}

@test "keys cannot be changed and what is only shown cannot be set" {
  printf 'A=1\n' > app.env
  exits 2 profile set A name=B
  has "$stderr" "name is part of the key of A"
  printf 'ftp 21/tcp\n' > services
  exits 2 ports set ftp protocol=udp
  exits 2 ports set ftp understood=yes
  is "$stderr" "vrxreg: understood: is shown and cannot be set"
  exits 0 ports set 21/tcp port=2121
  is "$output" "changed ftp/tcp: port"
}

@test "a file behind a link is changed where it lies" {
  mkdir real
  printf 'A=1\n' > real/there.env
  ln -s real/there.env app.env
  exits 0 profile set A value=2
  [ -L app.env ]
  holds real/there.env $'A=2\n'
}

@test "mode and owner of a file stay" {
  printf 'A=1\n' > app.env
  chmod 640 app.env
  exits 0 profile set A value=2
  is "$(stat -c %a app.env)" 640
}

@test "every entry of a long services file changes alone" {
  python3 -c '
for i in range(5000):
    print("svc%d\t%s%d/%s%s" % (i, "\t" if i < 10000 else "", i + 1, "tcp" if i % 3 else "sctp", "\t\t\t# s" if i % 2 else ""))' > services
  cp services before
  exits 0 ports set svc4000 comment=x
  is "$(diff before services | grep -c '^[<>]')" 2
  exits 0 ports set svc4000 --unset comment
  cmp before services
  exits 0 ports add new/udp port=7
  exits 0 ports remove new
  cmp before services
}
