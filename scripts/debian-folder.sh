#!/usr/bin/env bash
# Makes a bare Debian 12 folder, of this machine's architecture or of another one, and runs commands in it as its root.
# Programs of another machine run in the emulator, for which the kernel's table is mounted in a namespace of its own: this
# machine's is not touched. What is mounted ends with the command. Needs root.
# Usage: debian-folder.sh make ROOT ARCH[,FOREIGN] [PACKAGE,...] | run ROOT [--bind SOURCE TARGET]... COMMAND...
# make leaves a folder alone that was made with the same arguments.
set -euo pipefail

# Not in a namespace whose root is not yet known: dpkg would fail there.
[ "${1:-}" = --inside ] || here=$(dpkg --print-architecture)
declare -A emulators=([armhf]=arm [arm64]=aarch64 [s390x]=s390x [riscv64]=riscv64)
# How the kernel recognises their programs: the first 20 bytes of the file.
declare -A magics=(
  [armhf]='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x28\x00'
  [arm64]='\x7fELF\x02\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\xb7\x00'
  [s390x]='\x7fELF\x02\x02\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x16'
  [riscv64]='\x7fELF\x02\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\xf3\x00')
little='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
big='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff'

# In new namespaces, as their root: mounts what programs of the architecture need, and executes.
inside() { # ARCH COMMAND...
  # Their first process is at first nobody, until its parent has written down who it is.
  for _ in $(seq 200); do
    [ "$(id -u)" -ne 0 ] || break
    sleep 0.05
  done
  exec "$0" --as-root "$@"
}
as_root() { # ARCH COMMAND...
  mount --make-rprivate /
  mount -t proc proc /proc
  if [ "$1" != "$here" ]; then
    local mask=$little
    [ "$1" != s390x ] || mask=$big
    mount -t binfmt_misc none /proc/sys/fs/binfmt_misc
    printf '%s' ":qemu-${emulators[$1]}:M::${magics[$1]}:$mask:/usr/bin/qemu-${emulators[$1]}-static:OCF" \
      >/proc/sys/fs/binfmt_misc/register
  fi
  exec "${@:2}"
}

# Another architecture takes a user namespace, in which all users are the same as outside. All that runs inside ends with
# the first process there, and that with this script: unshare would leave it behind.
in_namespaces() { # ARCH COMMAND...
  local pid status=0
  if [ "$1" = "$here" ]; then
    unshare --mount --pid --fork "$0" --as-root "$@" <&0 &
  else
    unshare --user --mount --pid --fork "$0" --inside "$@" <&0 &
  fi
  pid=$!
  # shellcheck disable=SC2064
  trap "kill -KILL \$(cat /proc/$pid/task/$pid/children 2>/dev/null) $pid 2>/dev/null || true" EXIT
  trap 'exit 143' HUP INT TERM
  if [ "$1" != "$here" ]; then
    for _ in $(seq 200); do
      [ "$(readlink /proc/$pid/ns/user)" = "$(readlink /proc/self/ns/user)" ] || break
      sleep 0.05
    done
    for map in uid gid; do cat /proc/self/${map}_map >/proc/$pid/${map}_map; done
  fi
  wait $pid || status=$?
  trap - EXIT HUP INT TERM
  return $status
}

enter() { # ROOT [--bind SOURCE TARGET]... COMMAND...
  local root=$1
  shift
  mount --rbind /dev "$root/dev"
  mount --rbind /proc "$root/proc"
  while [ "$1" = --bind ]; do
    mkdir -p "$root$3"
    mount --bind "$2" "$root$3"
    shift 3
  done
  exec env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
    chroot "$root" "$@"
}

make_folder() { # ROOT ARCH[,FOREIGN] [PACKAGE,...]
  # The mirror and the proxy come from this machine's apt.
  [ "$(cat "$1/.made" 2>/dev/null)" != "$*" ] || return 0
  local mirror proxy
  proxy=$(apt-config dump | grep '^Acquire::.*Proxy' || true)
  # shellcheck disable=SC2016
  mirror=$(apt-get indextargets --format '$(SITE) $(CODENAME) $(COMPONENT)' 'Created-By: Packages' |
    awk '$2 == "bookworm" && $3 == "main" { print $1; exit }')
  mkdir -p "$(dirname "$1")"
  rm -rf --one-file-system "$1"
  in_namespaces "${2%%,*}" mmdebstrap --mode=root --variant=minbase --architectures="$2" ${3:+--include="$3"} \
    ${proxy:+--aptopt="$proxy"} bookworm "$1" ${mirror:+"$mirror"} >"$1.log" 2>&1 || {
    cat "$1.log" >&2
    return 1
  }
  rm -f "$1.log"
  cp /etc/resolv.conf /etc/hosts "$1/etc/"
  echo "${2%%,*}" >"$1/.architecture"
  echo "$*" >"$1/.made"
}

self=$0
[ "${self#/}" != "$self" ] || exec "$(realpath "$0")" "$@"
case ${1:-} in
  --inside) inside "${@:2}" ;;
  --as-root) as_root "${@:2}" ;;
  --enter) enter "${@:2}" ;;
  make) make_folder "${@:2}" ;;
  run) in_namespaces "$(cat "$2/.architecture")" "$0" --enter "${@:2}" ;;
  *)
    sed -n '2,/^set/s/^# //p' "$0" >&2
    exit 2
    ;;
esac
