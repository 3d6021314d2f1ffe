session() { # COMMAND...  of terminal_session.py, waits until it is done
  echo "$*" >&"$session"
  await grep -qxF -- "$*" "$work/session"
}

run top
start msgsvr
run top --interval 0
run top --sort size
peer still idle
kill -STOP "$(running still)"
peer asker ask still
peer left ask right
peer right ask left
shows() { zorctl top --batch --count 1 --interval 0.1 | tee "$work/batch" | grep -q "$1"; }
await shows 'waits for left, a cycle'
await shows 'asker .* waits for still'
sed -nE 's/^([a-z]+) .* (waits for [a-z]+(, a cycle)?|stopped)$/\1: \2/p; /^still is/p; s/^(left waits .*):.*/\1/p' "$work/batch"
zorctl top --json --count 1 --interval 0.1 --filter STI | grep -oE '"name":"[^"]*"|"stopped":[a-z]+'
run_unread top --batch --interval 0.1

mkfifo "$work/keys"
python3 ../terminal_session.py "${emulator[@]}" "$build/tools/zorctl/zorctl" top --interval 0.2 <"$work/keys" >"$work/session" &
exec {session}>"$work/keys"
session see STATE
session size 1 1
session size 10 40
session see asker
session size 24 120
session see STATE
session 'key /ask'
session see /ask_
session 'key \r\r'
session see PENDING
session size 1 1
session size 24 100
session see PENDING
session 'key \x1b\x1b'
session see left
session 'key ?'
session see select a daemon
zorctl server restart >"$work/restart" # its clients stay, so no word of it
session 'key x'
session see asker
stop msgsvr
session see reconnecting
start msgsvr
session 'key n'
session see by name
session size 24 80
session see '0 daemons'
kill -STOP "$(running msgsvr)"
session see has not replied
kill -CONT "$(running msgsvr)"
session 'key q'
session end
cat "$work/session"
printf 'see STATE\nclose\n' | python3 ../terminal_session.py "${emulator[@]}" "$build/tools/zorctl/zorctl" top
