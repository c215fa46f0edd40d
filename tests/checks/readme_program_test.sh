#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# readme_program_test.sh cmake|pkg-config PREFIX WORK COMPILER...: the README's program builds against the
# installed libraries and does on a private registry what the README says.
set -euo pipefail
way=$1 prefix=$2 work=$3
shift 3
here=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
host=$here/../../scripts/private_host.sh
"$host" --probe || exit 77
rm -rf "$work"
mkdir -p "$work"
"$here/readme_block.py" cpp >"$work/first.cpp"

case "$way" in
  cmake)
    cmake -S "$here/readme_program" -B "$work" -G Ninja -DSOURCE="$work/first.cpp" \
      -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$1" -DCMAKE_CXX_FLAGS="${*:2}"
    cmake --build "$work"
    ;;
  pkg-config)
    pc=$(find "$prefix" -name vrxgenreg.pc)
    read -ra options < <(PKG_CONFIG_PATH=$(dirname "$pc") pkg-config --cflags --libs vrxgenreg)
    libraries=$(PKG_CONFIG_PATH=$(dirname "$pc") pkg-config --variable=libdir vrxgenreg)
    "$@" -std=c++17 -Wall -Wextra -Werror "$work/first.cpp" -o "$work/first" "${options[@]}" \
      -Wl,-rpath,"$libraries"
    ;;
esac

export VRX_GLOBAL_REG_PATHNAME=$work/global.reg
"$host" "$work/host" "$work/first" | tee "$work/output"
[[ $(cat "$work/output") == /home/tp1/sqllib ]]
[[ -s $work/global.reg ]]
