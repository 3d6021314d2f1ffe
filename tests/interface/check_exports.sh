#!/bin/sh
# usage: check_exports.sh NM LIST SECTION LIBRARY
# Compares the names that a library exports with that section of the list; fails on any difference.
set -eu
nm=$1 list=$2 section=$3 library=$4

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

awk -v section="[$section]" '/^\[/ { on = $1 == section; next } on && NF && !/^#/ { print $1 }' "$list" |
  LC_ALL=C sort -u > "$work/listed"
# Excludes version names and the symbols that the linker and the sanitizers add to every library.
"$nm" -D --defined-only "$library" | awk '$(NF - 1) != "A" { sub(/@.*/, "", $NF); print $NF }' |
  grep -Evx '_init|_fini|_edata|_end|__bss_start|__odr_asan\..*' | LC_ALL=C sort -u > "$work/exported"

LC_ALL=C comm -23 "$work/listed" "$work/exported" | sed 's/^/not exported: /' > "$work/differences"
LC_ALL=C comm -13 "$work/listed" "$work/exported" | sed 's/^/not listed: /' >> "$work/differences"
cat "$work/differences"
[ -s "$work/listed" ] && [ ! -s "$work/differences" ]
