#!/usr/bin/env bash
# Installs what the tests need, checks the format, builds everything with sanitizers and warnings as errors, and runs
# all tests. Ends with CTest's own summary. Needs Debian 12, and root only when packages are missing.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh tests
scripts/check-format.sh

cmake --preset asan
cmake --build --preset asan
# Each test is its own process and most of them wait on sockets and timers: run more of them than there are processors.
exec ctest --preset asan --no-tests=error
