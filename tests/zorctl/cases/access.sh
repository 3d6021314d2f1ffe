cd "$work"
mkdir -p accounts "$ZOR_ROOT/etc/zor/access.d"
printf '%s\n' root:x:0:0::: web:x:106:106::: guest:x:107:107::: >accounts/passwd
printf '%s\n' root:x:0: _zorbus:x:110:web >accounts/group
ask() { run access explain --accounts accounts "$@"; }

ask user:guest own web
cat >"$ZOR_ROOT/etc/zor/access.d/50-web.conf" <<'RULES'
# The web server.
allow = user:web unit:web.service own web
deny  = any own web
allow = group:_zorbus send 0x5000-0x50FF to cms,w*
RULES
ask user:web unit:web.service own web
ask user:web unit:web.service own web --holder guest
ask user:web own web
ask user:web own web --json
ask user:web send DB_SAVE to cms
ask user:guest send DB_SAVE to cms --json
ask group:_zorbus send 0x5000-0x5001 to cms
ask user:web,guest own web
ask user:web own 'w*'
ask user:web
ask user:nobody-here own web
ask user:web all
ask user:web own web --holder nobody-here

printf '%s\n' 'mode = observe' 'allow = any own web' 'allow = user:web own web' >sound.conf
printf '%s\n' 'mode = off' 'allow = user:web own' 'allow any all' >bad.conf
ask user:guest own db --rules sound.conf
run access test sound.conf --accounts accounts
run access test sound.conf bad.conf --accounts accounts
run access test bad.conf --accounts accounts --json
run access test
run access explain user:web own web --rules bad.conf --accounts accounts

cat >seen <<'SEEN'
# no rule is about it
seen = 12 user:106 group:106,110 unit:web.service own web
seen = 1 user:107 exe:/usr/bin/my\x20tool own ctl4711
seen = 3 user:106 group:106,110 unit:web.service send DB_SAVE to cms
seen = 3 user:106 group:106,110 unit:web.service send 0x61001 to cms
SEEN
run access learn seen --accounts accounts
run access learn --accounts accounts <bad.conf

# What needs a server.
run access reload --timeout 5
rm "$ZOR_ROOT/etc/zor/access.d/50-web.conf"
start msgsvr
normalise() { sed -E 's/^(seen = [0-9]+) .* (publish|control)/\1 WHO \2/'; }
run access reload
printf '%s\n' 'deny = any publish 0x2DA05' 'allow = any all' >"$ZOR_ROOT/etc/zor/access.d/50.conf"
run access reload
run publish 0x2DA05 link
run access refused
echo 'allow = any fly' >"$ZOR_ROOT/etc/zor/access.d/60.conf"
run access reload
rm "$ZOR_ROOT/etc/zor/access.d/60.conf"
run access reload --json
echo 'deny = any own *' >"$ZOR_ROOT/etc/zor/access.d/50.conf"
run access reload
run list

rm "$ZOR_ROOT/etc/zor/access.d/50.conf"
run access reload notifyserver --timeout 5
run access refused cms
start notifyserver
printf '%s\n' 'mode = observe' >"$ZOR_ROOT/etc/zor/access.d/50.conf"
run access reload notifyserver
run access refused notifyserver
echo 'allow = any fly' >>"$ZOR_ROOT/etc/zor/access.d/50.conf"
run access reload notifyserver
