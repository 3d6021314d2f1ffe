#!/usr/bin/env bash
# The long matrix: every machine, every way of building, the long tests. All rows run, whatever fails; a table at the end
# says how each ended and how long it took. The outputs are in build/matrix. Needs Debian 12, its package mirror and root.
# Usage: matrix.sh [--time SHORT | LONG] [--stop] [--list | ROW...]   (all rows by default)
#   --time: of fuzzers, chaos, hostile frames and fleet; SHORT, the default, is minutes, LONG hours
#   --stop: at the first row that fails
set -euo pipefail
cd "$(dirname "$0")/.."

time=SHORT stage_keep=yes
while [[ ${1:-} == --* && $1 != --list ]]; do
  case $1 in
    --time) time=${2:-} && shift ;;
    --stop) stage_keep='' ;;
    *) time='' ;;
  esac
  [[ $time =~ ^(SHORT|LONG)$ ]] || {
    sed -n 's/^# \(Usage:\|  \)/\1/p' "$0" >&2
    exit 2
  }
  shift
done
case $time in
  SHORT) fuzz_seconds=20 chaos_seconds=300 frames=200000 fleet='60' ;;
  LONG) fuzz_seconds=600 chaos_seconds=7200 frames=5000000 fleet='1000 --seconds 600' ;;
esac

# shellcheck disable=SC2034
{
  stages=(
    'armhf        | scripts/machine.sh armhf        | 32-bit ARM, as the gateway is: all tests and the demo in an emulator'
    'armhf-time64 | scripts/machine.sh armhf-time64 | the same with 64-bit times'
    'arm64        | scripts/machine.sh arm64        | 64-bit ARM'
    'riscv64      | scripts/machine.sh riscv64      | 64-bit RISC-V'
    's390x        | scripts/machine.sh s390x        | big endian, 64-bit'
    'i386         | scripts/machine.sh i386         | 32-bit x86, without an emulator'
    'small        | scripts/small.sh                | the build for 16 MiB of flash: its size, and that it runs'
    'clang        | scripts/variant.sh clang        | built with clang'
    'lto          | scripts/variant.sh lto          | -O3 -flto'
    'fortify      | scripts/variant.sh fortify      | -D_FORTIFY_SOURCE=3'
    'musl         | scripts/variant.sh musl         | headers and C daemons with musl'
    "fuzz         | scripts/fuzz.sh $fuzz_seconds   | every fuzzer for $fuzz_seconds s"
    "chaos        | scripts/chaos.sh $chaos_seconds | members and servers killed and frozen for $chaos_seconds s; no message is lost unnoticed"
    "hostile      | scripts/hostile.sh $frames      | $frames damaged frames to each server, with sanitizers"
    "fleet        | scripts/fleet.sh $fleet         | gateways at a broker, their lines cut, it restarted"
    'any-day      | scripts/any-day.sh              | other days, time zones, hosts and users'
    'lint         | scripts/lint.sh                 | clang-tidy'
    'doxygen      | scripts/doxygen.sh              | the reference of the headers, without warnings'
    'demo         | scripts/demo.sh                 | the first of the two commands'
    'init         | scripts/setup.sh tests && cmake --preset dev && cmake --build --preset dev && ctest --preset dev --no-tests=error -R "^Init" | procd, plain init, runit and s6'
    'amd64-deb    | scripts/package.sh --twice amd64 && scripts/package-test.sh amd64 | packages, the same when built twice; installed, tried and removed'
    'armhf-deb    | scripts/package.sh --twice armhf && scripts/package-test.sh armhf | the same for 32-bit ARM, cross built'
    'arm64-deb    | scripts/package.sh --twice arm64 && scripts/package-test.sh arm64 | the same for 64-bit ARM'
    'bench        | scripts/bench.sh                | every benchmark runs'
  )
  stage_logs=build/matrix stage_minutes=480 stage_quiet=yes
}
. scripts/stages.sh
run_stages "$@"
