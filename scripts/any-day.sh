#!/usr/bin/env bash
# Runs the whole suite of the dev preset under conditions that must not matter: with a shifted clock, in other time zones
# and locales, as an ordinary user, on another host, without a terminal, from an awkward folder. Prints a table of the
# rows and fails when one of them failed. The logs are in build/any-day. When root runs it, the ordinary user is nobody.
# Usage: any-day.sh [--list | ROW...]   (all rows by default)
set -euo pipefail
cd "$(dirname "$0")/.."

rows=(plus-400-days plus-830-days leap-day new-year east-of-the-date-line half-hour-zone plain-locale other-host
  no-terminal long-path ordinary-user)
declare -A describe=([plus-400-days]='the clock 400 days ahead' [plus-830-days]='the clock 830 days ahead'
  [leap-day]='on the next 29 February' [new-year]='across the next turn of the year'
  [east-of-the-date-line]='TZ=Pacific/Kiritimati, 14 hours ahead' [half-hour-zone]='TZ=Pacific/Marquesas, 9.5 hours behind'
  [plain-locale]='LC_ALL=C' [other-host]='another host name' [no-terminal]='no terminal, nothing to read'
  [long-path]='a folder of 100 characters with a blank, which init scripts do not take'
  [ordinary-user]='the user nobody, umask 077')

if [ "${1:-}" = --list ]; then
  for row in "${rows[@]}"; do printf '%-22s %s\n' "$row" "${describe[$row]}"; done
  exit 0
fi
for row in "$@"; do
  [ -n "${describe[$row]:-}" ] || {
    echo "any-day: no row $row; any-day.sh --list names them" >&2
    exit 2
  }
done
[ $# -eq 0 ] || rows=("$@")

scripts/setup.sh any-day

logs=$PWD/build/any-day
mkdir -p "$logs"
elsewhere=$(mktemp -d)
trap 'rm -rf "$elsewhere"' EXIT
chmod 755 "$elsewhere"
long_path=$elsewhere/'a folder with a blank and a name of length '
long_path+=$(printf '%0*d' $((100 - ${#long_path})) 0)

run_suite=(ctest --preset dev --no-tests=error)

# Without these variables the loop's clock and the times of files would be shifted too. Python's sleep() then fails, so
# tests that start it run with a shifted loop's clock; and where that is shifted, its threads wait without end, so those of
# its module are left out.
in_python='^(CollectorTest\.LosesNothingToAFullDisk|zorctl\.top$|Zorgen\.Languages|Zorweb\.|Tutorial\.|(Vendor\.)?Faces)'
with_shifted_clock() { # SHIFT
  FAKETIME_DONT_FAKE_MONOTONIC=1 NO_FAKE_STAT=1 faketime -f "$1" "${run_suite[@]}" -E "^Python\.|$in_python" &&
    NO_FAKE_STAT=1 faketime -f "$1" "${run_suite[@]}" -R "$in_python"
}

seconds_until() { echo "+$(($(date -d "$1" +%s) - $(date +%s)))s"; }

next_leap_day() {
  local year
  year=$(date +%Y)
  until date -d "$year-02-29" >/dev/null 2>&1 && [ "$(date -d "$year-02-29" +%s)" -gt "$(date +%s)" ]; do
    year=$((year + 1))
  done
  echo "$year-02-29 12:00"
}

on_another_host() {
  local own_users=()
  [ "$(id -u)" -eq 0 ] || own_users=(--user --map-root-user)
  # shellcheck disable=SC2016
  unshare "${own_users[@]}" --uts sh -c 'hostname some-other-host && exec "$@"' - "$@"
}

as_ordinary_user() {
  local become=()
  [ "$(id -u)" -ne 0 ] || become=(env HOME="$elsewhere" USER=nobody LOGNAME=nobody
    setpriv --reuid=nobody --regid=nogroup --clear-groups)
  # shellcheck disable=SC2016
  "${become[@]}" bash -c 'umask 077 && exec "$@"' - "$@"
}

build() { cmake --preset dev && cmake --build --preset dev; }
export -f build

# In a copy, since the build and the tests write beside the sources and the programs.
build_and_test_in() { # FOLDER [COMMAND...: for another user]
  mkdir -p "$1" && scripts/files.sh | tar -c --null --files-from=- | tar -x -C "$1" || return
  [ $# -eq 1 ] || [ "$(id -u)" -ne 0 ] || chown -R nobody "$elsewhere" || return
  cd "$1" && "${@:2}" bash -c build && "${@:2}" "${run_suite[@]}"
}

run_row() {
  case $1 in
    plus-400-days) with_shifted_clock +400d ;;
    plus-830-days) with_shifted_clock +830d ;;
    leap-day) with_shifted_clock "$(seconds_until "$(next_leap_day)")" ;;
    new-year) with_shifted_clock "$(seconds_until "$(date +%Y)-12-31 23:59:45")" ;;
    east-of-the-date-line) TZ=Pacific/Kiritimati "${run_suite[@]}" ;;
    half-hour-zone) TZ=Pacific/Marquesas "${run_suite[@]}" ;;
    plain-locale) LC_ALL=C "${run_suite[@]}" ;;
    other-host) on_another_host "${run_suite[@]}" ;;
    no-terminal) setsid --wait "${run_suite[@]}" </dev/null ;;
    long-path) build_and_test_in "$long_path" ;;
    ordinary-user) build_and_test_in "$elsewhere/copy" as_ordinary_user ;;
  esac
}

build >"$logs/build.log" 2>&1 || {
  cat "$logs/build.log" >&2
  exit 1
}

status=0
table=''
for row in "${rows[@]}"; do
  echo "any-day: $row: ${describe[$row]}"
  result=passed
  (run_row "$row") >"$logs/$row.log" 2>&1 || result=FAILED status=1
  summary=$(grep -E '^[0-9]+% tests passed' "$logs/$row.log" | paste -sd ';') && [ -n "$summary" ] || summary='the suite did not run'
  table+=$(printf '%-22s %-7s %s' "$row" "$result" "$summary")$'\n'
  [ "$result" = passed ] || sed -n '/^The following tests FAILED/,$p' "$logs/$row.log"
done
printf '\n%s' "$table"
exit "$status"
