#!/usr/bin/env bash
# Runs for scripts/package-test.sh inside the fresh folder, with the packages and the examples beside this file.
# Usage: check_packages.sh [--emulated]   (--emulated: only what takes no compiler and does not attack)
set -euo pipefail
emulated=${1:-}
cd "$(dirname "$0")"
chmod 755 /root . ./*  # for the users of the daemons

ours=(libmsgapi1 libzorplatform1 libmsgapi-dev zorgen msgapi-servers zorweb zorctl lua-zor python3-zor)
[ -n "$emulated" ] || ours+=(libmsgapi-doc) # of no architecture: made once
servers=(msgsvr notifyserver mlogserver cms syslogd)
export DEBIAN_FRONTEND=noninteractive
declare -A pids=()

say() { printf '\n== %s\n' "$*"; }
fail() {
  echo "FAILED $*"
  for output in /tmp/*.out; do [ -e "$output" ] && tail -n 20 "$output"; done
  for pid in "${pids[@]}"; do kill -KILL "$pid" 2>/dev/null || true; done
  exit 1
}
expect() { # WHAT COMMAND...: the command must succeed
  "${@:2}" >/tmp/expected.out 2>&1 || fail "$1"
  echo "ok $1"
}
quietly() {
  local output
  output=$("$@" 2>&1) || fail "$*: $output"
}

# Every file except the bookkeeping of the package manager and of systemd, and the test's own.
list_files() {
  find / -xdev \( -path /run/systemd -o -path /var/lib/dpkg -o -path /var/lib/apt -o -path /var/cache -o -path /var/log \
    -o -path /tmp -o -path /root -o -name '*-' -path '/etc/*' \) -prune -o -print | LC_ALL=C sort
}

start() { # SERVER READY-TEXT: with the rights that its unit gives it
  local unit=/usr/lib/systemd/system/$1.service
  setting() { sed -n "s/^$1=//p" "$unit"; }
  local caps
  caps=-all$(setting AmbientCapabilities | tr '[:upper:]' '[:lower:]' | sed 's/\(^\| \)cap_/,+/g')
  : >"/tmp/$1.out"
  (
    umask "$(setting UMask)"
    exec setpriv --reuid "$(setting User)" --regid "$(setting Group)" --clear-groups --no-new-privs \
      --bounding-set "$caps" --inh-caps "$caps" --ambient-caps "$caps" "$(setting ExecStart)"
  ) >"/tmp/$1.out" 2>&1 &
  pids[$1]=$!
  for _ in $(seq 200); do
    if grep -qF "$2" "/tmp/$1.out"; then
      echo "ok $1 runs as $(setting User)"
      return
    fi
    sleep 0.05
  done
  fail "$1 did not say: $2"
}

# shellcheck source=tests/install/attacks.sh
. ./attacks.sh

stopped() { # NAME: it ends with exit status 0
  wait "${pids[$1]}"
  unset "pids[$1]"
}

say 'what the packages need'
quietly apt-get -qq update
needed=$(for package in *.deb; do dpkg-deb -f "$package" Depends; done | tr ',' '\n' | sed 's/^ *//; /^$/d' | sort -u |
  grep -vE "^($(IFS='|'; echo "${ours[*]}"))( |$)" | paste -sd ,)
quietly apt-get -qq satisfy -y --no-install-recommends "$needed"
list_files >/tmp/before
echo 'ok it is installed'

say 'installing'
quietly apt-get -qq install -y --no-install-recommends ./*.deb
# What differs is printed, and is no failure for dpkg.
is_whole() { dpkg --verify "$1" >/tmp/differing && [ ! -s /tmp/differing ]; }
for package in "${ours[@]}"; do expect "$package is installed" is_whole "$package"; done
rm -f /tmp/differing
expect 'the units are sound' systemd-analyze --man=no verify "${servers[@]/%/.service}" zortunnel.service zorbridge.service zorweb.service
for server in "${servers[@]}" zortunnel zorbridge zorweb; do
  printf '%-14s %s\n' "$server" "$(systemd-analyze security --offline=true --no-pager "$server.service" |
    sed -n 's/.*exposure level for [^:]*: \([0-9.]* [A-Z]*\).*/exposure \1/p')"
done

say 'servers, each as its own user'
useradd --no-create-home --gid _zorbus first
useradd --no-create-home --gid _zorbus second
{
  printf 'trace.%s = demo=info\n' cms web # what the examples look for
  echo 'tcp = 127.0.0.1:0'
} >/etc/zor/msgsvr.conf
cat >/etc/zor/access.d/50-web.conf <<'RULES'
allow = user:second own web
deny = any own web
allow = user:second module 26
deny = any module 26
RULES
# The emulator does not report the groups of a peer.
[ -z "$emulated" ] || sed -n 's/^allow = group:_zorbus /allow = any /p' /etc/zor/access.d/90-default.conf \
  >/etc/zor/access.d/95-emulated.conf
start msgsvr 'listening on /var/msgsvr'
start notifyserver 'listening on /var/run/notify/notifyserver'
start mlogserver 'listening on /var/mlog/mlogServer'

expect 'the rules of access are sound' zorctl access test /etc/zor/access.d
expect 'they keep a packaged name' sh -c 'zorctl access explain user:_zor-cms own cms && ! zorctl access explain user:root own cms'

say 'daemons of two more users talk'
as_first=(setpriv --reuid first --regid _zorbus --clear-groups)
as_second=(setpriv --reuid second --regid _zorbus --clear-groups)
expect 'a packaged name is refused' sh -c '! timeout 10 "$@" ./provider' sh "${as_first[@]}"
expect 'the log names the rule' grep -q 'own cms refused to .*: /etc/zor/access.d/90-default.conf:' /tmp/msgsvr.out
# The provider stands in for cms: by rules of its own it may.
cat >/etc/zor/access.d/10-test.conf <<'RULES'
allow = user:first own cms
allow = user:first module 8
allow = user:second send SAFE_EXIT to cms
RULES
expect 'rules of its own are put in force' sh -c 'zorctl access reload && kill -HUP "$1"' sh "${pids[notifyserver]}"
expect 'the notification server has them' sh -c 'for _ in $(seq 200); do
  ! grep -q "took over" /tmp/notifyserver.out || exit 0; sleep 0.05; done; exit 1'
"${as_first[@]}" ./provider >/tmp/provider.out 2>&1 &
pids[provider]=$!
expect 'the provider is there' zorctl wait --timeout 10 cms
expect 'the consumer gets all that it asks for' timeout 60 "${as_second[@]}" ./consumer
expect 'the provider has left as it was asked to' stopped provider
rm /etc/zor/access.d/10-test.conf
expect 'the packaged rules are alone again' sh -c 'zorctl access reload && kill -HUP "$1"' sh "${pids[notifyserver]}"

if [ -z "$emulated" ]; then
  mkdir built
  ./check_consumers.sh tree/README.md tree/tests/install/consumer built "${as_first[@]}" || fail 'the consumers'

  say 'the tutorials, as their readers would'
  for page in tree/docs/tutorial/*.md; do
    expect "$page" python3 -B tree/tests/faces/follow_page.py "$page"
  done

  say 'the tests that come with the source package'
  for name in examples scripts; do expect "$name" timeout 600 tree/debian/tests/$name; done
fi

say "the system's own daemons serve a third one"
start cms 'on the bus as cms'
start syslogd 'on the bus as syslog'
"${as_first[@]}" ./login_keeper >/tmp/login_keeper.out 2>&1 &
pids[login_keeper]=$!
expect 'all are there' zorctl wait --timeout 10 cms syslog lctrl
# As root: only root and cms may read the device list.
expect 'the services do what they are asked for' timeout 60 ./services
expect 'the store is for all daemons' "${as_second[@]}" test -w /var/zor_config.db
expect 'trace settings are kept' sh -c 'zorctl trace set web all=debug && test -s /var/lib/zor/msgsvr.trace'
expect 'zorctl sees who they are' sh -c 'zorctl list | grep _zor-cms && zorctl list | grep _zor-syslog'
expect 'a message that is not everybodys is refused' sh -c \
  '! setpriv --reuid second --regid _zorbus --clear-groups zorctl send CLEAN_CFG cms'
expect 'zorctl loads its part for fleets' sh -c 'zorctl gateways --fleet mqtt://127.0.0.1:1; test $? -eq 6'
expect 'zorctl is refused as another user' sh -c '! setpriv --reuid second --regid _zorbus --clear-groups zorctl list'

start zorweb 'on the bus as zorweb'
expect 'its token is for administrators' test "$(stat -c %a:%U:%G /var/lib/zor-web/token)" = 640:_zor-web:_zoradmin
expect 'it may list the daemons' bash -c 'exec 3<>/dev/tcp/127.0.0.1/8780
  printf "GET /metrics HTTP/1.0\r\nHost: localhost\r\nAuthorization: Bearer %s\r\n\r\n" "$(cat /var/lib/zor-web/token)" >&3
  grep -q "daemon=.syslog." <&3'
expect 'and no more' sh -c '! zorctl access explain user:_zor-web send CLEAN_CFG to cms && ! zorctl access explain user:_zor-web own web'

say 'scripts in Lua'
for version in 5.4 5.1; do
  expect "a daemon in Lua $version answers" timeout 60 bash -c '
    "$1" -e "bus = require([[zor]]).open([[script]]) bus:serve(0x6101, function() return {ok = true} end) bus:run()" &
    zorctl wait --timeout 10 script && zorctl call 0x6101 script | grep -F "{\"ok\":true}" && zorctl send SAFE_EXIT script
    wait' bash "lua$version"
done

[ -n "$emulated" ] || attack_all

say 'removing'
for name in zorweb login_keeper cms syslogd mlogserver notifyserver msgsvr; do
  kill -TERM "${pids[$name]}"
  expect "$name has stopped cleanly" stopped "$name"
done
# What this script has put there. The packages' own are theirs to remove.
rm -f /etc/zor/msgsvr.conf /etc/zor/access.d/50-web.conf /etc/zor/access.d/95-emulated.conf
quietly apt-get -qq purge -y "${ours[@]}"
userdel first
userdel second
list_files >/tmp/after
expect 'nothing is left' diff /tmp/before /tmp/after

printf '\npackages: everything worked\n'
