-- A daemon in Lua and another one: what handlers return, raise and wait for, events, timers, late replies.
local zor = require "zor"
package.path = arg[0]:match("^.*/") .. "?.lua"
local check = require "check"

-- Installed files that name a module: the first one counts.
assert(os.execute("mkdir -p $ZOR_ROOT/usr/share/zor/types.d"))
for name, number in pairs { acme = "0x2DA30", later = "0x2DA31" } do
  local file = assert(io.open(os.getenv("ZOR_ROOT") .. "/usr/share/zor/types.d/" .. name .. ".json", "w"))
  file:write('{"schema":1,"modules":[{"name":"acme-lamps","type":"' .. number .. '"}]}')
  file:close()
end

local bus = zor.check(zor.open("tester"))
local peer = check.start_peer()

-- What the peer gets for a result of a handler; "reports" when the handler's error is told here, too.
local IO, ARGUMENT, BUSY = zor.status.IO, zor.status.ARGUMENT, zor.status.BUSY
local unprintable = setmetatable({}, { __tostring = function() error("no text") end })
local results = {
  { "nothing", function() end, word = 0, body = "" },
  { "a data word", function() return 4294967295 end, word = 4294967295, body = "" },
  { "a text", function() return "a\0b" end, word = 0, body = "a\0b" },
  { "an object", function() return { on = true } end, word = 0, body = '{"on":true}' },
  { "a list", function() return { 1, 2 } end, word = 0, body = "[1,2]" },
  { "a pair", function() return 7, { on = true } end, word = 7, body = '{"on":true}' },
  { "a status that is no error", function() return 0x10005 end, word = 0x10005, body = "" },
  { "nil and why", function() return nil, "no such lamp" end, status = IO, text = "no such lamp" },
  { "an error", function() error("no such lamp", 0) end, status = IO, text = "no such lamp", reports = 1 },
  { "an error with a status", function() error(zor.error("in use", BUSY)) end, status = BUSY, text = "in use", reports = 1 },
  { "fail", function(request) request:fail("in use", BUSY) end, status = BUSY, text = "in use" },
  { "an error that has no text", function() error(unprintable) end, status = IO, reports = 1 },
  { "bytes as an error", function() error("\255", 0) end, status = IO, text = "?", reports = 1 },
  { "a yield of its own", function() coroutine.yield() end, status = IO, reports = 1 },
  { "a value that cannot travel", function() return true end, status = ARGUMENT, reports = 1 },
  { "a negative number", function() return -1 end, status = ARGUMENT, reports = 1 },
  { "a table without JSON", function() return { print } end, status = ARGUMENT, reports = 1 },
  { "a body that is no JSON", function(request) return request.json end, status = ARGUMENT, reports = 1 },
  { "two replies", function(request)
    request:reply(1)
    check.fails("Argument", "the second reply", request:reply(2))
    return 3
  end, word = 1, body = "" },
  { "a deferred reply", function(request)
    bus:after(0.01, function() request:reply(42) end)
    return request:defer()
  end, word = 42, body = "" },
  { "a call in a handler", function() return zor.check(bus:call("peer", 0x6201, { word = 5 })).word end, word = 5, body = "" },
  { "a call in pcall in a handler", function()
    local ok, reply = pcall(bus.call, bus, "peer", 0x6201, { word = 6 })
    return ok and reply.word
  end, word = 6, body = "" },
  { "a call in a coroutine of a handler's own", function()
    return coroutine.wrap(function() return zor.check(bus:call("peer", 0x6201, { word = 8 })).word end)()
  end, word = 8, body = "" },
}

local function check_results()
  for _, case in ipairs(results) do
    local what = case[1]
    check.reports = 0
    local handle = bus:serve(0x6301, case[2])
    local got = zor.check(bus:call("peer", 0x6203, { word = 0x6301, payload = "{", timeout = 30 })).json
    handle:close()
    check.equal(got.word, case.word, what .. ": data word")
    check.equal(got.status, case.status, what .. ": status")
    if case.text or case.body ~= "a\0b" then check.equal(got.body or case.text and got.text, case.body or case.text, what) end
    check.equal(check.reports, case.reports or 0, what .. ": reports")
  end
end

-- A text with a NUL has no JSON, so the peer cannot tell of it that way.
results[3] = nil
local kept = {}
for _, case in pairs(results) do kept[#kept + 1] = case end
results = kept

check.in_loop(bus, check_results)

-- Calls that fail, and that one which fails does not end another of its type.
check.equal(zor.check(bus:call("peer", 0x6201, { payload = "a\0b" })).body, "a\0b", "bytes")
check.fails("PeerGone", "nobody", bus:call("nobody", 0x6201))
check.fails("Argument", "itself", bus:call("tester", 0x6201))
assert(bus:send("nobody", 0x6201))
check.equal(zor.check(bus:call("peer", 0x6201, { word = 9 })).word, 9, "a call after a message to nobody")
check.raises("Argument", "a reply's JSON", function() return bus:call("peer", 0x6201, { payload = "{" }).json end)
check.in_loop(bus, function()
  check.fails("PeerGone", "nobody, in a handler", bus:call("nobody", 0x6201))
end)

-- A late reply is neither taken for a request of its type nor for another reply.
local served, late = false, 0
local handle = bus:serve(0x6202, function() served = true end)
local heard = zor.check(bus:on("device", "late", function() late = late + 1 end))
check.fails("Timeout", "a late reply to a call that blocked", bus:call("peer", 0x6202, { timeout = 0.02 }))
check.in_loop(bus, function()
  check.fails("Timeout", "a late reply", bus:call("peer", 0x6202, { timeout = 0.02 }))
  check.equal(zor.check(bus:call("peer", 0x6201, { word = 3 })).word, 3, "a call meanwhile")
  while late < 2 do bus:sleep(0.01) end
  check.equal(served, false, "a late reply as a request")
  handle:close()
  heard:close()
end)

-- Events: by module, by name, with items, of an installed module; and a subscription that ends itself.
check.in_loop(bus, function()
  local got = {}
  local function note(event) got[#got + 1] = event end
  zor.check(bus:on("device", "wanted", note))
  local items = zor.check(bus:on("lan", note))
  local lamps = zor.check(bus:on("acme-lamps", note))
  local once
  once = zor.check(bus:on("device", function() once:close() end))
  zor.check(bus:publish("device", "unwanted"))
  zor.check(bus:publish("device", "wanted", { list = zor.array() }))
  zor.check(bus:publish("lan", "up", { port = 3 }))
  zor.check(bus:publish(0x2DA30, "on", { lamp = "hall" }))
  while #got < 3 do bus:sleep(0.01) end
  check.equal(got[1].name .. got[1].module .. got[1].source, "wanteddevicetester", "an event")
  check.equal(zor.encode(got[1].payload), '{"list":[]}', "its payload")
  check.equal(got[2].payload.port, "3", "an item")
  check.equal(got[3].type, 0x2DA30, "the type of an installed module")
  items:close()
  lamps:close()
end)

-- Timers end themselves; a handler's error does not end the timer or the daemon.
check.in_loop(bus, function()
  local turns = 0
  check.reports = 0
  local timer
  timer = bus:every(0.001, function()
    turns = turns + 1
    if turns == 3 then timer:close() end
    error("a turn")
  end)
  while turns < 3 do bus:sleep(0.005) end
  bus:sleep(0.02)
  check.equal(turns .. " " .. check.reports, "3 3", "turns and errors")
end)

-- What a daemon handles.
local told = zor.check(bus:call("peer", 0x110)).json
check.equal(told.name .. " " .. told.face .. " " .. #told.handles, "peer lua 3", "introspection")
check.equal(told.handles[1].kind, "request", "its kind")

-- An interrupt ends the run, also while nothing happens.
local process = assert(io.open("/proc/self/stat")):read("*n")
local killer = io.popen(("sleep 1; kill -INT %d"):format(process)) -- os.execute would ignore it meanwhile
local limit = bus:after(60, function() bus:stop() end)
local ok, reason = pcall(bus.run, bus)
check.equal(tostring(ok) .. (reason or ""), "falseinterrupted!", "an interrupt")
limit:close()
killer:close()

assert(bus:call("peer", 0x706))
peer:close()
bus:close()
