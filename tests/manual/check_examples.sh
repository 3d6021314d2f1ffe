#!/usr/bin/env bash
# usage: check_examples.sh EXAMPLES SOURCE_DIR BUILD_DIR COMPILER [FLAG...]
# Each program that the manual shows builds without a warning, ends well beside the real servers, and prints what the
# comment at its end says.
set -euo pipefail
examples=$1 source=$2 build=$3
compile=("${@:4}" -std=gnu11 -Wall -Wextra -Werror -I "$source/include")
link=(-L "$build/libraries/private/msg" -L "$build/platform" -lmsgapi -lzorplatform
  "-Wl,-rpath,$build/libraries/private/msg:$build/platform")

work=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null || true; wait; rm -rf "$work"' EXIT
export ZOR_ROOT=$work/root
mkdir "$ZOR_ROOT"
for server in msgsvr notifyserver mlogserver cms syslogd; do
  : >"$work/$server.out"
  "$build/daemons/$server/$server" >"$work/$server.out" 2>&1 &
  until grep -qE ': (listening|on the bus)' "$work/$server.out"; do
    kill -0 $! 2>/dev/null || { cat "$work/$server.out"; exit 1; }
    sleep 0.05
  done
done

wrong=0
for program in "$examples"/*.c; do
  name=$(basename "$program" .c)
  sed -n '/^\/\* Prints:$/,$s/^ \* //p' "$program" >"$work/expected"
  [ -s "$work/expected" ] || { echo "$name: does not say what it prints"; wrong=1; continue; }
  "${compile[@]}" -o "$work/$name" "$program" "${link[@]}" || { wrong=1; continue; }
  (cd "$work" && timeout 60 "./$name") >"$work/printed" && status=0 || status=$?
  diff "$work/expected" "$work/printed" && [ "$status" -eq 0 ] || { echo "$name: differs, or ended with $status"; wrong=1; }
done
exit "$wrong"
