#!/usr/bin/env bash
# usage: check_plain.sh MADE system|busybox ZORCTL
# The plain init scripts start, reload and stop a whole system below ZOR_ROOT, with the tools of this system or with
# those of busybox alone.
set -euo pipefail
made=$1 tools=$2 zorctl=$3
. "$(dirname "$0")/common.sh"
servers='msgsvr notifyserver mlogserver cms syslogd zorweb zorweb-login'
started=
clean_up() {
  for each in $started; do script "$each" stop >/dev/null 2>&1 || true; done
  rm -rf "$work"
}
trap clean_up EXIT

if [ "$tools" = busybox ]; then
  # Copies for that shell, with nothing but its tools to find.
  mkdir "$work/bin"
  for each in $(busybox --list); do ln -s "$(command -v busybox)" "$work/bin/$each"; done
  ln -s "$(command -v socat)" "$work/bin/socat"
  cp -r "$made/init" "$made/sysv" "$work"
  sed -i -e "1s,^#!/bin/sh,#!$work/bin/sh," -e "s,$made/init,$work/init,g" "$work"/init/zor-* "$work"/sysv/*
  scripts=$work/sysv path=$work/bin
else
  scripts=$made/sysv path=$PATH
fi
script() { # SERVER VERB
  env PATH="$path" "$scripts/$1" "$2"
}
status() { # SERVER CODE VERB: the script ends with that code
  local code=0
  script "$1" "$3" >"$work/$1.$3.log" 2>&1 || code=$?
  [ $code = "$2" ] || fail "$1 $3: exit code $code instead of $2: $(cat "$work/$1.$3.log")"
}
pid() { cat "$ZOR_ROOT/var/run/$1.pid"; }
log() { echo "$ZOR_ROOT/var/log/$1.log"; }

for each in $servers; do
  status "$each" 3 status
  started="$each $started"
  status "$each" 0 start
  status "$each" 0 status
done
"$zorctl" wait cms syslog --timeout 100

# Once more is nothing; those without their settings do not run.
before=$(pid msgsvr)
status msgsvr 0 start
[ "$(pid msgsvr)" = "$before" ] || fail "started twice"
for each in zortunnel zorbridge; do
  status "$each" 0 start
  status "$each" 3 status
  has_line "$work/$each.start.log" "$each.conf is missing" || fail "$each: not a word"
done
status cms 2 nonsense

# Reload: with all clients. What cannot, says so.
for each in msgsvr notifyserver; do
  status "$each" 0 reload
  await has_line "$(log "$each")" 'took over from version'
done
status cms 3 reload

# A server that crashes is the keeper's concern; one without a keeper is found dead, and can be started.
server=$(server_of "$before")
kill -KILL "$server"
await has_line "$(log msgsvr)" 'took over from a server that crashed'
await is_another "$server" server_of "$before"
old=$(pid cms)
kill -KILL "$old"
await lacks_process "$old"
status cms 1 status
status cms 0 start
"$zorctl" wait cms syslog --timeout 100

# A password is asked for: wrong, since this system has no accounts. What listens for it is not one of our servers, and
# says nothing when it does.
await test -S "$ZOR_ROOT/run/zorweb-login"
[ "$(printf 'nobody\0nothing\0' | socat -t 100 - "UNIX-CONNECT:$ZOR_ROOT/run/zorweb-login")" = no ] ||
  fail "zorweb-login: no reply"

# Restart is another process; a server that does not serve is no success.
old=$(pid notifyserver)
status notifyserver 0 restart
is_another "$old" pid notifyserver || fail "notifyserver: not restarted"
status syslogd 0 stop
echo nonsense >"$ZOR_ROOT/etc/zor/syslogd.conf"
status syslogd 1 start
await has_line "$(log syslogd)" syslogd.conf:1

for each in $started; do
  old=$(pid "$each" 2>/dev/null || true)
  status "$each" 0 stop
  status "$each" 3 status
  [ -z "$old" ] || lacks_process "$old" || fail "$each: still there"
done
started=
