# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# The binary interface of the libraries, against the one that programs are linked with. Sourced by ./dev; no
# command of its own. tests/checks/exports lists the symbols; tests/checks/abi describes their types as the
# installed headers show them, one file a library and architecture.

readonly abi_baselines=tests/checks/abi
readonly abi_libraries=(vrxosse vrxinstall vrxgenreg)

# The presets whose libraries are described, with the folder of each.
abi_presets() {
  [[ $(uname -m) == x86_64 ]] || return 0
  printf '%s\n' "dev x86_64" "m32 i386"
}

# describe_abi PRESET FOLDER: writes what the libraries of a build offer, without paths and names that are
# free to change.
describe_abi() {
  local preset=$1 folder=$2 library file
  build_quietly "$preset" vrxgenreg vrxinstall vrxosse || return 1
  rm -rf "$folder"
  mkdir -p "$folder"
  for library in "${abi_libraries[@]}"; do
    file=$folder/lib$library.abi
    abidw --no-corpus-path --no-comp-dir-path --no-show-locs --no-parameter-names \
      --no-write-default-sizes --no-elf-needed --drop-undefined-syms --exported-interfaces-only --drop-private-types \
      --type-id-style hash --headers-dir build/abi/include --out-file "$file" \
      "build/$preset/lib$library.so" || return 1
    sed -i "s|path='$PWD/|path='|" "$file"
  done
}

# The public headers, which tell the interface's types from those that only the sources see.
collect_headers() {
  rm -rf build/abi/include
  cmake --install build/dev --prefix "$PWD/build/abi/prefix" >build/abi.log 2>&1 &&
    mv build/abi/prefix/include/vrxgenreg build/abi/include
}

# Whatever differs is incompatible, but for additions. Those are shown. A damaged file would be taken for
# one that agrees.
compare_abi() {
  local kept=$1 found=$2
  python3 -c 'import sys, xml.dom.minidom; xml.dom.minidom.parse(sys.argv[1])' "$kept" || return 1
  if ! abidiff --no-added-syms "$kept" "$found"; then
    echo "lint: $kept: programs linked against the library would meet another one" >&2
    return 1
  fi
  abidiff "$kept" "$found" || echo "lint: $kept: additions; \`./dev lint --update-abi\` takes them over"
}

# for_each_abi FUNCTION: calls it with the kept description and the one just made.
for_each_abi() {
  local preset arch library failed=0
  build_quietly dev vrxgenreg vrxreg && collect_headers || return 1
  while read -r preset arch; do
    describe_abi "$preset" "build/abi/$arch" || return 1
    for library in "${abi_libraries[@]}"; do
      "$1" "$abi_baselines/$arch/lib$library.abi" "build/abi/$arch/lib$library.abi" || failed=1
    done
  done < <(abi_presets)
  return $failed
}

take_abi() { mkdir -p "$(dirname "$1")" && cp "$2" "$1" && wc -c "$1"; }

check_abi() { for_each_abi compare_abi; }
update_abi() { for_each_abi take_abi; }
