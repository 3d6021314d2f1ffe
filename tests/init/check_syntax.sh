#!/usr/bin/env bash
# usage: check_syntax.sh MADE
# Every script is read by each shell that a small system has, and by the linter, without a word.
set -euo pipefail
mapfile -t scripts < <(find "$1" -path "$1/sbin" -prune -o -type f ! -name servers ! -name notification-fd -print | sort)
[ ${#scripts[@]} -gt 50 ]
for script in "${scripts[@]}"; do
  dash -n "$script"
  busybox sh -n "$script"
done
shellcheck -x "${scripts[@]}"
