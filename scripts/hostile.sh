#!/usr/bin/env bash
# Sends COUNT frames, requests or datagrams to each server, built with sanitizers, as a hostile member and as a stranger.
# Fails when a server ends, does not serve honest clients meanwhile, keeps descriptors or memory, or leaves a report.
# Prints the seed, with which a run can be repeated.
# Usage: hostile.sh COUNT [OPTION VALUE]...   (options: see bench/hostile/hostile.cpp)
set -euo pipefail
cd "$(dirname "$0")/.."

[[ ${1:-} =~ ^[1-9][0-9]*$ ]] || {
  echo "usage: hostile.sh COUNT [OPTION VALUE]..." >&2
  exit 2
}
count=$1
shift
scripts/setup.sh tests
cmake --preset asan >/dev/null
cmake --build --preset asan --target hostile >/dev/null
export TMPDIR=${TMPDIR:-/dev/shm}
exec build/asan/bench/hostile seed "$((RANDOM * 32768 + RANDOM))" "$@" count "$count"
