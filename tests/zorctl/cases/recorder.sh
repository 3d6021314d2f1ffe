# Times, numbers of requests and names that depend on the machine.
normalise() { sed -E 's/^[0-9:]{8}\.[0-9]{3}/HH:MM:SS.mmm/; s/"time":"[^"]*"/"time":"T"/; s/from [-0-9: ]+ to [-0-9: ]+/from T to T/; s/ctl[0-9]+ +/ctlPID /'; }

saved=$(dirname "$case_file")/../../../fuzz/corpus/recorder_fuzz/three
cp "$saved" "$work/saved"
head -c 300 "$saved" >"$work/cut"
: >"$work/empty"

run recorder "$work/saved"
run recorder "$work/saved" --unmasked --json --limit 2
run recorder "$work/cut" --json
run recorder "$work/empty"
run recorder "$work/none"
run recorder "$work/saved" --pcapng /dev/full
run recorder "$work/saved" --out "$work/saved.pcapng"
grep -ao 'lease of [*.]*' "$work/saved.pcapng"
run recorder "$work/saved" --pcapng - --json
run recorder

# What a server has passed on.
start msgsvr
run recorder --limit 3
