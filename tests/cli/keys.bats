#!/usr/bin/env bats
# SPDX-License-Identifier: Apache-2.0
# Keys: whole, shorter while unique, in named parts.
load support

@test "a shorter key names a record while it is unique" {
  sample
  for key in tp1 VRX/tp1 3.1.0.7/tp1 VRX/3.1.0.7/tp1; do
    is "$(vrxreg instance get "$key" -o name)" VRX/3.1.0.7/tp1
  done
  is "$(vrxreg service get VRX -o name)" VRX/3.1.0.7
}

@test "a short key must hold the name itself" {
  sample
  exits 1 vrxreg instance get KRN
  exits 1 vrxreg instance remove KRN/3.0.2.0
  exits 1 vrxreg service get 3.1.0.7
}

@test "a key that names several records is exit 5 with the candidates" {
  sample
  vrxreg -q instance add KRN/3.0.2.0/tp1
  for verb in get exists remove; do
    exits 5 vrxreg instance $verb tp1
    is "$stderr" "vrxreg: instance tp1: 2 records match: VRX/3.1.0.7/tp1, KRN/3.0.2.0/tp1 (0x900001F8)"
  done
  exits 5 vrxreg instance set tp1 path=/x -o json
  is "$(jq -c '[.exit,.name,.candidates]' <<<"$stderr")" '[5,"several_match",["VRX/3.1.0.7/tp1","KRN/3.0.2.0/tp1"]]'
}

@test "versions of a key compare as versions" {
  vrxreg -q service add VRX/3.1
  exits 0 vrxreg service exists VRX/3.1.0.0
  exits 0 vrxreg service exists VRX/3.1.0
  exits 1 vrxreg service exists VRX/3.1.1
}

@test "a new record needs its whole key" {
  exits 2 vrxreg instance add tp1
  is "$stderr" "vrxreg: instance tp1: a new record needs its whole key, SERVICE/VERSION/NAME"
  exits 2 vrxreg instance add VRX/3.1/a/b
  has "$stderr" "name the parts (--service, --version-of, --name)"
  [ ! -e "$registry" ]
}

@test "named parts carry names with slashes" {
  exits 0 vrxreg instance add --service VRX --version-of 3.1 --name a/b path=/p
  is "$output" "added VRX/3.1.0.0/a/b"
  is "$(vrxreg instance get VRX/3.1.0.0/a/b path -o value)" /p
  is "$(vrxreg instance get --name a/b path -o value)" /p
  exits 0 vrxreg instance set VRX/3.1.0.0/a/b path=/q
  is "$output" "changed VRX/3.1.0.0/a/b: path"
  exits 0 vrxreg instance remove --service VRX --name a/b
}

@test "a part that the key does not have is refused" {
  exits 2 vrxreg service get --name x
  is "$stderr" "vrxreg: --name: the key of service is SERVICE/VERSION"
}

@test "an empty or zero part of a new key is refused" {
  exits 7 vrxreg instance add VRX//tp1
  is "$stderr" "vrxreg: version: is empty"
  exits 7 vrxreg instance add VRX/0/tp1
  is "$stderr" "vrxreg: version: 0.0.0.0 is no version"
  exits 7 vrxreg instance add VRX/3.70000/tp1
  exits 7 vrxreg instance add VRX/3.1.0.7.1/tp1
  exits 7 vrxreg instance add VRX/3.x/tp1
  exits 2 vrxreg instance get
  exits 2 vrxreg instance get ''
}

@test "a key may hold an equals sign" {
  exits 0 vrxreg variable add VRX/A=B value=c=d
  is "$(vrxreg variable get A=B value -o value)" c=d
}

@test "doubled keys of a foreign registry are ambiguous, not guessed" {
  python3 "$TESTS/registry_file.py" "$registry" 2:0=sVRX,1=v3.1.0.0,2=sone 2:0=sVRX,1=v3.1.0.0,2=stwo
  before=$(checksum)
  exits 5 vrxreg service set VRX text1=three
  exits 5 vrxreg service remove VRX/3.1
  is "$(checksum)" "$before"
  exits 0 vrxreg service count
  is "$output" 2
}

# What the command takes of memory, in KiB.
memory_of() {
  python3 -c 'import resource, subprocess, sys
subprocess.run(sys.argv[1:], check=True, stdout=subprocess.DEVNULL)
print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)' "$VRXREG" "$@"
}

@test "a key is looked for to the end of a long registry and nothing else is kept" {
  sample
  few=$(memory_of instance get tp1)
  # 20000 records of others: kept, each would take some 3 KiB.
  python3 "$TESTS/registry_file.py" body 1:0=sVRX,1=v3.1.0.0,2=sother
  python3 -c 'import sys; sys.stdout.buffer.write(open("body", "rb").read() * 20000)' >> "$registry"
  for verb in get exists; do
    many=$(memory_of instance $verb tp1)
    (( many < few + 8192 )) || { echo "$verb: $many KiB instead of $few"; return 1; }
  done
  is "$(vrxreg instance count)" 20003
  python3 "$TESTS/registry_file.py" body 1:0=sKRN,1=v3.1.0.0,2=stp1
  cat body >> "$registry"
  exits 5 vrxreg instance get tp1
  has "$stderr" "2 records match: VRX/3.1.0.7/tp1, KRN/3.1.0.0/tp1"
}
