#!/usr/bin/env bash
# usage: check_install.sh SOURCE SERVERS C-COMPILER C++-COMPILER
# What a build for each init system installs: a script for each server at its place, and a set-up that finds its files.
set -euo pipefail
source=$1 servers=${2//;/ }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0
wrong() { echo "$*"; failed=1; }

place_of() { # KIND SERVER
  case $1 in
    sysv | procd) echo "etc/init.d/$2" ;;
    runit) echo "etc/sv/$2/run" ;;
    s6) echo "etc/s6/sv/$2/run" ;;
  esac
}

for kind in sysv procd runit s6; do
  cmake -S "$source" -B "$work/build" -G Ninja "-DCMAKE_C_COMPILER=$3" "-DCMAKE_CXX_COMPILER=$4" -DCMAKE_INSTALL_PREFIX=/usr \
    -DZOR_BUILD_TESTS=OFF "-DZOR_INIT=$kind" >"$work/log" 2>&1 || { cat "$work/log" && exit 1; }
  image=$work/$kind
  DESTDIR=$image cmake --install "$work/build" --component init >/dev/null
  for server in $servers; do
    [ -x "$image/$(place_of $kind "$server")" ] || wrong "$kind: no script for $server"
    grep -q "^$server " "$image/usr/share/zor/init/servers" || wrong "$kind: $server is not in the table"
  done
  install -D "$source/packaging/systemd/sysusers.conf" "$image/usr/lib/sysusers.d/msgapi.conf"
  touch "$image/etc/passwd" "$image/etc/group"
  "$image/usr/share/zor/init/zor-setup" --users "$image/etc"
  grep -q '^_zor-msgsvr:' "$image/etc/passwd" || wrong "$kind: the image has no users"
done
[ $failed = 0 ]
