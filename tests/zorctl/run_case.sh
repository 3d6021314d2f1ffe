#!/usr/bin/env bash
# Runs one case of zorctl's golden tests: a script that starts servers in its own ZOR_ROOT and calls the tool. Its
# output must match CASE.expected. Usage: run_case.sh BUILD CASE.sh [EMULATOR...]
# ZOR_UPDATE_GOLDEN=1 writes the expected text instead; read the change before you commit it.
#
# Functions for a case:
#   start NAME [ARGUMENT...]  a server or an example; waits until it is ready
#   peer NAME MODE [ARGUMENT...]  a daemon of that name on the bus, see peer.cpp
#   background NAME ARGUMENT...   zorctl in the background
#   stop NAME                 kills it
#   gone NAME                 whether it has ended
#   running NAME              its process id
#   output NAME               its output so far
#   run ARGUMENT...           zorctl: prints the command, its output, "! " and its errors, "= " and its exit code
#   run_on_terminal COLUMNS ARGUMENT...   the same on a terminal, output and errors mixed
#   report COMMAND...         the same for any command
#   begin ARGUMENT...         as run, in the background; its errors so far are in $work/begun.err
#   finish                    waits until it ends, and prints what run would have printed
#   run_unread ARGUMENT...    as run, into a pipe whose reader has exited
#   await COMMAND...          waits until it succeeds; the case fails after two minutes
#   number HEX                its bytes, the most significant first in HEX, in the order of the programs' machine
#   normalise                 a filter that a case may define, for text that differs from run to run
set -euo pipefail

# shellcheck disable=SC2034  # cases use it
source=$(cd "$(dirname "$0")/../.." && pwd)
build=$(cd "$1" && pwd)
case_file=$2
emulator=("${@:3}")
expected=${case_file%.sh}.expected
cd "$(dirname "$case_file")"

ZOR_ROOT=$(mktemp -d)
export ZOR_ROOT
unset NO_COLOR
export TZ=UTC LC_ALL=C.UTF-8 TERM=xterm SHELL=/bin/sh
work=$ZOR_ROOT/case # the case's own files
mkdir "$work"
declare -A pids=()

clean_up() {
  [ ${#pids[@]} -eq 0 ] || kill -KILL "${pids[@]}" 2>/dev/null || true
  rm -rf "$ZOR_ROOT"
}
trap clean_up EXIT

fail() {
  printf 'run_case: %s\n' "$*" >&2
  exit 1
}

await() {
  local end=$((SECONDS + 120))
  until "$@" >/dev/null 2>&1; do
    [ "$SECONDS" -lt "$end" ] || fail "timed out waiting for: $*"
    sleep 0.02
  done
}

gone() { ! kill -0 "$(running "$1")"; }

stop() {
  kill -KILL "$(running "$1")" 2>/dev/null || true # or it has ended by itself
  await gone "$1"
}

running() { echo "${pids[$1]}"; }
output() { cat "$ZOR_ROOT/$1.out" "$ZOR_ROOT/$1.err"; }

declare -A ready=([msgsvr]=listening [notifyserver]=listening [mlogserver]=listening [cms]='on the bus'
  [syslogd]='on the bus' [provider]=registered [login_keeper]='on the bus')

start() {
  local program
  for program in "$build/daemons/$1/$1" "$build/examples/$1" "$build/tests/zorctl/$1"; do
    [ ! -x "$program" ] || break
  done
  spawn "$1" "$program" "${@:2}"
  await grep -q "${ready[$1]:-ready}" "$ZOR_ROOT/$1.out"
}

peer() {
  spawn "$1" "$build/tests/zorctl/peer" "$2" "$1" "${@:3}"
  await grep -q ready "$ZOR_ROOT/$1.out"
}

background() { spawn "$1" "$build/tools/zorctl/zorctl" "${@:2}"; }

spawn() { # NAME PROGRAM ARGUMENT...
  [ -z "${pids[$1]:-}" ] || stop "$1" # the one before it
  : >"$ZOR_ROOT/$1.out" # the output of an earlier process of that name does not count
  "${emulator[@]}" "${@:2}" >"$ZOR_ROOT/$1.out" 2>"$ZOR_ROOT/$1.err" &
  pids[$1]=$!
  disown $! # or its end would be announced
}

report() {
  local status=0 errors
  errors=$(mktemp -p "$work")
  "$@" 2>"$errors" || status=$?
  sed 's/^/! /' "$errors"
  echo "= $status"
}

zorctl() { "${emulator[@]}" "$build/tools/zorctl/zorctl" "$@"; }

show_command() {
  printf '$ zorctl'
  [ $# -eq 0 ] || printf ' %q' "$@"
  printf '\n'
}

run() {
  show_command "$@"
  report zorctl "$@"
}

on_terminal() {
  local command
  command=$(printf '%q ' "${emulator[@]}" "$build/tools/zorctl/zorctl" "${@:2}")
  script -qec "stty cols $1 -onlcr; $command" /dev/null
}

run_on_terminal() {
  show_command "${@:2}"
  report on_terminal "$@" </dev/null
}

begin() {
  : >"$work/begun.err"
  {
    local status=0
    show_command "$@"
    zorctl "$@" 2>"$work/begun.err" || status=$?
    sed 's/^/! /' "$work/begun.err"
    echo "= $status"
  } >"$work/begun" &
  begun=$!
}

finish() {
  wait "$begun"
  cat "$work/begun"
}

unread() { zorctl "${@:2}" 1>&"$1"; }

run_unread() {
  local pipe
  mkfifo "$work/unread"
  : <"$work/unread" &
  exec {pipe}>"$work/unread"
  wait $!
  rm "$work/unread"
  show_command "$@"
  report unread "$pipe" "$@"
  exec {pipe}>&-
}

number() {
  local bytes order=(tac)
  [ "$(od -An -tu1 -j5 -N1 "$build/daemons/msgsvr/msgsvr")" -eq 1 ] || order=(cat)
  bytes=$(fold -w2 <<<"$1" | "${order[@]}" | sed 's/^/\\x/' | tr -d '\n')
  printf '%b' "$bytes"
}

normalise() { cat; }

# The tool's own name on the bus; process ids, users and times in JSON and in tables, whose columns are as wide as those
# happen to be. A case that cuts lines to a terminal's width cuts them before such a column.
normalise_all() {
  sed -E "s/ctl[0-9]+/ctlPID/g
    s/\"(pid|uid|since|uptime_ms|oldest_ms|age_ms|held|in_bytes|out_bytes)\":[0-9]+/\"\1\":N/g
    s/\"flows\":\[[^]]*\],//g
    s/[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}/YYYY-MM-DD hh:mm:ss/g
    s/ +[0-9]+  [^ ]+ +YYYY/  PID  USER  YYYY/; s/ +PID  USER +SINCE/  PID  USER  SINCE/
    /PID  USER/s/^([^ ]+) +/\1  /"
}

# shellcheck source=/dev/null
. "$case_file" >"$ZOR_ROOT/actual.raw"
sed "s|$ZOR_ROOT|ROOT|g" "$ZOR_ROOT/actual.raw" | normalise | normalise_all >"$ZOR_ROOT/actual"
if [ -n "${ZOR_UPDATE_GOLDEN:-}" ]; then
  cp "$ZOR_ROOT/actual" "$expected"
fi
[ -e "$expected" ] || expected=/dev/null
diff -u "$expected" "$ZOR_ROOT/actual"
