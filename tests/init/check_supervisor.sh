#!/usr/bin/env bash
# usage: check_supervisor.sh MADE runit|s6 ZORCTL
# A supervisor runs the servers below ZOR_ROOT. The message server is killed, and then its keeper: it comes back, and its
# clients with it.
set -euo pipefail
made=$1 supervisor=$2 zorctl=$3
. "$(dirname "$0")/common.sh"
services='msgsvr notifyserver mlogserver cms syslogd zorweb zorweb-login zorbridge zortunnel'
# With the end supervisors send SIGCONT, which undoes the stop in which a sanitizer looks for leaks: it would wait for ever.
export ASAN_OPTIONS=${ASAN_OPTIONS:-}:detect_leaks=0
scan=$work/scan log=$work/scan.log
mkdir "$scan"
for each in $services; do cp -r "$made/$supervisor/$each" "$scan"; done

# Of a service: its process, a signal, whether it is down and to stay so.
case $supervisor in
  runit)
    command=(runsvdir -P "$scan")
    pid_of() { cat "$scan/$1/supervise/pid"; }
    hang_up() { sv hup "$scan/$1"; }
    is_left_alone() { [[ $(sv status "$scan/$1") == down:* && $(sv status "$scan/$1") != *"want up"* ]]; }
    # It would not wait for its services to end.
    stop_all() { kill "$1" && sv -w 100 shutdown "$scan"/*; }
    ;;
  s6)
    command=(s6-svscan "$scan")
    pid_of() { s6-svstat -o pid "$scan/$1"; }
    hang_up() { s6-svc -h "$scan/$1"; }
    is_left_alone() { [ "$(s6-svstat -o up,wantedup "$scan/$1")" = "false false" ]; }
    stop_all() { s6-svscanctl -t "$scan"; }
    ;;
esac
is_served() { "$zorctl" wait cms syslog --timeout 5; }

"${command[@]}" >"$log" 2>&1 &
supervising=$!
clean_up() {
  if ! lacks_process $supervising; then
    stop_all $supervising || true
    wait $supervising || true
  fi
  rm -rf "$work"
}
trap clean_up EXIT

await is_served
for each in zorbridge zortunnel; do
  await is_left_alone $each
  has_line "$log" "$each.conf is missing" || fail "not a word on $each"
done
case $supervisor in
  runit)
    await has_line "$log" 'zorweb: listening on'
    await has_line "$log" 'zorweb-login: socat listens'
    ;;
  s6) s6-svwait -U -t 100000 "$scan"/{msgsvr,notifyserver,mlogserver,cms,syslogd,zorweb,zorweb-login} ;;
esac

keeper=$(pid_of msgsvr)
server=$(server_of "$keeper")
kill -KILL "$server"
await has_line "$log" 'msgsvr: took over from a server that crashed: '
await is_served
is_another "$server" server_of "$keeper" || fail 'the keeper has not started another server'
[ "$(pid_of msgsvr)" = "$keeper" ] || fail 'the keeper has ended with its server'

hang_up msgsvr
await has_line "$log" 'msgsvr: version'
await is_served

server=$(server_of "$keeper")
kill -KILL "$keeper"
await is_another "$keeper" pid_of msgsvr
await lacks_process "$server"
await is_served
[ "$(pid_of msgsvr)" != "$keeper" ] || fail 'nobody keeps the server'

keeper=$(pid_of msgsvr)
stop_all $supervising
wait $supervising || true
await lacks_process "$keeper"
