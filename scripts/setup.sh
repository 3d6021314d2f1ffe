#!/usr/bin/env bash
# Installs the Debian 12 packages that a purpose needs and that are missing.
# Usage: setup.sh [demo | tests | any-day | lint | bench | fuzz | machine COMPILER | variants | package]
# (demo: for building and running; the others add to it. COMPILER: the prefix of a cross compiler, as in
# cmake/machines.tsv)
set -euo pipefail

packages=(cmake ninja-build g++ libsqlite3-dev libcjson-dev libtirpc-dev libssl-dev libmosquitto-dev libmicrohttpd-dev
  libpam0g-dev libcli11-dev libncurses-dev nlohmann-json3-dev jq)
# The module for Lua is left out where these are missing.
lua=(liblua5.4-dev liblua5.1-0-dev)
# Tests and demo start a broker of their own.
broker=(mosquitto mosquitto-clients)
# The Python module is made where these are.
python=(python3-cffi python3-dev)
# The sanitizers' compiler, which compiles the tests in half the time of the other one.
sanitizers=(clang-16 lld-16 libclang-rt-16-dev)
tests=("${sanitizers[@]}" libgtest-dev libgmock-dev clang-format-14 shellcheck dpkg-dev mandoc pkg-config tshark python3-paho-mqtt
  python3-prometheus-client openssl chromium chromium-driver python3-selenium python3-pytest "${python[@]}"
  "${lua[@]}" lua5.4 lua5.1 "${broker[@]}" runit s6 busybox socat)
case ${1:-demo} in
  demo) packages+=("${broker[@]}") ;;
  tests) packages+=("${tests[@]}") ;;
  any-day) packages+=("${tests[@]}" faketime util-linux hostname tzdata) ;;
  lint) packages+=("${tests[@]}" clang-tidy doxygen) ;;
  bench) packages+=(libc-ares-dev libcurl4-openssl-dev openssl "${python[@]}" dbus python3-dbus-fast python3-dbus python3-gi "${lua[@]}" lua5.4 lua5.1 "${broker[@]}") ;;
  fuzz) packages+=("${sanitizers[@]}") ;;
  package) packages+=(build-essential dpkg-dev debhelper dh-python file lintian abigail-tools mmdebstrap arch-test procps qemu-user-static
    "${python[@]}" "${lua[@]}") ;;
  machine) packages+=("${tests[@]}" "g++-$2" qemu-user-static util-linux) ;;
  variants) packages+=("${tests[@]}" musl-tools) ;;
  *)
    echo "usage: setup.sh [demo | tests | any-day | lint | bench | fuzz | machine COMPILER | variants | package]" >&2
    exit 2
    ;;
esac

is_installed() {
  [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

missing=()
for package in "${packages[@]}"; do
  is_installed "$package" || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

if [ "$(id -u)" -ne 0 ]; then
  echo "setup: as root: apt-get install ${missing[*]}" >&2
  exit 1
fi

install() {
  "$(dirname "$0")/with-progress.sh" "$log" \
    sh -c 'apt-get -q update && apt-get -q install -y --no-install-recommends "$@"' sh "${missing[@]}"
}

echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
log=$(mktemp)
trap 'rm -f "$log" ${policy:+"$policy"}' EXIT
# Nobody has asked for the broker's service: what asks this file does not start any.
if [ ! -e /usr/sbin/policy-rc.d ]; then
  policy=/usr/sbin/policy-rc.d
  printf '#!/bin/sh\nexit 101\n' >"$policy"
  chmod 755 "$policy"
fi
# A mirror often fails once; when it fails twice, show why.
install || { sleep 5 && install; } || {
  cat "$log" >&2
  exit 1
}
