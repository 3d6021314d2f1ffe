#!/usr/bin/env bash
# Fails when a source file does not follow .clang-format. The major version is pinned: others format differently.
set -euo pipefail
cd "$(dirname "$0")/.."

tool=clang-format-14
command -v "$tool" >/dev/null || tool=clang-format
case $("$tool" --version) in
  *' 14.'*) ;;
  *)
    echo "check-format: clang-format 14 is needed" >&2
    exit 1
    ;;
esac
scripts/files.sh '*.c' '*.h' '*.cpp' '*.hpp' | xargs -0 "$tool" --dry-run --Werror
