#!/usr/bin/env bash
# Builds the release preset and runs every benchmark; prints the tables of docs/benchmarks.md.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh bench
cmake --preset release >/dev/null
cmake --build --preset release >/dev/null
build=build/release
msgsvr=$build/daemons/msgsvr/msgsvr

TMPDIR=${TMPDIR:-/dev/shm} "$build/bench/bus_bench" "$msgsvr"
echo
TMPDIR=${TMPDIR:-/dev/shm} "$build/bench/face_bench" "$msgsvr"
echo
TMPDIR=${TMPDIR:-/dev/shm} "$build/bench/neighbours_bench" "$msgsvr"
echo
TMPDIR=${TMPDIR:-/dev/shm} "$build/bench/monitor_bench" "$msgsvr" "$build/tools/zorctl/zorctl"
echo
for version in 5.4 5.1; do
  TMPDIR=${TMPDIR:-/dev/shm} LUA_CPATH="$build/bindings/lua/$version/?.so" "$build/bench/lua_bench" "$msgsvr" lua$version
  echo
done
"$build/bench/loop_bench"
echo
"$build/bench/lag_bench" "$build/libraries/private/msg/libmsgapi.so"
echo
"$build/bench/trace_bench" 2>&1
echo
TMPDIR=${TMPDIR:-/dev/shm} "$build/bench/tunnel_bench" "$msgsvr" "$build/daemons/zortunnel/zortunnel"
echo
"$build/bench/memory_bench" "$msgsvr"
echo
# A record that never came would be waited for.
TMPDIR=${TMPDIR:-/dev/shm} timeout 900 "$build/bench/fleet_bench" "$msgsvr" "$build/daemons/zorbridge/zorbridge"
echo
timeout 900 "$build/bench/outbox_bench"
echo
"$build/bench/access_bench"
echo
"$build/bench/codec_bench"
echo
PYTHONPATH=$build/bindings/python timeout 900 /usr/bin/python3 -B bench/python_bench.py "$msgsvr" "$build/bench/python_peers"
echo
"$build/bench/zorgen_bench"
echo
TMPDIR=${TMPDIR:-/dev/shm} timeout 900 "$build/bench/footprint" "$build"
echo
bench/footprint/sizes.sh "$build"
