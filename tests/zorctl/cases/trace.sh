start msgsvr
run trace
run trace show
run trace set web
run trace show web msg=debug
run trace set web msg=loud
run trace set web --output nowhere
run trace set web --output 10.0.0.1:0
run trace set web --file-kib 1

run trace show web
run trace set web msg=debug all=error --output file
run trace set web --file-kib 2048 --json
run trace set '*' all=info
run trace show db

# Settings survive the server.
stop msgsvr
run trace show web
start msgsvr
run trace show web
run trace clear web

# Of two concurrent changes the last one wins as a whole.
background one trace set web one=debug --output file
background other trace set web other=info --output stdout
await gone one
await gone other
cat "$ZOR_ROOT/one.err" "$ZOR_ROOT/other.err"
zorctl trace show web --json | grep -cE '"levels":\{("one":"debug"\},.*"output":"file"|"other":"info"\},.*"output":"stdout")'
run trace clear '*'
