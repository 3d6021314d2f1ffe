-- The conversations' consumer in Lua: lua consumer.lua NAME PROVIDER
local zor = require "zor"

io.stdout:setvbuf("line")
local bus = zor.check(zor.open(arg[1]))
local provider = arg[2]
local failures = 0

local function equal(got, expected, what)
  if got ~= expected then
    error(("%s is %s instead of %s"):format(what, tostring(got), tostring(expected)), 0)
  end
end

local function conversation(name, talk)
  local ok, reason = pcall(talk)
  if not ok then failures = failures + 1 end
  print(ok and "ok " .. name or "failed " .. name .. ": " .. tostring(reason))
end

-- Runs the loop until the condition holds.
local function run_until(condition, seconds, what)
  local waited = false
  local limit = bus:after(seconds, function()
    waited = true
    bus:stop()
  end)
  local poll = bus:every(0.01, function()
    if condition() then bus:stop() end
  end)
  bus:run()
  limit:close()
  poll:close()
  if waited then error("waited too long for " .. what, 0) end
end

local function word()
  equal(zor.check(bus:call(provider, 0x6102, { word = 7 })).word, 8, "the data word")
end

local notes = {}
local subscription

local function event(number)
  zor.check(bus:send(provider, 0x6107, { word = number }))
  run_until(function() return notes[number] end, 10, "the event")
  equal(notes[number].module, "network", "the module")
  equal(notes[number].name, "note", "the name")
end

conversation("request", function()
  local state = zor.check(bus:call(provider, 0x6101)).json
  equal(state.actual, 21.5, "actual")
  equal(state.label, "hall", "label")
end)

conversation("word", word)

conversation("deferred", function()
  local order = {}
  bus:spawn(function()
    local reply = zor.check(bus:call(provider, 0x6103, { word = 300 }))
    table.insert(order, reply.word)
  end)
  bus:spawn(function()
    local reply = zor.check(bus:call(provider, 0x6102, { word = 1 }))
    table.insert(order, reply.word)
  end)
  run_until(function() return #order == 2 end, 10, "both replies")
  equal(order[1], 2, "the first reply")
  equal(order[2], 42, "the second reply")
end)

conversation("error", function()
  local reply, reason = bus:call(provider, 0x6104)
  equal(reply, nil, "the reply")
  equal(reason.name, "Failed", "the error")
  equal(reason.status, zor.status.IO, "its status")
  equal(reason.text, "no such room", "its text")
end)

conversation("timeout", function()
  local _, reason = bus:call(provider, 0x6105, { timeout = 0.3 })
  equal(reason and reason.name, "Timeout", "the error")
  word()
end)

conversation("absent", function()
  local _, reason = bus:call("nobody", 0x6102)
  equal(reason and reason.name, "PeerGone", "the error")
end)

conversation("large", function()
  local period = {}
  for i = 0, 250 do period[#period + 1] = string.char(i * 7 % 251) end
  local bytes = table.concat(period):rep(6000):sub(1, 1500000)
  local reply = zor.check(bus:call(provider, 0x6106, { payload = bytes, timeout = 20 }))
  if reply.body ~= bytes then error("other bytes came back", 0) end
end)

conversation("event", function()
  subscription = zor.check(bus:on("network", "note", function(got) notes[got.payload.n] = got end))
  event(5)
end)

conversation("descriptor", function()
  local reader, writer = assert(zor.pipe())
  zor.check(bus:send_fd(provider, 0x6108, writer))
  writer:close()
  equal(reader:read("*a"), "hello from provider", "the text")
  reader:close()
end)

-- A gap is told before the next event, so notes are sent until the account balances: they may be missed, too.
conversation("gap", function()
  local sent, got, missed = 0, 0, 0
  local function send(type, word, events)
    zor.check(bus:send(provider, type, { word = word }))
    sent = sent + events
  end
  zor.check(bus:on_gap(function(_, events) missed = missed + events end))
  local all = zor.check(bus:on("network", function() got = got + 1 end))
  local seconds = 1
  while missed == 0 and seconds <= 16 do
    send(0x6109, 30000, 30000)
    os.execute("sleep " .. seconds)
    send(0x6107, 1, 1)
    local notes = bus:every(1, function() send(0x6107, 1, 1) end)
    run_until(function() return got + missed >= sent end, 120, "all events and gaps")
    notes:close()
    equal(got + missed, sent, "the sum of events and gaps")
    seconds = seconds * 2
  end
  if missed == 0 then error("nothing was missed", 0) end
  all:close()
end)

conversation("lost", function()
  local lost, rejoined, answered = false, false, false
  bus:on_lost(function() lost = true end)
  bus:on_rejoined(function() rejoined = true end)
  print("kill the server")
  run_until(function() return lost and rejoined end, 60, "the connection")
  bus:spawn(function()
    for _ = 1, 100 do
      local reply = bus:call(provider, 0x6102, { word = 7 })
      if reply and reply.word == 8 then
        answered = true
        return
      end
      bus:sleep(0.1)
    end
  end)
  run_until(function() return answered end, 20, "the provider")
  event(6)
end)

subscription:close()
zor.check(bus:call(provider, 0x706))
print("done")
os.exit(failures == 0 and 0 or 1)
