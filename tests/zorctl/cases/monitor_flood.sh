# Ten monitors of a flooded bus, one of them stopped: the bus keeps running, and missed copies are counted.
start msgsvr
peer target idle
for i in 0 1 2 3 4 5 6 7 8 9; do
  background "monitor$i" monitor --type 0x4000 --pcapng "$work/$i.pcapng"
done
for i in 0 1 2 3 4 5 6 7 8 9; do await test -s "$work/$i.pcapng"; done
stopped=$(running monitor9)
kill -STOP "$stopped"

peer source flood target 3000 500
await grep -q done "$ZOR_ROOT/source.out"

kill -CONT "$stopped"

all_read() { [ -z "$(zorctl list | awk '/^ctl/ && $6 != 0')" ]; }
await all_read
for i in 0 1 2 3 4 5 6 7 8 9; do
  kill -INT "$(running "monitor$i")"
  await gone "monitor$i"
  awk '/copied,/ { print ($3 + $5 == 3000 ? "copied and missed are all" : $0) }' "$ZOR_ROOT/monitor$i.err"
done
awk '/copied,/ && $5 > 0 { print "the stopped one has missed some" }' "$ZOR_ROOT/monitor9.err"
sed -n 's/[0-9]* %/N %/p' "$ZOR_ROOT/monitor9.err"
