#!/bin/sh
# usage: platform_list.sh NM HEADERS PLATFORM WHO=BINARY...   (who has no binary in this build: WHO=)
# Prints the list of what a platform exports, as platform/interface.list has it: from the headers, which declare the
# names, our own platform, which has their versions, and the binaries, which import them. A test compares both.
set -eu
nm=$1 headers=$2 platform=$3
shift 3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# NAME HEADER, one for each function that a header declares.
for header in "$headers"/*.h; do
  tr '\n' ' ' <"$header" | sed 's,/\*,\n/*,g; s,\*/,*/\n,g' | grep -v '^/\*' | tr ';' '\n' |
    sed -n "s|.*ZOR_API[^(]*[ *]\([A-Za-z_0-9]*\)(.*|\1 $(basename "$header")|p"
done >"$work/declared"
"$nm" -D --defined-only "$platform" | sed -n 's/.* [TtWi] \([^ @]*\)@@*ZORPLATFORM_\([0-9.]*\)$/\1 \2/p' >"$work/versions"
for each in "$@"; do
  [ -n "${each#*=}" ] || continue
  "$nm" -D --undefined-only "${each#*=}" | sed -n "s/.* \([^ ]*\)@ZORPLATFORM_.*/\1 ${each%%=*}/p"
done >"$work/needed"

awk '
  FILENAME ~ /versions$/ { version[$1] = $2; next }
  FILENAME ~ /needed$/ { needers[$1] = needers[$1] "," $2; next }
  { header[$1] = $2 }
  END {
    for (name in header) names[name]
    for (name in needers) names[name]
    for (name in version) names[name]
    for (name in names)
      print name, (name in version) ? version[name] : "-", (name in header) ? header[name] : "-",
        (name in needers) ? substr(needers[name], 2) : "applications"
  }' "$work/versions" "$work/needed" "$work/declared" | LC_ALL=C sort
