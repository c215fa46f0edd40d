# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Running the fuzz targets of the preset `fuzz`. Sourced by ./dev; no command of its own.
# What a target learns is kept in build/fuzz-corpus; inputs that end it, in build/fuzz-findings.

# The names of all targets: the folders of fuzz/corpus.
fuzz_target_names() {
  local folder
  for folder in fuzz/corpus/*/; do
    basename "$folder"
  done
}

# Runs one target and prints how much it did. Its output goes to a log, whose end is shown on a finding.
fuzz_target() {
  local name=$1 seconds=$2 program=build/fuzz/fuzz/fuzz_$1
  local learnt=build/fuzz-corpus/$name findings=build/fuzz-findings log=build/fuzz-findings/$name.log
  if [[ ! -x $program ]]; then
    echo "fuzz: no target of this name: $name" >&2
    return 1
  fi
  mkdir -p "$learnt" "$findings"
  if ! ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1 \
    UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    "$program" -max_total_time="$seconds" -max_len=9000 -timeout=30 -print_final_stats=1 \
    -artifact_prefix="$findings/$name-" "$learnt" "fuzz/corpus/$name" >"$log" 2>&1; then
    tail -n 40 "$log" >&2
    echo "fuzz: $name: a finding ($log)" >&2
    return 1
  fi
  awk -v name="$name" '
    /stat::number_of_executed_units/ { runs = $2 }
    /cov: / { for (i = 1; i < NF; ++i) if ($i == "cov:") coverage = $(i + 1) }
    END { printf "fuzz: %s: %d inputs, coverage %d, no finding\n", name, runs, coverage }' "$log"
}

# As many targets at a time as there are jobs.
fuzz_targets() {
  local names=("$@") name failed=0 running=0
  [[ ${#names[@]} -gt 0 ]] || mapfile -t names < <(fuzz_target_names)
  for name in "${names[@]}"; do
    if ((running >= jobs)); then
      wait -n || failed=1
      running=$((running - 1))
    fi
    fuzz_target "$name" "${VRX_FUZZ_SECONDS:-60}" &
    running=$((running + 1))
  done
  for (( ; running > 0; running--)); do
    wait -n || failed=1
  done
  return "$failed"
}
