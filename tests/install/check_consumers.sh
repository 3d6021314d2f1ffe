#!/usr/bin/env bash
# Builds two daemons against installed files only and lets them talk on the running bus: the greeter of README.md, in C
# through pkg-config, and a caller in C++ through find_package.
# Usage: check_consumers.sh README SOURCES DIRECTORY [RUN...]   (RUN: the command that runs a daemon)
set -euo pipefail
readme=$1 sources=$2 directory=$3
run=("${@:4}")

sed -n '/^```c$/,/^```$/p' "$readme" | sed '/^```/d' >"$directory/greeter.c"
# shellcheck disable=SC2046,SC2086
${CC:-cc} ${CFLAGS:-} -o "$directory/greeter" "$directory/greeter.c" ${LDFLAGS:-} \
  $(pkg-config ${PKG_CONFIG_OPTIONS:-} --cflags --libs msgapi)
cmake -S "$sources" -B "$directory/build" >/dev/null
cmake --build "$directory/build" >/dev/null
echo 'ok both are built'

"${run[@]}" "$directory/greeter" &
greeter=$!
trap 'kill "$greeter" 2>/dev/null || true' EXIT
# A message to an absent name is dropped, so the caller retries until the greeter is there.
for _ in $(seq 100); do
  if timeout 1 "${run[@]}" "$directory/build/caller"; then
    echo 'ok the greeter replied'
    exit 0
  fi
  kill -0 "$greeter" || break
done
echo 'FAILED the greeter did not reply'
exit 1
