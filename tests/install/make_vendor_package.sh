#!/usr/bin/env bash
# Makes the package of examples/vendor_platform, for check_vendor.sh, against the headers of this tree.
# Usage: make_vendor_package.sh DIRECTORY    (the package lands in DIRECTORY)
set -euo pipefail
out=$(realpath "$1")
source=$(realpath "$(dirname "$0")/../..")

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$source/examples/vendor_platform" "$work/example-zorplatform"
# What libmsgapi-dev would bring.
mkdir -p "$work/bin" "$work/share/zor"
cp "$source/scripts/check-platform.sh" "$work/bin/zor-check-platform"
cp "$source/platform/interface.list" "$work/share/zor/platform.list"
cd "$work/example-zorplatform"
PATH=$work/bin:$PATH DEB_CPPFLAGS_APPEND="-isystem $source/include" \
  dpkg-buildpackage -b -us -uc -d >"$work/log" 2>&1 || {
  cat "$work/log" >&2
  exit 1
}
cp "$work"/example-zorplatform1_*.deb "$out"
