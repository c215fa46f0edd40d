#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# install_test.sh CMAKE BUILD PREFIX: installs a build into PREFIX, which nothing of an earlier
# installation is left in. PREFIX lies below BUILD, so that no other folder can be meant.
set -euo pipefail
cmake=$1 build=$2 prefix=$3
[[ $prefix == "$build"/?* ]]
rm -rf "$prefix"
"$cmake" --install "$build" --prefix "$prefix"
