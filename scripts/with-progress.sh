#!/usr/bin/env bash
# Runs a command with its output in a file, and shows the newest line of that every few seconds.
# Usage: with-progress.sh LOG COMMAND...
set -euo pipefail
log=$1
: >"$log"

# `tail` ends with this script, and so does the loop.
show() {
  local shown='' line
  while ! timeout 5 tail --pid=$$ -f /dev/null >/dev/null 2>&1; do
    line=$(tail -n 1 "$log" | cut -c 1-100)
    if [ "$line" != "$shown" ]; then printf '   %s\n' "$line"; fi
    shown=$line
  done
}

show &
trap 'kill $! 2>/dev/null' EXIT
"${@:2}" >"$log" 2>&1
