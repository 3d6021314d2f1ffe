#!/usr/bin/env bash
# Makes the reference of the public headers in build/doxygen/html; any warning is a failure.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh lint
mkdir -p build
doxygen docs/Doxyfile
echo "doxygen: build/doxygen/html/index.html"
