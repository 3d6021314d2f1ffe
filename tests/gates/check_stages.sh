#!/usr/bin/env bash
# Drives the runner of stages with stages that fail, hang and pass.
# Usage: check_stages.sh SOURCE-DIRECTORY
set -euo pipefail
source=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

expect() { # WHAT COMMAND...
  "${@:2}" >/dev/null || { echo "FAILED $1" && failures=1; }
}

run() { # STATUS SETTINGS NAMES...: runs a table of stages, its output in $work/out
  local status=0
  cat >"$work/runner" <<RUNNER
set -euo pipefail
stages=('first | echo one' 'bad | echo "the \$((1 + 1))nd"; echo "*** \$((4 - 1))rd"; false; echo unreached' 'hangs | sleep 1000' 'last | echo four')
stage_logs='$work/logs' stage_minutes=10
$2
. '$source/scripts/stages.sh'
run_stages "\$@"
RUNNER
  bash "$work/runner" "${@:3}" >"$work/out" 2>&1 || status=$?
  expect "exit status $1, not $status, of: $2 ${*:3}" test "$status" -eq "$1"
}
says() { expect "$1 in: $(cat "$work/out")" grep -qE -- "$1" "$work/out"; }

run 1 ''
says '^== first passed, 0:0'
says '^the 2nd$' # both while it runs and among its last lines
says '^== bad FAILED: exit status 1'
says '^hangs .* not run$'
says '^FAILED: bad$'
expect 'nothing runs after a failure' test ! -e "$work/logs/last.log"
expect 'a stage ends at its first error' test "$(cat "$work/logs/bad.log")" = $'the 2nd\n*** 3rd'
expect 'the reasons come last' test "$(tail -n 2 "$work/out" | head -n 1)" = '*** 3rd'

run 1 'stage_keep=yes stage_quiet=yes stage_minutes=0.1'
says '^hangs .* FAILED: ended after 0.1 minutes$'
says '^last .* passed$'
says '^FAILED: bad hangs$'
if grep -qx one "$work/out"; then expect 'a quiet runner shows nothing of what passes' false; fi

run 0 '' last first
run 2 '' first nonsense
# The tables name what is there, and every machine.
while read -r script; do
  expect "$script can be executed" test -x "$source/$script"
done < <(grep -ohE 'scripts/[a-z-]+\.(sh|py)' "$source"/.ci/run "$source"/scripts/{quick,matrix,release}.sh | grep -v stages.sh | sort -u)
while read -r machine; do
  expect "the matrix has $machine" grep -qF "| scripts/machine.sh $machine " "$source/scripts/matrix.sh"
done < <(grep -o '^[a-z][^[:space:]]*' "$source/cmake/machines.tsv")
exit $failures
