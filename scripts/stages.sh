#!/usr/bin/env bash
# Runs named stages and prints how each ended and how long it took. Sourced by .ci/run and matrix.sh, which set:
#   stages          rows of 'NAME | COMMAND | what it tells'
#   stage_logs      a directory for their outputs, one file each
#   stage_minutes   how long one may take; what runs longer is ended, and has failed
#   stage_keep      not empty: go on after a stage that failed
#   stage_quiet     not empty: the outputs go only to their files
# Then: run_stages "$@"   (--list, or names of stages; all without any)

: "${stages:?}" "${stage_logs:?}" "${stage_minutes:?}"
stage_pids=()
trap 'kill -TERM "${stage_pids[@]}" 2>/dev/null && wait "${stage_pids[@]}" || true' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

stage_time() { printf '%d:%02d' $(($1 / 60)) $(($1 % 60)); } # SECONDS

stage_field() { # NUMBER ROW
  cut -d '|' -f "$1" <<<"$2" | sed 's/^ *//; s/ *$//'
}

stage_row() { # NAME: its row
  local row
  for row in "${stages[@]}"; do [ "$(stage_field 1 "$row")" != "$1" ] || { printf '%s\n' "$row" && return; }; done
  return 1
}

list_stages() {
  local row
  for row in "${stages[@]}"; do
    printf '%-14s %s (%s)\n' "$(stage_field 1 "$row")" "$(stage_field 3 "$row")" "$(stage_field 2 "$row")"
  done
}

# What the outputs of failed stages say of failures, once more at the very end: often no more than that is kept.
print_reasons() { # NAME...
  local name
  for name in "$@"; do
    printf '\n== %s:\n' "$name"
    grep -E 'FAILED|\*\*\*|Sanitizer|: error:|Failure$' "$stage_logs/$name.log" | tail -n 8 || true
  done
}

# Appends a line to stage_table. The output is a file that `tail` reads, not a pipe: a process that a stage left behind
# would hold a pipe open.
run_stage() { # ROW
  local name command log begin=$SECONDS status=0 result=passed
  name=$(stage_field 1 "$1") command=$(stage_field 2 "$1") log=$stage_logs/$name.log
  mkdir -p "$stage_logs"
  : >"$log"
  printf '\n== %s begins at %s: %s\n' "$name" "$(date -u +%H:%M:%S)" "$command"
  timeout --kill-after=10 "${stage_minutes}m" bash -euo pipefail -c "$command" </dev/null >"$log" 2>&1 &
  stage_pids=($!)
  if [ -z "${stage_quiet:-}" ]; then
    tail --pid="${stage_pids[0]}" -n +1 -f "$log" &
    stage_pids+=($!)
  fi
  wait "${stage_pids[0]}" || status=$?
  wait "${stage_pids[@]:1}"
  stage_pids=()
  case $status in
    0) ;;
    124) result="FAILED: ended after $stage_minutes minutes" ;;
    137) result='FAILED: killed' ;;
    *) result="FAILED: exit status $status" ;;
  esac
  if [ "$status" -ne 0 ]; then
    printf '== last lines of %s, all are in %s:\n' "$name" "$log"
    tail -n 40 "$log"
  fi
  printf '== %s %s, %s\n' "$name" "$result" "$(stage_time $((SECONDS - begin)))"
  stage_table+=$(printf '%-14s %7s  %s' "$name" "$(stage_time $((SECONDS - begin)))" "$result")$'\n'
  return "$status"
}

run_stages() { # [--list | NAME...]
  local name row rows=() begin=$SECONDS failed=()
  if [ "${1:-}" = --list ]; then
    list_stages
    return
  fi
  for name in "$@"; do
    row=$(stage_row "$name") || {
      echo "$(basename "$0"): no stage $name; --list names them" >&2
      return 2
    }
    rows+=("$row")
  done
  [ $# -gt 0 ] || rows=("${stages[@]}")
  stage_table=''
  for row in "${rows[@]}"; do
    if [ ${#failed[@]} -gt 0 ] && [ -z "${stage_keep:-}" ]; then
      stage_table+=$(printf '%-14s %7s  not run' "$(stage_field 1 "$row")" -)$'\n'
    else
      run_stage "$row" || failed+=("$(stage_field 1 "$row")")
    fi
  done
  printf '\n%s%-14s %7s  logs: %s\n' "$stage_table" total "$(stage_time $((SECONDS - begin)))" "$stage_logs"
  [ ${#failed[@]} -eq 0 ] || {
    print_reasons "${failed[@]}"
    echo "FAILED: ${failed[*]}"
    return 1
  }
}
