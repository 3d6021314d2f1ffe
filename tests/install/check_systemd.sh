#!/usr/bin/env bash
# Runs for scripts/package-test.sh under systemd, with the packages beside this file: what an operator sees when they are
# installed, upgraded and removed, and when a server crashes or hangs.
set -euo pipefail
cd "$(dirname "$0")"

ours=(libmsgapi1 libzorplatform1 libmsgapi-dev zorgen msgapi-servers zorctl libmsgapi-doc)
servers=(msgsvr notifyserver mlogserver cms syslogd)
socket_units=(notifyserver.socket mlogserver.socket)
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8

say() { printf '\n== %s\n' "$*"; }
fail() {
  echo "FAILED $*"
  tail -n 20 /tmp/expected.out || true
  journalctl --no-pager -n 60
  exit 1
}
expect() { # WHAT COMMAND...: the command must succeed
  "${@:2}" >/tmp/expected.out 2>&1 || fail "$1"
  echo "ok $1"
}
await() { # WHAT COMMAND...: it must succeed soon
  for _ in $(seq 600); do
    if "${@:2}" >/tmp/expected.out 2>&1; then
      echo "ok $1"
      return
    fi
    sleep 0.1
  done
  fail "$1"
}
quietly() {
  local output
  output=$("$@" 2>&1) || fail "$*: $output"
}
value_of() { systemctl show --value -p "$2" "$1"; } # UNIT PROPERTY
pids() { for unit in "$@"; do value_of "$unit" MainPID; done; }
logged() { journalctl --no-pager -u "$1" | grep -F "$2" >/dev/null; }
all_serve() { systemctl is-active "${servers[@]}" keeper-of-logins && zorctl wait --timeout 5 cms syslog lctrl; }
restarted() { [ "$(value_of "$1" NRestarts)" -gt "$2" ] && systemctl is-active "$1"; } # UNIT TIMES-BEFORE
connected_since() { zorctl list --json | grep -o '"name":"lctrl"[^}]*"since":[0-9]*' | grep -o '[0-9]*$'; }

say 'installing under systemd'
mkdir -p /etc/systemd/system/msgsvr.service.d
printf '[Service]\nWatchdogSec=30\n' >/etc/systemd/system/msgsvr.service.d/test.conf
quietly apt-get -qq install -y --no-install-recommends ./*.deb
await 'the servers are started' systemctl is-active "${servers[@]}" "${socket_units[@]}"
useradd --no-create-home --gid _zorbus first
cp login_keeper /usr/local/bin/
quietly systemd-run --unit=keeper-of-logins --uid=first --gid=_zorbus /usr/local/bin/login_keeper
await 'a daemon has joined them' all_serve

say 'upgrading'
before=$(pids msgsvr notifyserver keeper-of-logins)
since=$(connected_since)
quietly apt-get -qq install -y --reinstall --no-install-recommends ./*.deb
for server in msgsvr notifyserver; do await "$server was handed over" logged $server 'took over from version'; done
expect 'they are the same processes' test "$before" = "$(pids msgsvr notifyserver keeper-of-logins)"
for server in msgsvr notifyserver; do
  expect "$server runs the program that was installed" test /usr/sbin/$server -ef "/proc/$(pids $server)/exe"
done
await 'all serve' all_serve
expect 'the daemon was not disconnected' test "$since" = "$(connected_since)"

say 'on request'
expect 'systemctl reload' systemctl reload msgsvr notifyserver
for server in msgsvr notifyserver; do expect "zorctl server restart $server" zorctl server restart $server; done
echo 'nonsense = 1' >/etc/zor/msgsvr.conf
expect 'a mistake in the settings refuses it' sh -c 'zorctl server restart; test $? -eq 5'
expect 'the reason is logged' logged msgsvr nonsense
expect 'the service is up' systemctl is-active msgsvr
rm /etc/zor/msgsvr.conf
expect 'they are the same processes' test "$before" = "$(pids msgsvr notifyserver keeper-of-logins)"
expect 'the daemon was not disconnected' test "$since" = "$(connected_since)"

say 'crashes'
declare -A sockets=([msgsvr]=/run/zor/msgsvr [notifyserver]=/run/zor-notify/notifyserver
  [mlogserver]=/run/zor-mlog/mlogServer)
for server in "${!sockets[@]}"; do
  times=$(value_of "$server" NRestarts)
  socket=$(stat -c %i "${sockets[$server]}")
  kill -KILL "$(pids "$server")"
  await "$server is started again" restarted "$server" "$times"
  expect "$server has the socket that it had" test "$socket" = "$(stat -c %i "${sockets[$server]}")"
  await 'all serve' all_serve
done
expect 'the daemon was not disconnected' test "$since" = "$(connected_since)"

say 'sockets of servers that are stopped'
declare -A asks=([notifyserver]='zorctl notify --list' [mlogserver]='zorctl log --stat none')
for server in "${!asks[@]}"; do
  socket=$(stat -c %i "${sockets[$server]}")
  quietly systemctl restart "$server"
  quietly systemctl stop "$server"
  for path in "${sockets[$server]}" /var/run/notify/notifyserver /var/mlog/mlogServer; do
    expect "nobody takes $path" sh -c "setpriv --reuid first --regid _zorbus --clear-groups ./attack.pl take $path; test \$? -eq 1"
  done
  ${asks[$server]} >/tmp/expected.out 2>&1 || true
  await "a client starts $server" systemctl is-active "$server"
  expect "$server has the socket that it had" test "$socket" = "$(stat -c %i "${sockets[$server]}")"
done
await 'all serve' all_serve

say 'a loop that hangs'
times=$(value_of msgsvr NRestarts)
kill -STOP "$(pids msgsvr)"
await 'the watchdog has it started again' restarted msgsvr "$times"
expect 'the journal names it' logged msgsvr 'Watchdog timeout'
await 'all serve' all_serve
expect 'the daemon was not disconnected' test "$since" = "$(connected_since)"

say 'removing'
quietly systemctl stop keeper-of-logins
quietly apt-get -qq purge -y "${ours[@]}"
for server in "${servers[@]}"; do expect "$server is stopped" sh -c "! pgrep -x $server"; done
expect 'none has failed' sh -c '! systemctl --failed --no-legend | grep .'

printf '\nsystemd: everything worked\n'
