#!/usr/bin/env bash
# Lets daemons of two builds, which may be for machines of different byte order, talk over a server of each: one daemon on
# the server's machine, one on another board, or two on other boards. Checks what board_member checks, and what the servers
# of records have understood.
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
  [ "${builds[$1]}" != "${builds[1]}" ] || prefix=("${emulator[@]}")
  exec "${prefix[@]}" "${builds[$1]}/$2" "${@:3}"
}

has() { grep -qs "$1" "$ZOR_ROOT/$2.out"; } # TEXT NAME: the output of a process has the text

await() { # TEXT NAME
  local end=$((SECONDS + 120))
  until has "$@"; do
    [ "$SECONDS" -lt "$end" ] || fail "$2 did not print: $1"
    sleep 0.02
  done
}

start() { # BUILD READY NAME ARGUMENT...: a server, until its output has the text
  (run "$1" "daemons/$3/$3" "${@:4}") >"$ZOR_ROOT/$3.out" 2>&1 &
  servers+=($!)
  pids+=($!)
  await "$2" "$3"
}

# What syslogd and cms have understood: the consumer's records, but not those that it has sent without conversion to servers
# of the other order.
check_records() {
  local failures='0x10002' # nothing has been saved by that user
  if has 'records for the servers are converted' consumer; then
    failures='0x1 0x10002'
    has 'malformed request 0x4b01' syslogd || fail 'the log record of the other order was not refused'
  fi
  has 'User worker reboot the device' syslogd || fail 'the log record was not kept'
  ! has 'User raw' syslogd || fail 'a log record of the other order was kept'
  [ "$(sed -n 's/.*restore for consumer failed: result //p' "$ZOR_ROOT/cms.out" | paste -sd ' ')" = "$failures" ] ||
    fail "not these restorations have failed: $failures"
}

talk() { # SERVER'S-BUILD PROVIDER'S-BUILD PROVIDER'S-PLACE CONSUMER'S-BUILD CONSUMER'S-PLACE
  printf '\n== server of build %s, provider of build %s (%s), consumer of build %s (%s)\n' "$@"
  talks=$((talks + 1))
  export ZOR_ROOT=$work/$talks
  mkdir -p "$ZOR_ROOT/online/log"
  printf 'tcp = 127.0.0.1:0\nreport.* = 2\ntrace_output.* = file\ntrace_file_kib.* = 3000\ntrace.* = mixed=info\n' \
    >"$ZOR_ROOT/settings"
  local servers=() port server
  start "$1" 'listening on 127' msgsvr --settings "$ZOR_ROOT/settings"
  port=$(sed -n 's/.*127\.0\.0\.1:\([0-9]*\).*/\1/p' "$ZOR_ROOT/msgsvr.out")
  start "$1" listening notifyserver
  start "$1" 'on the bus' syslogd --verbose
  start "$1" 'on the bus' cms
  (run "$2" tests/machines/board_member provider "${3/board/$port}" serve) >"$ZOR_ROOT/provider.out" 2>&1 &
  pids+=($!)
  local provider=$!
  await ready provider
  (run "$4" tests/machines/board_member consumer "${5/board/$port}" ask provider) >"$ZOR_ROOT/consumer.out" ||
    fail 'not all was as it should be'
  cat "$ZOR_ROOT/consumer.out"
  wait "$provider" || fail 'the provider failed'
  check_records
  for server in 3 2 1 0; do
    kill -TERM "${servers[server]}"
    wait "${servers[server]}" || fail 'a server failed'
  done
  pids=()
}

both=(1 2)
[ "${builds[1]}" != "${builds[2]}" ] || both=(1)
for one in "${both[@]}"; do
  other=$((3 - one))
  talk "$one" "$other" board "$one" 'local'
  talk "$one" "$one" 'local' "$other" board
  talk "$one" "$other" board "$other" board
  talk "$one" "$one" board "$other" board
done
