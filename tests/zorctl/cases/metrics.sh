run metrics
start msgsvr
peer still idle
kill -STOP "$(running still)"
peer asker ask still
await eval "zorctl metrics | grep -q 'waiting_messages{daemon=\"still\"} 1'"
zorctl metrics >"$work/metrics"
grep -e waiting_bytes -e messages_refused -e EOF "$work/metrics"
report /usr/bin/python3 "$source/tests/zorctl/check_metrics.py" "$work/metrics"
zorctl metrics --json | grep -o '{"name":"zor_bus_pending_requests"[^}]*}[^}]*}'
# Every measurement is documented.
grep -o '^zor_[a-z_]*' "$work/metrics" | sort -u | while read -r name; do
  grep -qF "\`$name\`" "$source/docs/metrics.md" || echo "docs/metrics.md lacks $name"
done
