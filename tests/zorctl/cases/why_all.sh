normalise() {
  sed -E 's/ +[0-9]+\.[0-9] s/ N.N s/g; s/^([a-z]+) +[0-9]+  (sleeping|stopped|running)/\1 PID \2/; s/  +/  /g
    s/(sleeping|running)/going/g; s/[0-9]+  0x/N  0x/; s/"sequence":[0-9]+/"sequence":N/g'
}
shows() { # CHAIN...  exactly these, and all has been read that ever will be
  local all chain
  all=$(zorctl why --all --json)
  [ "$(grep -o '"verdict"' <<<"$all" | wc -l)" -eq $# ] || return 1
  for chain; do grep -qF "$chain" <<<"$all" || return 1; done
  # Only the stopped one has unread messages.
  ! grep -qE '"process":"(sleeping|running)","unread":[1-9]' <<<"$all"
}

start msgsvr
run why
run why --all left
peer idle idle
run why --all
run why --all --json

peer still idle
kill -STOP "$(running still)"
peer asker ask still
peer user ask asker
await shows 'user waits for asker, which waits for still, which is stopped'
peer left ask right
peer right ask left
await shows 'user waits for' 'left waits for right, which waits for left: a cycle'
run why --all
run why --all --json
