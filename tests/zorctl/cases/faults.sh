tools_on_the_bus() { zorctl list --json | grep -o '"ctl[0-9]*"' | wc -l; }
two_tools() { [ "$(tools_on_the_bus)" -eq 2 ]; }

# The server dies while a verb waits.
start msgsvr
start notifyserver
start provider
peer lamp refuse
for verb in 'wait fan' 'call 0x61005 cms' 'exit lamp'; do
  # shellcheck disable=SC2086
  begin $verb --timeout 30
  await two_tools
  stop msgsvr
  finish
  start msgsvr
  start provider
  peer lamp refuse
done

# The server is stopped.
kill -STOP "$(running msgsvr)"
run list --timeout 0.2
kill -CONT "$(running msgsvr)"

# The server turns clients away.
stop msgsvr
echo 'max_clients = 1' >"$work/settings"
start msgsvr --settings "$work/settings"
peer lamp idle
run list
stop lamp
stop msgsvr

# Trace settings for all daemons do not affect the output.
printf 'trace.* = all=debug\n' >"$work/settings"
start msgsvr --settings "$work/settings"
run wait fan --timeout 0.1

# The output has no reader, is full, or is closed.
run_unread complete types
types_to() { zorctl complete types >"$1"; }
report types_to /dev/full
nowhere() { zorctl complete types >&-; }
report nowhere
