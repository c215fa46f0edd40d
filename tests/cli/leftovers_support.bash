# SPDX-License-Identifier: Apache-2.0
# What the tests about leftovers share, beside what all tests do.
load support

# A registry of four records, and beside it an older one of three under the given name.
with_older() {
  vrxreg -q service add VRX/3.1.0.7 fixpack=7
  vrxreg -q instance add VRX/3.1.0.7/tp1 path=/a
  vrxreg -q instance add VRX/3.1.0.7/tp2 path=/b
  cp global.reg older
  vrxreg -q instance set tp1 comment=new
  vrxreg -q variable add VRX/A value=1
  cp global.reg newer
  local name
  for name in "$@"; do cp older "$name"; done
}

folder() { find . -mindepth 1 -printf '%P %y %m %s\n' | sort; }

same() { cmp "$1" "$2"; }
