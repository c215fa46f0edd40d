#!/usr/bin/env bats
# SPDX-License-Identifier: Apache-2.0
# Many commands at once: nothing lost, nothing doubled, everybody served.
load support

# all_succeed PID...
all_succeed() {
  local failed=0 pid
  for pid in "$@"; do wait "$pid" || { echo "exit $?"; failed=1; }; done
  return $failed
}

@test "40 parallel sets of different names are all kept" {
  pids=()
  for i in {1..40}; do
    "$VRXREG" instance set VRX/3.1.0.7/n$i path=/home/n$i > report.$i 3>&- &
    pids+=($!)
  done
  all_succeed "${pids[@]}"
  is "$(vrxreg instance list -o value --fields instance | sort | uniq -c | wc -l)" 40
  is "$(vrxreg instance count)" 40
  is "$(cat report.* | grep -c '^added ')" 40
  is "$(ls -A | grep -c -e '\.tmp$' -e '\.cor$' -e '\.bkp$')" 0
}

@test "parallel sets of one record's different fields lose no field" {
  for round in {1..10}; do
    vrxreg -q instance set VRX/3.1/x --replace
    pids=()
    for edit in path=/p usage=u start_at_boot=yes maintenance=no aux_path=/a aux_name=n comment=c; do
      "$VRXREG" -q instance set x $edit 3>&- &
      pids+=($!)
    done
    all_succeed "${pids[@]}"
    is "$(vrxreg instance list -o tsv --no-headings)" $'VRX\t3.1.0.0\tx\t/p\tu\tyes\tno\t/a\tn\tc'
  done
}

@test "parallel sets that create the same record lose no field" {
  for round in {1..10}; do
    pids=()
    for edit in path=/p usage=u aux_path=/a aux_name=n comment=c; do
      "$VRXREG" -q instance set VRX/3.1/x $edit 3>&- &
      pids+=($!)
    done
    all_succeed "${pids[@]}"
    is "$(vrxreg instance list -o tsv --no-headings)" $'VRX\t3.1.0.0\tx\t/p\tu\t\t\t/a\tn\tc'
    vrxreg -q instance remove x
  done
}

@test "40 parallel sets of different ports are all kept" {
  printf '# services\nftp 21/tcp\n' > services
  pids=()
  for i in {1..40}; do
    "$VRXREG" -f services ports set n$i/tcp port=$((40000 + i)) > report.$i 3>&- &
    pids+=($!)
  done
  all_succeed "${pids[@]}"
  is "$(vrxreg -f services ports list -o value --fields name --where 'name=n*' | sort | uniq -c | wc -l)" 40
  is "$(wc -l < services)" 42
  is "$(cat report.* | grep -c '^added ')" 40
  is "$(ls -A | grep -c -e '\.tmp$' -e '\.cor$' -e '\.bkp$')" 0
}

@test "parallel sets of one line's different fields lose no field" {
  printf 'web 80/tcp\n' > services
  printf 'x:1:off:y\n' > inittab
  for round in {1..5}; do
    vrxreg -q -f services ports set web port=80 --replace
    vrxreg -q -f inittab inittab set x action=off --replace
    pids=()
    for edit in port=8080 aliases=a,b comment=c; do
      "$VRXREG" -q -f services ports set web $edit 3>&- &
      pids+=($!)
    done
    for edit in runlevels=5 action=wait command=/z comment=c; do
      "$VRXREG" -q -f inittab inittab set x $edit 3>&- &
      pids+=($!)
    done
    all_succeed "${pids[@]}"
    is "$(cat services)" $'web\t\t8080/tcp\ta b\t\t# c'
    is "$(cat inittab)" 'x:5:wait:/z #c'
  done
}

@test "parallel sets that create the same variable make one line" {
  for round in {1..5}; do
    rm -f app.env vars.bin
    pids=()
    for i in {1..6}; do
      "$VRXREG" -q -f app.env profile set A value=$i 3>&- &
      pids+=($!)
      "$VRXREG" -q -f vars.bin binvar set A value=$i 3>&- &
      pids+=($!)
    done
    all_succeed "${pids[@]}"
    is "$(vrxreg -f app.env profile count)" 1
    is "$(vrxreg -f vars.bin binvar count)" 1
  done
}

@test "one of many parallel adds of the same key wins" {
  for i in {1..8}; do
    { "$VRXREG" service add VRX/3.1 text1=$i > /dev/null 2>&1 && echo 0 > exit.$i || echo $? > exit.$i; } 3>&- &
  done
  wait
  is "$(sort exit.* | uniq -c | tr -s ' \n' ' ')" " 1 0 7 5 "
  is "$(vrxreg service count)" 1
}

@test "readers see whole registries while writers change them" {
  vrxreg -q instance set VRX/3.1/x path=/0
  { for i in {1..50}; do "$VRXREG" -q instance set x path=/$i usage=$i || exit 1; done; } 3>&- &
  writer=$!
  for i in {1..100}; do
    row=$(vrxreg instance list -o value --fields path,usage)
    [[ $row == "/0"* || ${row%$'\n'*} == "/${row#*$'\n'}" ]] || { echo "torn: $row"; return 1; }
  done
  wait $writer
}
