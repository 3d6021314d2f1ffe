#!/bin/sh
# usage: check_functions.sh LIST PAGES
# Every exported name has a page in section 3 that names, declares and describes it and has an example or refers to one;
# there are no other pages.
set -eu
list=$1 pages=$2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
awk '/^[^#[]/ && NF { print $1 }' "$list" | LC_ALL=C sort >"$work/exported"
(cd "$pages" && ls) | sed 's/\.3$//' | LC_ALL=C sort >"$work/pages"
diff "$work/exported" "$work/pages"

wrong=$(cd "$pages" && while read -r name; do
  awk -v name="$name" '
    /^\.Sh / { section = $2 }
    section == "NAME" && $1 == ".Nm" && $2 == name { named = 1 }
    section == "NAME" && $1 == ".Nd" && NF > 1 { summary = 1 }
    section == "EXAMPLES" && NF > 1 { example = 1 }
    section == "SYNOPSIS" && index($0, name) { shown = 1 }
    section == "DESCRIPTION" && /^\.Ss / { section = "" }
    section == "DESCRIPTION" && !/^\./ { words += NF }
    END { if (!(named && summary && shown && words && example)) print name ": the page lacks its name, prototype, description or example" }
  ' "$name.3"
done <"$work/exported")
[ -z "$wrong" ] || { echo "$wrong"; exit 1; }
echo "$(wc -l <"$work/pages") pages"
