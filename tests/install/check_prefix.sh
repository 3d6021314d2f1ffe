#!/usr/bin/env bash
# Installs the development files into an empty prefix and runs check_consumers.sh with them against the built server.
# Usage: check_prefix.sh SOURCE-DIRECTORY BUILD-DIRECTORY LIBRARY-DIRECTORY
set -euo pipefail
source=$1 build=$2 libdir=$3

work=$(mktemp -d)
server=
clean_up() {
  [ -z "$server" ] || kill "$server" || true
  rm -rf "$work"
}
trap clean_up EXIT

for component in runtime platform development generator; do
  cmake --install "$build" --prefix "$work/prefix" --component $component >/dev/null
done
mkdir "$work/root"
export ZOR_ROOT=$work/root
export PKG_CONFIG_PATH=$work/prefix/$libdir/pkgconfig PKG_CONFIG_OPTIONS=--define-variable=prefix=$work/prefix
export CMAKE_PREFIX_PATH=$work/prefix LD_LIBRARY_PATH=$work/prefix/$libdir
export CMAKE_GENERATOR=Ninja # as for the project itself: there may be no make
exec {ready}< <(echo "$BASHPID" && exec "$build/daemons/msgsvr/msgsvr")
read -r server <&"$ready"
read -r line <&"$ready"
echo "ok $line"
"$(dirname "$0")/check_consumers.sh" "$source/README.md" "$source/tests/install/consumer" "$work"
