start msgsvr
start notifyserver
start provider
run exit nobody
run exit csm
run exit $'evil\e[31m'
run exit a_name_too_long
spawn second "$build/tests/zorctl/peer" idle cms
await grep -q ready "$ZOR_ROOT/second.out"
run exit cms
stop second
run exit cms

start provider
kill -STOP "$(running provider)"
run exit cms --timeout 0.2
kill -CONT "$(running provider)"
start provider
run exit cms --json

peer stubborn refuse
refused() {
  run exit stubborn --timeout 0.2 >"$work/refused"
  grep -qx '= 5' "$work/refused"
}
await refused # on a busy system the reply may take longer
cat "$work/refused"
