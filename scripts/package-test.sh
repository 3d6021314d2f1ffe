#!/usr/bin/env bash
# Installs the packages in a fresh Debian 12 folder, runs the servers there as their own users, lets daemons built
# against the installed files talk, removes everything again and looks for leftovers. Then boots that folder's systemd,
# where this machine allows it, and installs, upgrades, reloads, kills and removes the services.
# Usage: package-test.sh [ARCH]
# Packages of another machine (armhf, arm64) run in the emulator, with daemons that were built with them, and their
# libraries are installed beside this machine's. Needs root, Debian 12 and its package mirror; builds the packages first
# when they are missing or of another source.
set -euo pipefail
cd "$(dirname "$0")/.."

here=$(dpkg --print-architecture)
arch=${1:-$here}
[[ $# -le 1 && " $here amd64 armhf arm64 " == *" $arch "* ]] || {
  sed -n 's/^# \(Usage:\)/\1/p' "$0" >&2
  exit 2
}
if [ "$(id -u)" -ne 0 ]; then
  echo 'package-test: only root can make a Debian folder' >&2
  exit 1
fi
packages=build/packages/$arch
for one in "$arch" "$here"; do scripts/package.sh --needed "$one"; done

root=$PWD/build/folders/packages-$arch.$$
clean_up() { rm -rf --one-file-system "$root"; }
trap clean_up EXIT
in_folder() { scripts/debian-folder.sh run "$root" --bind "$PWD/$packages/tree" /root/test/tree "$@"; }
fresh_folder() { # ARCH[,FOREIGN] PACKAGE...: what is in it stays for the next time; this is a copy
  local kept=$PWD/build/folders/${1/,/-}
  scripts/debian-folder.sh make "$kept" "$1" "$(IFS=,; echo "${*:2}")"
  clean_up
  cp -a "$kept" "$root"
}
copy_packages() { # ARCH NAME...: all but the debugging symbols
  local name
  for name in "${@:2}"; do cp "build/packages/$1/$name"_[0-9]*_*.deb "$root/root/test/"; done
}

all=(libmsgapi1 libzorplatform1 libmsgapi-dev zorgen msgapi-servers zorweb zorctl lua-zor python3-zor)
tools=(lua5.4 lua5.1 procps python3 systemd)
emulated=
if [ "$arch" = "$here" ]; then
  all+=(libmsgapi-doc)
  tools+=(systemd-sysv g++ cmake make pkg-config libcjson-dev jq)
else
  emulated=--emulated
fi
fresh_folder "$arch" "${tools[@]}"
mkdir "$root/root/test"
copy_packages "$arch" "${all[@]}"
cp tests/install/check_{packages,systemd}.sh tests/install/check_consumers.sh tests/install/attack{s.sh,.pl} \
  "$packages"/tree/build/examples/{provider,consumer,services,login_keeper} "$root/root/test/"
in_folder /root/test/check_packages.sh $emulated

if [ -n "$emulated" ]; then
  fresh_folder "$here,$arch"
  mkdir "$root/root/test"
  shared=(libmsgapi1 libzorplatform1 libmsgapi-dev lua-zor)
  for one in $here $arch; do copy_packages "$one" "${shared[@]}"; done
  copy_packages "$here" zorgen
  in_folder sh -c 'apt-get -qq update && apt-get -qq install -y --no-install-recommends /root/test/*.deb' >"$root.log" 2>&1 || {
    cat "$root.log" >&2
    exit 1
  }
  # What differs is printed, and is no failure for dpkg.
  for one in $here $arch; do
    differing=$(in_folder dpkg --verify "${shared[@]/%/:$one}")
    [ -z "$differing" ] || {
      printf 'package-test: not as in the packages:\n%s\n' "$differing" >&2
      exit 1
    }
  done
  rm -f "$root.log"
  printf '\nlibraries: those of %s and %s are installed side by side\n' "$here" "$arch"
  exit
fi

tests/install/check_vendor.sh "$root"

status=0
tests/install/boot_systemd.sh "$root" /root/test/check_systemd.sh || status=$?
if [ $status -eq 77 ]; then
  echo 'package-test: NOT TESTED: upgrades, crashes and hangs under systemd'
else
  exit $status
fi
