#!/usr/bin/env bats
# SPDX-License-Identifier: Apache-2.0
# What the command line does not understand is exit 2, with a suggestion, and does nothing.
load support

says() {
  local expected=$1
  shift
  exits 2 vrxreg "$@"
  has "$stderr" "$expected"
  is "$output" ""
}

@test "unknown nouns, verbs, options and fields are suggested" {
  says 'did you mean "instance"?' instances list
  says 'did you mean "list"?' instance lst
  says 'did you mean "--fields"?' instance list --field path
  says 'did you mean "path"?' instance list --fields pth
  says 'did you mean "usage"?' instance set VRX/3.1/x usge=1
  says 'did you mean "comment"?' instance list --where coment=x
  says 'did you mean "json"?' -o jsn instance list
}

@test "missing words are named" {
  says "what to do" 
  says "instance: a verb is missing" instance
  says "which instance? Give its key, SERVICE/VERSION/NAME" instance get
  says "a value is missing" instance list --registry
  says "a value is missing" --registry= instance list
  says "a version (3.1.0.7) is missing" version
}

@test "words too many are named" {
  says '"x" is one word too many' instance list x
  says '"y" is one word too many' instance remove x y
  says '"x" is one word too many' where x
  says '"x": write FIELD=VALUE' instance set VRX/3.1/a x
}

@test "options that do not apply are refused, never ignored" {
  says "--where does not apply to instance get" instance get x --where path=y
  says "--sort does not apply to instance count" instance count --sort path
  says "--all does not apply to instance remove" instance remove x --all
  says "--missing-ok does not apply to instance set" instance set x --missing-ok
  says "--replace does not apply to instance add" instance add VRX/3.1/x --replace
  says "--dry-run does not apply to instance list" instance list -n
  says "--why does not apply to version" version 3 --why
  says "--name does not apply to instance list" instance list --name x
  says "-0 goes with -o name and -o value" instance list -0
  says "reports as table, json, ndjson or name only" instance set VRX/3.1/x path=y -o csv
  is "$(ls -A)" ""
}

@test "contradictions are refused" {
  says "--registry and --host-wide exclude each other" --registry a --host-wide where
  says "--registry is given twice" --registry a --registry b where
  says "path is given twice" instance set VRX/3.1/x path=a path=b
  says "path is given twice" instance set VRX/3.1/x path=a --unset path
  says "not both" instance get x path --fields usage
}

@test "values of options are checked" {
  says "give seconds (0, 2, 0.5) or inf" instance list --timeout soon
  says "give seconds (0, 2, 0.5) or inf" instance list --timeout -1
  says "give auto, always or never" instance list --color red
  says "the file's name is empty" instance list --registry ''
}

@test "expressions that cannot be understood are refused" {
  sample
  says "write F=GLOB" instance list --where path
  says "< and > compare versions, numbers and times" instance list --where 'path>x'
  says "< and > compare versions, numbers and times" instance list --where 'version>x'
  says "--where path~(" instance list --where 'path~('
  says 'no field ""' instance list --fields ''
}

@test "words of later versions say so" {
  says "ports rename: not in this version of vrxreg" ports rename a b
  says "instance rename: not in this version of vrxreg" instance rename a b
  says "export: not in this version of vrxreg" export
}

@test "options may stand anywhere" {
  sample
  for position in "-o name instance list" "instance -o name list" "instance list -o name" "instance list -oname" "instance --output=name list"; do
    is "$(vrxreg $position --where instance=tp1)" "VRX/3.1.0.7/tp1"
  done
  is "$(vrxreg --yes instance --no-history list --timeout 5 -v -q -o json -o name --where instance=tp1)" "VRX/3.1.0.7/tp1"
}

@test "several wheres do not swallow the words behind them" {
  sample
  is "$(vrxreg instance --where service=VRX list --where usage=dw -o name)" "VRX/3.1.0.7/dw1"
}
