# Described types: files of vendors, which give names and fields to messages.
normalise() { sed -E 's/"Timestamp":"[^"]*"/"Timestamp":"T"/'; }

start msgsvr
cd "$work"
mkdir -p "$ZOR_ROOT/usr/share/zor/types.d"
cat >"$ZOR_ROOT/usr/share/zor/types.d/acme.json" <<'TYPES'
{"schema": 1, "vendor": "acme", "namespace": "thermo",
 "modules": [{"name": "thermo", "type": "0x2DA20", "meaning": "Heating"}],
 "types": [
  {"type": "0x6101", "name": "GetState", "kind": "request", "to": "thermo", "since": "1.0", "meaning": "The state now",
   "request": [{"name": "zone", "type": "u32", "in": "data"}],
   "reply": [{"name": "actual", "type": "f64", "unit": "K", "meaning": "By the *hall* sensor\u202e"},
             {"name": "label", "type": "text", "since": "1.1", "default": "hall"}]},
  {"type": "0x6102", "name": "Describe", "kind": "request", "to": "thermo", "encoding": "json",
   "request": [{"name": "zone", "type": "u8"}], "reply": [{"name": "label", "type": "text"}]},
  {"type": "0x6103", "name": "Set", "kind": "oneway", "to": "thermo", "request": [{"name": "offset", "type": "i16"}]},
  {"type": "0x407A", "name": "Ping", "kind": "request", "to": "still"},
  {"type": "0x2DA20", "name": "Reached", "kind": "event", "module": "thermo", "event": "reached", "encoding": "json",
   "message": [{"name": "actual", "type": "f64"}]}]}
TYPES

zorctl types list --json | jq -ac '.[] | select(.type == 24833)'
zorctl types list | grep thermo
run types show thermo.getstate
run types show 0x2DA20 thermo.Set
run types show GetState --markdown
run types show thermo.GetStat
run types show 0x6999
zorctl complete types | grep thermo
zorctl complete modules | grep thermo

# The lint: every mistake at its place.
cat >bad.json <<'TYPES'
{"schema": 1, "vendor": "acme", "namespace": "oven", "modules": [{"name": "oven", "type": "0x2DA21"}],
 "types": [{"type": "0x6101", "name": "Mine", "kind": "oneway"},
           {"type": "0x6200", "name": "A", "kind": "oneway", "request": [{"name": "a", "type": "u8", "uni": "K"}]}]}
TYPES
sed 's/"uni": "K"/"unit": "K"/' bad.json >good.json
sed 's/0x6101/0x5009/; s/"name": "oven"/"name": "lan"/' good.json >ours.json
printf '{"schema": 1,\n "vendor" 2}' >broken.json
run types lint good.json
run types lint good.json bad.json ours.json broken.json "$ZOR_ROOT/usr/share/zor/types.d/acme.json"
run types lint broken.json missing.json --json
run types lint "$source/messages/types.d/zor.json" | sed 's|! .*/messages/|! |; s|^.*/messages/||'
run types lint
run types list surplus

# Requests and events take and print JSON by the types.
number 4035800000000000 >actual # 21.5
printf 'attic\000more' >>actual
cat >reply <<'SCRIPT'
#!/bin/sh
[ "$ZOR_REQUEST_DATA" = 2 ] || exit 7
cat actual
SCRIPT
cat >describe <<'SCRIPT'
#!/bin/sh
sed 's/zone/label/; s/7/"seven"/'
SCRIPT
chmod +x reply describe
background thermo serve thermo.GetState thermo --exec ./reply
zorctl wait thermo >/dev/null
run call thermo.GetState thermo zone=2
run call thermo.GetState thermo '{"zone":2}' --json
run call GetState thermo '{"zone":-1}'
run call GetState thermo '{"zones":2}'
run call GetState thermo '{"zone":2' --json
run introspect thermo
run call thermo.Set thermo offset=1 --timeout 1
stop thermo
background thermo serve thermo.Describe thermo --exec ./describe
zorctl wait thermo >/dev/null
run call thermo.Describe thermo zone=7 --json
run call thermo.Describe thermo zone=300

background listener listen thermo --limit 4 --verbose --timeout 100
await grep -q listening "$ZOR_ROOT/listener.err"
run publish thermo.Reached actual=21.5
run publish thermo reached '{"actual":22,"more":[1]}'
run publish thermo reached actual=warm
run publish thermo.Reached '{"actual":"1e2"}' --json
run publish thermo cooled by=itself
await gone listener
report output listener
run publish thermo
run list -v | grep -c thermo

# Whoever waits for a described request does wait.
peer still idle
kill -STOP "$(running still)"
peer z ask still
await eval "zorctl why still --json | grep -q '\"waits\":\"yes\"'"
zorctl why z | tail -n 1 | sed -E 's/ +/ /g; s/ [0-9.]+ m?s [0-9]+ / N N /'
