#!/usr/bin/env bash
# What each library and program of a build takes up in a file and in memory, as a table in Markdown; it says the same of
# programs of another machine, which cannot be measured while they run. The last column is the most that each process
# has for itself of the file: pages with data and with what the dynamic linker changes, of 4 KiB.
# Usage: sizes.sh BUILD-DIRECTORY
set -euo pipefail

build=$1
of_cache() { sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt"; }
strip=$(of_cache CMAKE_STRIP)
readelf=$(of_cache CMAKE_READELF)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Bytes of code and constants, and pages that are written, from the segments that are loaded.
segments() { # FILE
  "$readelf" -lW "$1" | awk '$1 == "LOAD" { print $3, $5, $6, $7 $8 }' | {
    local fixed=0 pages=0 address file memory flags
    while read -r address file memory flags; do
      case $flags in
        RW*) pages=$((pages + (address + memory + 4095) / 4096 - address / 4096)) ;;
        *) fixed=$((fixed + file)) ;;
      esac
    done
    echo "$fixed | $((pages * 4))"
  }
}

printf '| file | stripped, bytes | relocations | code and constants, bytes | written at most, KiB |\n|---|---|---|---|---|\n'
find "$build"/{libraries,platform,daemons,tools} -type f \( -perm -u+x -o -name '*.so.*' \) ! -path '*/CMakeFiles/*' |
  LC_ALL=C sort | while read -r file; do
  "$strip" --strip-unneeded -o "$work/file" "$file" 2>/dev/null || continue # a script
  name=$(basename "$file")
  printf '| %s | %s | %s | %s |\n' "${name%%.so*}" "$(stat -c %s "$work/file")" \
    "$("$readelf" -rW "$work/file" | grep -c ' R_')" "$(segments "$work/file")"
done
