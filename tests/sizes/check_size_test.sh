#!/usr/bin/env bash
# Tries the size check on a made-up build. Usage: check_size_test.sh CHECK-SIZE
set -euo pipefail
umask 022 # which dpkg-deb demands

check_size=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export ZOR_SIZES=$work/records
build=$work/build
original=$(type -P true)

program() { # PATH BYTES SECTION: a program with so many bytes more in a section
  mkdir -p "$(dirname "$build/$1")"
  head -c "$2" /dev/zero >"$work/bytes"
  objcopy --add-section "$3=$work/bytes" "$original" "$build/$1"
}
fail() {
  echo "FAILED $*"
  cat "$work/output"
  exit 1
}
expect() { # STATUS TEXT WHAT ARGUMENT...: how the check ends, and what it prints
  local status=0
  "$check_size" "${@:4}" >"$work/output" 2>&1 || status=$?
  [ "$status" -eq "$1" ] || fail "$3: status $status"
  grep -qE -- "$2" "$work/output" || fail "$3: no $2"
}

program daemons/one/one 100000 .extra
program platform/libtwo.so.1.2.3 200000 .extra
echo 'not a program' >"$build/daemons/one/script"
chmod +x "$build/daemons/one/script"
program platform/libtwo.so.1.2.2 100 .extra
ln -s libtwo.so.1.2.3 "$build/platform/libtwo.so"

expect 1 'check-size.sh --record' 'without a record' "$build" box
expect 0 '^sum ' 'recording' --record "$build" box
[ "$(cut -f 1 "$ZOR_SIZES/box.tsv" | paste -sd ' ')" = 'libtwo.so one' ] || fail 'the record has other names'
expect 0 '^one .*\+0.0 %$' 'the same build' "$build" box
program daemons/one/one 104000 .extra
expect 0 '^one .*\+[234]\.. %$' 'a little growth' "$build" box
program daemons/one/one 100000 .debug_extra
expect 0 '^one .*-' 'growth that is stripped' "$build" box
program daemons/one/one 120000 .extra
expect 1 '^one .*too much$' 'growth' "$build" box
program daemons/one/one 100000 .extra
program tools/three 10 .extra
expect 1 '^three .*new$' 'a new program' "$build" box
rm "$build/tools/three" "$build"/platform/*
expect 1 '^libtwo.so .*missing$' 'a missing library' "$build" box
expect 2 '^usage' 'no folder' "$build/none"

# The same files in packages, and what is for debugging beside them.
package() { # NAME FILE
  mkdir -p "$work/$1/DEBIAN" "$work/$1/usr/lib/box"
  printf '%s\n' "Package: $1" 'Version: 1' 'Architecture: all' 'Maintainer: nobody <nobody@example.org>' \
    'Description: for a test' >"$work/$1/DEBIAN/control"
  cp "$2" "$work/$1/usr/lib/box/"
  dpkg-deb --root-owner-group --build "$work/$1" "$work/packages/$1_1.deb" >/dev/null
}
mkdir "$work/packages"
program platform/libtwo.so.1.2.3 200000 .extra
package one "$build/daemons/one/one"
package libtwo "$build/platform/libtwo.so.1.2.3"
program debug 100000 .debug_extra
package one-dbgsym "$build/debug"
expect 0 '^libtwo.so .*%$' 'packages' "$work/packages" box
