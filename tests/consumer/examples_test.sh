#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# examples_test.sh WAY PREFIX WORK SOURCES COMPILER...: builds and runs the programs of SOURCES as
# consumer_test.sh does, and compares what each prints with the NAME.out beside it.
set -euo pipefail
work=$3 sources=$4
here=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
"$here/consumer_test.sh" "$@"
failed=0
for source in "$sources"/*.cpp; do
  name=$(basename "$source" .cpp)
  diff -u "$sources/$name.out" "$work/run/$name.output" || failed=1
done
exit $failed
