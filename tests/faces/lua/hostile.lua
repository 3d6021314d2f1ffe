-- Mistakes, misuse, and ends at the wrong moment: an error each time, and the process goes on.
local zor = require "zor"
package.path = arg[0]:match("^.*/") .. "?.lua"
local check = require "check"

check.fails("Argument", "no name", zor.open(""))
check.raises("Argument", "a number for a name", zor.open, 5)
local bus = zor.check(zor.open("mistaken"))
check.fails("Argument", "a second bus", zor.open("second"))

local function nothing() end
for what, arguments in pairs {
  ["a dot for a colon"] = { bus.call, "peer", 0x6201 },
  ["another table"] = { bus.call, {}, "peer", 0x6201 },
  ["another userdata"] = { bus.send, io.stdout, "peer", 0x6201 },
  ["no destination"] = { bus.call, bus, nil, 0x6201 },
  ["a destination with a NUL"] = { bus.call, bus, "a\0", 0x6201 },
  ["a negative type"] = { bus.call, bus, "peer", -1 },
  ["a broken type"] = { bus.send, bus, "peer", 1.5 },
  ["a type that is too great"] = { bus.send, bus, "peer", 2 ^ 20 },
  ["a time in the past"] = { bus.call, bus, "peer", 1, { timeout = -1 } },
  ["a time that is none"] = { bus.every, bus, 0 / 0, nothing },
  ["an eternity"] = { bus.after, bus, 2 ^ 40, nothing },
  ["a payload that cannot travel"] = { bus.send, bus, "peer", 1, { payload = nothing } },
  ["a payload without JSON"] = { bus.send, bus, "peer", 1, { payload = { nothing } } },
  ["a word that is too great"] = { bus.send, bus, "peer", 1, { word = 2 ^ 32 } },
  ["options that are none"] = { bus.send, bus, "peer", 1, 5 },
  ["no handler"] = { bus.serve, bus, 1 },
  ["a type that is a text"] = { bus.serve, bus, "1", nothing },
  ["an unknown module"] = { bus.publish, bus, "nobodys", "x" },
  ["a type of no event"] = { bus.publish, bus, 1, "x" },
  ["an event without a name"] = { bus.publish, bus, "device" },
  ["a name that is not UTF-8"] = { bus.publish, bus, "device", "\255" },
  ["items in a tree"] = { bus.publish, bus, "lan", "x", { a = {} } },
  ["sleep outside of handlers"] = { bus.sleep, bus, 1 },
} do
  check.raises("Argument", what, (unpack or table.unpack)(arguments))
end

-- Descriptors and files that are none.
local closed = assert(io.tmpfile())
closed:close()
for what, value in pairs { closed = closed, userdata = bus.session, negative = -1 } do
  assert(not pcall(bus.send_fd, bus, "mistaken", 1, value), what)
end
assert(not zor.file(1000000) and not zor.close_fd(1000000))
check.fails("NoMemory", "8 MiB", bus:send("mistaken", 1, { payload = ("x"):rep(8 * 1024 * 1024) }))

-- The collector's functions, called by hand.
local meta = debug.getmetatable(bus.session)
for _, value in ipairs { io.stdout, "text", 1 } do assert(not pcall(meta.__gc, value)) end
assert(not pcall(meta.__gc))

-- A handler closes the bus and goes on; who waits for a reply is told.
local told
bus:on_error(error)
bus:serve(0x6301, function(request)
  bus:close()
  bus:close()
  check.fails("NotConnected", "a reply", request:reply(1))
  check.fails("NotConnected", "a call", bus:call("peer", 0x6201))
  check.raises("NotConnected", "a timer", bus.after, bus, 1, nothing)
end)
bus:spawn(function() told = select(2, bus:call("", 0x6209, { timeout = 60 })) or "a reply" end)
assert(bus:send("mistaken", 0x6301))
bus:after(60, function() error("the bus was not closed") end)
bus:run()
check.equal(told and told.name, "PeerGone", "who waited")
check.fails("NotConnected", "a run", bus:run())
check.fails("NotConnected", "an event", bus:publish("device", "x"))

-- A name may be taken again: by the next bus, by one after a bus that was dropped, and after a session that was ended.
for _ = 1, 3 do assert(zor.open("mistaken")) end
local again = assert(zor.open("mistaken"))
debug.getmetatable(again.session).__gc(again.session)
check.fails("NotConnected", "a session that was ended", again:send("peer", 1))
again:close()
if _VERSION ~= "Lua 5.1" then
  assert(load [[
    local zor = ...
    do local bus <close> = assert(zor.open("mistaken")) end
    do
      local bus <close> = assert(zor.open("mistaken"))
      local handle <close> = bus:every(1, print)
    end
  ]])(zor)
end

-- Errors in finalizers while the bus ends with the interpreter.
local last = assert(zor.open("mistaken"))
last:every(0.01, nothing)
if newproxy then
  getmetatable(newproxy(true)).__gc = function() error("finalizer") end
else
  setmetatable({}, { __gc = function() last:send("peer", 1) end })
end
