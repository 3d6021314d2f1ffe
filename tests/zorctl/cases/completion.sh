completion=$source/tools/zorctl/completion/zorctl.bash
# shellcheck source=/dev/null
. "$completion"

# Patient, where a user's patience is not what it is about.
patience=60
zorctl() {
  [ "$1 $2 $3" = 'complete --timeout 1' ] || fail "not for a shell that waits: $*"
  "${emulator[@]}" "$build/tools/zorctl/zorctl" complete --timeout "$patience" "${@:4}"
}

# The completions that bash would offer for the last word. It splits words at colons and equals signs too.
offers() {
  local word
  COMP_LINE=$(printf ' %s' zorctl "$@")
  COMP_WORDS=(zorctl)
  for word in "$@"; do
    while [[ $word == *[:=]* ]]; do
      [[ $word == [:=]* ]] || COMP_WORDS+=("${word%%[:=]*}")
      word=${word#"${word%%[:=]*}"}
      COMP_WORDS+=("${word:0:1}")
      word=${word:1}
    done
    COMP_WORDS+=("$word")
  done
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
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
peer a:b idle
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
offers --fleet mqtts://me@broker.example:8883/zor gatew
offers --fleet=mqtt://broker --gateway 'north-*' call GET_P
offers call --fleet mqtt://broker GET_P
offers call --fleet mqtt://bro
offers why a:
offers server ''
offers server restart n
offers trace s
offers trace show l
offers config list ''
offers config get --as ''
offers config get --as hex p
offers monitor --type GET_P
offers monitor --name l
offers log --level e
offers log --type --follow --co
offers help mon
offers nonsense ''
test ! -e x

# A server that does not reply does not hold up the shell.
patience=1
kill -STOP "$(running msgsvr)"
offers exit ''
