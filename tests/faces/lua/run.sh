#!/usr/bin/env bash
# Runs a command on a bus of its own: run.sh MSGSVR COMMAND...
set -euo pipefail

ZOR_ROOT=$(mktemp -d)
export ZOR_ROOT
server=
clean_up() {
  [ -z "$server" ] || kill "$server" || true
  rm -rf "$ZOR_ROOT"
}
trap clean_up EXIT

"$1" >"$ZOR_ROOT/said" &
server=$!
until grep -q listening "$ZOR_ROOT/said"; do sleep 0.05; done
"${@:2}"
