# Times, and sequence numbers, which depend on earlier requests.
normalise() { sed -E 's/^[0-9:]{8}\.[0-9]{3}/HH:MM:SS.mmm/; s/"time":"[^"]*"/"time":"T"/; s/"sequence":[0-9]+/"sequence":N/; s/ctl[0-9]+ +/ctlPID /'; }

# Another monitor shows when each watch has begun.
watching() { grep -q "$1" "$ZOR_ROOT/watcher.out"; }

run monitor
start msgsvr
start notifyserver
background watcher monitor --type CONTROL_MONITOR
await grep -q TIME "$ZOR_ROOT/watcher.out"
peer web idle
run monitor --type nonsense
run monitor --type 0x5000-0x4000
run monitor --sent
run monitor --name nobody --timeout 0.1
run monitor --name web --limit 1 --timeout 0.1
run monitor --limit -1
run monitor --pcapng - --lines
run monitor --pcapng - --json
run_on_terminal 80 monitor --pcapng -

# Lines of what one daemon receives, an undeliverable message, and JSON of what one sends.
background lines monitor --name web --received --limit 3
background lost monitor --type 0x4000 --name nobody --limit 1
background json monitor --name db --sent --json --limit 2
await watching '"daemon":"web","directions":2'
await watching '"daemon":"nobody","directions":3,"first_type":16384'
await watching '"daemon":"db","directions":1'
peer db flood web 2
await grep -q done "$ZOR_ROOT/db.out"
peer evil flood nobody 1
await grep -q done "$ZOR_ROOT/evil.out"
run send DYN_APP_UPDATE web value=3 application=shop
for each in lines lost json; do
  await gone "$each"
  output "$each"
done

# Sends a request every few milliseconds.
peer asker ask nobody
run_on_terminal 40 monitor --name asker --sent --limit 1
run monitor --name asker --sent --type get_process_num --limit 1 --json
zorctl monitor 2>&1 | head -n 1
run_on_terminal 40 monitor --name nobody --timeout 0.6 --pcapng "$work/none.pcapng" | tr '\r' '\n' | uniq
background file monitor --pcapng "$work/bus.pcapng"
await test -s "$work/bus.pcapng"
kill -INT "$(running file)"
await gone file
sed 's/[0-9]* copied/N copied/' "$ZOR_ROOT/file.err"

# A descriptor that somebody sends to a monitor is left out, and what follows it is read.
background passed monitor --type 0x4000-0x4FFF --limit 3
await grep -q TIME "$ZOR_ROOT/passed.out"
peer passer pass "ctl$(running passed)"
await grep -q 0x4001 "$ZOR_ROOT/passed.out"
peer last tell passer 0x4002
await gone passed
output passed

background orphan monitor --name nobody
await grep -q TIME "$ZOR_ROOT/orphan.out"
stop msgsvr
await gone orphan
output orphan
