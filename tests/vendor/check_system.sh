#!/usr/bin/env bash
# usage: check_system.sh BUILD    (LD_LIBRARY_PATH names the folder of a vendor's platform)
# Servers and example daemons run with the platform that LD_LIBRARY_PATH leads to, in a directory that is named in that
# platform's own way; an operator sees them, and the store holds what was put there.
set -euo pipefail
build=$1
work=$(mktemp -d)
unset ZOR_ROOT
export EXAMPLE_ROOT=$work/root
mkdir -p "$EXAMPLE_ROOT/var" "$EXAMPLE_ROOT/etc/zor"
# The consumer checks that its registration has brought a trace setting.
echo 'trace.web = demo=info' >"$EXAMPLE_ROOT/etc/zor/msgsvr.conf"
pids=()
clean_up() {
  [ ${#pids[@]} = 0 ] || kill "${pids[@]}" 2>/dev/null || true
  wait
  rm -rf "$work"
}
trap clean_up EXIT
fail() {
  echo "FAILED $*"
  tail -n 20 "$work"/*.log
  exit 1
}
start() { # TEXT PROGRAM: until it prints the text
  local log=$work/${2##*/}.log
  "$build/$2" >"$log" 2>&1 &
  pids+=($!)
  for _ in $(seq 1200); do
    ! grep -qF -- "$1" "$log" || return 0
    kill -0 "${pids[-1]}" 2>/dev/null || break
    sleep 0.1
  done
  fail "$2"
}
run() { timeout 300 "$@" >"$work/run.log" 2>&1 || fail "$*"; }
zorctl() { run "$build/tools/zorctl/zorctl" "$@"; }

start 'listening on' daemons/msgsvr/msgsvr
grep -qF "$(readlink -f "$LD_LIBRARY_PATH")/libzorplatform.so" "/proc/${pids[0]}/maps" || fail 'it runs with another platform'
[ -S "$EXAMPLE_ROOT/var/msgsvr" ] || fail 'its socket is elsewhere'
start 'listening on' daemons/notifyserver/notifyserver
start 'listening on' daemons/mlogserver/mlogserver

start 'cms: registered' examples/provider
run "$build/examples/consumer"
wait "${pids[-1]}" || fail 'the provider did not end well'
unset 'pids[-1]'

start 'on the bus as' daemons/cms/cms
start 'on the bus as' daemons/syslogd/syslogd
start 'on the bus' examples/login_keeper
for example in services devices codecs processes; do run "$build/examples/$example"; done
zorctl list
for name in cms syslog lctrl; do grep -q "^$name " "$work/run.log" || fail "list: no $name"; done
zorctl config set parameter 77 --create text
zorctl config get parameter 77
grep -q text "$work/run.log" || fail 'the store has lost a parameter'
zorctl server restart
zorctl list
