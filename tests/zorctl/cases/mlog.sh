# The time of day and processes differ from run to run.
normalise() { sed -E 's/^[0-9]{4}-[0-9-]+ [0-9:]+\.[0-9]{3} /TIME /; s/\[[0-9]+\]/[PID]/; s/"time":"[^"]*"/"time":"T"/
  s/"boot_ms":[0-9]+/"boot_ms":N/; s/"(pid|uid)":"[0-9]+"/"\1":"N"/g; s/ZOR_(PID|UID|BOOT_MS)=[0-9]+/ZOR_\1=N/'; }
# NAME LEVEL TEXT  as a daemon writes its lines
write() { python3 -c 'import socket, struct, sys, time
order = sys.argv.pop()
text = ("[%011d][%s][%s]:%s\n" % (time.clock_gettime(time.CLOCK_BOOTTIME) * 1000, *sys.argv[2:])).encode() + b"\0"
socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM).sendto(struct.pack(order + "II", 1, len(text)) + text, sys.argv[1])' \
  "$ZOR_ROOT/var/mlog/mlogServer" "$@" "$order"; }
order='<' # of the programs' machine
[ "$(number 0001 | od -An -tx1)" = ' 01 00' ] || order='>'
written() { zorctl mlog --count 0 | grep -q "$1"; }

run mlog
mkdir -p "$ZOR_ROOT/online/log"
start mlogserver
write web INFO 'started'
write cms WARN $'a line\nwith \x1b[2J'
write web ERRO 'cannot lease: no answer'
await written 'no answer'
run mlog
run mlog --daemon web --level error --json
run mlog --grep 'lease|line' --count 1
run mlog --since 1h --grep started
run mlog --since 0s
run mlog --since noon
run mlog --grep '('
run mlog --file /dev/null

background follower mlog --follow --count 1
await grep -q 'no answer' "$ZOR_ROOT/follower.out"
write cms FATL 'the last one'
await grep -q 'last one' "$ZOR_ROOT/follower.out"
stop follower
output follower
stop mlogserver
run mlog --count 1

run mlog --journal
mkdir -p "$ZOR_ROOT/run/systemd/journal"
python3 -c 'import socket, sys
journal = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
journal.bind(sys.argv[1])
print("listening", flush=True)
for _ in range(2): print(journal.recv(65536).decode(), flush=True)' \
  "$ZOR_ROOT/run/systemd/journal/socket" >"$work/journal" &
await grep -q listening "$work/journal"
run mlog --journal --count 2
wait $!
cat "$work/journal"
