#!/usr/bin/env bash
# What to run before each commit, in a few minutes: the format of sources and scripts, a debug build and all tests. Needs
# Debian 12, and root only when packages are missing.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh tests
scripts/check-format.sh
# Whatever begins as a script of a shell. It says so, too, where one would not run. Variables may come from sourced files.
scripts/files.sh | xargs -0 awk 'FNR == 1 { if (/^#!.*[\/ ](ba|da)?sh$/) print FILENAME; nextfile }' |
  xargs shellcheck --severity=warning --exclude=SC2154

cmake --preset dev
cmake --build --preset dev
exec ctest --preset dev --no-tests=error
