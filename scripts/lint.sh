#!/usr/bin/env bash
# Runs clang-tidy with the checked-in profile over the libraries and the servers. Usage: lint.sh [FILE...]
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh lint
# Without precompiled headers: clang-tidy does not read those of another version of clang.
cmake --preset dev -B build/lint -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON
# Generated sources.
ninja -C build/lint -t targets all | sed -n 's/^\([^/].*[.]inc\): CUSTOM_COMMAND$/\1/p' | xargs ninja -C build/lint
if [ $# -eq 0 ]; then
  mapfile -td '' files < <(scripts/files.sh {platform,libraries,serviceapi,programs,daemons,tools}'/*.cpp')
  set -- "${files[@]}"
fi
printf '%s\0' "$@" | xargs -0 -n 1 -P "$(nproc)" clang-tidy -p build/lint --quiet
