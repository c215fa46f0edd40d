# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Running the benchmarks of the preset `bench`. Sourced by ./dev; no command of its own.

# Prints the table and keeps it in build/bench/results.txt beside results.json. A run that measured all
# goes into docs/performance.md and its plot as well. The registries are below build/bench, on whatever
# file system the project is on.
run_benchmarks() {
  local program=$PWD/build/bench/benchmarks/vrxbench folder=$PWD/build/bench
  # The load of other work is the first thing to know about figures that surprise.
  echo "$(nproc) processors, load $(cut -d ' ' -f 1-3 /proc/loadavg), $(findmnt -n -o FSTYPE -T "$folder")"
  scripts/private_host.sh "$folder/host" "$program" --folder "$folder/run" "$@" |
    tee "$folder/results.txt"
  mv "$folder/run/results.json" "$folder/results.json"
  [[ $# -eq 0 ]] || return 0
  scripts/plot_benchmarks.py "$folder/results.json" docs/performance.svg
  scripts/benchmark_page.py "$folder/results.json"
}
