#!/usr/bin/env bash
# Builds the Debian packages into build/package/packages and checks them: the libraries' binary interface against the
# last release's, and the packages by lintian. Needs Debian 12, and root only when packages are missing.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh package
cmake --preset package
cmake --build --preset package
scripts/check-abi.sh build/package

rm -rf build/package/packages
(cd build/package && cpack)
lintian --allow-root --fail-on error,warning build/package/packages/*.deb
ls -l build/package/packages/*.deb
