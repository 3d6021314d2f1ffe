#!/usr/bin/env bash
# Puts the table of message types into docs/protocol.md. With --check it only checks that the table there is current.
set -euo pipefail
cd "$(dirname "$0")"

page=../docs/protocol.md
made=$(mktemp)
trap 'rm -f "$made"' EXIT
{
  sed '/^<!-- message types:/q' "$page"
  LC_ALL=C awk -f messages.awk -f table_md.awk <(jq -r -f types_tsv.jq types.d/zor.json)
  sed -n '/^<!-- end of message types -->/,$p' "$page"
} >"$made"
if [ "${1:-}" = --check ]; then
  diff -u "$page" "$made" || {
    echo 'docs/protocol.md: run messages/docs.sh' >&2
    exit 1
  }
else
  cat "$made" >"$page"
fi
