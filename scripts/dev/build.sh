# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Building and testing presets, quietly while all is well. Sourced by ./dev; no command of its own.

jobs=$(nproc)
if command -v ccache >/dev/null; then
  export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
fi

# Configures build/PRESET when it is new or the presets have changed; ninja notices the rest.
configure() {
  local preset=$1
  [[ -f build/$preset/build.ninja && build/$preset/build.ninja -nt CMakePresets.json ]] && return
  cmake --preset "$preset"
}

build_loudly() {
  configure "$1"
  cmake --build --preset "$1" -j "$jobs"
}

# build_quietly PRESET [TARGET...]: builds with the output in a log, which is shown from its first error
# when the build fails.
build_quietly() {
  local preset=$1 log=build/$1.log
  shift
  mkdir -p build
  [[ -f build/$preset/build.ninja ]] || echo "dev: building $preset for the first time ($log)" >&2
  if ! { configure "$preset" && cmake --build --preset "$preset" -j "$jobs" --target "${@:-all}"; } \
    >"$log" 2>&1; then
    echo "dev: building $preset failed ($log):" >&2
    { grep -n -m 1 -A 40 -E 'error: |Error at |FAILED: ' "$log" || tail -n 40 "$log"; } |
      cut -c 1-300 >&2
    return 1
  fi
}

# Builds and tests one preset, and files its results in build/results/PRESET.xml.
# A preset that does not build leaves PRESET.failed instead; so does a ctest that cannot run.
test_preset() {
  local preset=$1 started=$SECONDS built
  shift
  if ! build_quietly "$preset"; then
    echo "build of $preset" >"build/results/$preset.failed"
    return
  fi
  built=$((SECONDS - started))
  started=$SECONDS
  if ! ctest --preset "$preset" -j "$jobs" --output-junit "$PWD/build/results/$preset.xml" "$@" \
    >"build/results/$preset.log" 2>&1; then
    touch "build/results/$preset.red"
  fi
  scripts/dev/sum_tests.py --preset "$preset" --built "$built" --tested "$((SECONDS - started))" \
    build/results
}

# The presets that run when none is named: 32-bit code needs an x86-64 machine here.
default_presets() {
  printf '%s\n' dev asan
  [[ $(uname -m) != x86_64 ]] || echo m32
}

# Tests the presets named before `--` with the ctest options after it, and sums up over all of them.
test_presets() {
  local presets=() preset
  while [[ $# -gt 0 && $1 != -- ]]; do
    presets+=("$1")
    shift
  done
  shift $(($# > 0))
  [[ ${#presets[@]} -gt 0 ]] || mapfile -t presets < <(default_presets)
  rm -rf build/results
  mkdir -p build/results
  for preset in "${presets[@]}"; do
    test_preset "$preset" "$@"
  done
  scripts/dev/sum_tests.py build/results
}

# Runs the fuzz targets named, or all. What they learn is kept in build/fuzz/corpus for the next time.
run_fuzz_targets() {
  local targets=("$@") target failed=0
  [[ ${#targets[@]} -gt 0 ]] || mapfile -t targets < <(
    find build/fuzz/fuzz -maxdepth 1 -name 'fuzz_*' -type f -printf '%f\n' | sed 's/^fuzz_//' | sort
  )
  [[ ${#targets[@]} -gt 0 ]] || fail "fuzz: no target was built"
  for target in "${targets[@]}"; do
    [[ -x build/fuzz/fuzz/fuzz_$target ]] || fail "fuzz: no such target: $target"
    mkdir -p "build/fuzz/corpus/$target" build/fuzz/found
    if build/fuzz/fuzz/fuzz_"$target" -max_total_time="${VRX_FUZZ_SECONDS:-60}" \
      -artifact_prefix="build/fuzz/found/$target-" \
      "build/fuzz/corpus/$target" "fuzz/corpus/$target" >"build/fuzz/$target.log" 2>&1; then
      echo "$target: $(tail -n 1 "build/fuzz/$target.log")"
    else
      failed=1
      tail -n 40 "build/fuzz/$target.log" >&2
      echo "$target: failed (build/fuzz/$target.log)"
    fi
  done
  return $failed
}

# Writes the lists of exported symbols anew from a fresh build of both word sizes.
update_exports() {
  local preset
  for preset in dev m32; do
    build_quietly "$preset" vrxgenreg || return 1
    scripts/check_exports.py --update --build "build/$preset"
  done
  scripts/debian_symbols.py --update
}

# clang-tidy over our own translation units, tests left out, and what the everyday build does not compile.
run_clang_tidy() {
  scripts/list_sources.py --cpp --production --units | grep -vE '^(docs/examples|benchmarks)/' |
    xargs -r -n 4 -P "$jobs" clang-tidy -p build/dev --quiet \
      2> >(grep -v 'warnings\? generated' >&2)
}
