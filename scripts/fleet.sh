#!/usr/bin/env bash
# A fleet in a box: a real broker and GATEWAYS gateways. Some of them are real: each a root of its own with msgsvr, zorbridge
# and two daemons that publish events; the others are played by one process over the real protocol. While events flow, lines
# are cut and frozen, bridges are killed and the broker is restarted. Then the account: each event that was published on a
# bus must have arrived at a collector once and in order, under numbers without holes. Exit status 1 when it does not balance.
# Usage: fleet.sh GATEWAYS [--seconds 30] [--bridges M] [--rate 1] [--first-pause 2] [--longest-pause 30] [--calm]
#                 [--tls] [--built DIRECTORY] [--keep]
#   --bridges: real gateways; by default as many as GATEWAYS, at most 50. Never more than a third of the free memory holds.
#   --rate: events a second of each series; a real gateway has two series. --calm: nothing is cut, frozen, killed or restarted.
#   --built: the programs' build instead of a release build of our own. --keep: leaves the files, for a look at the logs.
set -euo pipefail
PATH=$PATH:/usr/sbin
cd "$(dirname "$0")/.."

usage() {
  sed -n 's/^# \(Usage:\|     \)/\1/p' "$0" >&2
  exit 2
}

[[ ${1:-} =~ ^[1-9][0-9]*$ ]] || usage
gateways=$1
shift
seconds=30 bridges='' rate=1 first_pause=2 longest_pause=30 calm='' build='' keep='' tls=''
while [ $# -gt 0 ]; do
  case $1 in
    --calm | --keep | --tls) declare "${1#--}=yes" && shift && continue ;;
    --seconds) name=seconds ;;
    --bridges) name=bridges ;;
    --rate) name=rate ;;
    --first-pause) name=first_pause ;;
    --longest-pause) name=longest_pause ;;
    --built) name=build ;;
    *) usage ;;
  esac
  [ $# -ge 2 ] || usage
  declare "$name=$2"
  shift 2
done

programs=(players account cutter gateway_daemon msgsvr zorbridge)
if [ -z "$build" ]; then
  build=build/release
  scripts/setup.sh bench
  cmake --preset release >/dev/null
  cmake --build --preset release --target "${programs[@]}" >/dev/null
fi

# What a real gateway takes, its pages that others share left out; measured, rounded up.
gateway_kib=6144
free_kib=$(awk '/^MemAvailable:/ { print $2 }' /proc/meminfo)
most=$((free_kib / 3 / gateway_kib))
[ -n "$bridges" ] || bridges=$((gateways < 50 ? gateways : 50))
bridges=$((bridges < gateways ? bridges : gateways))
if [ "$bridges" -gt "$most" ]; then
  echo "fleet: $bridges real gateways would take more than a third of the free memory: $most instead"
  bridges=$most
fi
played=$((gateways - bridges))
# These lose what is published while they are dead, and what is younger than group_seconds; nothing else.
killed=$((bridges < 3 ? 0 : (bridges + 9) / 10))
[ -z "$calm" ] || killed=0

# As far as it may be raised: the broker and the players need a descriptor or more for each connection.
ulimit -Sn "$(ulimit -Hn)"

root=$(mktemp -d "${TMPDIR:-/dev/shm}/fleet.XXXXXX")
declare -A pids=()
clean_up() {
  { kill -KILL "${pids[@]}" || true; wait || true; } >/dev/null 2>&1
  if [ -n "$keep" ]; then echo "fleet: the logs are in $root"; else rm -rf "$root"; fi
}
trap clean_up EXIT
fail() {
  tail -n 3 "$root"/{broker,bridge0,players0}.log >&2 || true
  echo "FAILED fleet: $*" >&2
  exit 1
}
say() { printf '%3d s: %s\n' "$(($(date +%s) - begin))" "$*"; }
begin=$(date +%s)

run() { # NAME PROGRAM ARGUMENT...: in the background, its output in NAME.log
  "${@:2}" >>"$root/$1.log" 2>&1 &
  pids[$1]=$!
}
wait_for() { # WHAT SECONDS COMMAND...
  local end=$((SECONDS + $2))
  until "${@:3}" >/dev/null 2>&1; do
    [ $SECONDS -lt $end ] || fail "$1"
    sleep 0.1
  done
}

accepts() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }
start_broker() {
  run broker mosquitto -c "$root/broker.conf"
  wait_for "the broker accepts connections" 60 accepts "$port"
}
make_certificates() { # of an authority, of the broker and of all gateways
  local ca=$root/authority
  cat >"$root/openssl.conf" <<CONF
[req]
distinguished_name = name
[name]
[authority]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign
[broker]
subjectAltName = IP:127.0.0.1
[gateway]
subjectAltName = DNS:gateway
CONF
  make_key() { openssl ecparam -name prime256v1 -genkey -noout -out "$1"; }
  make_key "$ca.key"
  openssl req -config "$root/openssl.conf" -x509 -new -key "$ca.key" -subj /CN=fleet -extensions authority -days 7 \
    -out "$ca.pem"
  for each in broker gateway; do
    mkdir "$root/$each"
    cp "$ca.pem" "$root/$each/authority.pem"
    make_key "$root/$each/key.pem"
    chmod 600 "$root/$each/key.pem"
    openssl req -config "$root/openssl.conf" -new -key "$root/$each/key.pem" -subj "/CN=$each" |
      openssl x509 -req -CA "$ca.pem" -CAkey "$ca.key" -CAcreateserial -days 7 -extfile "$root/openssl.conf" \
        -extensions "$each" -out "$root/$each/certificate.pem" 2>/dev/null
  done
}
find_broker() { # on a free port
  for port in $(shuf -i 20000-32000 -n 20); do
    if accepts "$port" || accepts $((port + 1)); then continue; fi
    cat >"$root/broker.conf" <<CONF
listener $port 127.0.0.1
allow_anonymous true
persistence true
persistence_location $root/
max_queued_messages 0
sys_interval 1
log_type error
log_type warning
${tls_listener:+listener $((port + 1)) 127.0.0.1
$tls_listener}
$([ "$(id -u)" -ne 0 ] || echo 'user root')
CONF
    start_broker
    return
  done
  fail 'there is no free port'
}

broker_use() { # what the broker has taken since it was started
  local ticks kib
  ticks=$(awk '{ sub(/.*\) /, ""); print $12 + $13 }' "/proc/${pids[broker]}/stat")
  kib=$(awk '/^Private_(Clean|Dirty):/ { sum += $2 } END { print sum }' "/proc/${pids[broker]}/smaps_rollup")
  say "the broker has $kib KiB of memory of its own and has used $((ticks * 1000 / $(getconf CLK_TCK))) ms"
}
name_of() { if [ "$1" -lt "$killed" ]; then echo "killed$1"; else echo "gateway$1"; fi; }
start_bridge() { # INDEX
  ZOR_ROOT=$root/g$1 run "bridge$1" "$build/daemons/zorbridge/zorbridge" --settings "$root/g$1/zorbridge.conf"
}
start_bus() { # INDEX
  local home=$root/g$1
  mkdir -p "$home/etc/zor"
  [ -z "$tls" ] || cp -r "$root/gateway" "$home/etc/zor/bridge"
  cat >"$home/zorbridge.conf" <<CONF
broker = $scheme://127.0.0.1:$line
gateway = $(name_of "$1")
retry_first_seconds = $first_pause
retry_most_seconds = $longest_pause
call.alpha = 0x4001
CONF
  ZOR_ROOT=$home run "msgsvr$1" "$build/daemons/msgsvr/msgsvr"
  wait_for "gateway $1 has a bus" 60 test -S "$home/var/msgsvr"
  start_bridge "$1"
}
start_daemons() { # INDEX
  ZOR_ROOT=$root/g$1 run "alpha$1" "$build/bench/gateway_daemon" name alpha module device rate "$rate" seconds "$seconds"
  ZOR_ROOT=$root/g$1 run "beta$1" "$build/bench/gateway_daemon" name beta module network rate "$rate" seconds "$seconds"
}

# Connections at the broker, which counts itself what it publishes here once a second.
watch_broker() {
  run watch mosquitto_sub -V 5 -p "$port" -i watch -F '%U %p' -t "\$SYS/broker/clients/connected"
}
connected() { tail -n 1 "$root/watch.log" 2>/dev/null | cut -d ' ' -f 2; }
all_connected() { [ "$(connected)" -ge "$((gateways + 2))" ]; } # the account and the watch too
curve() { # SINCE: how the connections came back
  awk -v since="$1" -v all="$((gateways + 2))" '
    $1 >= since && $2 >= 2 { printf "  %5.1f s after the restart: %d of %d gateways connected\n", $1 - since, $2 - 2, all - 2
                  if ($2 >= all) exit }' "$root/watch.log"
}

say "$bridges real gateways, $played played, $(ulimit -n) descriptors for a process"
scheme=mqtt tls_listener='' played_tls=()
if [ -n "$tls" ]; then
  make_certificates
  scheme=mqtts
  tls_listener="certfile $root/broker/certificate.pem
keyfile $root/broker/key.pem
cafile $root/broker/authority.pem
require_certificate true"
  played_tls=(tls "$root/gateway")
fi
find_broker
door=$port # where the gateways connect
[ -z "$tls" ] || door=$((port + 1))
run cutter "$build/bench/cutter" port "$door"
wait_for 'the cutter listens' 60 test -s "$root/cutter.log"
line=$(head -n 1 "$root/cutter.log")
watch_broker
run account "$build/bench/account" port "$port" series $((played + 2 * bridges)) frail killed \
  patience $((seconds * 3 + gateways / 10 + 240))
for ((i = 0; i < bridges; ++i)); do start_bus "$i"; done
# A player takes three descriptors.
part=$((($(ulimit -n) - 100) / 3))
for ((i = 0; i < played; i += part)); do
  run "players$i" "$build/bench/players" port "$door" "${played_tls[@]}" gateways $((played - i < part ? played - i : part)) name "played$i-" \
    seconds "$seconds" rate "$rate" first_pause "$first_pause" longest_pause "$longest_pause" linger 86400 \
    wait "$((first_pause + 1))" patience $((seconds * 3 + gateways / 10 + 240))
done
wait_for 'all gateways are connected' $((60 + gateways / 5)) all_connected
say 'all gateways are connected; the daemons begin to publish'
broker_use
events_begin=$SECONDS
for ((i = 0; i < bridges; ++i)); do start_daemons "$i"; done

sum_of_played() { # COUNT: in the latest lines of the players
  { tail -qn 1 "$root"/players*.log 2>/dev/null || true; } | sed "s/.* \([0-9]*\) $1.*/\1/" | awk '{ sum += $1 } END { print sum + 0 }'
}
at() { # PERCENT of the time in which events flow
  local left=$((events_begin + seconds * $1 / 100 - SECONDS))
  [ "$left" -le 0 ] || sleep "$left"
}
asked=0 answered=0
ask() { # INDEX: a request from outside
  wait_for "alpha$1 is on the bus" 60 grep -qs 'on the bus' "$root/alpha$1.log"
  asked=$((asked + 1))
  local reply
  reply=$(mosquitto_rr -V 5 -p "$port" -i "rr$asked" -q 1 -W 20 -t "zor/$(name_of "$1")/call/alpha/0x4001" -e "answers/$asked" \
    -D publish correlation-data "$asked" -m '{"data":41}') || true
  if [[ $reply == *'"data":42'* ]]; then answered=$((answered + 1)); else say "no answer but: $reply"; fi
}
for ((i = 0; i < bridges && i < 10; ++i)); do ask "$i"; done

if [ -z "$calm" ]; then
  at 20
  say 'all lines of real gateways are cut'
  kill -USR1 "${pids[cutter]}"
  at 35
  say 'all lines of real gateways are frozen for 3 s'
  kill -USR2 "${pids[cutter]}"
  sleep 3
  kill -HUP "${pids[cutter]}"
  at 50
  say "$killed bridges are killed and started again"
  for ((i = 0; i < killed; ++i)); do
    { kill -KILL "${pids[bridge$i]}" && wait "${pids[bridge$i]}"; } 2>/dev/null || true
    start_bridge "$i"
  done
  at 60
  wait_for 'all gateways are connected' 120 all_connected
  broker_use
  say 'the broker is restarted, after 2 s'
  kill -TERM "${pids[broker]}"
  wait "${pids[broker]}" || true
  kill -TERM "${pids[watch]}"
  wait "${pids[watch]}" || true
  : >"$root/watch.log"
  sleep 2
  start_broker
  restarted=$(date +%s.%N)
  sleep 1
  unreached=$(sum_of_played unreached)
  watch_broker
  wait_for 'all gateways are connected again' $((120 + longest_pause * 3)) all_connected
  say 'all gateways are connected again'
  broker_use
  curve "$restarted"
  echo "  attempts of played ones that reached no broker, later than a second after the restart:" \
    $(($(sum_of_played unreached) - unreached))
fi

status=0
wait "${pids[account]}" || status=1
say 'all events have arrived, or time is over'
broker_use
[ "$asked" -eq "$answered" ] || status=1
cat "$root/account.log"
echo "requests from outside: $asked, answered: $answered"
tail -n 1 "$root/cutter.log" | grep '^cutter' || true
for log in "$root"/players*.log; do [ ! -e "$log" ] || printf 'played: %s\n' "$(tail -n 1 "$log")"; done
refused=$(($(sum_of_played refused) + $(cat "$root"/bridge*.log 2>/dev/null | grep -c 'refuses' || true)))
echo "connections refused by a running broker: $refused"
[ "$refused" -eq 0 ] || status=1
if [ $status -eq 0 ]; then echo 'fleet: the account balances'; else echo 'FAILED fleet: the account does not balance'; fi
exit $status
