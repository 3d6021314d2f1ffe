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
# those. One nm reads all objects: a process for each would take most of the time.
# A precompiled header is listed like an object, and is none.
list=$(cat "$@" | grep -v "[.]gch$")
echo "$list" | cut -d ' ' -f 2- | tr '\n' '\0' | xargs -0 "$nm" -A -P 2>&1 | {
  echo "$list"
  echo
  cat
} | awk '
  /^$/ { listed = 1; next }
  !listed {
    object = substr($0, length($1) + 2)
    file = object
    sub(/.*[.]dir\//, "", file)
    file = $1 file
    while (sub(/\/[.]\//, "/", file)) {}
    sub(/^[.]\//, "", file)
    gsub(/__\//, "", file)
    sub(/^serviceapi\//, "", file)
    files[object] = file
    next
  }
  {
    end = index($0, ".o: ") + 1
    object = substr($0, 1, end)
    if (object in files) print files[object] substr($0, end + 2)
    else if (!/: no symbols$/) print "nm: " $0  # one of declarations alone
  }' | awk -f "$here/rooms.awk" -f "$here/symbols.awk" "$here/layers.txt" -
