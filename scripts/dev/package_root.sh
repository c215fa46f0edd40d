# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# shellcheck disable=SC2154,SC2016 # package_folder is package.sh's; dpkg and the inner shell expand ${}
# Trying the Debian packages in a throw-away system below build/package: what a host goes through from the
# installation to the purge, with the libraries of both architectures. Sourced by ./dev; no command of its
# own. A system without our packages is made once and kept as a tarball; each run begins with a copy of it.

readonly base_release=bookworm base_mirror=${VRX_DEBIAN_MIRROR:-http://deb.debian.org/debian}
# Compilers for both word sizes, and what makes the tmpfiles.d entry without systemd.
readonly base_packages=g++-multilib,pkg-config,libfmt9,libsmartcols1,systemd-standalone-tmpfiles
readonly base_i386_packages=(libc6:i386 libgcc-s1:i386 libstdc++6:i386)

# Runs a command in the system, with processes and mounts of its own.
in_root() {
  as_root unshare --mount --pid --fork --propagation private --mount-proc="$package_root/proc" \
    env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
    chroot "$package_root" "$@"
}

make_base() {
  local tarball=$1
  echo "dev: making a $base_release system from $base_mirror ($package_folder/base.log)" >&2
  {
    as_root debootstrap --variant=minbase --include="$base_packages" "$base_release" "$package_root" \
      "$base_mirror" &&
      in_root dpkg --add-architecture i386 &&
      in_root apt-get update -q &&
      in_root apt-get install -q -y --no-install-recommends "${base_i386_packages[@]}" &&
      in_root apt-get clean &&
      as_root tar -C "$package_root" --one-file-system -czf "$tarball.part" . &&
      mv "$tarball.part" "$tarball"
  } >"$package_folder/base.log" 2>&1 || {
    tail -n 20 "$package_folder/base.log" >&2
    echo "dev: no system to try the packages in: see $package_folder/base.log" >&2
    return 1
  }
}

# Sets up the system anew. The tarball's name changes with what it is made of.
make_root() {
  local tarball
  tarball=$PWD/$package_folder/base-$(sha256sum <<<"$base_release $base_packages ${base_i386_packages[*]}" |
    cut -c 1-12).tar.gz
  package_root=$PWD/$package_folder/root
  as_root rm -rf "$package_root"
  mkdir -p "$package_root"
  if [[ ! -f $tarball ]]; then
    make_base "$tarball"
    return
  fi
  as_root tar -C "$package_root" -xzf "$tarball"
}

# Every file of the system, but for what the package manager writes down about its own work.
files_of_root() {
  as_root find "$package_root" -xdev \( -path "$package_root/proc" -o -path "$package_root/var/lib/dpkg" \
    -o -path "$package_root/var/log" -o -path "$package_root/var/cache" \) -prune -o -print | sort
}

# The packages of a folder whose file names match, but for those with debugging symbols.
packages_in() { find "$1" -name "$2" ! -name '*-dbgsym_*' -printf '%f\n' | sort; }

# install_packages FOLDER PATTERN
install_packages() {
  local debs
  mapfile -t debs < <(packages_in "$1" "$2")
  as_root mkdir -p "$package_root/debs"
  as_root cp "${debs[@]/#/$1/}" "$package_root/debs"
  in_root dpkg -i "${debs[@]/#//debs/}" || return 1
  as_root rm -rf "$package_root/debs"
}

installed_names() {
  in_root dpkg-query -W -f '${db:Status-Status} ${binary:Package}\n' 'libvrx*' vrxreg 2>/dev/null |
    awk '$1 == "installed" || $1 == "config-files" { print $2 }'
}

# prints EXPECTED COMMAND...: the command succeeds in the system and prints exactly that.
prints() {
  local expected=$1 found
  shift
  found=$(in_root "$@") || return 1
  [[ $found == "$expected" ]] && return
  printf '%s\nprinted:  %s\nexpected: %s\n' "$*" "$found" "$expected"
  return 1
}

registry_is_the_hosts() { in_root vrxreg where --why | tee /dev/stderr | grep -q /var/vrx/global.reg; }

tool_changes_the_registry() {
  in_root vrxreg service add VRX/3.1.0.7 text1=/opt/vrx/v3.1 fixpack=7 &&
    in_root vrxreg instance add VRX/3.1.0.7/tp1 path=/home/tp1/sqllib usage=oltp &&
    prints $'tp1\t/home/tp1/sqllib' vrxreg instance list -o tsv --fields instance,path --no-headings &&
    prints /home/tp1/sqllib vrxreg instance get tp1 path -o value &&
    in_root vrxreg instance set tp1 maintenance=yes &&
    in_root vrxreg service remove VRX/3.1.0.7 &&
    prints 1 vrxreg instance count
}

# The change log names the build level, which the library reads from its installed level file.
change_log_names_the_level() {
  local level
  level=$(in_root sed -n 's/^build_level=//p' /usr/share/vrxgenreg/level.info)
  [[ -n $level ]] && in_root tail -n 1 /tmp/globalreg.debug | tee /dev/stderr | grep -qF "=$level;"
}

# compiles_and_runs TRIPLET OPTION...: the consumer program, found with pkg-config, on a private registry.
compiles_and_runs() {
  local triplet=$1 where=/tmp/consumer
  shift
  as_root rm -rf "$package_root$where"
  as_root mkdir -p "$package_root$where"
  as_root cp tests/consumer/registries.cpp "$package_root$where"
  in_root env PKG_CONFIG_LIBDIR="/usr/lib/$triplet/pkgconfig" VRX_GLOBAL_REG_PATHNAME=$where/global.reg \
    sh -e -c 'cd "$1"; shift
      g++ -std=c++17 -Wall -Werror "$@" registries.cpp -o registries \
        $(pkg-config --cflags --libs vrxgenreg)
      ldd registries | grep "libvrxgenreg.so.1 => "
      ./registries .' sh "$where" "$@" || return 1
  as_root rm -rf "$package_root$where"
}

# The same packages as an earlier revision, which is all that there is to upgrade from.
make_older_packages() {
  local version=$1 older=$2 deb unpacked=$package_folder/unpacked
  rm -rf "$package_folder/older"
  mkdir "$package_folder/older"
  while read -r deb; do
    rm -rf "$unpacked"
    dpkg-deb -R "$package_folder/debs/$deb" "$unpacked" && sed -i "s/$version/$older/g" "$unpacked/DEBIAN/control" &&
      dpkg-deb --root-owner-group -b "$unpacked" "$package_folder/older/$deb" || return 1
  done < <(packages_in "$package_folder/debs" '*.deb')
}

has_version() { prints "$1" dpkg-query -W -f '${Version}' vrxreg; }

upgrade_keeps_the_registry() {
  local version older
  version=$(in_root dpkg-query -W -f '${Version}' vrxreg)
  older=${version%-*}-0
  make_older_packages "$version" "$older" &&
    install_packages "$package_folder/older" '*.deb' &&
    has_version "$older" && prints 1 vrxreg instance count &&
    install_packages "$package_folder/debs" '*.deb' &&
    has_version "$version" && prints 1 vrxreg instance count
}

purge_keeps_a_used_registry() {
  in_root dpkg --purge vrxreg && in_root test -s /var/vrx/global.reg &&
    install_packages "$package_folder/debs" 'vrxreg_*.deb' && prints 1 vrxreg instance count
}

nothing_is_left() {
  local names
  in_root vrxreg instance remove tp1 || return 1
  mapfile -t names < <(installed_names)
  in_root dpkg --purge "${names[@]}" || return 1
  diff "$package_folder/files.before" <(files_of_root)
}

try_packages() {
  make_root || return 1
  files_of_root >"$package_folder/files.before"
  package_check "the packages of both architectures install together" \
    install_packages "$package_folder/debs" '*.deb'
  package_check "dpkg finds every installed file unchanged" in_root dpkg --verify
  package_check "/var/vrx is there for root to write" prints "755 root root" stat -c '%a %U %G' /var/vrx
  package_check "vrxreg where --why names the host's registry" registry_is_the_hosts
  package_check "vrxreg version reads a version" in_root vrxreg version 3.1.0.7
  package_check "vrxreg adds, lists, gets, sets and removes" tool_changes_the_registry
  package_check "the change log names the installed build level" change_log_names_the_level
  package_check "a 64-bit program compiles, finds the library and runs" \
    compiles_and_runs x86_64-linux-gnu
  package_check "a 32-bit program compiles, finds the library and runs" \
    compiles_and_runs i386-linux-gnu -m32
  package_check "an upgrade keeps what is registered" upgrade_keeps_the_registry
  package_check "a purge keeps a registry in which something is registered" purge_keeps_a_used_registry
  package_check "a purge of everything leaves no file" nothing_is_left
  as_root rm -rf "$package_root"
}
