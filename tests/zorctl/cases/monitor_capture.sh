# The content of a capture as the dissector shows it; a capture that runs out of space.
dissect() {
  tshark -X "lua_script:$build/tools/wireshark/zorbus.lua" -r "$@" 2>"$work/tshark.err" || cat "$work/tshark.err"
}
normalise() { sed -E '/^Frame /d; / Time: /d; s/(Sequence number|Reply to): [0-9]+/\1: N/; s/msg_file_[0-9]+/msg_file_N/'; }

# A vendor's type, of which an older version lacks the last field.
mkdir -p "$ZOR_ROOT/usr/share/zor/types.d"
cat >"$ZOR_ROOT/usr/share/zor/types.d/acme.json" <<'TYPES'
{"schema": 1, "vendor": "acme", "namespace": "acme", "types": [{"type": "0x4002", "name": "Dim", "kind": "oneway",
 "message": [{"name": "level", "type": "u8"}, {"name": "room", "type": "text"}, {"name": "late", "type": "i32"}]}]}
TYPES
zorctl types dissector >"$work/types.lua"
export ZOR_DISSECTOR_TYPES="$work/types.lua"

start msgsvr
start notifyserver
start provider
background all monitor --pcapng "$work/all.pcapng"
await test -s "$work/all.pcapng"
zorctl call DM cms --subtype 1 --item device=lamp >"$work/reply"
zorctl send 0x4001 cms --text "$(printf '%3000s' long)"
zorctl send acme.Dim cms --hex 0768616c6c00
zorctl send 0x4001 nobody --text lost 2>"$work/reply" || true
zorctl call RESTFUL_REQUEST word0=1 prefix=/api/lamp name=state text='{}' >"$work/reply" 2>&1 || true
count() { [ "$(dissect "$work/all.pcapng" -Y 'zorbus.type == 0x10d' | wc -l)" -ge "$1" ]; }
await count 2
kill -INT "$(running all)"
await gone all
dissect "$work/all.pcapng" -O zorbus -Y 'zorbus.type == 0x209 || zorbus.type == 0x4001 || zorbus.type == 0x4002 || zorbus.type == 0x10d'

run monitor --pcapng /dev/full
run monitor --pcapng "$work/no/such/directory"
# A file limited to 8 KiB, which is not a multiple of the block size.
peer asker ask nobody
report bash -c 'ulimit -f 8; exec "$@"' - "${emulator[@]}" "$build/tools/zorctl/zorctl" monitor \
  --pcapng "$work/full.pcapng" >"$work/full"
sed -E 's/[0-9]+ (copied|messages)/N \1/' "$work/full"
grep -q "the first $(dissect "$work/full.pcapng" | wc -l) messages are in the file" "$work/full" && echo 'All of these can be read.'
