#!/usr/bin/env bats
# SPDX-License-Identifier: Apache-2.0
# Values, names and registries that mean harm or were merely unlucky.
load support

@test "control characters reach no terminal" {
  vrxreg -q variable add VRX/A value=$'\e[31mred\a' comment=$'a\nb\tc\rd'
  vrxreg -q variable add VRX/B value=$'\u202egpj.exe' comment=$'\u009b1m'
  exits 0 vrxreg variable list
  is "$output" 'SERVICE VARIABLE VALUE           COMMENT
VRX     A        \x1b[31mred\x07 a\nb\tc\rd
VRX     B        \u202egpj.exe   \x9b1m'
  exits 1 vrxreg variable get $'\e[2J'
  [[ $stderr != *$'\e'* ]]
  exits 0 vrxreg variable set A value=$'\e[0m' --diff
  [[ $output != *$'\e'* ]]
}

@test "values come back byte for byte" {
  value=$'  blanks , "quotes" \\ tab\there\nand a line, \x01\x7f, ü, \U1F600 '
  vrxreg -q variable add VRX/A value="$value"
  is "$(vrxreg variable get A value -o value; echo .)" "$value"$'\n.'
  is "$(vrxreg variable get A -o json | jq -j '.record.value'; echo .)" "$value."
}

@test "bytes that are not UTF-8 travel in base64" {
  bad=$'caf\xe9'
  vrxreg -q variable add VRX/A value="$bad"
  exits 0 vrxreg variable get A -o json
  is "$(jq -r '.record.value_b64' <<<"$output" | base64 -d | od -An -v -tx1 | tr -d " \n")" 636166e9
  is "$(jq -c '.record | has("value")' <<<"$output")" false
  is "$(vrxreg variable get A value -o value | od -An -v -tx1 | tr -d " \n")" 636166e90a
  exits 0 vrxreg variable list --no-headings
  is "$output" 'VRX A caf\xe9 -'
  exits 0 vrxreg variable set A value=good -o json
  is "$(jq -c '.fields' <<<"$output")" '{"value_b64":{"old":"Y2Fm6Q==","new":"Z29vZA=="}}'
  exits 0 vrxreg variable add VRX/$'\xff' -o json
  is "$(jq -r .key_b64 <<<"$output")" VlJYL/8=
}

@test "over-long UTF-8, surrogates and cut characters are not UTF-8" {
  for bytes in $'\xc0\xaf' $'\xed\xa0\x80' $'\xe2\x82' $'\xf4\x90\x80\x80' $'\x80'; do
    vrxreg -q variable set VRX/A value="$bytes"
    exits 0 vrxreg variable get A -o json
    is "$(jq -c '.record | has("value_b64")' <<<"$output")" true
  done
}

@test "texts may fill their field and not a byte more" {
  long=/$(printf 'p%.0s' {1..1022})
  exits 0 vrxreg instance add VRX/3.1/tp1 path="$long" aux_path="$long"
  is "$(vrxreg instance get tp1 path -o value)" "$long"
  exits 7 vrxreg instance set tp1 path="${long}x"
  is "$stderr" "vrxreg: path: 1024 bytes are too long, the limit is 1023"
  exits 7 vrxreg -o json instance set tp1 usage="$(printf 'u%.0s' {1..64})"
  is "$(jq -c '[.exit,.field]' <<<"$stderr")" '[7,"usage"]'
  exits 0 vrxreg variable add VRX/"$(printf 'v%.0s' {1..255})" comment="$(printf 'c%.0s' {1..1999})"
  exits 7 vrxreg variable add VRX/"$(printf 'v%.0s' {1..256})"
  exits 7 vrxreg variable add VRX/w comment="$(printf 'c%.0s' {1..2000})"
}

@test "every field filled to its width is kept" {
  s63=$(printf 's%.0s' {1..63}); p=$(printf 'p%.0s' {1..1023}); c=$(printf 'c%.0s' {1..255})
  vrxreg -q instance add "$s63/1.2.3.4/$s63" path="$p" usage="$s63" aux_path="$p" aux_name="$s63" comment="$c" start_at_boot=1 maintenance=1
  exits 0 vrxreg instance list -o tsv --no-headings
  is "$output" "$s63"$'\t1.2.3.4\t'"$s63"$'\t'"$p"$'\t'"$s63"$'\tyes\tyes\t'"$p"$'\t'"$s63"$'\t'"$c"
  exits 0 vrxreg instance set "$s63" comment=short
  exits 0 vrxreg instance get "$s63" comment -o value
  is "$output" short
}

@test "odd values of a foreign registry are shown as they are" {
  python3 "$TESTS/registry_file.py" "$registry" 1:0=sVRX,1=v3.1.0.0,2=stp1,5=n7,9=s
  exits 0 vrxreg instance get tp1 start_at_boot -o value
  is "$output" 7
  exits 0 vrxreg instance get tp1 comment --no-headings
  is "$output" 'comment ""'
  exits 0 vrxreg instance list -o csv --no-headings
  has "$output" ',7,,,,""'
}

@test "a change next to an odd value names the rule that it breaks" {
  python3 "$TESTS/registry_file.py" "$registry" 1:0=sVRX,1=v3.1.0.0,2=stp1,5=n7
  before=$(checksum)
  exits 7 vrxreg instance set tp1 path=/p
  is "$stderr" "vrxreg: instance VRX/3.1.0.0/tp1: instance: StartAtBoot is neither 0 nor 1 (0x9000022E)"
  is "$(checksum)" "$before"
  exits 0 vrxreg instance set tp1 path=/p start_at_boot=no
  is "$output" "changed VRX/3.1.0.0/tp1: path, start_at_boot"
}

@test "a record without a version can be removed" {
  python3 "$TESTS/registry_file.py" "$registry" 1:0=sVRX,2=stp1 1:0=sVRX,1=v3.1.0.0,2=stp2
  exits 0 vrxreg instance remove tp1
  exits 0 vrxreg instance list -o name
  is "$output" "VRX/3.1.0.0/tp2"
}

@test "a closed standard output is a failure and never the registry" {
  sample
  before=$(checksum)
  run --separate-stderr bash -c '"$VRXREG" instance list >&-'
  is "$status" 8
  is "$(checksum)" "$before"
  run --separate-stderr bash -c '"$VRXREG" instance set tp1 usage=other >&- 2>&-'
  is "$status" 8
  is "$(vrxreg instance get tp1 usage -o value)" other
  exits 0 vrxreg instance count
  is "$output" 3
  is "$(stat -c %s "$PWD/.global.reg.lock")" 0
}

@test "words that look like lists or numbers are taken as they stand" {
  exits 0 vrxreg variable add 'VRX/[a,b]' 'value=[c,d]'
  is "$(vrxreg variable get '[a,b]' value -o value)" '[c,d]'
  exits 0 vrxreg variable add VRX/-1 value=-2
  is "$(vrxreg variable get -1 value -o value)" -2
  exits 0 vrxreg variable add -- VRX/x value=--help
  is "$(vrxreg variable get x value -o value)" --help
}
