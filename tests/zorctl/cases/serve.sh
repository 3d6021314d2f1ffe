# A script as a daemon: replies, failures, and what the tool does not start.
normalise() { sed -E 's/[0-9]+ ms/N ms/; s/"ms":[0-9]+/"ms":N/; s/"sequence":[0-9]+/"sequence":N/'; }

cat >"$work/script" <<'END'
#!/bin/sh
case $ZOR_REQUEST_DATA in
  0) echo "$ZOR_REQUEST_TYPE from ${ZOR_REQUEST_SOURCE%%[0-9]*} to $ZOR_REQUEST_NAME: $(tr a-z A-Z)" ;;
  1) echo 'no such lamp' && exit 7 ;;
  2) exec sleep 60 ;;
  3) kill -KILL $$ ;;
  4) exec head -c 3000000 /dev/zero ;;
  5) exec wc -c ;;
  7) printf '{"error":"too dark"}' && exit 1 ;;
  6) exec perl -e 'setpgrp(0, getpgrp(getppid())); sleep 60' ;;
esac
END
chmod +x "$work/script"
printf 'no interpreter' >"$work/text"
chmod +x "$work/text"

run serve 0x4001 lamp --exec "$work/script"
start msgsvr
background lamp serve 0x4001 lamp --exec "$work/script" --limit 7
background slow serve 0x4001 slow --exec "$work/script" --timeout 0.2 --json
background broken serve 0x4001 broken --exec "$work/text"
for name in lamp slow broken; do await grep -q serves "$ZOR_ROOT/$name.err"; done
run serve 0x4001 lamp --exec "$work/script"
run serve 0x4001 other --exec "$work/absent"
run serve 0x4001 other --exec script

run call 0x4001 lamp --text 'x; $(reboot) `id`'
run call 0x4001 lamp --data 1
run call 0x4001 lamp --data 7
run call 0x4001 lamp --data 3 --timeout 60
run call 0x4001 lamp --data 4 --timeout 60
head -c 300000 /dev/zero >"$work/long"
run call 0x4001 lamp --data 5 --file "$work/long"
run call 0x4001 slow --data 2
run call 0x4001 slow --data 6
run call 0x4001 broken
run send 0x4002 lamp
run call 0x4001 lamp --json
await gone lamp
output lamp
run exit slow
await gone slow
output slow
kill -TERM "$(running broken)"
await gone broken
output broken

# One at a time: 64 requests wait, and others are refused at once.
printf '#!/bin/sh\nuntil [ -e "%s/go" ]; do sleep 0.02; done\n' "$work" >"$work/wait"
chmod +x "$work/wait"
background one serve 0x4000 one --exec "$work/wait" --at-once 1 --limit 70 --timeout 600
await grep -q serves "$ZOR_ROOT/one.err"
peer many flood one 70
busy() { [ "$(grep -c busy "$ZOR_ROOT/one.out")" -eq 5 ]; }
await busy
touch "$work/go"
await gone one
sed 's/, .*//' "$ZOR_ROOT/one.out" | sort | uniq -c

# A request whose body has gone costs only itself.
background lossy serve 0x4000 lossy --exec "$work/wait" --limit 1 --timeout 600
await grep -q serves "$ZOR_ROOT/lossy.err"
kill -STOP "$(running lossy)"
peer fickle flood lossy 1 5000
await grep -q done "$ZOR_ROOT/fickle.out"
zorctl wait fickle >/dev/null # the server has passed on what came before this request
rm "$ZOR_ROOT"/var/run/msg/*
kill -CONT "$(running lossy)"
await grep -q 'cannot read' "$ZOR_ROOT/lossy.err"
peer honest flood lossy 1
await gone lossy
output lossy

# Somebody who never stops sending keeps it neither from scripts nor from a signal.
background flooded serve 0x4000 flooded --exec "$work/wait" --timeout 600
await grep -q serves "$ZOR_ROOT/flooded.err"
peer endless flood flooded 1000000000
await grep -q 'status 0' "$ZOR_ROOT/flooded.out"
kill -TERM "$(running flooded)"
await gone flooded
