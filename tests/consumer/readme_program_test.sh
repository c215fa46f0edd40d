#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# readme_program_test.sh WAY PREFIX WORK COMPILER...: the README's program builds as consumer_test.sh builds
# every other, and does on a private registry what the README says.
set -euo pipefail
way=$1 prefix=$2 work=$3
shift 3
here=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
sources=$work-sources
mkdir -p "$sources"
"$here/../checks/readme_block.py" cpp >"$sources/first.cpp"
"$here/consumer_test.sh" "$way" "$prefix" "$work" "$sources" "$@"
[[ $(cat "$work/run/first.output") == /home/tp1/sqllib ]]
[[ -s $work/run/first.reg ]]
