#!/usr/bin/env bats
# SPDX-License-Identifier: Apache-2.0
# leftovers promote and clean: what interrupted updates leave, put back and removed.
load leftovers_support

@test "promote shows its plan and does nothing without yes" {
  with_older global.reg.tmp
  before=$(folder)
  plan="would keep $registry as $PWD/.global.reg.bkp (records: 4): until the next update deletes it
would promote $registry.tmp to $registry (records: 3)"
  exits 2 vrxreg leftovers promote tmp
  is "$output" "$plan"
  is "$stderr" "vrxreg: nothing done: --yes does what is shown"
  exits 0 vrxreg leftovers promote tmp -n
  is "$output" "$plan"
  exits 10 vrxreg leftovers promote tmp -n --yes --detailed-exitcode
  is "$output" "$plan"
  is "$(folder)" "$before"
  same global.reg newer
}

@test "promote puts the copy in place and keeps what stood there" {
  with_older global.reg.tmp
  exits 10 vrxreg leftovers promote tmp --yes --detailed-exitcode
  is "$output" "kept $registry as $PWD/.global.reg.bkp (records: 4): until the next update deletes it
promoted $registry.tmp to $registry (records: 3)"
  same global.reg older
  same .global.reg.bkp newer
  [[ ! -e global.reg.tmp ]]
  exits 0 vrxreg leftovers promote bkp --yes -o json
  is "$(jq -c '[.schema,.records[] | if type == "object" then [.key,.action,.done] else . end]' <<<"$output")" \
    '["vrxreg.leftovers.steps/1",["cor","keep",true],["bkp","promote",true]]'
  same global.reg newer
  same global.reg.cor older
  exits 0 vrxreg instance set tp1 comment=later
  is "$(ls -A)" $'.global.reg.lock\nglobal.reg\nnewer\nolder'
}

@test "promote gives the copy the mode and owner of the registry" {
  with_older global.reg.tmp
  chmod 640 global.reg
  chmod 600 global.reg.tmp
  [[ $(id -u) != 0 ]] || chown 1:1 global.reg
  wanted=$(stat -c '%a %u %g' global.reg)
  exits 0 vrxreg leftovers promote tmp --yes
  is "$(stat -c '%a %u %g' global.reg)" "$wanted"
}

@test "promote over a damaged registry keeps the damage" {
  with_older .global.reg.bkp
  truncate -s 100 global.reg
  exits 2 vrxreg leftovers promote bkp
  has "${lines[0]}" "would keep $registry as $registry.cor: until the next update deletes it; $registry: "
  exits 0 vrxreg leftovers promote bkp --yes
  same global.reg older
  is "$(stat -c %s global.reg.cor)" 100
}

@test "promote tells the fault monitor" {
  with_older global.reg.tmp
  mkdir -p /var/vrx
  coproc MONITOR { exec python3 -c '
import fcntl, signal, time
lock = open("/var/vrx/.fmcd.lock", "w")
fcntl.lockf(lock, fcntl.LOCK_EX)
signal.signal(signal.SIGHUP, lambda *_: print("told", flush=True))
print("ready", flush=True)
while True:
    signal.pause()' 3>&-; }
  local pid=$MONITOR_PID answer
  read -r -t 20 -u "${MONITOR[0]}" answer
  exits 2 vrxreg leftovers promote tmp
  exits 0 vrxreg leftovers promote tmp --yes
  read -r -t 20 -u "${MONITOR[0]}" answer
  kill "$pid"
  is "$answer" told
}

@test "promote restores a registry whose name is missing" {
  with_older .global.reg.bkp
  cp newer global.reg.tmp
  rm global.reg
  exits 0 vrxreg leftovers promote bkp --yes
  is "$output" "promoted $PWD/.global.reg.bkp to $registry (records: 3)"
  same global.reg older
  [[ ! -e .global.reg.bkp ]]
  is "$(stat -c %h global.reg)" 1
  exits 0 vrxreg leftovers promote tmp --yes
  same global.reg newer
  same .global.reg.bkp older
}

@test "promote of a registry that a scan has made anew keeps the empty one" {
  with_older .global.reg.bkp
  : > global.reg
  exits 0 vrxreg leftovers promote bkp --yes
  same global.reg older
  is "$(stat -c %s global.reg.cor)" 0
}

@test "promote loses nothing when no name is free" {
  with_older global.reg.tmp global.reg.cor .global.reg.bkp
  before=$(folder)
  for which in tmp cor bkp; do
    exits 5 vrxreg leftovers promote $which --yes
    has "$stderr" "clean bkp or cor first"
  done
  is "$(folder)" "$before"
}

@test "promote takes nothing that is damaged" {
  with_older .global.reg.bkp
  before=$(folder)
  truncate -s 159 .global.reg.bkp
  for options in "" -n --yes; do exits 6 vrxreg leftovers promote bkp $options; done
  has "$stderr" "$PWD/.global.reg.bkp: "
  same global.reg newer
  printf 'A = 1\n\0\0\0\0' > app.env.tmp
  exits 6 vrxreg -f app.env leftovers promote profile tmp --yes
  has "$stderr" "line 2 holds a NUL byte"
  [[ ! -e app.env ]]
}

@test "promote follows no link and waits for no FIFO" {
  with_older
  ln -s older global.reg.tmp
  mkfifo global.reg.cor
  ln older .global.reg.bkp
  for which in tmp cor; do exits 8 timeout 20 "$VRXREG" leftovers promote $which --yes; done
  exits 8 vrxreg leftovers promote bkp --yes
  has "$stderr" "has 2 names"
  same global.reg newer
  [[ -L global.reg.tmp && -p global.reg.cor ]]
}

@test "promote replaces nothing but a file" {
  with_older global.reg.tmp
  rm global.reg
  mkdir global.reg
  exits 8 vrxreg leftovers promote tmp --yes
  has "$stderr" "not a regular file"
  [[ -e global.reg.tmp ]]
}

@test "nothing is done while an update is going on" {
  with_older global.reg.tmp global.reg.cor
  before=$(folder)
  start_holder
  for command in "promote tmp" "clean" "clean lock"; do
    exits 3 vrxreg --timeout 0 leftovers $command --yes
    has "$stderr" "still held by pid $HOLDER_PID (python3)"
    exits 3 vrxreg leftovers $command
    exits 3 vrxreg leftovers $command -n
    has "$stderr" "is held by pid $HOLDER_PID (python3)"
  done
  exits 3 vrxreg leftovers diff tmp
  exits 1 vrxreg leftovers diff cor
  stop_holder
  is "$(folder)" "$before"
}

@test "clean shows its plan and does nothing without yes" {
  with_older global.reg.tmp .global.reg.bkp
  before=$(folder)
  plan="would remove $registry.tmp (records: 3)
would remove $PWD/.global.reg.bkp (records: 3)"
  exits 2 vrxreg leftovers clean
  is "$output" "$plan"
  exits 0 vrxreg leftovers clean -n --yes
  is "$output" "$plan"
  exits 2 vrxreg -q leftovers clean
  is "$output" ""
  is "$(folder)" "$before"
}

@test "clean removes what is named, or all but the lock file" {
  with_older global.reg.tmp global.reg.cor .global.reg.bkp
  exits 0 vrxreg leftovers clean cor cor --yes
  is "$output" "removed $registry.cor (records: 3)"
  truncate -s 100 global.reg.tmp
  exits 10 vrxreg leftovers clean --yes --detailed-exitcode
  has "${lines[0]}" "removed $registry.tmp: $registry.tmp: "
  is "${lines[1]}" "removed $PWD/.global.reg.bkp (records: 3)"
  exits 0 vrxreg leftovers clean --yes --detailed-exitcode
  is "$output" "nothing to do"
  exits 0 vrxreg leftovers clean lock --yes
  is "$(ls -A)" $'global.reg\nnewer\nolder'
  same global.reg newer
  exits 0 vrxreg instance set tp1 comment=again
}

@test "clean leaves alone what is no file, removes the rest and exits 8" {
  with_older .global.reg.bkp
  ln -s older global.reg.tmp
  mkdir global.reg.cor
  exits 8 vrxreg leftovers clean --yes
  has "$output" "left alone $registry.tmp: a link"
  has "$output" "left alone $registry.cor: a folder"
  has "$output" "removed $PWD/.global.reg.bkp"
  has "$stderr" "$registry.tmp: a link"
  [[ -L global.reg.tmp && -d global.reg.cor && -e older && ! -e .global.reg.bkp ]]
  exits 0 vrxreg leftovers list -o json
  is "$(jq -r '.records[].type' <<<"$output" | paste -sd,)" "link,folder,file"
}

@test "clean spares what may be the last unless it is named" {
  with_older .global.reg.bkp
  rm global.reg
  exits 5 vrxreg leftovers clean --yes
  has "$stderr" "is missing, and $PWD/.global.reg.bkp may be all that is left of it"
  : > global.reg
  exits 5 vrxreg leftovers clean --yes
  has "$stderr" "is empty"
  [[ -e .global.reg.bkp ]]
  exits 0 vrxreg leftovers clean bkp --yes
  [[ ! -e .global.reg.bkp ]]
}

@test "cleaning disturbs no writer" {
  vrxreg -q service add VRX/3.1
  local writer i
  for writer in 1 2 3; do
    (for i in {1..15}; do vrxreg -q instance add VRX/3.1/i$writer-$i || echo "add: $?" >> failed; done) 3>&- &
  done
  for i in {1..15}; do
    vrxreg -q leftovers clean --yes || echo "clean: $?" >> failed
    vrxreg -q leftovers clean lock --yes || echo "clean lock: $?" >> failed
    vrxreg leftovers list > /dev/null || echo "list: $?" >> failed
  done
  wait
  is "$(cat failed 2> /dev/null || true)" ""
  exits 0 vrxreg instance count
  is "$output" 45
}

@test "the four files have leftovers of their own" {
  printf 'ssh 22/tcp\n' > services
  printf 'ssh 23/tcp\n' > services.tmp
  exits 0 vrxreg -f services leftovers promote ports tmp --yes
  is "$(cat services)" "ssh 23/tcp"
  is "$(cat .services.bkp)" "ssh 22/tcp"
  printf 'a:1:wait:x\n' > inittab.cor
  exits 0 vrxreg -f inittab leftovers promote inittab cor --yes
  is "$(cat inittab)" "a:1:wait:x"
  vrxreg -q -f vars binvar add A value=1
  mv vars vars.tmp
  exits 0 vrxreg -f vars leftovers promote binvar tmp --yes
  is "$(vrxreg -f vars binvar get A value -o value)" 1
}

@test "promote makes everything durable in an update's order" {
  command -v strace > /dev/null || skip "strace is missing"
  with_older global.reg.tmp
  calls=link,linkat,rename,renameat,renameat2,unlink,unlinkat,fsync
  strace -y -o trace -e trace=$calls "$VRXREG" leftovers promote tmp --yes || skip "strace is not allowed"
  is "$(sed -nE '/vrxreg\.[A-Za-z0-9]{6}/d; s/^(fsync|link|rename|unlink)[a-z0-9]*\((.*)\) += 0$/\1 \2/p' trace |
    sed -E "s,[0-9]+<[^>]*/([^/>]*)>,\1,; s,$PWD/,,g")" 'fsync global.reg.tmp
link "global.reg", ".global.reg.bkp"
fsync work
rename "global.reg.tmp", "global.reg"
fsync work'
}

# Kills a promotion at each file-changing call in turn. Wherever it dies, both contents stand, and a
# registry that stood has its name. $kills counts the deaths, those at copies that were read among them.
kills=0
dies_everywhere() {
  local which=$1 call n side rc
  for call in fchmod fsync link rename unlink; do
    for n in 1 2 3; do
      rm -rf try && mkdir try && cp -a "${@:2}" try/
      rc=0
      strace -o /dev/null -e trace=$call -e inject=$call:signal=KILL:when=$n "$VRXREG" -q --yes \
        --registry "$PWD/try/global.reg" leftovers promote "$which" || rc=$?
      [[ $rc == 0 ]] || kills=$((kills + 1))
      [[ ! -e global.reg || -e try/global.reg ]] || { echo "$call $n: no registry"; return 1; }
      for side in "${sides[@]}"; do
        find try -type f -exec cmp -s {} $side \; -print | grep -q . || { echo "$call $n: $side is lost"; return 1; }
      done
    done
  done
}

@test "a promotion that is killed loses nothing" {
  command -v strace > /dev/null || skip "strace is missing"
  strace -o /dev/null true || skip "strace is not allowed"
  with_older global.reg.tmp
  export TMPDIR=$PWD # which has the copies that the dead leave
  sides=(older newer)
  dies_everywhere tmp global.reg global.reg.tmp
  ((kills >= 6)) # mode, copy, name of what stood, folder, rename, folder
  mv global.reg.tmp .global.reg.bkp
  dies_everywhere bkp global.reg .global.reg.bkp
  ((kills >= 12))
  rm global.reg
  sides=(older)
  dies_everywhere bkp .global.reg.bkp
  ((kills >= 17)) # copy, registry's name, folder, old name, folder
}
