-- The conversations' provider in Lua: lua provider.lua NAME
local zor = require "zor"

io.stdout:setvbuf("line")
local bus = zor.check(zor.open(arg[1]))

local function publish_note(number)
  zor.check(bus:publish("network", "note", { n = number }))
end

bus:serve(0x6101, function() return { actual = 21.5, label = "hall" } end)
bus:serve(0x6102, function(request) return request.word + 1 end)
bus:serve(0x6103, function(request)
  request:defer()
  bus:after(request.word / 1000, function() request:reply(42) end)
end)
bus:serve(0x6104, function() error("no such room", 0) end)
bus:on_error(function(reason, text)
  if reason ~= "no such room" then io.stderr:write(text, "\n") end
end)
bus:serve(0x6105, function(request) request:defer() end)
bus:serve(0x6106, function(request) return request.body end)
bus:on(0x6107, function(message) publish_note(message.word) end)
bus:on(0x6108, function(message)
  local file = assert(zor.file(zor.check(message:receive_fd()), "w"))
  file:write("hello from provider")
  file:close()
end)
bus:on(0x6109, function(message)
  local fill = ("x"):rep(500)
  for i = 1, message.word do zor.check(bus:publish("network", "burst", { i = i, fill = fill })) end
end)

bus:on_lost(function() print("lost") end)
bus:on_rejoined(function() print("rejoined") end)
print("ready")
bus:run()
