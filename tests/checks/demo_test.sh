#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# demo_test.sh BUILD WORK: the demonstration runs to its end and shows what it promises.
set -euo pipefail
export LC_ALL=C
build=$1 work=$2
root=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/../..
"$root/scripts/private_host.sh" --probe || exit 77
"$root/scripts/demo.sh" "$build" "$work" | tee "$work.output"

shows() {
  grep -qE -- "$1" "$work.output" || {
    echo "not shown: $1"
    exit 1
  }
}
shows '^added VRX/3\.1\.0\.7/tp1$'
shows '^changed VRX/3\.1\.0\.7/tp1: '
shows '^unchanged VRX/3\.1\.0\.7/tp1$'
shows '^removed VRX/3\.1\.0\.7/dw1$'
shows '^exit status 1$'
shows 'ACT=Add;.*REC=S,VRX,3\.1\.0\.7,/opt/vrx/v3\.1,'
shows 'ACT=Change;.*REC=I,.*!I,'
shows 'ACT=Delete;'
shows '^[0-9a-f]{6}  74 70 31 00 +InstanceName = "tp1"$'
shows '^\+  DIAG = 4 # level$'
shows '^added vrx_tp1/tcp$'
shows '^\+vrx1:2345:off:/opt/vrx/bin/fmcd # fault monitor$'
[[ $(grep -c '^TS=' "$work.output") -eq 7 ]] || {
  echo "not one change-log line for each of 7 updates"
  exit 1
}
# The registry, its lock file and nothing else are left.
[[ $(find "$work/registry" -mindepth 1 -printf "%f\n" | sort | tr '\n' ' ') == ".global.reg.lock global.reg " ]]
