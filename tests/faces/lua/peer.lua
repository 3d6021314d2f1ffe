-- The other daemon of the tests: echoes, replies late, and calls whoever asks it to.
local zor = require "zor"
local bus = zor.check(zor.open("peer"))

bus:serve(0x6201, function(request) return request.word, request.body end)

-- Long after the asker has given up, and tells of it.
bus:serve(0x6202, function(request)
  bus:sleep(0.2)
  request:reply(1)
  zor.check(bus:publish("device", "late"))
end)

-- Calls the asker back with the type in the data word and says what came of it.
bus:serve(0x6203, function(request)
  local reply, reason = bus:call(request.source, request.word, { payload = request.body, timeout = 30 })
  if not reply then return { name = reason.name, status = reason.status, text = reason.text } end
  return { word = reply.word, body = reply.body }
end)

print("ready")
io.stdout:flush()
bus:run()
