# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Counting what the tests reach. Sourced by ./dev; no command of its own.
#
# The unit tests run in one process: each process that ends adds its counts to every file. The command
# line's tests and those of the surroundings show what happens from outside. Campaigns that kill or trace are
# left out: what they kill counts nothing.

# Runs a command with its output in a log, whose end is shown when it fails.
counted() {
  local log=build/coverage/$1.log
  shift
  "$@" >"$log" 2>&1 && return
  tail -n 40 "$log" >&2
  fail "coverage: a test failed ($log)"
}

run_coverage() {
  local build=build/coverage
  local objects=("$build"/CMakeFiles/vrx{osse,install,genreg}_objects.dir)
  find "$build" -name '*.gcda' -delete
  [[ ! -w /dev/shm ]] || local -x TMPDIR=/dev/shm  # nothing here has to survive a power cut
  # Some tests give root up in a child, which must still be able to write the files of counts: they are made first.
  counted none "$build/tests/vrx_unit_tests" --gtest_list_tests
  find "$build" -name '*.gcda' -exec chmod a+rw {} +
  counted units "$build/tests/vrx_unit_tests" --gtest_brief=1
  counted surroundings "$build/tests/surroundings/vrx_surroundings_tests" --gtest_brief=1
  counted cli ctest --preset coverage -j "$jobs" -R '^cli\.'
  gcovr --root . --json "$build/coverage.json" --gcov-ignore-parse-errors --exclude-throw-branches \
    --exclude-unreachable-branches --exclude '.*_test\.cpp' --exclude 'tests/.*' -j "$jobs" \
    "${objects[@]}" 2>"$build/gcovr.log" || fail "coverage: gcovr failed ($build/gcovr.log)"
  scripts/coverage_report.py "$build/coverage.json"
}
