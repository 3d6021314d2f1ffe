# shellcheck shell=bash
# What three users must not achieve on an installed system, each tried: a stranger, a member of the bus, and a daemon on
# another board. Sourced by check_packages.sh, with all servers running, its functions, and the users first and second,
# of whom second owns the name and the module of "web".

board= # the address of the listener for other boards

as() { setpriv --reuid "$1" --regid "$(id -g "$1")" --clear-groups "${@:2}"; } # USER COMMAND...
attempt() { as "$1" timeout 60 ./attack.pl "${@:2}"; }                         # USER ATTEMPT...: whether it worked
fails() { # WHAT USER ATTEMPT...
  local status=0
  attempt "${@:2}" >/tmp/expected.out 2>&1 || status=$?
  [ $status -eq 1 ] || fail "$1: status $status, $(cat /tmp/expected.out)"
  echo "ok $1: $(tail -n 1 /tmp/expected.out)"
}
await() { # WHAT COMMAND...: it must succeed soon
  for _ in $(seq 200); do
    if "${@:2}" >/tmp/expected.out 2>&1; then
      echo "ok $1"
      return
    fi
    sleep 0.05
  done
  fail "$1"
}
logs() { await "$1 logs it: $2" grep -F -e "$2" "/tmp/$1.out"; } # SERVER TEXT
honest() { # NAME USER ATTEMPT...: runs on; its output is in /tmp/NAME.out, and a line into "$into" makes it go on
  rm -f "/tmp/$1.in"
  mkfifo "/tmp/$1.in"
  as "${@:2:1}" ./attack.pl "${@:3}" <"/tmp/$1.in" >"/tmp/$1.out" 2>&1 &
  pids[$1]=$!
  exec {into}>"/tmp/$1.in"
}
go_on() { # NAME: and ends
  (echo >&"$into") || true # it may have ended
  exec {into}>&-
  wait "${pids[$1]}" || true
  unset "pids[$1]"
}

attack_sockets() {
  say 'attacks: a stranger at the sockets'
  for path in /var/msgsvr /var/run/notify/notifyserver /run/zor/msgsvr /run/zor-notify/notifyserver; do
    fails "reaching $path" stranger reach $path stream
  done
  for path in /var/mlog/mlogServer /run/zor-mlog/mlogServer; do
    fails "reaching $path" stranger reach $path datagram
  done
  expect 'nor any other socket of ours' sh -c \
    '! setpriv --reuid stranger --regid nogroup --clear-groups find /run/zor* /run/notify /var/mlog -type s 2>/dev/null |
      grep .'

  say 'attacks: taking the paths of servers that are stopped'
  for name in notifyserver mlogserver; do
    kill -TERM "${pids[$name]}"
    expect "$name has stopped" stopped $name
  done
  for user in stranger third; do
    for path in /var/run/notify/notifyserver /run/zor-notify/notifyserver /var/mlog/mlogServer \
      /run/zor-mlog/mlogServer /var/msgsvr /run/zor/msgsvr; do
      fails "$user taking $path" $user take $path
    done
  done
  start notifyserver 'listening on /var/run/notify/notifyserver'
  start mlogserver 'listening on /var/mlog/mlogServer'
}

attack_names() {
  say 'attacks: the name of another daemon'
  fails 'beside the real cms' third own /var/msgsvr cms
  logs msgsvr 'own cms refused'
  kill -TERM "${pids[cms]}"
  expect 'cms has stopped' stopped cms
  fails 'instead of cms' third own /var/msgsvr cms
  start cms 'on the bus as cms'
  fails 'the name of a site' third own /var/msgsvr web
  logs msgsvr '/etc/zor/access.d/50-web.conf:2: deny = any own web'
  fails 'cms from another board' third own "$board" cms
  fails 'any name from another board' third own "$board" modem
  logs msgsvr 'board:127.0.0.1'
  honest holder first own /var/msgsvr held stay
  await 'a free name is granted' grep -q 'granted: held' /tmp/holder.out
  fails 'a name that another user has' third own /var/msgsvr held
  logs msgsvr 'another user has the name'
  go_on holder
}

attack_requests() {
  say 'attacks: what is for administrators'
  fails 'the filter of the log' third send other syslog 4B06 0x100
  logs msgsvr 'send LOG_MSG_SET_FILTER to syslog refused'
  fails 'clearing the log' third send other syslog 4B05 0x100
  logs msgsvr 'send LOG_MSG_CLEAR to syslog refused'
  fails 'restoring the configuration' third send other cms 500F 0
  logs msgsvr 'send RESTORE_DEFAULT to cms refused'
  fails 'the list of all daemons' third send other '' FF000 0
  logs msgsvr 'control CONTROL_LIST refused'
  attempt third send other '' 703 0x2da01 "$(printf 'first\0\0\0\0\0\0\0' | od -An -v -tx1 | tr -d ' \n')" || true
  logs msgsvr 'for first refused'
}

attack_bodies() {
  say 'attacks: the body of an honest message'
  honest reader first fetch reader
  await 'there is a reader' grep -q 'granted: reader' /tmp/reader.out
  attempt second body sender reader honest >/dev/null || true
  fails 'another body in its place' third swap
  go_on reader
  expect 'the reader gets the honest one' grep -qx honest /tmp/reader.out
}

attack_notifications() {
  say 'attacks: notifications'
  fails 'being module 8' third module 8
  logs notifyserver 'deny = any module 8'
  fails 'being module 26' third module 26
  logs notifyserver '/etc/zor/access.d/50-web.conf:4: deny = any module 26'
  honest module first hear 12
  await 'a module is there' grep -q registered /tmp/module.out
  attempt third module 40 12 26 >/tmp/expected.out || fail 'a module of its own'
  go_on module
  expect 'its notification does not come from module 26' grep -qx 'source 40' /tmp/module.out
}

attack_log() {
  say 'attacks: the log'
  local log=/online/log/mlog.log uid
  uid=$(id -u third)
  attempt third lines 1 '[00000000001][cms][INFO]:fine\n[00000000002][cms][FATL]:forged' >/dev/null || true
  await 'a line is one line' grep -aF "uid=$uid][00000000001][cms][INFO]:fine\\n[00000000002][cms][FATL]:forged" $log
  expect 'and no other' sh -c "! grep -aE '^(\[00000000002|.{0,30}\]\[00000000002)' $log"
  attempt third lines 5000 '[00000000003][flood][INFO]:again' >/dev/null || true
  await 'a flood is cut' grep -aE "lines of (third|uid=$uid) left out" $log
  expect 'to its share' test "$(grep -ac ':again' $log)" -lt 3000
  attempt third statistics 256 >/dev/null || true
  logs mlogserver 'refused: '
  attempt first statistics 1 >/dev/null || true
  await 'statistics are left for others' sh -c 'zorctl log --stat taken1 && zorctl log --stat taken192 && ! zorctl log --stat taken256'

  honest victim first await /var/mlog/victim 3
  await 'another has a socket' grep -q waits /tmp/victim.out
  kill -STOP "${pids[mlogserver]}"
  attempt third redirect /var/mlog/victim >/dev/null || true
  kill -CONT "${pids[mlogserver]}"
  logs mlogserver 'it is a link'
  go_on victim
  expect 'the other has got nothing' grep -qx 'nothing came' /tmp/victim.out
}

attack_all() {
  useradd --no-create-home stranger
  useradd --no-create-home --gid _zorbus third
  board=$(sed -n 's/.*listening on \(127[0-9.:]*\).*/\1/p' /tmp/msgsvr.out)
  attack_sockets
  attack_notifications
  attack_log
  attack_requests
  attack_names
  attack_bodies
  userdel third
  userdel stranger
}
