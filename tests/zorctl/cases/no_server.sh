run list
run exit web
start msgsvr
kill "$(running msgsvr)"
await test ! -e "$ZOR_ROOT/var/msgsvr"
run list
