-- What the tests of this folder share. They stop at the first surprise.
local zor = require "zor"
local check = {}

function check.equal(got, expected, what)
  if got ~= expected then
    error(("%s: %s instead of %s"):format(what, tostring(got), tostring(expected)), 2)
  end
end

-- The call must raise an error of that name.
function check.raises(name, what, fn, ...)
  local ok, reason = pcall(fn, ...)
  if ok then error(what .. ": no error", 2) end
  check.equal(zor.is_error(reason) and reason.name or reason, name, what)
end

-- The call must return nil and an error of that name.
function check.fails(name, what, value, reason)
  check.equal(value, nil, what)
  check.equal(zor.is_error(reason) and reason.name or reason, name, what)
end

-- Starts a daemon that answers to "peer" and ends when it is asked to.
function check.start_peer()
  local peer = assert(io.popen(("%s '%s'"):format(arg[-1], arg[0]:match("^.*/") .. "peer.lua")))
  check.equal(peer:read("*l"), "ready", "the peer")
  return peer
end

-- Counts the errors that handlers raise.
check.reports = 0

-- Runs a function as handlers run, and the loop until it has ended. Without pcall, through which 5.1 cannot yield.
function check.in_loop(bus, fn)
  local failure = "still waiting after a minute"
  local limit = bus:after(60, function() bus:stop() end)
  bus:on_error(function(_, text)
    check.reports = check.reports + 1
    if not text:find("^zor: a spawned function") then return end
    failure = text
    bus:stop()
  end)
  bus:spawn(function()
    fn()
    failure = nil
    bus:stop()
  end)
  bus:run()
  limit:close()
  if failure then error(failure, 0) end
end

return check
