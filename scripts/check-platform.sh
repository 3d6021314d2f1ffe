#!/bin/sh
# Reports what a vendor's platform library lacks: names and who needs each, wrong versions, a wrong soname, data in the
# place of functions, and names that it takes from the library above it. It reads libraries of any machine (readelf).
# Usage: check-platform.sh [--list FILE] LIBRARY    (installed as zor-check-platform)
# Exit status: 0 complete, 1 problems, one a line, 2 usage error.
set -eu

usage() {
  sed -n 's/^# Usage: /usage: /p' "$0" >&2
  exit 2
}

list=
if [ "${1:-}" = --list ]; then
  list=${2:-}
  [ $# -ge 2 ] || usage
  shift 2
fi
case $# in 1) library=$1 ;; *) usage ;; esac
case $library in -*) usage ;; esac

# Beside an installed program or in the sources.
here=$(dirname "$(readlink -f "$0")")
for file in "$here/../share/zor/platform.list" "$here/../platform/interface.list"; do
  [ -n "$list" ] || [ ! -r "$file" ] || list=$file
done
[ -r "$list" ] || {
  echo "check-platform: no list of names: ${list:-share/zor/platform.list}" >&2
  exit 2
}
grep -q '^[^# ]' "$list" 2>/dev/null || {
  echo "check-platform: $list names nothing" >&2
  exit 2
}
command -v readelf >/dev/null || {
  echo "check-platform: readelf is missing (binutils)" >&2
  exit 2
}

if ! head=$(LC_ALL=C readelf -hW "$library" 2>/dev/null) || ! echo "$head" | grep -q '^ *Type: *DYN '; then
  echo "$library: no shared library"
  exit 1
fi

# Lines of the dynamic section, and of the symbols that others see or that it needs.
{
  LC_ALL=C readelf -dW "$library"
  echo "=== symbols"
  LC_ALL=C readelf -W --dyn-syms "$library"
} | awk -v library="$library" '
  function problem(text) { print library ": " text; ++problems }

  # The list.
  FILENAME != "-" {
    if ($0 ~ /^#/ || NF < 4) next
    order[++names] = $1
    version[$1] = "ZORPLATFORM_" $2
    header[$1] = $3
    needers[$1] = $4
    gsub(/,/, ", ", needers[$1])
    next
  }

  /^=== symbols/ { inSymbols = 1; next }
  !inSymbols && /\(SONAME\)/ { soname = $0; sub(/.*\[/, "", soname); sub(/\].*/, "", soname); next }
  !inSymbols && /\(NEEDED\)/ && /\[libmsgapi[.]so/ { problem("is linked with libmsgapi, which needs the platform itself") }
  !inSymbols { next }
  # What some machines note between visibility and section.
  { sub(/ \[[^]]*\]/, "") }

  # NUMBER: VALUE SIZE TYPE BIND VISIBILITY SECTION NAME
  $1 ~ /^[0-9]+:$/ && NF >= 8 && $5 != "LOCAL" {
    name = $8
    found = ""
    if ((at = index(name, "@")) > 0) {
      found = substr(name, at)
      name = substr(name, 1, at - 1)
    }
    if ($7 == "UND") {
      if (found ~ /MSGAPI_/ || (name ~ /^ZOR_/ && !(name in version))) problem("needs " name " of libmsgapi")
    } else if (name in version && $6 != "HIDDEN" && $6 != "INTERNAL") {
      kind[name] = $4
      if (found ~ /^@@/ || !(name in given)) given[name] = found
    }
  }

  END {
    if (soname != "libzorplatform.so.1")
      problem("its soname is " (soname == "" ? "missing" : soname) " instead of libzorplatform.so.1")
    for (i = 1; i <= names; ++i) {
      name = order[i]
      if (!(name in kind)) problem(name " is missing (zor/platform/" header[name] "), needed by " needers[name])
      else if (kind[name] != "FUNC" && kind[name] != "IFUNC" && kind[name] != "GNU_IFUNC" && kind[name] !~ /^<OS/)
        problem(name " is no function (" kind[name] "), needed by " needers[name])
      else if (given[name] == "") unversioned = unversioned " " name
      else if (given[name] != "@@" version[name])
        problem(name " has the version " given[name] " instead of @@" version[name] ", needed by " needers[name])
    }
    if (unversioned != "") {
      count = split(unversioned, each, " ")
      if (count == names) problem("no name has a version: link with the version script zorplatform.map")
      else for (i = 1; i <= count; ++i)
        problem(each[i] " has no version instead of @@" version[each[i]] ", needed by " needers[each[i]])
    }
    if (problems) exit 1
    print library ": complete, " names " names"
  }' "$list" -
