# Messages of a capture are sent once more, but not those that are incomplete.
normalise() { sed -E 's/^.*BYTES.*$/TITLES/; s/^[0-9:]{8}\.[0-9]{3}/HH:MM:SS.mmm/; s/ctl[0-9]+ +/ctlPID /'; }

start msgsvr
peer lamp idle
background file monitor --pcapng "$work/bus.pcapng" --type 0x4000-0x4FFF
await test -s "$work/bus.pcapng"
peer db flood lamp 2
peer whole flood lamp 1 2040
peer file_body flood lamp 1 5000
zorctl send 0x4321 lamp --data 9
peer evil flood nobody 1
for each in db whole file_body evil; do await grep -q done "$ZOR_ROOT/$each.out"; done
kill -INT "$(running file)"
await gone file
cat "$ZOR_ROOT/file.err"

background seen monitor --name lamp --received --limit 3
await grep -q TIME "$ZOR_ROOT/seen.out"
run replay "$work/bus.pcapng" --type 0x4000 --type 0x4321 --fast
await gone seen
output seen
run replay "$work/bus.pcapng" --type 0x4321 --speed 1000 --json
run replay "$work/bus.pcapng" --type 0x4FFF
run replay "$work/bus.pcapng" --type 0x4000 --speed nan
head -c -10 "$work/bus.pcapng" >"$work/short.pcapng"
run replay "$work/short.pcapng" --type 0x4000 --fast
run replay "$work/bus.pcapng"
run replay "$work/absent" --type 0x4000
echo 'no capture at all' >"$work/text"
run replay "$work/text" --type 0x4000
