# SPDX-License-Identifier: Apache-2.0
# What the command line's tests share. Every test has a folder and a registry of its own.
bats_require_minimum_version 1.5.0

vrxreg() { "$VRXREG" "$@"; }

setup() {
  mkdir "$BATS_TEST_TMPDIR/work"
  cd "$BATS_TEST_TMPDIR/work"
  export LC_ALL=C TERM=xterm
  export VRX_GLOBAL_REG_PATHNAME=$PWD/global.reg
  registry=$VRX_GLOBAL_REG_PATHNAME
}

# is ACTUAL EXPECTED: fails with both when they differ.
is() {
  [[ $1 == "$2" ]] && return 0
  printf 'got:\n%s\nexpected:\n%s\n' "$1" "$2"
  return 1
}

# exits STATUS COMMAND...: runs the command, its streams in $output and $stderr.
exits() {
  local expected=$1
  shift
  run --separate-stderr "$@"
  [[ $status == "$expected" ]] && return 0
  printf 'exit %s instead of %s\nstdout: %s\nstderr: %s\n' "$status" "$expected" "$output" "$stderr"
  return 1
}

# has TEXT PART
has() {
  [[ $1 == *"$2"* ]] && return 0
  printf 'got:\n%s\nwithout:\n%s\n' "$1" "$2"
  return 1
}

# Three instances and an installed copy.
sample() {
  vrxreg -q service add VRX/3.1.0.7 text1=/opt/vrx/v3.1 fixpack=7
  vrxreg -q instance add VRX/3.1.0.7/tp1 path=/home/tp1/sqllib usage=oltp start_at_boot=yes comment=orders
  vrxreg -q instance add VRX/3.1.0.7/dw1 path=/home/dw1/sqllib usage=dw
  vrxreg -q instance add KRN/3.0.2.0/krn1 path=/opt/krn/inst start_at_boot=yes maintenance=no
}

checksum() { sha256sum < "$registry"; }

# start_holder [FILE]: a process that holds a lock on the file, by default the registry's lock file,
# until stop_holder. It holds the lock when this returns.
start_holder() {
  coproc HOLDER { exec python3 "$TESTS/hold_lock.py" "${1-$PWD/.global.reg.lock}" 3>&-; }
  read -r -u "${HOLDER[0]}"
}

stop_holder() {
  local pid=$HOLDER_PID
  exec {HOLDER[1]}>&-
  wait "$pid"
}
