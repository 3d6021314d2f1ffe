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
esac
END
chmod +x "$work/script"
printf 'no interpreter' >"$work/text"
chmod +x "$work/text"

run serve 0x4001 lamp --exec "$work/script"
start msgsvr
background lamp serve 0x4001 lamp --exec "$work/script" --limit 6
background slow serve 0x4001 slow --exec "$work/script" --timeout 0.2 --json
background broken serve 0x4001 broken --exec "$work/text"
for name in lamp slow broken; do await grep -q serves "$ZOR_ROOT/$name.err"; done
run serve 0x4001 lamp --exec "$work/script"
run serve 0x4001 other --exec "$work/absent"
run serve 0x4001 other --exec script

run call 0x4001 lamp --text 'x; $(reboot) `id`'
run call 0x4001 lamp --data 1
run call 0x4001 lamp --data 3 --timeout 60
run call 0x4001 lamp --data 4 --timeout 60
head -c 300000 /dev/zero >"$work/long"
run call 0x4001 lamp --data 5 --file "$work/long"
run call 0x4001 slow --data 2
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
