normalise() { sed -E 's/(\r\x1b\[K(waiting[^\r]*)?)+/<progress>/g'; }

start msgsvr
run wait lamp --timeout 0.2
run wait lamp --timeout 0.2 --json
run_on_terminal 40 wait lamp --timeout 0.2
run wait $'we\nb'

begin wait lamp fan
peer lamp idle
peer fan idle
finish
run wait fan lamp --json
