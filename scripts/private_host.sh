#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# private_host.sh FOLDER COMMAND...: runs a command in a mount namespace of its own, where /tmp and /var
# are folders below FOLDER, so that the library's fixed paths (/tmp/globalreg.debug, /var/vrx) are private.
# private_host.sh --probe: succeeds when this machine allows that. Needs no root where unprivileged user
# namespaces are allowed. FOLDER and this project stay visible even below /tmp or /var.
set -euo pipefail
self=$(readlink -f "${BASH_SOURCE[0]}")
project=$(dirname "$(dirname "$self")")

# The unshare options that work here: plain for root, with a user namespace for others.
namespace_options() {
  local options
  for options in "--mount" "--user --map-root-user --mount"; do
    # shellcheck disable=SC2086
    if unshare $options --propagation private true 2>/dev/null; then
      echo "$options"
      return
    fi
  done
  return 1
}

# make_private TOP FOLDER: puts FOLDER/TOP over TOP, with the project and FOLDER visible in it.
make_private() {
  local top=$1 folder=$2 over=$2$1 kept
  mkdir -p "$over"
  chmod 1777 "$over"
  for kept in "$project" "$folder"; do
    [[ $kept/ == "$top"/* ]] || continue
    mkdir -p "$over${kept#"$top"}"
    mount --bind "$kept" "$over${kept#"$top"}"
  done
  mount --rbind "$over" "$top"
}

inside() {
  local folder=$1 here=$PWD
  shift
  make_private /tmp "$folder"
  make_private /var "$folder"
  mkdir -p /var/tmp
  cd "$here"
  exec "$@"
}

case "${1:?a folder, or --probe}" in
  --probe)
    namespace_options >/dev/null
    ;;
  --inside)
    shift
    inside "$@"
    ;;
  *)
    mkdir -p "$1"
    folder=$(readlink -f "$1")
    shift
    options=$(namespace_options) || {
      echo "private_host: this machine allows no private mount namespace" >&2
      exit 77
    }
    # shellcheck disable=SC2086
    exec unshare $options --propagation private bash "$self" --inside "$folder" "$@"
    ;;
esac
