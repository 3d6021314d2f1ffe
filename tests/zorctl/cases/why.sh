says() { zorctl why "$1" | head -n 1 | grep -qF "$2"; }
normalise() {
  sed -E 's/ +[0-9]+\.[0-9] s/ N.N s/g; s/^([a-z]+) +[0-9]+  (sleeping|stopped|running)/\1 PID \2/; s/  +/  /g
    s/(sleeping|running)/going/g; s/[0-9]+  0x/N  0x/; s/"sequence":[0-9]+/"sequence":N/g'
}

start msgsvr
run why nobody
run why 'no name'

peer free idle
await says free 'nothing waits for free'
run why free

# A stopped daemon, and one that waits for it.
peer still idle
kill -STOP "$(running still)"
peer asker ask still
await says asker 'asker waits for still, which is stopped'
run why asker
run why still
run why asker --json

# Two that wait for each other.
peer left ask right
peer right ask left
await says left 'cycle'
run why left
run why right --json
run_on_terminal 40 why left

stop msgsvr
run why left
