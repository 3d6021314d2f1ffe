#!/usr/bin/env bash
# Puts a vendor's platform in the place of ours inside a fresh Debian folder, and ours back; swap_platform.sh says how.
# Usage: check_vendor.sh ROOT    (a folder of scripts/debian-folder.sh, with our packages in ROOT/root/test)
set -euo pipefail
root=$1
cd "$(dirname "$0")/../.."

printf '\n== a platform of another make\n'
mkdir -p "$root/root/test/vendor"
tests/install/make_vendor_package.sh "$root/root/test/vendor"
cp tests/install/swap_platform.sh "$root/root/test/vendor/"
scripts/debian-folder.sh run "$root" bash /root/test/vendor/swap_platform.sh
