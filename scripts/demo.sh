#!/usr/bin/env bash
# Builds the servers and the example daemons, runs them in a fresh ZOR_ROOT and shows them talking, to each other and
# through a real broker. The exit status is 0 only when every step of the examples was seen to work. Needs Debian 12, and
# root only when packages are missing.
# Usage: demo.sh [PRESET [EMULATOR...]]   (EMULATOR: the command that runs programs of another machine)
set -euo pipefail
cd "$(dirname "$0")/.."

say() { printf '\n== %s\n' "$*"; }

fail() {
  printf 'FAILED %s\n' "$*"
  exit 1
}

expect() { # WHAT COMMAND...: the command must succeed
  "${@:2}" >/dev/null || fail "$1"
  printf 'ok %s\n' "$1"
}

say 'packages and build'
scripts/setup.sh demo
preset=${1:-release}
emulator=("${@:2}")
build=build/$preset
programs=(msgsvr notifyserver mlogserver cms syslogd zorbridge provider consumer services login_keeper devices codecs processes
  zorctl)
mkdir -p build
scripts/with-progress.sh build/demo.log \
  bash -c 'cmake --preset "$1" && cmake --build --preset "$1" --target "${@:2}"' bash "$preset" "${programs[@]}" || {
  cat build/demo.log
  fail 'build'
}
echo "ok built in $build"

ZOR_ROOT=$(mktemp -d)
export ZOR_ROOT
declare -A pids=()
clean_up() {
  {
    for pid in "${pids[@]}"; do kill -KILL "$pid" || true; done
    wait
  } 2>/dev/null
  rm -rf "$ZOR_ROOT"
}
trap clean_up EXIT

is_running() { kill -0 "${pids[$1]}" 2>/dev/null; }

start() { # NAME READY-TEXT PROGRAM ARGUMENT...: runs it in the background, its output in NAME.out
  local out=$ZOR_ROOT/$1.out
  : >"$out"
  "${emulator[@]}" "$build/$3" "${@:4}" >>"$out" 2>&1 &
  pids[$1]=$!
  for _ in $(seq 200); do
    if grep -qF "$2" "$out"; then return; fi
    if ! is_running "$1"; then break; fi
    sleep 0.05
  done
  cat "$out"
  fail "$1 did not print: $2"
}

ended_well() { # NAME: it exits soon, with status 0
  for _ in $(seq 200); do
    if ! is_running "$1"; then break; fi
    sleep 0.05
  done
  if is_running "$1"; then return 1; fi
  wait "${pids[$1]}"
}

within_seconds() { # COMMAND...: it succeeds soon
  for _ in $(seq 200); do
    if "$@" >/dev/null 2>&1; then return; fi
    sleep 0.05
  done
  return 1
}

free_port() { # one that nothing listens at
  local port
  while :; do
    port=$((20000 + RANDOM % 20000))
    if ! (: <"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then break; fi
  done
  echo "$port"
}

say 'servers'
cat >"$ZOR_ROOT/msgsvr.conf" <<'SETTINGS'
trace.cms = demo=info
trace.web = demo=info
SETTINGS
start msgsvr 'msgsvr: listening on /var/msgsvr' daemons/msgsvr/msgsvr --settings "$ZOR_ROOT/msgsvr.conf"
start notifyserver 'notifyserver: listening on /var/run/notify/notifyserver' daemons/notifyserver/notifyserver
start mlogserver 'mlogserver: listening on /var/mlog/mlogServer' daemons/mlogserver/mlogserver
servers=(msgsvr notifyserver mlogserver)
for server in "${servers[@]}"; do cat "$ZOR_ROOT/$server.out"; done

say 'two daemons talk (lines of the provider begin with "cms:")'
transcript=$ZOR_ROOT/provider.out
start provider 'cms: registered' examples/provider
consumer_status=0
timeout 60 "${emulator[@]}" "$build/examples/consumer" >>"$transcript" 2>&1 || consumer_status=$?
tr -d '\r' <"$transcript"
[ "$consumer_status" -eq 0 ] || fail "the consumer exited with status $consumer_status"

expect 'the provider exited on request' ended_well provider

say 'children, commands and server sockets'
"${emulator[@]}" "$build/examples/processes" 2>&1 | tr -d '\r' || fail 'the process example'

say 'a tour of the codecs'
"${emulator[@]}" "$build/examples/codecs" || fail 'the codec example'

say "the system's own daemons serve a third one"
start cms 'cms: on the bus' daemons/cms/cms
start syslogd 'syslogd: on the bus' daemons/syslogd/syslogd
start login_keeper 'lctrl: on the bus' examples/login_keeper
timeout 60 "${emulator[@]}" "$build/examples/services" 2>&1 | tr -d '\r' || fail 'the service example'
"${emulator[@]}" "$build/examples/devices" | tee "$ZOR_ROOT/devices.out" || fail 'reading the device list'
expect 'another process read the device list' \
  grep -qFx 'device **11**AA**CC: state 23, 4096 bytes loaded' "$ZOR_ROOT/devices.out"

say 'an operator inspects the running system'
zorctl() { timeout 30 "${emulator[@]}" "$build/tools/zorctl/zorctl" "$@"; }
shown() { # WHAT TEXT ARGUMENT...: zorctl succeeds and prints the text
  printf '$ zorctl'
  printf ' %q' "${@:3}"
  printf '\n'
  zorctl "${@:3}" >"$ZOR_ROOT/shown" || {
    cat "$ZOR_ROOT/shown"
    fail "$1"
  }
  cat "$ZOR_ROOT/shown"
  grep -qF -- "$2" "$ZOR_ROOT/shown" || fail "$1"
  printf 'ok %s\n' "$1"
}
shown 'three daemons are on the bus' syslog list
shown 'the log daemon replied' 'result: 0' call ZOR_LOG_MSG_FLUSH syslog
shown 'the log shows the login' 'login' log --count 3
shown 'the store lists a parameter' 'parameter' config list
shown 'a trace setting is kept' 'level of demo  debug' trace set cms demo=debug
kill -STOP "${pids[login_keeper]}"
zorctl call ZOR_LCTRL_FORBIDDEN_ROUND --hex 000000000000000000000000 --timeout 0.5 >"$ZOR_ROOT/unanswered" 2>&1 &&
  fail 'a stopped daemon replied'
cat "$ZOR_ROOT/unanswered"
shown 'the tool reports why' 'stopped' why lctrl
kill -CONT "${pids[login_keeper]}"
shown 'a daemon exits on request' 'has left' exit lctrl

expect 'login_keeper stopped cleanly' ended_well login_keeper

say 'a fleet of one: the bus at a broker'
port=$(free_port)
printf 'listener %s 127.0.0.1\nallow_anonymous true\n' "$port" >"$ZOR_ROOT/mosquitto.conf"
/usr/sbin/mosquitto -c "$ZOR_ROOT/mosquitto.conf" >"$ZOR_ROOT/mosquitto.out" 2>&1 &
pids[mosquitto]=$!
accepts() { (: <"/dev/tcp/127.0.0.1/$port") 2>/dev/null; }
expect 'a broker listens' within_seconds accepts
mosquitto_sub -V 5 -p "$port" -t 'zor/#' -v >"$ZOR_ROOT/mosquitto_sub.out" &
pids[mosquitto_sub]=$!
arrived() { grep -F "$1" "$ZOR_ROOT/mosquitto_sub.out"; }
cat >"$ZOR_ROOT/zorbridge.conf" <<SETTINGS
broker = mqtt://127.0.0.1:$port
gateway = demo-box
retry_first_seconds = 1
call.syslog = LOG_MSG_FLUSH
SETTINGS
start zorbridge 'zorbridge: on the bus' daemons/zorbridge/zorbridge --settings "$ZOR_ROOT/zorbridge.conf"
expect 'the broker knows that the gateway is there' within_seconds arrived 'zor/demo-box/presence {"schema":1,"gateway":"demo-box","online":true'
zorctl publish lan Roamed host=laptop
expect "an event of a daemon arrived at the broker's subscriber" within_seconds arrived '"EventType":"Roamed"'
arrived '"EventType":"Roamed"'
ask() { # TYPE: a request from outside, and its answer
  printf '$ mosquitto_rr -t zor/demo-box/call/syslog/%s\n' "$1"
  timeout 30 mosquitto_rr -V 5 -p "$port" -t "zor/demo-box/call/syslog/$1" -e "answers/$1" \
    -D publish correlation-data demo -m '{}' | tee "$ZOR_ROOT/answer"
}
ask LOG_MSG_FLUSH
expect 'a request from outside is answered by the daemon' grep -F '"result":"done"' "$ZOR_ROOT/answer"
ask LOG_MSG_CLEAR
expect 'one that the settings do not allow is refused' grep -F '"result":"refused"' "$ZOR_ROOT/answer"
kill -TERM "${pids[zorbridge]}"
expect 'zorbridge stopped cleanly' ended_well zorbridge
expect 'and has taken its leave of the broker' within_seconds arrived '"reason":"stopped"'
kill -TERM "${pids[mosquitto_sub]}" "${pids[mosquitto]}"

for daemon in cms syslogd; do
  kill -TERM "${pids[$daemon]}"
  expect "$daemon stopped cleanly" ended_well "$daemon"
done

say 'what is left behind'
for server in "${servers[@]}"; do
  kill -TERM "${pids[$server]}"
  expect "$server stopped cleanly" ended_well "$server"
done
expect 'the trace line was printed' grep -qF 'a trace line of web' "$transcript"
expect 'the log line is in the circular file' grep -aF 'a log line of web' "$ZOR_ROOT/online/log/mlog.log"
expect 'no body file is left' test -z "$(ls -A "$ZOR_ROOT/var/run/msg")"

printf '\ndemo: everything worked\n'
