reply_awaited() { zorctl notify --list --json | grep -q '"pending":\[{'; }

run notify --list
start msgsvr
start notifyserver
start provider # replies to type 0x71 as module cms
run notify --list
run notify cms 0x71 what? --sync
run notify cms 0x71 what? --sync --json
run notify 8 0x72 0102ff --as hex
run notify cms 0x72 1 2 --as u32 --from web --json
await eval '! zorctl notify --list --json | grep -q "\"socket\":[1-9]"' # the provider has read it
run notify --list --json

# Faults.
run notify web 0x71 hello
run notify lamp 0x71 hello
run notify 30 0x71 hello
run notify cms lots
run notify cms 0x71 one two --sync
run notify cms 0x71 0f0 --as hex
head -c 8388609 /dev/zero >"$work/big"
run notify cms 0x71 "$work/big" --as file
run notify cms 0x71 "$work/absent" --as file
run notify --list web
run_unread notify --list
run_on_terminal 11 notify --list

# The module is stuck; the module ends during a request; the server ends during a request.
kill -STOP "$(running provider)"
run notify cms 0x71 what? --sync --timeout 0.2
begin notify cms 0x71 what? --sync --timeout 20
await reply_awaited
kill -KILL "$(running provider)"
finish
start provider
kill -STOP "$(running provider)"
begin notify cms 0x71 what? --sync --timeout 20
await reply_awaited
kill -KILL "$(running notifyserver)"
finish
run notify cms 0x71 what?
