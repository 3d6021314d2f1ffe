-- The face of the bus in Lua 5.1 and 5.4: one bus for the process, handlers in coroutines, errors as values.
--
-- A handler runs in a coroutine of its own. What waits inside of one (bus:call, bus:sleep) yields, and other messages
-- are served meanwhile; outside of the loop, and in a coroutine that is not the face's, bus:call blocks. An error that
-- leaves a handler becomes an error reply and goes to bus:on_error; one that leaves this file ends bus:run.
local core = ...
local unpack = table.unpack or unpack
local kind_of = type  -- "type" is that of a message below

local STATUS = {
  CONNECT = 0x10000, ARGUMENT = 0x10001, REFUSED = 0x10002, NOT_CONNECTED = 0x10003, PEER_GONE = 0x10004,
  TIMEOUT = 0x10005, NO_MEMORY = 0x10006, IO = 0x10007, NOT_WRITABLE = 0x10008, BODY_FILE = 0x1000D, BUSY = 0x10014,
}
-- Data words in this range with a body {"error": "..."} are error replies.
local FIRST_ERROR, LAST_ERROR = 0x10000, 0x1FFFF
local NAME_MAX = 11
local DEFAULT_TIMEOUT = 5
local LATE_MAX = 64

-- Messages that the face itself knows.
local SEND_FAILED, INTROSPECT, SAFE_EXIT, ASK_GAPS, GAP = 0x108, 0x110, 0x706, 0xFF010, 0xFF011
local EVENT_FIRST, EVENT_JSON_LAST, EVENT_LAST = 0x2DA00, 0x2DA63, 0x2DAFF  -- those behind the JSON ones have items
local LOST, REJOINED, REFUSED = 1, 2, 3

local zor = {
  null = core.null, array = core.array, pipe = core.pipe, file = core.file, close_fd = core.close_fd,
  status = STATUS, ALL_EVENTS = EVENT_FIRST,
}

-- Errors -------------------------------------------------------------------------------------------------------------

local ERRORS = {
  [STATUS.CONNECT] = { "NotConnected", "no message server" },
  [STATUS.ARGUMENT] = { "Argument", "an invalid argument" },
  [STATUS.REFUSED] = { "Refused", "the server granted no name" },
  [STATUS.NOT_CONNECTED] = { "NotConnected", "the bus is closed" },
  [STATUS.PEER_GONE] = { "PeerGone", "nobody of that name is on the bus, or the bus went" },
  [STATUS.TIMEOUT] = { "Timeout", "no reply in time" },
  [STATUS.NO_MEMORY] = { "NoMemory", "not enough memory, or a body of more than 8 MiB" },
}

local Error = { __name = "zor.Error" }
Error.__index = Error
function Error.__tostring(self) return self.name .. ": " .. self.text end

local function new_error(status, text, name)
  local known = ERRORS[status] or { "Error", string.format("status 0x%x", status) }
  return setmetatable({ status = status, name = name or known[1], text = text or known[2] }, Error)
end

local function is_error(value) return getmetatable(value) == Error end
local function argument_error(text) return new_error(STATUS.ARGUMENT, text) end

-- For mistakes of the program, which are raised.
local function raise(text) error(argument_error(text), 0) end

local function outcome(status)
  if status == 0 then return true end
  return nil, new_error(status)
end

function zor.error(text, status) return new_error(status or STATUS.IO, text, "Failed") end
zor.is_error = is_error

-- Any value may be raised as an error, also one that cannot be printed.
local function text_of(value)
  local ok, text = pcall(tostring, value)
  return ok and type(text) == "string" and text or "an error without a text"
end

-- Arguments ----------------------------------------------------------------------------------------------------------

local function is_integer(value, first, last)
  return kind_of(value) == "number" and value >= first and value <= last and value == math.floor(value)
end

local function check_type(value)
  if not is_integer(value, 0, 0xFFFFF) then raise("a message type is an integer from 0 to 0xFFFFF") end
  return value
end

local function check_function(value)
  if kind_of(value) ~= "function" then raise("a handler is a function, not a " .. kind_of(value)) end
  return value
end

local function check_name(value)
  if kind_of(value) ~= "string" or value:find("%z") then raise("a name is a text without NUL") end
  return value:sub(1, NAME_MAX)
end

local function milliseconds(seconds)
  if kind_of(seconds) ~= "number" or not (seconds >= 0 and seconds <= 0x7FFFFFFF / 1000) then
    raise("a time is a number of seconds, at least 0")
  end
  return math.max(1, math.floor(seconds * 1000 + 0.5))
end

-- JSON ---------------------------------------------------------------------------------------------------------------

function zor.encode(value)
  local text, reason = core.encode(value)
  return text or raise("JSON: " .. reason)
end

function zor.decode(text)
  local value, reason = core.decode(text)
  if value == nil then return nil, argument_error("JSON: " .. reason) end
  return value
end

-- The data word and body of a result: nothing, a data word, a text, a table, or a data word with one of these.
local function wire(value, body)
  local kind = kind_of(value)
  if value == nil then return 0, nil end
  if kind == "number" then
    if not is_integer(value, 0, 0xFFFFFFFF) then raise("a data word is an integer from 0 to 0xFFFFFFFF") end
    if body == nil then return value, nil end
    return value, select(2, wire(body))
  end
  if kind == "string" then return 0, value end
  if kind == "table" then return 0, zor.encode(value) end
  raise("a " .. kind .. " cannot travel")
end

-- The same of the options of a call or send.
local function wire_options(options)
  if options == nil then return 0, nil end
  if kind_of(options) ~= "table" then raise("options are a table: {payload = ..., word = ...}") end
  local payload = options.payload
  if kind_of(payload) == "number" then raise("a payload is a text or a table; a number is the word") end
  return wire(options.word or 0, payload)
end

-- Messages -----------------------------------------------------------------------------------------------------------

-- What requests, replies and one-way messages have: type, word, body, source; and json, which is decoded when it is
-- first looked at, and raises an error when the body is none.
local Message = { __name = "zor.Message" }

local function message_member(self, key, methods)
  if key ~= "json" then return methods[key] end
  local value
  if self.body ~= "" then
    local reason
    value, reason = zor.decode(self.body)
    if value == nil then error(reason, 0) end
  end
  rawset(self, "json", value)
  return value
end

function Message.__index(self, key) return message_member(self, key, Message) end

local Request = { __name = "zor.Request" }
function Request.__index(self, key) return message_member(self, key, Request) end

local function send_reply(request, word, body)
  if request.replied then return nil, argument_error("the request has its reply") end
  if request.bus.closed then return nil, new_error(STATUS.NOT_CONNECTED) end
  request.replied = true
  return outcome((core.send(request.source, request.type, word, body, request.sequence)))
end

function Request:reply(value, body) return send_reply(self, wire(value, body)) end

function Request:fail(reason, status)
  local text = text_of(reason)
  if is_error(reason) then text, status = reason.text, status or reason.status end
  if text == "not enough memory" then status = status or STATUS.NO_MEMORY end
  if not is_integer(status, FIRST_ERROR, LAST_ERROR) then status = STATUS.IO end
  local body = core.encode({ error = text }) or core.encode({ error = (text:gsub("[^\32-\126]", "?")) })
  return send_reply(self, status, body)
end

-- The handler's result is no reply; request:reply or request:fail is called later.
function Request:defer()
  self.deferred = true
  return self
end

-- The descriptor that follows the request.
function Request:receive_fd(seconds)
  local status, fd = core.receive_fd(milliseconds(seconds or DEFAULT_TIMEOUT))
  if status ~= 0 then return nil, new_error(status) end
  return fd
end

-- What a call returns for a reply.
local function reply_outcome(type, word, body, source)
  if word >= FIRST_ERROR and word <= LAST_ERROR and body ~= "" then
    local told = core.decode(body)
    if kind_of(told) == "table" and kind_of(told.error) == "string" then
      return nil, new_error(word, told.error, "Failed")
    end
  end
  return setmetatable({ type = type, word = word, body = body, source = source }, Message)
end

-- The bus ------------------------------------------------------------------------------------------------------------

local Bus = { __name = "zor.Bus" }
Bus.__index = Bus
-- The open one, as long as somebody has it.
local live = setmetatable({}, { __mode = "v" })

local function check_bus(self)
  if getmetatable(self) ~= Bus then raise("call it with a colon on a bus: bus:name(...)") end
  return self
end

local function check_open(self)
  if check_bus(self).closed then error(new_error(STATUS.NOT_CONNECTED), 0) end
  return self
end

function Bus.__tostring(self) return "zor.Bus " .. self.name .. (self.closed and " (closed)" or "") end

-- Errors that have no caller go to the handler of bus:on_error, or to standard error.
local function report(bus, what, reason, traceback)
  local text = "zor: " .. what .. ": " .. traceback
  if bus.error_handler then
    local ok, second = pcall(bus.error_handler, reason, text)
    if ok then return end
    text = text .. "\nzor: the error handler: " .. text_of(second)
  end
  io.stderr:write(text, "\n")
end

-- Tasks: coroutines of the face. What yields inside of one yields WAIT; it is resumed with the result.
local WAIT = {}
local tasks = setmetatable({}, { __mode = "kv" })

local function resume(task, ...)
  local thread = task.thread
  local ok, first, second = coroutine.resume(thread, ...)
  local suspended = coroutine.status(thread) == "suspended"
  if suspended and first == WAIT then return end
  if suspended then ok, first = false, "it yielded, but not in a function of the bus" end
  if ok then
    if task.finish then task.finish(first, second) end
    return
  end
  report(task.bus, task.what, first, debug.traceback(thread, text_of(first)))
  if coroutine.close then coroutine.close(thread) end
  if task.fail then task.fail(first) end
end

local function start(bus, what, fn, argument, finish, fail)
  local task = { bus = bus, what = what, thread = coroutine.create(fn), finish = finish, fail = fail }
  tasks[task.thread] = task
  return resume(task, argument)
end

-- The task that can wait by yielding, if this is one.
local function waiting_task()
  local thread = coroutine.running()
  local task = thread and tasks[thread]
  return task and core.yieldable() and task or nil
end

local Handle = { __name = "zor.Handle" }
Handle.__index = Handle

function Handle:close()
  local undo = self.undo
  self.undo = nil
  if undo then undo() end
end
Handle.__close = Handle.close

local function new_handle(undo) return setmetatable({ undo = undo }, Handle) end

-- Timers -------------------------------------------------------------------------------------------------------------

local function start_timer(bus, interval, count, fn)
  local id, handle = core.timer(interval, count)
  if not id then return nil, new_error(STATUS.NO_MEMORY) end
  bus.timers[id] = { handle = handle, fn = fn, once = count == 1 }
  return id
end

local function stop_timer(bus, id)
  local timer = bus.timers[id]
  bus.timers[id] = nil
  if timer then core.untimer(timer.handle) end
end

local function on_timer(id)
  local bus = live.bus
  local timer = bus and bus.timers[id]
  if not timer then return end
  if timer.once then bus.timers[id] = nil end
  timer.fn()
end

local function user_timer(bus, seconds, count, fn)
  check_open(bus)
  check_function(fn)
  local id, reason = start_timer(bus, milliseconds(seconds), count, function() start(bus, "a timer", fn) end)
  if not id then return nil, reason end
  return new_handle(function() stop_timer(bus, id) end)
end

function Bus:every(seconds, fn) return user_timer(self, seconds, 0, fn) end
function Bus:after(seconds, fn) return user_timer(self, seconds, 1, fn) end

-- In a handler only: others are served meanwhile.
function Bus:sleep(seconds)
  check_open(self)
  local task = waiting_task()
  if not task then raise("bus:sleep is for handlers and bus:spawn") end
  local interval = milliseconds(seconds)
  local id, reason = start_timer(self, interval, 1, function() resume(task, true) end)
  if not id then return nil, reason end
  return coroutine.yield(WAIT)
end

-- Runs a function as handlers run: what waits in it does not block.
function Bus:spawn(fn, argument)
  check_open(self)
  start(self, "a spawned function", check_function(fn), argument)
end

-- Calls --------------------------------------------------------------------------------------------------------------

local function end_call(bus, sequence, call, ...)
  bus.calls[sequence] = nil
  stop_timer(bus, call.timer)
  resume(call.task, ...)
end

-- A late reply of a type that is served here too would be taken for a request.
local function remember_late(bus, sequence, call)
  local late = bus.late
  late.next = late.next % LATE_MAX + 1
  late[late.next] = { sequence = sequence, type = call.type, to = call.to }
end

local function is_from(call, source) return call.to == "" or call.to == source end

local function take_late(bus, type, sequence, source)
  for at, call in pairs(bus.late) do
    if at ~= "next" and call.sequence == sequence and call.type == type and is_from(call, source) then
      bus.late[at] = nil
      return true
    end
  end
  return false
end

local function call_in_task(bus, task, to, type, word, body, timeout)
  local status, sequence = core.send(to, type, word, body)
  if status ~= 0 then return nil, new_error(status) end
  local call = { task = task, to = to, type = type }
  local reason
  call.timer, reason = start_timer(bus, timeout, 1, function()
    remember_late(bus, sequence, call)
    end_call(bus, sequence, call, nil, new_error(STATUS.TIMEOUT))
  end)
  if not call.timer then return nil, reason end
  bus.calls[sequence] = call
  return coroutine.yield(WAIT)
end

-- A request and its reply; or nil and an error. The destination "" is the message server.
function Bus:call(to, type, options)
  to = check_name(to)
  check_type(type)
  local word, body = wire_options(options)
  local timeout = milliseconds(options and options.timeout or DEFAULT_TIMEOUT)
  if check_bus(self).closed then return nil, new_error(STATUS.NOT_CONNECTED) end
  if to == self.name then return nil, argument_error("a daemon cannot call itself") end
  local task = waiting_task()
  if task then return call_in_task(self, task, to, type, word, body, timeout) end
  local status, reply_word, reply_body, source = core.call(to, type, word, body, timeout)
  if status == STATUS.TIMEOUT then remember_late(self, reply_word, { type = type, to = to }) end
  if status ~= 0 then return nil, new_error(status) end
  return reply_outcome(type, reply_word, reply_body, source)
end

-- A message without a reply: true; or nil and an error.
function Bus:send(to, type, options)
  to = check_name(to)
  check_type(type)
  local word, body = wire_options(options)
  if check_bus(self).closed then return nil, new_error(STATUS.NOT_CONNECTED) end
  return outcome((core.send(to, type, word, body)))
end

-- The same, with an open descriptor or file behind it.
function Bus:send_fd(to, type, fd, options)
  local ok, reason = self:send(to, type, options)
  if not ok then return nil, reason end
  return outcome(core.send_fd(fd))
end

local function fail_calls(bus, status)
  local calls = bus.calls
  bus.calls = {}
  for _, call in pairs(calls) do stop_timer(bus, call.timer) end
  for _, call in pairs(calls) do resume(call.task, nil, new_error(status)) end
end

-- Modules and events -------------------------------------------------------------------------------------------------

local function type_files()
  local files = core.type_files()
  for directory in (os.getenv("ZOR_TYPES") or ""):gmatch("[^:]+") do
    for _, path in ipairs(core.type_files(directory)) do files[#files + 1] = path end
  end
  return files
end

-- The modules of the installed type files, read when a name is first missing.
local function installed_modules(bus)
  if bus.installed then return bus.installed end
  bus.installed = {}
  for _, path in ipairs(type_files()) do
    local file = io.open(path)
    local content = file and core.decode(file:read("*a"))
    if file then file:close() end
    local modules = kind_of(content) == "table" and content.modules
    for _, module in ipairs(kind_of(modules) == "table" and modules or {}) do
      if kind_of(module) == "table" and kind_of(module.name) == "string" then
        bus.installed[module.name] = bus.installed[module.name] or tonumber(module.type)  -- the first file counts
      end
    end
  end
  return bus.installed
end

local function event_type(bus, what)
  if kind_of(what) ~= "string" then return check_type(what) end
  return core.module_type(what) or bus.modules[what] or installed_modules(bus)[what]
    or raise('nobody knows the type of the module "' .. what .. '": declare it with bus:module(name, type)')
end

local function module_name(bus, what)
  if kind_of(what) == "string" then return what end
  for name, number in pairs(bus.modules) do
    if number == what then return name end
  end
  return core.module_name(what) or ""
end

-- Declares the type of a module's events.
function Bus:module(name, type)
  if kind_of(name) ~= "string" then raise("the name of a module is a text") end
  check_bus(self).modules[name] = check_type(type)
end

-- Items have texts only.
local function items_of(payload)
  local items = {}
  for name, value in pairs(payload) do
    if kind_of(name) ~= "string" or kind_of(value) == "table" then raise("events of this type have a flat table") end
    items[#items + 1] = name
    items[#items + 1] = tostring(value)
  end
  return items
end

-- The payload is JSON, or for types with items a flat table.
function Bus:publish(what, name, payload)
  check_bus(self)
  local number = event_type(self, what)
  if number <= EVENT_FIRST or number > EVENT_LAST then raise("events have types 0x2DA01 to 0x2DAFF") end
  if kind_of(name) ~= "string" then raise("the name of an event is a text") end
  if self.closed then return nil, new_error(STATUS.NOT_CONNECTED) end
  if payload == nil then payload = {} end
  if number > EVENT_JSON_LAST then return outcome(core.publish_items(name, number, items_of(payload))) end
  local status, reason = core.publish(module_name(self, what), name, number, payload)
  if not status then raise("JSON: " .. reason) end
  return outcome(status)
end

local function remove(list, entry)
  for at = #list, 1, -1 do
    if list[at] == entry then table.remove(list, at) end
  end
end

local function subscribe(bus, number, entry)
  local list = bus.events[number] or {}
  bus.events[number] = list
  if #list == 0 then
    local ok, reason = outcome(core.subscribe(number, true))
    if not ok then return nil, reason end
  end
  list[#list + 1] = entry
  return new_handle(function()
    remove(list, entry)
    if #list > 0 then return end
    bus.events[number] = nil
    if not bus.closed then core.subscribe(number, false) end
  end)
end

-- bus:on(module or event type [, event's name], fn): events. bus:on(another type, fn): messages that get no reply.
function Bus:on(what, name, fn)
  check_open(self)
  if fn == nil then name, fn = nil, name end
  local entry = { fn = check_function(fn), name = name }
  local number = event_type(self, what)
  if number >= EVENT_FIRST and number <= EVENT_LAST then return subscribe(self, number, entry) end
  local list = self.listened[number] or {}
  self.listened[number] = list
  list[#list + 1] = entry
  return new_handle(function()
    remove(list, entry)
    if #list == 0 and self.listened[number] == list then self.listened[number] = nil end
  end)
end

-- The list may change while its handlers run.
local function run_all(bus, list, what, argument)
  for _, entry in ipairs({ unpack(list) }) do
    if entry.name == nil or entry.name == argument.name then start(bus, what, entry.fn, argument) end
  end
end

local function on_event(bus, type, source, body)
  local content, reason = core.decode(body)
  if kind_of(content) ~= "table" then
    report(bus, string.format("an event of type 0x%x", type), reason, "no JSON object: " .. (reason or "another value"))
    return
  end
  local event = {
    type = type, source = source, module = content.Module, name = content.EventType, timestamp = content.Timestamp,
    payload = content.Payload,
  }
  local what = string.format("an event of type 0x%x", type)
  run_all(bus, bus.events[type] or {}, what, event)
  run_all(bus, bus.events[EVENT_FIRST] or {}, what, event)
end

-- Serving ------------------------------------------------------------------------------------------------------------

-- The handler of a type; its result is the reply. A second one takes the place of the first.
function Bus:serve(type, fn)
  check_open(self)
  check_type(type)
  self.served[type] = check_function(fn)
  return new_handle(function()
    if self.served[type] == fn then self.served[type] = nil end
  end)
end

local function serve(bus, fn, request)
  local function fail(reason)
    if not request.replied then request:fail(reason) end
  end
  local what = string.format("the handler of 0x%x", request.type)
  local function finish(value, body)
    if request.replied or request.deferred then return end
    if value == nil and body ~= nil then return fail(body) end
    local ok, word_or_reason, text = pcall(wire, value, body)
    if ok then return send_reply(request, word_or_reason, text) end
    report(bus, what, word_or_reason, text_of(word_or_reason))
    fail(word_or_reason)
  end
  start(bus, what, fn, request, finish, fail)
end

local function introspection(bus)
  local handles, events = core.array(), core.array()
  for type in pairs(bus.served) do handles[#handles + 1] = { type = type, kind = "request" } end
  for type in pairs(bus.listened) do handles[#handles + 1] = { type = type, kind = "oneway" } end
  for type in pairs(bus.events) do events[#events + 1] = { type = type } end
  return { name = bus.name, face = "lua", pid = core.pid(), handles = handles, events = events }
end

-- Requests that the face answers unless the daemon serves them itself.
local BUILT_IN = {
  [INTROSPECT] = function(bus, request) request:reply(introspection(bus)) end,
  [SAFE_EXIT] = function(bus, request)
    if not bus.safe_exit then return false end
    request:reply(0)
    bus:stop()
  end,
}

local function on_gap(bus, body)
  local gaps = core.gaps(body)
  for at = 1, #gaps, 2 do
    local type, count = gaps[at], gaps[at + 1]
    start(bus, "the handler of gaps", function() bus.gap_handler(type, count) end)
  end
end

-- What only the server sends: notices of messages that found nobody, and of missed events.
local function on_notice(bus, type, sequence, word, body)
  if type == SEND_FAILED then
    local call = bus.calls[sequence]
    if call and call.type == word then end_call(bus, sequence, call, nil, new_error(STATUS.PEER_GONE)) end
    return call ~= nil
  end
  if type ~= GAP or not bus.gap_handler then return false end
  on_gap(bus, body)
  return true
end

-- Whether the message was for the face; the library's own handlers get the others.
local function on_message(type, sequence, source, word, body)
  local bus = live.bus
  if not bus then return false end
  local call = bus.calls[sequence]
  if call and call.type == type and is_from(call, source) then
    end_call(bus, sequence, call, reply_outcome(type, word, body, source))
    return true
  end
  if source == "" and on_notice(bus, type, sequence, word, body) then return true end
  if type >= EVENT_FIRST and type <= EVENT_LAST then
    if not bus.events[type] and not bus.events[EVENT_FIRST] then return false end
    on_event(bus, type, source, body)
    return true
  end
  local handler, listened = bus.served[type], bus.listened[type]
  if (handler or listened) and take_late(bus, type, sequence, source) then return true end
  local message = { bus = bus, type = type, sequence = sequence, source = source, word = word, body = body }
  if handler then
    serve(bus, handler, setmetatable(message, Request))
    return true
  end
  if listened then
    run_all(bus, listened, string.format("the handler of 0x%x", type), setmetatable(message, Request))
    return true
  end
  local built_in = BUILT_IN[type]
  return built_in ~= nil and built_in(bus, setmetatable(message, Request)) ~= false
end

-- The connection -----------------------------------------------------------------------------------------------------

local function run_link_handler(bus, what, fn)
  if fn then start(bus, what, fn) end
end

local function on_link(event)
  local bus = live.bus
  if not bus then return end
  if event == LOST then
    run_link_handler(bus, "the handler of on_lost", bus.lost_handler)
    fail_calls(bus, STATUS.PEER_GONE)
  elseif event == REJOINED then
    if bus.gap_handler then core.send("", ASK_GAPS, 1) end
    run_link_handler(bus, "the handler of on_rejoined", bus.rejoined_handler)
  elseif event == REFUSED then
    report(bus, "joining again", new_error(STATUS.REFUSED), "another name was granted, or none; trying again")
  end
end

function Bus:on_lost(fn) check_open(self).lost_handler = check_function(fn) end
function Bus:on_rejoined(fn) check_open(self).rejoined_handler = check_function(fn) end
-- fn(error, text): text is what would have been printed.
function Bus:on_error(fn) check_open(self).error_handler = check_function(fn) end

-- fn(type, count): so many events of that type were missed, since this daemon did not read.
function Bus:on_gap(fn)
  check_open(self).gap_handler = check_function(fn)
  return outcome((core.send("", ASK_GAPS, 1)))
end

-- Runs the loop until bus:stop(value), and returns the value.
function Bus:run()
  if check_bus(self).closed then return nil, new_error(STATUS.NOT_CONNECTED) end
  local status = core.run()
  local result = self.result
  self.result = nil
  if status ~= 0 then return nil, new_error(status) end
  return result
end

function Bus:stop(value)
  check_bus(self).result = value
  core.stop()
end

-- Leaves the bus. Whoever waits for a reply gets PeerGone.
function Bus:close()
  if check_bus(self).closed then return end
  self.closed = true
  for id in pairs(self.timers) do stop_timer(self, id) end
  core.leave()
  live.bus = nil
  fail_calls(self, STATUS.PEER_GONE)
end
function Bus.__close(self) self:close() end

-- zor.open(name, {rejoin = true, safe_exit = true}): a bus; or nil and an error. A process has one at a time.
function zor.open(name, options)
  options = options or {}
  if kind_of(options) ~= "table" then raise("options are a table: {rejoin = ..., safe_exit = ...}") end
  name = check_name(name)
  if name == "" then return nil, argument_error("a daemon has a name") end
  local rejoin = options.rejoin ~= false
  local status, granted, session = core.join(name, rejoin, on_message, on_timer, on_link)
  if not status then
    collectgarbage()  -- of a bus that nobody has any more
    status, granted, session = core.join(name, rejoin, on_message, on_timer, on_link)
  end
  if not status then return nil, argument_error("this process is on the bus already") end
  if status ~= 0 then return nil, new_error(status) end
  live.bus = setmetatable({
    name = granted, session = session, safe_exit = options.safe_exit ~= false, closed = false,
    served = {}, listened = {}, events = {}, modules = {}, timers = {}, calls = {}, late = { next = 0 },
  }, Bus)
  return live.bus
end

-- assert() for errors of this module, also where assert takes only texts: in Lua 5.1 outside of handlers it raises one.
function zor.check(...)
  local ok, reason = ...
  if ok then return ... end
  local thread = coroutine.running()
  if _VERSION == "Lua 5.1" and not (thread and tasks[thread]) then reason = tostring(reason) end
  error(reason, 0)
end

return zor
