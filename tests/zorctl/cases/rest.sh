reply_awaited() { zorctl list --json | grep -q '"pending":\[{'; }

run rest /api/lamp state
start msgsvr
start notifyserver
start provider
run rest /api/lamp state
run rest /api/lamp state 'some text' --json
run_unread rest /api/lamp state

# Faults.
run rest /api/lamp colour
run rest /nothing state
run rest "$(printf '/%064d' 0)" state
run rest /api/lamp
kill -STOP "$(running provider)"
run rest /api/lamp state --timeout 0.2
begin rest /api/lamp state --timeout 20
await reply_awaited
kill -KILL "$(running msgsvr)"
finish
run rest /api/lamp state
