#!/bin/sh
# usage: check_tool.sh ZORCTL PAGE
# The page names the verbs, their options, time-outs and exit codes that the tool's own --help names, and no others.
set -eu
zorctl=$1 page=$2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Options that all verbs share which work on a fleet; the page has them once.
fleet='fleet|gateway|parallel|ca|cert|key|password-file'

# Lines "VERB OPTION", "VERB timeout SECONDS", "exit CODE TEXT".
"$zorctl" --help >"$work/all"
sed -n '/^Verbs:/,/^$/s/^  \([a-z]*\)  .*/\1/p' "$work/all" >"$work/verbs"
[ -s "$work/verbs" ] || { echo "zorctl --help names no verbs"; exit 1; }
{
  while read -r verb; do
    echo "$verb"
    "$zorctl" "$verb" --help | sed -nE "
      s/^  --timeout SECONDS=([0-9.]+) .*/$verb timeout \1/
      t timeout
      s/^  (-.),--([a-z-]+).*/$verb \1\n$verb --\2/p
      s/^  --([a-z-]+).*/$verb --\1/p
      b
      :timeout
      / timeout 5\$/!p" | grep -vE ' --(help|json)$' | sed -E "s/^$verb (--($fleet))$/fleet \1/" || true
  done <"$work/verbs"
  sed -n '/^exit status:/,/^$/s/^  \([0-9]\)  \(.*\)/exit \1 \2/p' "$work/all"
} | LC_ALL=C sort -u >"$work/help"

awk '
  /^\.S[hs] / { verb = $2 == "zorctl" ? $3 : ""; if (verb) print verb; exits = $2 == "EXIT" }
  /^\.Ss Options on a fleet/ { verb = "fleet" }
  exits && /^\.It / { code = $2; getline; print "exit " code " " $0 }
  verb && /^\.It Fl / {
    for (i = 3; i <= NF; ++i) {
      if ($i == "-timeout") { print verb " timeout " $NF; break }
      if ($(i - 1) == "Fl") print verb " -" $i
    }
  }
' "$page" | LC_ALL=C sort >"$work/page"
diff "$work/help" "$work/page"
