#!/usr/bin/env bash
# Runs a command in a namespace in which the kernel executes the programs of another machine, also when one program
# executes another: it hands them to the emulator, and /usr/lib has the libraries of the machine's sysroot too. Nothing of
# that is visible outside. Fails where the kernel does not allow it (Linux 6.7 does, unless it has been forbidden).
# Usage: run-as.sh MACHINE COMMAND...   (MACHINE: a row of cmake/machines.tsv whose sysroot scripts/machine.sh has filled)
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
machine=${1:-}
[ "$machine" = --inside ] || { [ $# -ge 2 ] && grep -q "^$machine	" "$root/cmake/machines.tsv"; } || {
  sed -n 's/^# Usage: /usage: /p' "$0" >&2
  exit 2
}
shift

# The second half of this script, in the namespace.
if [ "$machine" = --inside ]; then
  machine=$1 uid=$2 gid=$3
  shift 3
  for ((left = 1000; $(id -u) != 0; --left)); do
    [ $left -gt 0 ] || {
      echo 'run-as: this kernel does not let root keep its users in a namespace' >&2
      exit 1
    }
    sleep 0.01
  done
  IFS=$'\t' read -r _ _ _ _ _ emulator magic _ < <(grep "^$machine	" "$root/cmake/machines.tsv")
  if [ "$emulator" != - ]; then
    read -r class order number <<<"$magic"
    [ "$order" = 1 ] && kind='\x02\x00' mask='\xfe\xff' || kind='\x00\x02' mask='\xff\xfe'
    ignored=$(printf '\\x00%.0s' {1..9})
    mount -t binfmt_misc none /proc/sys/fs/binfmt_misc
    printf '%s' ":$machine:M::\\x7fELF\\x0$class\\x0$order\\x01$ignored$kind\\x${number:0:2}\\x${number:2}:" \
      "\\xff\\xff\\xff\\xff\\xff\\xff\\xff$ignored$mask\\xff\\xff:/usr/bin/qemu-$emulator-static:POCF" \
      >/proc/sys/fs/binfmt_misc/register
  fi
  sysroot=$root/build/sysroot/$machine
  # The first one wins: the host may have another loader for that machine, which does not look there.
  libraries=$sysroot/usr/lib
  [ -L "$sysroot/lib" ] || [ ! -d "$sysroot/lib" ] || libraries+=:$sysroot/lib
  mount -t overlay -o "lowerdir=$libraries:/usr/lib" overlay /usr/lib
  if [ "$uid" = 0 ]; then exec "$@"; fi
  exec unshare --user --map-user="$uid" --map-group="$gid" "$@"
fi

inside=("$root/scripts/run-as.sh" --inside "$machine" "$(id -u)" "$(id -g)" "$@")
if [ "$(id -u)" -ne 0 ]; then exec unshare --map-root-user --mount "${inside[@]}"; fi
# Root keeps all users inside: tests change to some. They are mapped from outside, once the namespace is
# there; its inside waits for the last of it.
before=$(readlink /proc/$$/ns/user)
{
  for _ in $(seq 500); do
    if [ "$(readlink /proc/$$/ns/user)" = "$before" ]; then sleep 0.01 && continue; fi
    for map in gid_map uid_map; do awk '{ print $1, $1, $3 }' /proc/self/$map >/proc/$$/$map; done
    break
  done
} &
exec unshare --user --mount "${inside[@]}"
