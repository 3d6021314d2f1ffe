#!/usr/bin/env bash
# The generator's output and exit statuses. Usage: check_program.sh ZORGEN FOLDER-OF-TYPE-FILES
set -euo pipefail
zorgen=$1
cd "$(mktemp -d)"
trap 'rm -rf "$PWD"' EXIT
mkdir folder
cp "$2/thermo.json" folder/

fail() {
  echo "check_program: $*" >&2
  exit 1
}
expect() {
  local status=$1 text=$2
  shift 2
  local got=0
  "$zorgen" "$@" >out 2>&1 || got=$?
  [ "$got" = "$status" ] || fail "$*: $got, not $status"
  grep -qF -- "$text" out || fail "$*: no '$text' in: $(cat out)"
}

# Neither the folder nor the time is in it.
for language in c cpp python; do
  (cd folder && "$zorgen" --$language thermo.json -o types)
  LC_ALL=C.UTF-8 "$zorgen" --$language "$2/thermo.json" -o types
  cmp types folder/types || fail "$language: the output differs"
done
[ "$(LC_ALL=C ls)" = $'folder\ntypes' ] || fail "files are left: $(ls)"

expect 0 'exit status' --help
expect 0 'zorgen ' --version
expect 0 'class GetState:' --python folder/thermo.json
expect 2 'FILE' --c
expect 2 '--help' folder/thermo.json
expect 2 '--help' --c --cpp folder/thermo.json
expect 3 'absent.json' --c absent.json
echo '{"schema": 1, "vendor": "a", "namespace": "1st", "types": []}' >invalid.json
expect 3 '/namespace' --c invalid.json -o untouched
expect 1 'folder' --c folder/thermo.json -o folder
[ ! -e untouched ] || fail 'an invalid file has an output'
