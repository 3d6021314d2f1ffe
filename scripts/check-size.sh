#!/usr/bin/env bash
# Compares the stripped sizes of the libraries and programs of a build, or of a folder of Debian packages, with the record
# in bench/sizes/MACHINE.tsv. Fails when a file or the sum of all is more than 5 % larger, or a file is new or missing:
# then make it smaller again, or record the new sizes and commit them with the reason.
# Usage: check-size.sh [--record] FOLDER [MACHINE]   (--record: write the sizes there; MACHINE: this machine's by default)
set -euo pipefail
cd "$(dirname "$0")/.."

record=
if [ "${1:-}" = --record ]; then
  record=yes
  shift
fi
if [ $# -lt 1 ] || [ $# -gt 2 ] || [ ! -d "$1" ]; then
  echo 'usage: check-size.sh [--record] FOLDER [MACHINE]' >&2
  exit 2
fi
folder=$1
machine=${2:-$(dpkg --print-architecture)}
recorded=${ZOR_SIZES:-bench/sizes}/$machine.tsv
most_percent=5

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Puts the files to measure into $work/files, and sets `roots`.
find_files() {
  local packages=("$folder"/*.deb) package
  if [ -e "${packages[0]}" ]; then
    roots=("$work/files")
    for package in "${packages[@]}"; do
      [[ $package == *-dbgsym_* ]] || dpkg-deb --extract "$package" "$work/files"
    done
    return
  fi
  roots=()
  local part
  for part in libraries platform daemons tools bindings; do
    [ ! -d "$folder/$part" ] || roots+=("$folder/$part")
  done
  [ ${#roots[@]} -gt 0 ] || {
    echo "check-size: $folder is neither a build nor a folder of packages" >&2
    exit 2
  }
}

# The build's own tool, since that of this machine does not know files of others. Packages have been stripped.
strip='strip'
[ ! -e "$folder/CMakeCache.txt" ] || strip=$(sed -n 's/^CMAKE_STRIP:[A-Z]*=//p' "$folder/CMakeCache.txt")
stripped_size() { # FILE
  local measured=$1
  if [ ! -d "$work/files" ]; then
    measured=$work/stripped
    "$strip" --strip-unneeded --remove-section=.comment --remove-section=.note -o "$measured" "$1" || return
  fi
  stat -c %s "$measured"
}

# A library without its version; modules of the same name with the folder that tells them apart.
name_of() { # PATH
  local name=${1##*/}
  [[ $1 != */lua/* ]] || name=lua/${1##*/lua/}
  [[ $name != *.so.* ]] || name=${name%%.so.*}.so
  echo "$name"
}

# A library of an earlier version that the build has left behind.
is_stale() { # PATH
  local link=${1%.so.*}.so
  [[ $1 == *.so.* && -L $link && $(readlink -f "$link") != "$(readlink -f "$1")" ]]
}

is_elf() { [ "$(head -c 4 "$1" | tr -d '\0')" = $'\x7fELF' ]; }

find_files
find "${roots[@]}" -type f \( -perm -u+x -o -name '*.so*' \) ! -path '*/CMakeFiles/*' ! -name '*.o' |
  while read -r file; do
    if ! is_elf "$file" || is_stale "$file"; then continue; fi
    size=$(stripped_size "$file")
    printf '%s\t%s\n' "$(name_of "$file")" "$size"
  done | LC_ALL=C sort >"$work/sizes.tsv"
[ -s "$work/sizes.tsv" ] || {
  echo "check-size: no programs in $folder" >&2
  exit 2
}

if [ -n "$record" ]; then
  mkdir -p "${recorded%/*}"
  cp "$work/sizes.tsv" "$recorded"
fi
[ -e "$recorded" ] || {
  echo "check-size: no $recorded: scripts/check-size.sh --record $folder $machine" >&2
  exit 1
}

LC_ALL=C awk -F '\t' -v most="$most_percent" '
  function row(name, before, now, text) { printf "%-24s %9s %9s  %s\n", name, before, now, text }
  function compare(name, before, now) {
    change = 100 * (now - before) / before
    if (change > most) failed = 1
    row(name, before, now, sprintf("%+.1f %%%s", change, change > most ? ", too much" : ""))
  }
  BEGIN { row("file, stripped", "recorded", "bytes", "") }
  FNR == NR { was[$1] = $2; sumWas += $2; next }
  {
    sum += $2
    if ($1 in was) compare($1, was[$1], $2)
    else { row($1, "-", $2, "new"); failed = 1 }
    delete was[$1]
  }
  END {
    for (name in was) { row(name, was[name], "-", "missing"); failed = 1 }
    compare("sum", sumWas, sum)
    exit failed
  }' "$recorded" "$work/sizes.tsv" || {
  echo "check-size: not as in $recorded; when that is meant: scripts/check-size.sh --record $folder $machine" >&2
  exit 1
}
