#!/usr/bin/env bash
# Builds the fuzzers and runs each for a number of seconds, starting from the corpus in the tree and a dictionary where
# one exists. New inputs go to build/fuzz/corpus, where the next run resumes; an input that breaks an invariant goes to
# build/fuzz/findings. Fails after all fuzzers have run when there is such an input.
# Usage: fuzz.sh SECONDS [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."

mapfile -t targets < <(basename -s .cpp fuzz/*_fuzz.cpp)
usage() {
  echo "usage: fuzz.sh SECONDS [TARGET...]   (targets: ${targets[*]})" >&2
  exit 2
}
[[ ${1:-} =~ ^[1-9][0-9]*$ ]] || usage
seconds=$1
shift
[ $# -eq 0 ] || targets=("$@")
for target in "${targets[@]}"; do
  [ -f "fuzz/$target.cpp" ] || usage
done

scripts/setup.sh fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target "${targets[@]}" >/dev/null
build=build/fuzz

# The longest input worth trying: longer ones reach no new code.
max_length() {
  case $1 in
    ptr_fuzz | time_fuzz | export_fuzz) echo 128 ;;
    url_fuzz | path_fuzz | charset_fuzz | mlog_fuzz) echo 256 ;;
    message_fuzz | mlogserver_fuzz) echo 1024 ;;
    *) echo 512 ;;
  esac
}

status=0
printf '%-14s %8s %11s %9s %s\n' target seconds runs coverage finding
for target in "${targets[@]}"; do
  corpus=$build/corpus/$target findings=$build/findings/$target log=$build/$target.log
  mkdir -p "$corpus" "$findings"
  options=(-max_total_time="$seconds" -max_len="$(max_length "$target")" -timeout=10 -rss_limit_mb=1024
    -close_fd_mask=1 -print_final_stats=1 -artifact_prefix="$findings/")
  [ ! -f "fuzz/dict/$target.dict" ] || options+=(-dict="fuzz/dict/$target.dict")
  finding=none
  "$build/fuzz/$target" "${options[@]}" "$corpus" "fuzz/corpus/$target" >"$log" 2>&1 || {
    finding="see $log and $findings"
    status=1
  }
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  coverage=$(sed -n 's/^#.* cov: \([0-9]*\) .*/\1/p' "$log" | tail -n 1)
  printf '%-14s %8s %11s %9s %s\n' "$target" "$seconds" "${runs:-?}" "${coverage:-?}" "$finding"
done
exit $status
