# Completion of zorctl for bash. The tool itself lists the candidates, with the names on the bus.
# Names come from the bus, so nothing here may expand them: compgen would.
_zorctl() {
  local word
  COMPREPLY=()
  while IFS= read -r word; do
    [[ $word == "${COMP_WORDS[COMP_CWORD]}"* ]] && COMPREPLY+=("$(printf '%q' "$word")")
  done < <(zorctl complete -- line "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
  return 0
}
complete -o default -F _zorctl zorctl
