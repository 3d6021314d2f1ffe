#!/bin/sh
# usage: check_symbols.sh NM OBJECT_LIST...
# Reads object files and fails when one needs a symbol that is defined in rooms which its own room may not use, by the
# rules of layers.txt. It sees the calls through public headers, which includes do not give away. A list has lines of
# "FOLDER/ OBJECT": the folder of the target, and the object as CMake names it, with the source's path behind ".dir/".
# It also fails when one compares texts as the locale does.
set -eu
here=$(dirname "$0")
nm=$1
shift

# Lines of "ROOM/FILE.o NAME KIND ...". Functions of headers are weak in each object that uses them; the includes show
# those.
cat "$@" | while read -r folder object; do
  file=$(echo "$folder${object##*.dir/}" | sed 's|/[.]/|/|g; s|^[.]/||; s|__/||g; s|^serviceapi/||')
  [ -f "$object" ] || echo "$object is-not-built"
  "$nm" -P "$object" | sed "s|^|$file |"
done | awk -f "$here/rooms.awk" -f "$here/symbols.awk" "$here/layers.txt" -
