#!/usr/bin/env bash
# Lets daemons of two builds, which may be for machines of different byte order, talk over a server of each: one daemon on
# the server's machine, one on another board, or two on other boards. Checks what board_member checks.
# Usage: mixed_bus.sh BUILD OTHER-BUILD [EMULATOR...]   (EMULATOR: what runs the programs of the first)
set -euo pipefail

builds=([1]=$(cd "$1" && pwd) [2]=$(cd "$2" && pwd))
emulator=("${@:3}")
work=$(mktemp -d)
pids=()
talks=0
clean_up() {
  [ ${#pids[@]} -eq 0 ] || kill -KILL "${pids[@]}" 2>/dev/null || true
  rm -rf "$work"
}
trap clean_up EXIT

fail() {
  printf 'mixed_bus: %s\n' "$*" >&2
  cat "$ZOR_ROOT"/*.out >&2
  exit 1
}

run() { # BUILD PROGRAM ARGUMENT...
  local prefix=()
  [ "$1" = 2 ] || prefix=("${emulator[@]}")
  exec "${prefix[@]}" "${builds[$1]}/$2" "${@:3}"
}

await() { # TEXT NAME: the output of a process has the text
  local end=$((SECONDS + 120))
  until grep -qs "$1" "$ZOR_ROOT/$2.out"; do
    [ "$SECONDS" -lt "$end" ] || fail "$2 did not print: $1"
    sleep 0.02
  done
}

talk() { # SERVER'S-BUILD PROVIDER'S-BUILD PROVIDER'S-PLACE CONSUMER'S-BUILD CONSUMER'S-PLACE
  printf '\n== server of build %s, provider of build %s (%s), consumer of build %s (%s)\n' "$@"
  talks=$((talks + 1))
  export ZOR_ROOT=$work/$talks
  mkdir -p "$ZOR_ROOT/online/log"
  printf 'tcp = 127.0.0.1:0\nreport.* = 2\ntrace_output.* = file\ntrace_file_kib.* = 3000\ntrace.* = mixed=info\n' \
    >"$ZOR_ROOT/settings"
  (run "$1" daemons/msgsvr/msgsvr --settings "$ZOR_ROOT/settings") >"$ZOR_ROOT/server.out" 2>&1 &
  pids+=($!)
  local server=$! port
  await 'listening on 127' server
  port=$(sed -n 's/.*127\.0\.0\.1:\([0-9]*\).*/\1/p' "$ZOR_ROOT/server.out")
  (run "$2" tests/machines/board_member provider "${3/board/$port}" serve) >"$ZOR_ROOT/provider.out" 2>&1 &
  pids+=($!)
  local provider=$!
  await ready provider
  (run "$4" tests/machines/board_member consumer "${5/board/$port}" ask provider) || fail 'not all was as it should be'
  wait "$provider" || fail 'the provider failed'
  kill -TERM "$server"
  wait "$server" || fail 'the server failed'
}

servers=(1 2)
[ "${builds[1]}" != "${builds[2]}" ] || servers=(1)
for one in "${servers[@]}"; do
  other=$((3 - one))
  talk "$one" "$other" board "$one" 'local'
  talk "$one" "$one" 'local' "$other" board
  talk "$one" "$other" board "$other" board
  talk "$one" "$one" board "$other" board
done
