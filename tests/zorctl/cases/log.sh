# A record of the log: TYPE and LEVEL as bits, INDEX of the item (0xfff00000: a kernel line), its parameters.
word() { number "$(printf '%08x' "$1")"; }
half() { number "$(printf '%04x' "$1")"; }
record() { # TYPE LEVEL INDEX TEXT...
  local text room
  {
    for text in "${@:4}"; do
      printf '%s' "$text"
      head -c $((4 - $(printf '%s' "$text" | wc -c) % 4)) /dev/zero
    done
  } >"$work/slots"
  room=$(wc -c <"$work/slots")
  {
    word 0
    word $(($1 << 8 | $2))
    word 0
    word "$3"
    half $(($# - 3))
    half "$room"
    cat "$work/slots"
    head -c $((256 - room)) /dev/zero
  } >"$work/record"
  zorctl send "$([ "$3" = 0xfff00000 ] && echo 0x4B02 || echo 0x4B01)" syslog --file "$work/record"
}
kernel() { record 1 "$1" 0xfff00000 "$2"; }
login() { record 0 0 0x05000000 "$1" 10.0.0.2; }
normalise() { sed -E 's/log: .*; waiting for it/log: SYSLOG IS ABSENT; waiting for it/'; } # or has lost the request
printed() { grep -qF "$1" "$work/begun"; }

run log
start msgsvr
run log
echo 'max_records = 5' >"$work/settings"
start syslogd --settings "$work/settings"
run log
kernel 0x20 'lamp on'
login admin
kernel 0x08 'lamp broken'
run log
run log --language zh
run log --count 1 --json
run log --type user --json
run log --type kernel,user --level error
run log --type 1 --level NOTICE
login $'evil\e[31m \xc2\x9b\xff\nline'
run log --count 1
run log --count 1 --json
run_unread log

# Faults.
run log --type moon
run log --level loud
run log --for 1
run log --language en --directory /elsewhere
run log --follow --for 0.1 --interval 0.05 --count 1
kill -STOP "$(running syslogd)"
run log --timeout 0.2
kill -CONT "$(running syslogd)"

# Statistics.
run log --stat boots
start mlogserver
run log --stat boots
peer counter stat boots $'7\e[31m'
run log --stat boots
run log --stat boots --json
run log --stat boots --follow
kill -STOP "$(running mlogserver)"
run log --stat boots --timeout 0.2

# The log is followed while records rotate out, the daemon starts again, and the server ends.
begin log --follow --interval 0.05 --count 2 --type kernel
await printed 'lamp broken'
for number in 1 2 3 4 5 6; do
  kernel 0x20 "line $number"
  await printed "line $number"
done
kill -TERM "$(running syslogd)"
await grep -q 'waiting for it' "$work/begun.err"
start syslogd --settings "$work/settings"
kernel 0x20 'after the restart'
await printed 'after the restart'
kill -KILL "$(running msgsvr)"
finish
