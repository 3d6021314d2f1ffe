says() { zorctl why "$1" | head -n 1 | grep -qF "$2"; }
settled() { says "$@" && ! zorctl why "$1" --json | grep -q '"unread":[1-9]'; } # and have read all their messages
normalise() {
  sed -E 's/ +[0-9]+\.[0-9] s/ N.N s/g; s/^([a-z]+) +[0-9]+  (sleeping|stopped|running)/\1 PID \2/; s/  +/  /g
    s/(sleeping|running)/going/g; s/[0-9]+  0x/N  0x/; s/"sequence":[0-9]+/"sequence":N/g'
}

start msgsvr
run why nobody
run why 'no name'

peer free idle
await settled free 'free is idle'
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
await settled left 'cycle'
run why left
run why right --json
run_on_terminal 7 why left

# Two that send each other one-way messages: first of types known to be one-way, then of unknown types.
tell_each_other() { # NAME TYPE NAME TYPE
  peer "$1" tell "$3" "$2"
  peer "$3" tell "$1" "$4"
  await grep -q told "$ZOR_ROOT/$1.out"
  await grep -q told "$ZOR_ROOT/$3.out"
}
tell_each_other one 0x4B05 two 0x4B06
await settled one 'one is idle'
run why one
tell_each_other here 0x4062 there 0x4063
# When the system shows that they sleep in their loops, they do not wait; otherwise the verdict names its assumption.
await eval "says here 'here is idle' || says here 'assuming that 0x4062 and 0x4063 are requests'"

# One that does not read, and misses what does not fit its queue.
peer mute idle
kill -STOP "$(running mute)"
peer flooder flood mute 3000 2000
await grep -q done "$ZOR_ROOT/flooder.out"
refusals() { zorctl why mute | sed -En 's/^(mute did not read: )[1-9][0-9]*( .* latest )[0-9.]+ m?s/\1N\2N/p'; }
await eval "refusals | grep -q ."
report refusals

stop msgsvr
run why left
