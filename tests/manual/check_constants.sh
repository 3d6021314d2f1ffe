#!/bin/sh
# usage: check_constants.sh HEADERS PAGES
# Every constant of the public headers is on a page: of section 3 by the functions that take or return it, or, for limits,
# wire formats and paths, of section 7.
set -eu
headers=$1 pages=$2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
grep -ohwE '[A-Z]+_[A-Z0-9_]+' "$pages"/man3/*.3 | LC_ALL=C sort -u >"$work/functions"
grep -ohwE '[A-Z]+_[A-Z0-9_]+' "$pages"/man3/*.3 "$pages"/man7/*.7 | LC_ALL=C sort -u >"$work/any"
: >"$work/missing"
for header in "$headers"/*.h "$headers"/platform/*.h; do
  case $header in
    */limits.h | *_wire.h | */paths.h) where=any ;;
    *) where=functions ;;
  esac
  sed -nE 's/^#define ([A-Z]+_[A-Z0-9_]+) +[^ ].*/\1/p' "$header" | grep -vE '_H$|^ZOR_(API|DEFAULT|(BEGIN|END)_DECLS)$' |
    LC_ALL=C sort >"$work/constants" || continue
  cat "$work/constants" >>"$work/all"
  LC_ALL=C comm -23 "$work/constants" "$work/$where" | sed "s|^|${header##*/}: |" >>"$work/missing"
done
[ ! -s "$work/missing" ] || { cat "$work/missing"; echo 'end the comment of their group with "Used with FUNCTION."'; exit 1; }
echo "$(wc -l <"$work/all") constants"
