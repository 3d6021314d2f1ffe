#!/usr/bin/env bash
# usage: check_procd.sh MADE UNITS
# procd is told to start the program that systemd would, as the same user and group, with the same umask and rights, and
# to pass SIGHUP on where systemd does. Once where setpriv is there, once where it is not.
set -euo pipefail
made=$1 units=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0
wrong() { echo "$*"; failed=1; }

# It must not touch this system.
printf '#!/bin/sh\n' >"$work/zor-setup"
chmod +x "$work/zor-setup"
cp "$made/init/servers" "$work"
procd() { # SCRIPT VERB SETTINGS...
  dash "$(dirname "$0")/procd_stub.sh" "$1" "$2" "zor_init=$work" "zor_is_configured() { :; }" \
    "command() { :; }" "${@:3}"
}
value() { sed -n "s/^$1=//p" "$unit" | tail -n 1; }
rights_of() { sed 's/CAP_/+/g; s/ /,/g' <<<"$1" | tr '[:upper:]' '[:lower:]'; }

for unit in "$units"/*.service.in; do
  name=$(basename "$unit" .service.in)
  name=${name%@}
  program=$made/sbin/$(basename "$(value ExecStart)")
  user=$(value User) group=$(value Group) mask=$(value UMask) rights=$(rights_of "$(value AmbientCapabilities)")
  for has_setpriv in true false; do
    procd "$made/procd/$name" start "zor_has_setpriv() { $has_setpriv; }" >"$work/out" || wrong "$name: fails"
    command=$(sed -n 's/^command //p' "$work/out")
    # Who it runs as: procd, setpriv or start-stop-daemon see to it.
    run_as=$(sed -n 's/^user //p' "$work/out")
    run_as+=$(grep -o -- '--reuid=[^ ]*' <<<"$command" | cut -d = -f 2 || true)
    run_as+=$(grep -o -- 'start-stop-daemon -S -c [^ ]*' <<<"$command" | cut -d ' ' -f 4 || true)
    [ "${run_as:-root}" = "${user:-root}" ] || wrong "$name: runs as $run_as"
    [[ -z $user || $command != *--regid=* || $command == *"--regid=$group "* ]] || wrong "$name: not of $group"
    [ "${user:-root}" = root ] || [[ $command == */bin/sh\ -c\ umask\ "$mask"\;* ]] || wrong "$name: not with $mask"
    if [ -n "$rights" ] && $has_setpriv; then
      [[ $command == *"--ambient-caps=-all,$rights "* ]] || wrong "$name: without $rights"
    fi
    [[ "$command " == *" $program "* || $command == *EXEC:"$program" ]] || wrong "$name: starts $command"
    grep -q '^FileDescriptorStoreMax=' "$unit" && kept=yes || kept=no
    [[ $command == *--keeper ]] && keeper=yes || keeper=no
    [ "$kept" = "$keeper" ] || wrong "$name: keeper: $keeper"
    oom=$(value OOMScoreAdjust)
    [[ $command == *"echo ${oom:-0} >/proc/self/oom_score_adj"* ]] || wrong "$name: without its OOM score"
    grep -q '^respawn ' "$work/out" || wrong "$name: is not started again"
  done
  if grep -q '^ExecReload=/bin/kill -HUP' "$unit"; then
    [ "$(procd "$made/procd/$name" reload)" = "signal $name * HUP" ] || wrong "$name: no reload"
  elif procd "$made/procd/$name" reload 2>/dev/null; then
    wrong "$name: has nothing to reload"
  fi
  # The same from the supervisors' scripts, which all become zor-run.
  for script in "$made/runit/$name/run" "$made/s6/$name/run" "$made/sysv/$name"; do
    grep -qE "(zor-run|zor_service) $name( |$)" "$script" || wrong "$script: not of $name"
  done
done
[ $failed = 0 ]
