#!/usr/bin/env bash
# Runs for check_vendor.sh inside a fresh folder, with our packages in the folder above and the vendor's beside this
# file: installs ours, puts the vendor's platform in the place of ours, lets the servers and two daemons talk with it, goes
# back, and removes all of them. Needs root.
set -euo pipefail
cd "$(dirname "$0")/.."
vendors=$(realpath vendor/*.deb) ours=$(realpath libzorplatform1_*.deb)
export DEBIAN_FRONTEND=noninteractive
work=$(mktemp -d)
pids=()
clean_up() {
  [ ${#pids[@]} = 0 ] || kill "${pids[@]}" 2>/dev/null || true
  wait
  rm -rf "$work"
}
trap clean_up EXIT
fail() {
  echo "FAILED $*"
  tail -n 20 "$work"/*.out
  exit 1
}
expect() { # WHAT COMMAND...
  "${@:2}" >"$work/expected.out" 2>&1 || fail "$1"
  echo "ok $1"
}

installed() { dpkg-query -W -f '${db:Status-Abbrev} ${Package}:${Architecture} ${Version}\n' | grep '^ii' | LC_ALL=C sort; }
name_of() { dpkg-deb -f "$1" Package; }
install() { apt-get -qq install -y --no-install-recommends --allow-downgrades "$1"; }
swap() { # FROM TO PACKAGE: nothing else comes or goes
  local gone come
  installed >"$work/before.out"
  expect "$2 is installed in the place of $1" install "$3"
  installed >"$work/after.out"
  gone=$(comm -23 "$work/before.out" "$work/after.out" | sed 's/^ii *//; s/:.*//' | paste -sd ' ')
  come=$(comm -13 "$work/before.out" "$work/after.out" | sed 's/^ii *//; s/:.*//' | paste -sd ' ')
  [ "$gone -> $come" = "$1 -> $2" ] || fail "it was '$gone -> $come'"
  expect 'all dependencies are met' apt-get -qq check
}

start() { # TEXT USER PROGRAM ARGUMENT...: until it prints the text, if there is one
  local out=$work/${3##*/}.out
  : >"$out"
  setpriv --reuid="$2" --regid=_zorbus --clear-groups "${@:3}" >"$out" 2>&1 &
  pids+=($!)
  [ -n "$1" ] || return 0
  for _ in $(seq 1200); do
    ! grep -qF -- "$1" "$out" || return 0
    kill -0 "${pids[-1]}" 2>/dev/null || break
    sleep 0.1
  done
  fail "$3"
}
stop_all() {
  kill "${pids[@]}" 2>/dev/null || true # some end with the message server
  wait "${pids[@]}" || true
  pids=()
}

talk() { # PACKAGE
  local library
  start 'listening on' _zor-msgsvr msgsvr
  library=$(find /usr/lib /lib -name libzorplatform.so.1 -print -quit)
  expect "it is $1's library" sh -c "dpkg -S '$library' | grep -q '^$1:'"
  # An emulator maps libraries under their own names as well.
  grep -q "$(basename "$(readlink -f "$library")")" "/proc/${pids[0]}/maps" || fail "msgsvr runs without $library"
  start 'listening on' _zor-notify notifyserver
  start 'listening on' _zor-mlog mlogserver
  start 'on the bus as' _zor-cms cms
  start 'on the bus as' _zor-syslog syslogd
  start '' _zor-syslog zorctl serve 0x4001 greeter --exec /bin/pwd
  expect 'the daemons are on the bus' zorctl wait cms syslog greeter --timeout 60
  expect 'a daemon replies to another' zorctl call 0x4001 greeter --timeout 60
  expect 'the store keeps a parameter' zorctl config set parameter 77 --create kept
  [ "$(zorctl config get parameter 77)" = kept ] || fail 'the store has lost a parameter'
  expect 'the operator lists them' zorctl list
  grep -q '^greeter ' "$work/expected.out" || fail 'greeter is not listed'
  stop_all
}

# A store is of its platform's own kind; a device changes its platform before it is delivered.
forget_store() { rm -f /var/lib/zor/shared/zor_config.db*; }

packages=(libmsgapi1 libzorplatform1 libmsgapi-dev zorgen msgapi-servers zorctl)
files=()
for package in "${packages[@]}"; do files+=("./$package"_*.deb); done
expect 'the lists of packages are there' apt-get -qq update
expect 'our packages are installed' apt-get -qq install -y --no-install-recommends binutils "${files[@]}"
our_name=$(name_of "$ours") vendors_name=$(name_of "$vendors")
forget_store
swap "$our_name" "$vendors_name" "$vendors"
expect 'the checker finds nothing missing' zor-check-platform "$(find /usr/lib /lib -name libzorplatform.so.1 -print -quit)"
talk "$vendors_name"
forget_store
swap "$vendors_name" "$our_name" "$ours"
talk "$our_name"

expect 'all are removed' apt-get -qq purge -y "${packages[@]}"
