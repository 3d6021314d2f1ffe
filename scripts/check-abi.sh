#!/usr/bin/env bash
# Compares the binary interface of the built libraries with the one recorded at the last release (packaging/abi/ in the
# commit of the last tag; the checked-out one when there is no tag). Names may be added; what programs were built
# against may not change. It needs a build with debug information and without sanitizers: the preset package.
# Usage: check-abi.sh [--record] BUILD-DIRECTORY   (--record: write what was built to packaging/abi/)
set -euo pipefail
cd "$(dirname "$0")/.."

record=
if [ "${1:-}" = --record ]; then
  record=yes
  shift
fi
if [ $# -ne 1 ]; then
  echo 'usage: check-abi.sh [--record] BUILD-DIRECTORY' >&2
  exit 2
fi
build=$1
libraries=("$build/libraries/private/msg/libmsgapi.so" "$build/platform/libzorplatform.so")

# Describes only what the public headers declare, and nothing about the machine that built it.
describe() { # LIBRARY
  abidw --headers-dir include --drop-private-types --exported-interfaces-only --no-elf-needed --no-corpus-path \
    --no-comp-dir-path --no-show-locs --no-parameter-names "$1" | sed "s|path='$PWD/|path='|"
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
last=$(git describe --tags --abbrev=0 2>/dev/null || true)
status=0
for library in "${libraries[@]}"; do
  dump=packaging/abi/$(basename "$library" .so).abi
  if [ -n "$record" ]; then
    describe "$library" >"$dump"
    continue
  fi
  if ! git show "${last:-HEAD}:$dump" >"$work/old" 2>/dev/null; then
    echo "check-abi: ${last:-HEAD} has no $dump" >&2
    exit 1
  fi
  describe "$library" >"$work/new"
  if abidiff --no-added-syms "$work/old" "$work/new"; then
    echo "check-abi: $(basename "$library") is as in ${last:-this commit}"
  else
    echo "check-abi: $(basename "$library") differs from ${last:-this commit}: programs built against it may fail" >&2
    status=1
  fi
done
exit $status
