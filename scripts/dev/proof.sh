# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# The reliability campaigns in their long forms, one after the other, and one table of what they counted.
# Sourced by ./dev; no command of its own. docs/reliability.md tells what each campaign proves.

# The campaigns that `./dev crash` runs as well.
crash_campaigns=(death compound power contention)

# crash_campaign NAME --full|--short [OPTION...]
crash_campaign() {
  local name=$1 size=$2 driver=build/dev/tests/support/regdriver
  shift
  case "$name" in
    death) tests/crash/run_matrix.py "$@" --jobs "$jobs" --driver "$driver" ;;
    compound) tests/crash/run_compound.py "$@" --jobs "$jobs" --driver "$driver" ;;
    power) tests/crash/run_power.py "$@" --jobs "$jobs" --driver "$driver" ;;
    contention)
      [[ $size == --full ]] || set --
      tests/concurrency/run_contention.py "$@" --driver "$driver"
      ;;
  esac
}

# Runs one campaign with its output in build/proof/NAME.log. A campaign that fails is named, and the next one
# runs all the same.
proof_campaign() {
  local name=$1 started=$SECONDS
  shift
  echo "proof: $name ..." >&2
  if ! "$@" >"build/proof/$name.log" 2>&1; then
    proof_failures+=("$name")
    tail -n 20 "build/proof/$name.log" >&2
  fi
  echo "proof: $name took $((SECONDS - started)) s" >>"build/proof/$name.log"
}

# Every count of the form N/M that a campaign has printed, and whether it is whole.
proof_table() {
  local log
  printf '%-12s %-44s %21s\n' campaign what "done/of"
  for log in build/proof/*.log; do
    awk -v campaign="$(basename "$log" .log)" '
      /no finding/ { printf "%-12s %-44s %21s\n", campaign, $2, $3 " inputs"; next }
      match($0, /[0-9]+\/[0-9]+/) && !/^proof:/ {
        count = substr($0, RSTART, RLENGTH)
        what = substr($0, 1, RSTART - 1)
        gsub(/[[:space:]:]+$/, "", what)
        printf "%-12s %-44s %21s\n", campaign, substr(what, 1, 44), count
      }' "$log"
  done
}

run_proof() {
  local operations=1000000 fuzz_seconds=${VRX_FUZZ_SECONDS:-1800} size=--full tests=build/dev/tests
  if [[ ${1:-} == --quick ]]; then
    operations=20000 fuzz_seconds=20 size=--short
  fi
  local stride=1 name
  [[ $size == --short ]] && stride=43
  proof_failures=()
  rm -rf build/proof
  mkdir -p build/proof
  for name in "${crash_campaigns[@]}"; do
    proof_campaign "$name" crash_campaign "$name" "$size"
  done
  proof_campaign damage "$tests/damage/damage_check" --stride "$stride"
  proof_campaign model "$tests/model/model_check" --operations "$operations"
  proof_campaign resources "$tests/resources/resource_check" --operations "$((operations / 10))"
  proof_campaign surroundings "$tests/surroundings/vrx_surroundings_tests"
  proof_campaign coverage ./dev coverage
  if [[ $size == --full ]]; then
    proof_campaign valgrind scripts/valgrind_tests.sh build/dev
    proof_campaign mutants ./dev mutants
  fi
  VRX_FUZZ_SECONDS=$fuzz_seconds proof_campaign fuzz fuzz_targets
  proof_table
  if [[ ${#proof_failures[@]} -gt 0 ]]; then
    echo "proof: failed: ${proof_failures[*]}"
    return 1
  fi
  echo "proof: all campaigns passed"
}
