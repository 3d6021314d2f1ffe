# shellcheck shell=bash
# What the tests that start servers share: a root for one system of its own, and waiting. Sourced.
work=$(mktemp -d)
export ZOR_ROOT=$work/root
mkdir -p "$ZOR_ROOT/etc/zor"
# Any port, and nobody who asks for a password.
printf 'listen = 127.0.0.1:0\nlogin = none\n' >"$ZOR_ROOT/etc/zor/zorweb.conf"

fail() {
  echo "FAILED: $*" >&2
  tail -n 40 "$ZOR_ROOT"/var/log/*.log "$work"/*.log >&2 2>/dev/null || true
  exit 1
}

# Until the command succeeds.
await() { # COMMAND...
  local tries
  for ((tries = 0; tries < 1200; ++tries)); do
    ! "$@" >/dev/null 2>&1 || return 0
    sleep 0.1
  done
  fail "in vain: $*"
}

has_line() { grep -qsF -- "$2" "$1"; }  # FILE TEXT
has_process() { kill -0 "$1"; }         # PID
lacks_process() { ! kill -0 "$1" 2>/dev/null || grep -q '^State:.Z' "/proc/$1/status"; }
is_another() { [ -n "$("${@:2}")" ] && [ "$("${@:2}")" != "$1" ]; } # OLD COMMAND...: it prints something else
server_of() { cut -d ' ' -f 1 "/proc/$1/task/$1/children"; } # KEEPER
