#!/usr/bin/env bash
# Builds what a gateway with 16 MiB of flash gets (preset small), checks its size and that the libraries are complete, runs
# it, and prints what it weighs, with the libraries of others that it needs. Needs Debian 12, and root only when packages
# are missing.
# Usage: small.sh
set -euo pipefail
cd "$(dirname "$0")/.."

fail() {
  printf 'FAILED %s\n' "$*"
  exit 1
}

scripts/setup.sh demo
build=build/small
cmake --preset small >/dev/null
cmake --build --preset small --target all provider consumer
scripts/check-size.sh "$build" small
tests/interface/check_exports.sh nm tests/interface/exports.txt msgapi "$build/libraries/private/msg/libmsgapi.so"
scripts/check-platform.sh "$build/platform/libzorplatform.so"

work=$(mktemp -d)
export ZOR_ROOT=$work/root
pids=()
clean_up() {
  {
    [ ${#pids[@]} -eq 0 ] || kill -KILL "${pids[@]}" || true
    wait || true
  } 2>/dev/null
  rm -rf "$work"
}
trap clean_up EXIT

# As on the device: installed and stripped, the headers for building against it left out.
for component in runtime platform servers tool; do
  DESTDIR=$work/device cmake --install "$build" --strip --component "$component" >/dev/null
done
device=$work/device/usr
export LD_LIBRARY_PATH
LD_LIBRARY_PATH=$(dirname "$(find "$device" -name 'libmsgapi.so.1')")

start() { # NAME READY-TEXT COMMAND...: runs it in the background, its output in NAME.out
  "${@:3}" >"$work/$1.out" 2>&1 &
  pids+=($!)
  for _ in $(seq 200); do
    ! grep -qF "$2" "$work/$1.out" || return 0
    sleep 0.05
  done
  cat "$work/$1.out"
  fail "$1 did not print: $2"
}
mkdir "$ZOR_ROOT"
# The provider takes the name of cms.
printf 'trace.cms = demo=info\ntrace.web = demo=info\n' >"$ZOR_ROOT/msgsvr.conf"
start msgsvr listening "$device/sbin/msgsvr" --settings "$ZOR_ROOT/msgsvr.conf"
for server in notifyserver mlogserver; do start "$server" listening "$device/sbin/$server"; done
start provider 'cms: registered' "$build/examples/provider"
timeout 60 "$build/examples/consumer" >"$work/consumer.out" 2>&1 || {
  cat "$work/consumer.out"
  fail 'two daemons talk'
}
for server in cms syslogd; do start "$server" 'on the bus' "$device/sbin/$server"; done
for verb in list 'config set parameter 0x70000001 kitchen --create' 'config list parameter' 'call ZOR_LOG_MSG_FLUSH syslog' 'why syslog' 'log --count 1'; do
  # shellcheck disable=SC2086
  timeout 30 "$device/bin/zorctl" $verb >"$work/zorctl.out" 2>&1 || {
    cat "$work/zorctl.out"
    fail "zorctl $verb"
  }
done
"$device/bin/zorctl" list | grep -q syslog || fail 'zorctl list shows the daemons'
! "$device/bin/zorctl" top 2>/dev/null || fail 'a verb is left out'

files=()
while read -r file; do files+=("$file"); done < <(find "$work/device" -type f \( -perm -u+x -o -name '*.so.*' \) ! -path '*/etc/*')
needed() { ldd "${files[@]}" | sed -n 's/.* => \(\/[^ ]*\).*/\1/p' | grep -v "^$work" | xargs -n 1 readlink -f | sort -u; }
! needed | grep -E 'libssl|libcrypto|libmosquitto|libmicrohttpd|libncurses' || fail 'a library is left out'
compressed() { tar -c -h "$@" 2>/dev/null | gzip -9 | wc -c; }

printf '\n| what | bytes | with gzip |\n|---|---|---|\n'
row() { printf '| %s | %s | %s |\n' "$1" "$(cat "${@:2}" | wc -c)" "$(compressed "${@:2}")"; }
for file in "${files[@]}"; do row "$(basename "$file")" "$file"; done
mapfile -t all < <(find "$work/device" -type f)
row "everything that is installed, ${#all[@]} files" "${all[@]}"
sqlite=$(readlink -f "$(/sbin/ldconfig -p | sed -n 's/.*libsqlite3.so.0 .*=> //p' | head -1)")
mapfile -t others < <( (needed && echo "$sqlite") | sort -u)
for file in "${others[@]}"; do row "$(basename "$file"), of others" "$file"; done
row 'all of it' "${all[@]}" "${others[@]}"
echo 'small: everything worked'
