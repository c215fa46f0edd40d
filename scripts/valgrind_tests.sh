#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# valgrind_tests.sh BUILD [FILTER]: the unit tests of a build folder under memcheck; fails on invalid
# accesses, on uses of bytes that nobody has set, and on definite leaks. FILTER is GoogleTest's.
#
# Left out, because valgrind and not the library would be tested: children without memory or
# descriptors, waits that a signal or another thread ends (one thread runs at a time here, and the wait
# never ends), races of threads and processes, sweeps of hundreds of updates, and a set-user-id program.
set -euo pipefail
build=${1:?a build folder}
left_out='*NoMemory*:*OutOfMemory*:*Drought*:*Concurren*:*Crash*:*Threads*:*Processes*:*Limit*'
left_out+=':OssFileLock.*:RegistryLock.*Wait*:RegistryOpen.*Wait*:HostileFile.*:*TextModel*:*Sweep*'
left_out+=':*TenThousand*:*WithoutMemory*:*SetuidProgram*'
filter=${2:-*:-$left_out}
log=$build/valgrind.log
result=0
valgrind --tool=memcheck --quiet --error-exitcode=99 --leak-check=full --show-leak-kinds=definite \
  --errors-for-leak-kinds=definite --log-file="$log" \
  "$build/tests/vrx_unit_tests" --gtest_filter="$filter" >"$build/valgrind.out" 2>&1 || result=$?
findings=$(grep -c '^==[0-9]*== [A-Z]' "$log" || true)
count() { sed -nE "s/^\[ *$1 *\] ([0-9]+) tests?.*/\1/p" "$build/valgrind.out" | tail -n 1; }
tail -n 3 "$build/valgrind.out"
echo "valgrind: exit status $result, $findings findings in $log"
echo "tests passed under memcheck: $(count PASSED)/$(count ==========)"
exit "$result"
