#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# demo.sh BUILD FOLDER: the main job of the command line, on a private registry in FOLDER: registers two
# installed copies and three instances, lists and looks them up, changes one, removes one, and shows what
# that left in the change log and in the file; then changes one line each of a profile, of a copy of the
# host's services file and of a sample init table. Everything stays in FOLDER where the machine allows a
# private mount namespace; where it does not, the change log's lines go to its fixed path, and we say so.
set -euo pipefail
scripts=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
readonly change_log=/tmp/globalreg.debug

# Prints a command as it would be typed, and runs it.
show() {
  printf '\n$'
  printf ' %s' "$1"
  local word
  for word in "${@:2}"; do
    if [[ $word =~ [^A-Za-z0-9_./=,:-] ]]; then printf " '%s'" "$word"; else printf ' %s' "$word"; fi
  done
  printf '\n'
  "$@"
}

# The same for a command that is expected to fail with a given exit status.
show_status() {
  local expected=$1 status=0
  shift
  show "$@" 2>&1 || status=$?
  echo "exit status $status"
  [[ $status -eq $expected ]]
}

heading() { printf '\n== %s\n' "$*"; }

# What is installed, for the change log's build level and fix pack.
write_level_file() {
  printf 'version=3.1.0.7\nbuild_level=demo\nfixpack=7\n' >"$1"
}

register() {
  heading "Two installed copies, three instances"
  show vrxreg service add VRX/3.1.0.7 text1=/opt/vrx/v3.1 fixpack=7
  show vrxreg service add KRN/3.0.2.0 text1=/opt/krn/v3.0 fixpack=2
  show vrxreg instance add VRX/3.1.0.7/tp1 path=/home/tp1/sqllib usage=oltp start_at_boot=yes \
    comment=orders
  show vrxreg instance add VRX/3.1.0.7/dw1 path=/home/dw1/sqllib usage=dw
  show vrxreg instance add KRN/3.0.2.0/krn1 path=/opt/krn/inst start_at_boot=yes maintenance=no
}

look_up() {
  heading "Listing and looking up"
  show vrxreg where --why
  show vrxreg service list
  show vrxreg instance list
  show vrxreg instance list --where 'version>=3.1' --fields instance,path -o tsv --no-headings
  show vrxreg instance get tp1 path -o value
  show vrxreg instance get tp1 -o json
}

change() {
  heading "Changing one, removing one"
  show vrxreg instance set tp1 maintenance=yes comment='moved to rack 7'
  show vrxreg instance set tp1 maintenance=yes
  show vrxreg instance remove dw1
  show_status 1 vrxreg instance get dw1
  show vrxreg instance list
}

# Text files to change: the host's services file where there is one.
write_texts() {
  printf '# diagnostics\n  DIAG = 3   # level\n\nTRACE=off\n' >profile
  cp /etc/services services 2>/dev/null ||
    printf '# services\nssh\t\t22/tcp\ndomain\t\t53/tcp\ndomain\t\t53/udp\n' >services
  printf '# Default runlevel\nid:2:initdefault:\n' >inittab
  printf 'vrx1:2345:respawn:/opt/vrx/bin/fmcd # fault monitor\n' >>inittab
}

change_texts() {
  mkdir -p "$folder/texts"
  cd "$folder/texts"
  write_texts
  heading "A profile: one variable, in place"
  show vrxreg -f profile profile set DIAG value=4 --diff
  heading "A copy of the services file: one service looked up, one added"
  show vrxreg -f services ports list --where port=22
  show vrxreg -f services ports set vrx_tp1/tcp port=60000 comment='instance tp1' --diff
  heading "An init table: one entry changed"
  show vrxreg -f inittab inittab set vrx1 action=off --diff
}

# show_evidence LINES: the change log's lines after the first LINES, and one frame of the file.
show_evidence() {
  heading "The change log: one line an update ($change_log)"
  tail -n "+$(($1 + 1))" "$change_log"
  heading "One record on disk"
  "$scripts/frame_dump.py" --frame 3 "$VRX_GLOBAL_REG_PATHNAME"
  echo
  ls -lA "$folder/registry"
}

lines_of() { if [[ -f $1 ]]; then wc -l <"$1"; else echo 0; fi; }

# Runs where the fixed paths are private, or where we have said that they are not.
tell() {
  local before
  export VRX_GLOBAL_REG_PATHNAME=$folder/registry/global.reg VRX_LEVEL_FILE=$folder/level.info
  export PATH=$build/cli:$PATH
  mkdir -p "$folder/registry"
  write_level_file "$VRX_LEVEL_FILE"
  before=$(lines_of "$change_log")
  register
  look_up
  change
  show_evidence "$before"
  (change_texts)
}

if [[ $1 == --inside ]]; then
  build=$2 folder=$3
  tell
  exit
fi
build=$(readlink -f "$1")
rm -rf "$2"
mkdir -p "$2"
folder=$(readlink -f "$2")
if "$scripts/private_host.sh" --probe; then
  "$scripts/private_host.sh" "$folder/host" "$0" --inside "$build" "$folder"
  printf '\nEverything stands in %s; the change log is host%s there.\n' "$2" "$change_log"
else
  echo "This machine allows no private mount namespace: the change log's lines go to $change_log itself,"
  echo "and a fault monitor that runs here is told of each update."
  "$0" --inside "$build" "$folder"
fi
