# Completion of zorctl for bash. The tool itself lists the candidates, with the names on the bus.
# A server that does not reply must not hold up the shell.
# Names come from the bus, so nothing here may expand them: compgen would.
_zorctl() {
  local word rest line=$COMP_LINE current=${COMP_WORDS[COMP_CWORD]} words=()
  # bash also splits words at colons and equals signs, as in a URL. What no blank precedes belongs to the word before.
  for word in "${COMP_WORDS[@]:0:COMP_CWORD+1}"; do
    rest=${line#"${line%%[^[:blank:]]*}"}
    if [[ ${#words[@]} -gt 0 && $rest == "$line" ]]; then words[-1]+=$word; else words+=("$word"); fi
    line=${rest#"$word"}
  done
  [[ $current == [:=] ]] && current= # bash then adds what is chosen
  COMPREPLY=()
  while IFS= read -r word; do
    [[ $word == "${words[-1]}"* ]] && COMPREPLY+=("$(printf '%q' "${word#"${words[-1]%"$current"}"}")")
  done < <(zorctl complete --timeout 1 -- line "${words[@]:1}" 2>/dev/null)
  return 0
}
complete -o default -F _zorctl zorctl
