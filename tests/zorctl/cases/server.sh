# Programs of this case's own, so that they can be replaced.
programs=$ZOR_ROOT/programs
mkdir "$programs"
install_program() { cp "$build/daemons/$1/$1" "$programs/$1.new" && mv "$programs/$1.new" "$programs/$1"; }
install_failing() {
  printf '#!/bin/sh\necho "%s: a version of the future" >&2\nexit 5\n' "$1" >"$programs/$1.new"
  chmod +x "$programs/$1.new"
  mv "$programs/$1.new" "$programs/$1"
}
serve() {
  install_program "$1"
  spawn "$1" "$programs/$1"
  await grep -q listening "$ZOR_ROOT/$1.out"
}
normalise() { sed -E 's/[0-9]+ ms/TIME/g; s/_ms":[0-9]+/_ms":N/g; s/[0-9]+\.[0-9]+\.[0-9]+/VERSION/g'; }

run server restart --timeout 5
serve msgsvr
peer lamp idle
run server restart msgsvr
run server restart --json
install_failing msgsvr
run server restart
install_program msgsvr
run server restart
serve notifyserver
run server restart notifyserver
install_failing notifyserver
run server restart notifyserver --json
run wait lamp
run server stop
run server restart cms
