#!/bin/sh
# usage: check_platform_list.sh LIST EXPORTS ARGUMENTS-OF-PLATFORM_LIST...
# Fails when the list of what a platform exports differs from what the headers declare, our platform exports and the
# binaries import, or names others than the section [platform] of EXPORTS.
set -eu
list=$1 exports=$2
shift 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

grep -v '^#' "$list" >"$work/recorded"
for each in "$@"; do
  case $each in *=) sed -i "s/,${each%=}\b//" "$work/recorded" ;; esac
done
"$(dirname "$0")/platform_list.sh" "$@" >"$work/found"
diff "$work/recorded" "$work/found" || {
  echo "-: in $list; +: found in headers and binaries" >&2
  exit 1
}
sed '1,/^\[platform\]/d; /^$/d; /^#/d' "$exports" | LC_ALL=C sort >"$work/exports"
cut -d ' ' -f 1 "$work/recorded" | diff "$work/exports" - || {
  echo "-: in $exports; +: in $list" >&2
  exit 1
}
