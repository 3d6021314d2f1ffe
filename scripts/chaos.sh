#!/usr/bin/env bash
# Kills, freezes and replaces members of a bus and its server for SECONDS, in three parts, and prints the account of each:
# every message must have been received, or noticed by its sender, or named in the log. Fails when one does not balance,
# and leaves the server's log in build/chaos.log then.
# Usage: chaos.sh SECONDS
set -euo pipefail
cd "$(dirname "$0")/.."

[[ ${1:-} =~ ^[1-9][0-9]*$ ]] || {
  echo "usage: chaos.sh SECONDS" >&2
  exit 2
}
scripts/setup.sh bench
cmake --preset release >/dev/null
cmake --build --preset release --target chaos msgsvr >/dev/null
build=build/release
export TMPDIR=${TMPDIR:-/dev/shm} CHAOS_LOG=$PWD/build/chaos.log
rm -f "$CHAOS_LOG"
status=0

part() {
  echo "== $1"
  shift
  "$build/bench/chaos" "$build/daemons/msgsvr/msgsvr" seconds "$seconds" messages 40000000 "$@" || status=1
  echo
}

seconds=$((($1 + 2) / 3))
part "hand-overs beside 200 clients" blows h every 300 clients 200
part "kill -9 of the server under its keeper" blows c every 2000 keeper 1
part "everything" blows kkkffffhc every 1000 keeper 1 workers 8 burst 20
exit $status
