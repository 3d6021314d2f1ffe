#!/usr/bin/env bash
# Compares the binary interface of the built libraries with the one recorded at the last release (packaging/abi/ in the
# commit of the last tag; the checked-out one when there is no tag). Names may be added; what programs were built
# against may not change. It needs a build with debug information and without sanitizers: that of scripts/package.sh.
# Usage: check-abi.sh [--record | --recorded] BUILD-DIRECTORY
#   --record: writes what was built to packaging/abi/    --recorded: fails unless what is there has all that was built
set -euo pipefail
cd "$(dirname "$0")/.."

mode=
if [[ ${1:-} == --record || ${1:-} == --recorded ]]; then
  mode=$1
  shift
fi
if [ $# -ne 1 ]; then
  echo 'usage: check-abi.sh [--record | --recorded] BUILD-DIRECTORY' >&2
  exit 2
fi
build=$1
libraries=("$build/libraries/private/msg/libmsgapi.so" "$build/platform/libzorplatform.so")

# Describes only what the public headers declare, and nothing about the machine that built it.
describe() { # LIBRARY
  abidw --headers-dir include --drop-private-types --exported-interfaces-only --no-elf-needed --no-corpus-path \
    --no-comp-dir-path --no-show-locs --no-parameter-names "$1" | sed -E "s#path='[^']*/(libraries|platform|serviceapi)/#path='\1/#"
}

# abidiff takes what it can read of a broken description, and finds no difference.
well_formed() { python3 -c 'import sys, xml.etree.ElementTree as tree; tree.parse(sys.argv[1])' "$1"; } # DESCRIPTION

soname_in() { sed -n "s/.* soname='\([^']*\)'.*/\1/p;/ soname=/q" "$1"; } # DESCRIPTION

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
last=$(git describe --tags --abbrev=0 --match 'v[0-9]*' 2>/dev/null || true)
status=0
for library in "${libraries[@]}"; do
  dump=packaging/abi/$(basename "$library" .so).abi
  if [ "$mode" = --record ]; then
    describe "$library" >"$dump"
    continue
  fi
  if [ "$mode" = --recorded ]; then
    describe "$library" >"$work/new"
    { well_formed "$dump" && abidiff "$dump" "$work/new"; } || {
      echo "check-abi: $dump is not of this version: scripts/check-abi.sh --record $build" >&2
      status=1
    }
    continue
  fi
  # An unpacked release has the description of that release.
  if ! git rev-parse --git-dir >/dev/null 2>&1; then
    cp "$dump" "$work/old"
  elif ! git show "${last:-HEAD}:$dump" >"$work/old" 2>/dev/null; then
    echo "check-abi: ${last:-HEAD} has no $dump" >&2
    exit 1
  fi
  well_formed "$work/old"
  describe "$library" >"$work/new"
  if [ "$(soname_in "$work/old")" != "$(soname_in "$work/new")" ]; then
    echo "check-abi: $(basename "$library") has another soname than in ${last:-this commit}, and may differ from it"
  elif abidiff --no-added-syms "$work/old" "$work/new"; then
    echo "check-abi: $(basename "$library") is as in ${last:-this commit}"
  else
    echo "check-abi: $(basename "$library") differs from ${last:-this commit}: programs built against it may fail" >&2
    status=1
  fi
done
exit $status
