# Events: publish and listen together.
normalise() { sed -E 's/"Timestamp":"[^"]*"/"Timestamp":"TIME"/; s/x{9,}/XXX/; s/(5b){9,}/5b5b/; s/\[{9,}/[[[/'; }

listen() { # ARGUMENT...: begins, and waits until it hears
  begin listen --verbose "$@"
  await grep -qs listening "$work/begun.err"
}

run listen
run publish lan link port=1
start msgsvr

listen --limit 7
run publish lan link port=1 state=up
run publish network lease host=a
run publish network lease --json-payload '{"hosts":[2,3],"a":{"z":1,"b":null}}' --json
run publish lan evil text=$'\e[31mred\nline \xc2\x9b \xff\xe2\x80\xae'
run publish 0x2DA50 odd name=value
run send 0x2DA07 --text $'no JSON \e[31m'
run send 0x2DA07 --hex "$(printf '5b%.0s' {1..2000})"
finish

# Selected modules, and unknown ones.
listen lan network --limit 2
run publish wan up x=1
run publish lan link port=2
run publish network lease host=b
finish
run listen moon
run listen --limit 0
run publish moon link port=1
run publish 0x2DA00 link port=1
run listen --timeout 0.1
run listen --timeout 0.1 --limit 1

# Bodies: in a file of the bus, too large, not JSON, missing.
head -c 5000 /dev/zero | tr '\0' x | sed 's/.*/"&"/' >"$work/long.json"
listen --limit 1
run publish network long --json-payload "@$work/long.json" --json
finish
head -c 3000000 /dev/zero | tr '\0' x | sed 's/.*/"&"/' >"$work/big.json"
run publish network big --json-payload "@$work/big.json"
run publish network big --json-payload '{"a":'
run publish network big --json-payload "@$work/absent"
run publish lan link --json-payload '{}'
run publish lan link
run publish lan link port

# The server ends meanwhile; the reader of the output has exited.
listen
kill -KILL "$(running msgsvr)"
finish
start msgsvr
publish_often() {
  while kill -0 "$1"; do
    zorctl publish lan link port=1
    sleep 0.05
  done 2>/dev/null
}
publish_often $$ &
publisher=$!
run_unread listen
kill "$publisher"
