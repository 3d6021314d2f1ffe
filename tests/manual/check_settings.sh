#!/bin/sh
# usage: check_settings.sh SERVER PAGE DOCUMENT
# The settings of the server's --help, with their defaults, match its page in section 5, and each is in the table of the
# server's chapter of the document.
set -eu
server=$1 page=$2 document=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$server" --help | sed -nE 's/^  ([A-Za-z_.]+) = ?([^ ]*)(  .*|$)/\1 = \2/p' | LC_ALL=C sort >"$work/help"
sed -nE 's/^\.It Ic ([A-Za-z_.]+) = ?(.*)$/\1 = \2/p' "$page" | LC_ALL=C sort >"$work/page"
[ -s "$work/help" ] || { echo "$server --help names no settings"; exit 1; }
diff "$work/help" "$work/page"

# "none" means no value; defaults other than figures and paths are explained elsewhere.
awk -v name="$(basename "$server")" '/^## / { on = $2 == name } on && /^\| `/' "$document" |
  sed -nE 's/^\| `([A-Za-z_.]+)` \| `?([^`|]*[^`| ])`? \|.*/\1 = \2/p' | sed -E 's/ = (none|below|stdout)$/ = /' |
  LC_ALL=C sort >"$work/document"
sed -E 's/^(route.TYPE = ).*/\1/' "$work/help" | diff - "$work/document"
