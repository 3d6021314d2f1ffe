completion=$source/tools/zorctl/completion/zorctl.bash
# shellcheck source=/dev/null
. "$completion"

# The completions that bash would offer for the last word.
offers() {
  COMP_WORDS=(zorctl "$@")
  COMP_CWORD=$#
  _zorctl
  printf 'zorctl%s ->' "$(printf ' %q' "$@")"
  printf ' [%s]' "${COMPREPLY[@]}"
  printf '\n'
}

offers li
offers exit ''
start msgsvr
peer lamp idle
peer '$(id>x);`id`' idle
offers exit ''
offers exit l
offers wait lamp --timeout 3 ''
offers call GET_P
offers call DB_SAVE l
offers call DB_SAVE lamp ''
offers publish wl
offers send --t
offers why --a
offers list --ga
offers gateways --un
offers server ''
offers server restart n
offers nonsense ''
test ! -e x
