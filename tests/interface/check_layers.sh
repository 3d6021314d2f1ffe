#!/bin/sh
# usage: check_layers.sh SOURCE_DIR
# Prints every include that points upward in the layers of the library, or out of a part that stands alone; fails if
# there is one.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
cd "$1"

# Lines of "file included", relative to the directory given first; the pattern picks the opening delimiter.
includes_below() {
  (cd "$1" && find . -name '*.h' -o -name '*.cpp' | sed 's|^\./||' | sort | while read -r file; do
    sed -n "s|^ *# *include *$2\\([^\">]*\\)[\">].*|$file \\1|p" "$file"
  done)
}

# What the rules of layers.txt do not allow. Daemons and the tool include from their common folder, or by the name of
# another room; a file that is made ends in .inc.
check_rooms() {
  {
    includes_below libraries/private/msg '"'
    includes_below serviceapi '"'
    for part in daemons tools; do
      includes_below $part '"' | sed "s#^#$part/#; s# # $part/#; s# $part/programs/# programs/#; s# $part/common/# common/#"
    done | grep -v '\.inc$'
  } | awk -f "$here/rooms.awk" -f "$here/includes.awk" "$here/layers.txt" -
}

# A part that stands alone includes only what the expression allows.
check_alone() {
  includes_below "$1" "$2" | while read -r file included; do
    echo "$included" | grep -Eqx "$3" || echo "$1/$file: \"$included\" does not belong to this part"
  done
}

wrong=$(
  check_rooms || true
  check_alone include/zor '"' 'none'
  check_alone include/zor/platform '<' 'zor/(platform/.*|export.h)|std[a-z]+.h'
  check_alone platform '<' 'zor/platform/.*|[^z].*'
  check_alone platform '"' 'common/[^/]*|[^/]*'
  check_alone programs '"' '(common|programs|programs/(access|bus_view|journal|messages|metrics|recorder|tls|types))/[^/]*'
  check_alone common '"' 'common/[^/]*'
  check_alone common '<' '[^z].*'
)
echo "$wrong"
[ "$(echo "$wrong" | wc -l)" -eq 1 ] || exit 1
