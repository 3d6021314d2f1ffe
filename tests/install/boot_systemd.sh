#!/usr/bin/env bash
# Boots the systemd of a Debian folder as the first process of its own namespaces, runs a command of the folder there,
# and ends it. Usage: boot_systemd.sh ROOT COMMAND. Exit status 77: this machine does not let it boot.
set -euo pipefail

if [ "${1:-}" = --inside ]; then # in the namespaces
  root=$2
  mount --make-rprivate /
  mount --bind "$root" "$root"
  for mounted in run tmp dev; do mount -t tmpfs tmpfs "$root/$mounted"; done
  mount -t proc proc "$root/proc"
  mount --bind "$root/proc/sys" "$root/proc/sys"
  mount -o remount,ro,bind "$root/proc/sys" # the machine's own
  mount -t sysfs -o ro sysfs "$root/sys"
  mount -t cgroup2 cgroup2 "$root/sys/fs/cgroup"
  for device in null zero random urandom full tty; do
    touch "$root/dev/$device"
    mount --bind "/dev/$device" "$root/dev/$device"
  done
  mkdir "$root/dev/pts" "$root/dev/shm"
  ln -s pts/ptmx "$root/dev/ptmx"
  ln -s /proc/self/fd "$root/dev/fd"
  mkdir -p "$root/outside"
  cd "$root"
  pivot_root . outside
  umount -l /outside
  rmdir /outside
  exec env -i container=lxc PATH=/usr/sbin:/usr/bin:/sbin:/bin /lib/systemd/systemd --unit=multi-user.target
fi

root=$(realpath "$1")
first=
group=$(awk '$3 == "cgroup2" { print $2; exit }' /proc/mounts)
[ -z "$group" ] || group=$group/systemd-test.$$

clean_up() {
  rm -f "${log:-}"
  [ -z "$first" ] || kill -KILL "$first" 2>/dev/null || true
  [ -z "$first" ] || wait "$first" 2>/dev/null || true
  [ -z "$group" ] || for _ in $(seq 50); do
    find "$group" -depth -type d -exec rmdir {} + 2>/dev/null && break
    sleep 0.1
  done
}
trap clean_up EXIT

log=$(mktemp)
(
  if [ -n "$group" ] && mkdir "$group"; then echo $BASHPID >"$group/cgroup.procs"; fi
  exec unshare --pid --fork --kill-child --mount --uts --ipc --cgroup "$0" --inside "$root"
) </dev/null >"$log" 2>&1 &
first=$!

# The process that is the first one inside.
inside() { nsenter --target "$(pgrep -P $first)" --all -- env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root "$@"; }
booted() { inside systemctl is-system-running 2>/dev/null | grep -Eq 'running|degraded'; }

for _ in $(seq 300); do
  if booted; then
    inside "${@:2}"
    exit
  fi
  kill -0 $first 2>/dev/null || break
  sleep 0.2
done
cat "$log" >&2
echo 'boot_systemd: systemd does not boot here' >&2
exit 77
