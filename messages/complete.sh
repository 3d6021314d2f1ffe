#!/usr/bin/env bash
# Says which message types of the public headers are missing in types.d/zor.json.
set -euo pipefail
cd "$(dirname "$0")"

in_headers() {
  grep -hoE '^#define ZOR_(MSG|LOG_MSG|LCTRL|EVT)_[A-Z0-9_]+ +(UINT32_C\()?0x[0-9A-Fa-f]{3,5}\b' ../include/zor/*.h |
    awk '{ print $2 }' | grep -vE '_(MASK|FIRST|LAST)$' | sort
}
described() { jq -r '.types[].name' types.d/zor.json | sort; }

missing=$(comm -23 <(in_headers) <(described))
[ -z "$missing" ] || {
  printf 'zor.json: missing:\n%s\n' "$missing" >&2
  exit 1
}
