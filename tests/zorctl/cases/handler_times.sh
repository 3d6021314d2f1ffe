# Handler times that daemons offer, and files that only look like some.
normalise() { sed -E 's/^(zor_.*) [0-9.e-]+$/\1 N/'; }
show() {
  zorctl metrics >"$work/metrics"
  grep -E '^zor_(loop|handler)_' "$work/metrics" | grep -E "$1" | sort || true
}
start msgsvr
peer liar idle # first: what it shows later as its own must not be older than it
ZOR_LAG_US=1 peer slow refuse
ZOR_LAG_US=soon peer quick refuse
zorctl send 0x4001 slow
zorctl send 0x4001 quick
await eval "show 'calls_total.*procedure.* [1-9]' | grep -q slow"
report eval "show 'zor_loop|kind=\"procedure\"' | normalise"
/usr/bin/python3 "$source/tests/zorctl/check_metrics.py" "$work/metrics" >/dev/null
grep -o '^zor_[a-z_]*' "$work/metrics" | sort -u | while read -r name; do
  grep -qF "\`$name\`" "$source/docs/metrics.md" || echo "docs/metrics.md lacks $name"
done

folder=$ZOR_ROOT/var/run/msg
theirs=$folder/lag_$(running slow) lie=$folder/lag_$(running liar)
# The daemon goes on writing: while it does, its sequence is odd. Its last byte is the fourth or, little-endian, the first.
copy_whole() {
  cp "$theirs" "$work/page"
  od -An -tu1 -j12 -N4 "$work/page" | awk '{ exit $1 % 2 || $4 % 2 }'
}
patch() { # OFFSET BYTES: of a copy with the right process in it
  await copy_whole
  number "$(printf '%08x' "$(running liar)")" | dd of="$work/page" bs=1 seek=24 conv=notrunc status=none
  printf "$2" | dd of="$work/page" bs=1 seek="$1" conv=notrunc status=none
  cp "$work/page" "$lie"
}
lies() { show 'daemon="liar"' | wc -l; }
patch 0 '' # the copy itself is sound
echo "sound: $([ "$(lies)" -gt 0 ] && echo shown)"
patch 0 'x'
echo "another format: $(lies)"
patch 16 '\0\0\0\0\0\0\0\0'
echo "older than the process: $(lies)"
patch 12 '\1\1\1\1'
echo "never whole: $(lies)"
patch 32 '\377'
echo "too many callbacks: $(lies)"
truncate -s 100 "$lie"
echo "cut short: $(lies)"
cp "$theirs" "$lie"
echo "another process: $(lies)"
patch 0 ''
mv "$lie" "$work/elsewhere"
ln -s "$work/elsewhere" "$lie"
echo "a link: $(lies)"
rm "$lie"
mkfifo "$lie"
echo "a pipe: $(lies)"
