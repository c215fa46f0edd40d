# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# The Debian packages: made from a copy of the sources below build/package, so that the tree stays as it
# is. Sourced by ./dev; no command of its own. Trying them is package_root.sh's.

readonly package_folder=build/package
readonly package_arches=(amd64 i386)

# The copy of the sources that everything is made from, with packaging/debian as its debian/.
copy_sources() {
  local copy=$package_folder/source
  rm -rf "$copy"
  mkdir -p "$copy"
  tar -c --exclude=./build --exclude=./.git --exclude=__pycache__ . | tar -x -C "$copy"
  cp -r packaging/debian "$copy/debian"
}

# The 32-bit compiler is this machine's own with -m32, under the names that a package build for another
# architecture asks for.
write_i386_tools() {
  local tool folder=$1
  mkdir -p "$folder"
  for tool in gcc g++; do
    printf '#!/bin/sh\nexec %s -m32 "$@"\n' "$tool" >"$folder/i686-linux-gnu-$tool"
  done
  for tool in ar nm objcopy objdump ranlib readelf strip; do
    printf '#!/bin/sh\nexec %s "$@"\n' "$tool" >"$folder/i686-linux-gnu-$tool"
  done
  chmod +x "$folder"/i686-linux-gnu-*
}

# build_packages ARCH FOLDER: fills FOLDER with the packages of one architecture. The libraries alone are
# made for i386: 32-bit programs need them, and the tool is there once.
build_packages() {
  local arch=$1 folder=$2 options=(-b -uc -us)
  rm -rf "$folder"
  mkdir -p "$folder"
  cp -r "$package_folder/source" "$folder/vrxgenreg"
  if [[ $arch != "$(dpkg --print-architecture)" ]]; then
    write_i386_tools "$folder/tools"
    options+=("-a$arch" -d -Ppkg.vrxgenreg.notool)
  fi
  echo "dev: building the packages for $arch ($folder.log)" >&2
  (
    # The package is built by the plain compiler, whatever the environment asks for.
    unset CMAKE_C_COMPILER_LAUNCHER CMAKE_CXX_COMPILER_LAUNCHER CFLAGS CXXFLAGS LDFLAGS
    cd "$folder/vrxgenreg"
    PATH=$folder/tools:$PATH DEB_BUILD_OPTIONS=parallel=$(nproc) dpkg-buildpackage "${options[@]}"
  ) >"$folder.log" 2>&1 || {
    tail -n 40 "$folder.log" >&2
    echo "dev: building the packages for $arch failed ($folder.log)" >&2
    return 1
  }
}

# Says what one check found, and remembers a failure.
package_check() {
  local what=$1 log=$package_folder/check.log
  shift
  if "$@" >"$log" 2>&1; then
    echo "ok      $what"
    return
  fi
  echo "FAILED  $what"
  sed 's/^/        /' "$log" | tail -n 20
  package_failures=$((package_failures + 1))
}

# Neither errors nor warnings. The first upload of a new package to Debian closes a bug there; these
# packages are not uploaded.
packages_lint() {
  local options=(--fail-on "error,warning" --suppress-tags initial-upload-closes-no-bugs)
  [[ $(id -u) -ne 0 ]] || options+=(--allow-root)
  lintian "${options[@]}" "$@"
}

# The binaries of a package have no run path, are stripped, and are hardened.
binaries_are_fit() {
  local deb=$1 folder=$package_folder/unpacked file found=0 facts
  rm -rf "$folder"
  dpkg-deb -x "$deb" "$folder"
  while read -r file; do
    facts=$(readelf -dlSW "$file") || return 1
    if grep -E '\((RPATH|RUNPATH|TEXTREL)\)| \.symtab ' <<<"$facts"; then return 1; fi
    grep -q GNU_RELRO <<<"$facts" && grep -qE 'BIND_NOW|Flags: NOW' <<<"$facts" || return 1
    found=1
  done < <(find "$folder" -type f \( -name '*.so.*' -o -path '*/bin/*' \))
  [[ $found -eq 1 ]]
}

# Another build in another folder, at another time, gives the same bytes.
packages_are_reproducible() {
  local deb
  build_packages i386 "$PWD/$package_folder/another" || return 1
  for deb in "$package_folder/i386/"*.deb; do
    cmp "$deb" "$package_folder/another/$(basename "$deb")" || return 1
  done
}

# Programs of another project find the library with CMake where the packages put it. The unpacked libraries
# are not where the system looks for libraries; hence the library path.
cmake_finds_the_packages() {
  local deb tree=$PWD/$package_folder/tree
  rm -rf "$tree"
  for deb in "$package_folder"/debs/lib*_amd64.deb; do
    [[ $deb == *-dbgsym_* ]] || dpkg-deb -x "$deb" "$tree" || return 1
  done
  LD_LIBRARY_PATH=$tree/usr/lib/x86_64-linux-gnu tests/consumer/consumer_test.sh cmake "$tree/usr" \
    "$PWD/$package_folder/consumer" tests/consumer c++
}

# Makes the packages of all architectures and leaves them in build/package/debs.
make_packages() {
  local arch
  mkdir -p "$package_folder"
  rm -rf "$package_folder/debs"
  mkdir "$package_folder/debs"
  copy_sources
  for arch in "${package_arches[@]}"; do
    build_packages "$arch" "$PWD/$package_folder/$arch" || return 1
    cp "$package_folder/$arch/"*_"$arch".deb "$package_folder/debs" || return 1
  done
}

# Looks at the packages without installing them.
judge_packages() {
  local arch deb
  for arch in "${package_arches[@]}"; do
    package_check "lintian finds nothing for $arch" packages_lint "$package_folder/$arch/"*.changes
  done
  for deb in "$package_folder"/debs/*.deb; do
    [[ $deb == *-dbgsym_* || $deb == *-dev_* ]] ||
      package_check "hardened, stripped, without run path: $(basename "$deb")" binaries_are_fit "$deb"
  done
  package_check "programs find the unpacked library with CMake and run" cmake_finds_the_packages
  package_check "another build gives the same packages" packages_are_reproducible
}

# One line a check; fails when a check has failed.
package_and_try() {
  package_failures=0
  make_packages || return 1
  judge_packages
  try_packages || return 1
  find "$package_folder/debs" -name '*.deb' ! -name '*-dbgsym_*' | sort
  echo "package: $package_failures checks failed"
  [[ $package_failures -eq 0 ]]
}
