#!/usr/bin/env bash
# Prints the files of the sources, each followed by NUL: those that are under version control or new, or all where there
# is no repository, as in an unpacked release. Usage: files.sh [PATTERN...]   (those that match one; * matches / too)
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "$(git rev-parse --show-toplevel 2>/dev/null)" = "$(pwd -P)" ]; then
  git ls-files -z --cached --others --exclude-standard
else
  find . \( -path ./build -o -path ./.git \) -prune -o ! -type d -printf '%P\0'
fi | LC_ALL=C sort -zu | while IFS= read -r -d '' file; do
  [ -e "$file" ] || [ -L "$file" ] || continue # removed, but not yet for version control
  for pattern in "${@:-*}"; do
    # shellcheck disable=SC2053
    if [[ $file == $pattern ]]; then printf '%s\0' "$file" && break; fi
  done
done
