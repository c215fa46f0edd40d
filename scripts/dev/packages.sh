# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Installs the Debian packages of packages.txt that are missing. Sourced by ./dev; no command of its own.

# The names of one group of packages.txt, its part for this machine's architecture included.
packages_of() {
  awk -v group="$1" -v arch="$(uname -m)" '
    /^\[/ { taken = ($0 == "[" group "]" || $0 == "[" group " " arch "]"); next }
    taken && NF && !/^#/ { print $1 }' scripts/dev/packages.txt
}

# Those of the given packages that are not installed.
packages_missing() {
  local installed
  installed=$(dpkg-query -W -f '${Package} ${db:Status-Status}\n' "$@" 2>/dev/null || true)
  comm -23 <(printf '%s\n' "$@" | sort -u) \
    <(awk '$2 == "installed" { print $1 }' <<<"$installed" | sort -u)
}

# The command in front of apt-get: none for root, sudo for others.
as_root() {
  if [[ $(id -u) -eq 0 ]]; then
    env DEBIAN_FRONTEND=noninteractive "$@"
  elif command -v sudo >/dev/null; then
    sudo env DEBIAN_FRONTEND=noninteractive "$@"
  else
    echo "dev: neither root nor sudo: cannot run: $*" >&2
    return 1
  fi
}

# need_packages GROUP: makes sure that the group is installed. Costs one dpkg-query when it is.
need_packages() {
  local names missing
  mapfile -t names < <(packages_of "$1")
  if ! command -v dpkg-query >/dev/null; then
    echo "dev: not a Debian system: make sure that these are here: ${names[*]}" >&2
    return 0
  fi
  mapfile -t missing < <(packages_missing "${names[@]}")
  [[ ${#missing[@]} -eq 0 ]] && return 0
  echo "dev: installing ${missing[*]}" >&2
  mkdir -p build
  if ! { as_root apt-get update -q && as_root apt-get install -q -y --no-install-recommends \
    "${missing[@]}"; } >build/packages.log 2>&1; then
    tail -n 20 build/packages.log >&2
    echo "dev: could not install: ${missing[*]} (build/packages.log)" >&2
    return 1
  fi
}
