#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# headers_test.sh PREFIX COMPILER...: every installed header compiles by itself, without a warning.
set -euo pipefail
include=$1/include/vrxgenreg
shift
mapfile -t headers < <(cd "$include" && find . -name '*.h' | sort)
[[ ${#headers[@]} -gt 10 ]] || {
  echo "only ${#headers[@]} headers in $include"
  exit 1
}
if find "$include" -path '*internal*' | grep .; then
  echo "internal headers are installed"
  exit 1
fi
failed=0
for header in "${headers[@]}"; do
  "$@" -std=c++17 -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -fsyntax-only \
    -I "$include" -include "$include/$header" -x c++ /dev/null || failed=1
done
echo "${#headers[@]} headers"
exit $failed
