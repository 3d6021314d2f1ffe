run
run nonsense
run list --nonsense
run lsit
run mon
run list --tiemout 3
run trace sho web
run call GET_PROCES_NUM
run help lisst
normalise() { sed -E 's/^zorctl [0-9]+(\.[0-9]+)+$/zorctl VERSION/'; }
run --version
run --json list
zorctl help list | cmp - <(zorctl list --help)
zorctl help | cmp - <(zorctl --help)
run complete moon
run list --timeout 0
run list --timeout nan
run list --help

# The list of verbs changes; these rules hold for every verb.
zorctl --help >"$work/help"
echo '$ zorctl --help'
sed '/^Verbs:/,/^$/d' "$work/help"
sed -n '/^Verbs:/,/^$/s/^  \([a-z]*\) .*/\1/p' "$work/help" >"$work/verbs"
grep -qx list "$work/verbs"
while read -r verb; do
  zorctl "$verb" --help >"$work/help"
  for option in --json --timeout; do
    grep -q -e "$option" "$work/help" || echo "$verb has no $option"
  done
  [ "$(grep -c '^  zorctl ' "$work/help")" -ge 2 ] || echo "$verb has no two examples"
done <"$work/verbs"
