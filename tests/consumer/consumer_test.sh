#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# consumer_test.sh WAY PREFIX WORK SOURCES COMPILER...: builds the programs of the folder SOURCES as another
# project would, and runs each on a private host with a folder of its own as argument and a private
# registry, WORK/run/NAME.reg. What it prints is kept in WORK/run/NAME.output. NAME_check.py beside the
# source, when there is one, looks at the program that was built.
#
# WAY is cmake (find_package), pkg-config, moved (both, with the installed tree copied elsewhere),
# subdirectory (the project's sources as a part of another build; PREFIX is not used) or refused (no
# program: asking for another major version must fail).
set -euo pipefail
way=$1 prefix=$2 work=$3 sources=$(readlink -f "$4")
shift 4
compiler=("$@")
here=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
project=$here/../..
host=$project/scripts/private_host.sh

# The names of the programs: NAME.cpp, and NAME_*.cpp belongs to it.
programs() {
  local name program=""
  while read -r name; do
    [[ -n $program && $name == "$program"_* ]] && continue
    program=$name
    echo "$program"
  done < <(find "$sources" -maxdepth 1 -name '*.cpp' -printf '%f\n' | sed 's/\.cpp$//' | LC_ALL=C sort)
}

configure_with_cmake() {
  cmake -S "$here/project" -B "$work/build" -G Ninja -DSOURCES="$sources" \
    -DCMAKE_CXX_COMPILER="${compiler[0]}" -DCMAKE_CXX_FLAGS="${compiler[*]:1}" "$@"
}

build_with_cmake() {
  configure_with_cmake "$@"
  cmake --build "$work/build"
}

# Libraries in a folder that the linker does not search need a run path.
build_with_pkg_config() {
  local flags libdir name
  PKG_CONFIG_PATH=$(dirname "$(find "$1" -name vrxgenreg.pc)")
  export PKG_CONFIG_PATH
  libdir=$(pkg-config --variable=libdir vrxgenreg)
  read -ra flags < <(pkg-config --cflags --libs vrxgenreg)
  mkdir -p "$work/build"
  for name in $(programs); do
    local parts=("$sources/$name".cpp)
    mapfile -t -O 1 parts < <(compgen -G "$sources/${name}_*.cpp")
    "${compiler[@]}" -std=c++17 -Wall -Wextra -Werror "${parts[@]}" -o "$work/build/$name" \
      "${flags[@]}" -Wl,-rpath,"$libdir"
  done
}

# A copy in which nothing names the first place.
move_prefix() {
  cp -a "$prefix" "$work/elsewhere"
  if grep -rlF "$prefix" "$work/elsewhere"; then
    echo "these files name the folder that they were installed in"
    exit 1
  fi
}

refuse_other_version() {
  local log=$work/refused.log
  if configure_with_cmake -DCMAKE_PREFIX_PATH="$prefix" -DWANTED_VERSION=2 >"$log" 2>&1; then
    echo "version 2 was found"
    exit 1
  fi
  grep -A 12 'compatible with requested version' "$log"
  grep -q 'vrxgenreg-config.cmake, version: 1\.' "$log"
}

run_programs() {
  local name
  rm -rf "$work/run"
  for name in $(programs); do
    mkdir -p "$work/run/$name"
    VRX_GLOBAL_REG_PATHNAME=$work/run/$name.reg \
      "$host" "$work/run/host" "$work/build/$name" "$work/run/$name" | tee "$work/run/$name.output"
    [[ ! -f $sources/${name}_check.py ]] || "$sources/${name}_check.py" "$work/build/$name"
  done
}

"$host" --probe || exit 77
rm -rf "$work"
mkdir -p "$work"
[[ -n $(programs) ]]
case "$way" in
  cmake) build_with_cmake -DCMAKE_PREFIX_PATH="$prefix" ;;
  pkg-config) build_with_pkg_config "$prefix" ;;
  subdirectory) build_with_cmake -DVRX_SOURCE="$(readlink -f "$project")" ;;
  moved)
    move_prefix
    build_with_pkg_config "$work/elsewhere"
    run_programs
    build_with_cmake -DCMAKE_PREFIX_PATH="$work/elsewhere"
    ;;
  refused)
    refuse_other_version
    exit
    ;;
  *)
    echo "unknown way: $way"
    exit 2
    ;;
esac
run_programs
