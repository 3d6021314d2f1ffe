-- Wireshark dissector of captures of the bus: the copies that `zorctl monitor --pcapng FILE` writes. Formats:
-- docs/protocol.md.
--
-- 1. A packet is the head of a copy (ZOR_CONTROL_COPY) and a frame: the header of a message and its body, complete or truncated.
-- 2. Integers are in the byte order of the host that captured. The size of the frame shows which one: it fits into 16
--    bits, so the right reading is the smaller one.
-- 3. Every byte is hostile. All bytes are taken through a Reader, which never leaves what was captured.
--
-- Wireshark loads it from its folder of personal plugins; tshark also with -X lua_script:FILE.

-- { first, last, name, to, kind, shape of the request, of the reply }; the build puts the table of messages here
local message_types = {}

-- The same of vendors: what `zorctl types dissector` has printed into zorbus_types.lua beside this file, or into the file
-- that the environment names. Scripts of Wireshark do not see each other's variables, so it is loaded here; it gets
-- nothing to call.
local function load_vendor_types()
  local folder = debug.getinfo(1, "S").source:match("^@(.*[/\\])") or ""
  local names = {}
  local file = io.open(os.getenv("ZOR_DISSECTOR_TYPES") or folder .. "zorbus_types.lua")
  if not file then return {} end
  -- Wireshark has a loadfile of its own, which takes no environment.
  local chunk = load(file:read("*a"), "zorbus_types.lua", "t", names)
  file:close()
  if chunk and pcall(chunk) and type(names.zorbus_types) == "table" then return names.zorbus_types end
  return {}
end
local vendor_types = load_vendor_types()

local zorbus = Proto("zorbus", "Message bus")

local OUTCOMES = { [0] = "delivered", [1] = "undelivered" }
local COPY_SIZE = 32
local NAME_SIZE = 12
local PATH_SIZE = 260
local SEND_FAILED_NOTICE = 0x108
local IN_FILE_BIT = 0x10000000

local f = zorbus.fields
f.copy_time = ProtoField.absolute_time("zorbus.copy.time", "Time", base.UTC)
f.copy_missed = ProtoField.uint32("zorbus.copy.missed", "Copies missed before this one")
f.copy_outcome = ProtoField.uint32("zorbus.copy.outcome", "Outcome", base.DEC, OUTCOMES)
f.copy_frame_size = ProtoField.uint32("zorbus.copy.frame_size", "Frame size")
f.copy_receiver = ProtoField.string("zorbus.copy.receiver", "Receiver")
f.type = ProtoField.uint32("zorbus.type", "Type", base.HEX, nil, 0x000fffff)
f.type_name = ProtoField.string("zorbus.type_name", "Type name")
f.in_file = ProtoField.bool("zorbus.in_file", "Body in a file", 32, nil, IN_FILE_BIT)
f.board = ProtoField.uint32("zorbus.board", "Board", base.DEC, nil, 0xe0000000)
f.sequence = ProtoField.uint32("zorbus.sequence", "Sequence number")
f.source = ProtoField.string("zorbus.source", "Source")
f.destination = ProtoField.string("zorbus.destination", "Destination")
f.data = ProtoField.uint32("zorbus.data", "Data word", base.DEC_HEX)
f.request_frame = ProtoField.framenum("zorbus.request_frame", "Reply to", base.NONE, frametype.REQUEST)
f.body_length = ProtoField.uint32("zorbus.body_length", "Body length")
f.body = ProtoField.bytes("zorbus.body", "Body")
f.body_path = ProtoField.string("zorbus.body_path", "Body file")
f.field_name = ProtoField.string("zorbus.field.name", "Name")
f.field_text = ProtoField.string("zorbus.field.text", "Text")
f.field_bytes = ProtoField.bytes("zorbus.field.bytes", "Bytes")
f.field_u8 = ProtoField.uint8("zorbus.field.u8", "8 bits", base.DEC_HEX)
f.field_i8 = ProtoField.int8("zorbus.field.i8", "8 bits")
f.field_i16 = ProtoField.int16("zorbus.field.i16", "16 bits")
f.field_i32 = ProtoField.int32("zorbus.field.i32", "32 bits")
f.field_i64 = ProtoField.int64("zorbus.field.i64", "64 bits")
f.field_f64 = ProtoField.double("zorbus.field.f64", "Real")
f.field_u16 = ProtoField.uint16("zorbus.field.u16", "16 bits", base.DEC_HEX)
f.field_u32 = ProtoField.uint32("zorbus.field.u32", "32 bits", base.DEC_HEX)
f.field_u64 = ProtoField.uint64("zorbus.field.u64", "64 bits", base.DEC_HEX)
f.json = ProtoField.string("zorbus.json", "JSON")
f.dm_magic = ProtoField.uint32("zorbus.dm.magic", "Magic", base.HEX)
f.dm_capacity = ProtoField.uint32("zorbus.dm.capacity", "Capacity")
f.dm_free = ProtoField.uint32("zorbus.dm.free", "Free")
f.dm_error = ProtoField.uint32("zorbus.dm.error", "Error code", base.DEC_HEX)
f.dm_config_id = ProtoField.uint32("zorbus.dm.config_id", "Configuration", base.HEX)
f.dm_sub_type = ProtoField.uint32("zorbus.dm.sub_type", "Sub-type")
f.dm_unused = ProtoField.bytes("zorbus.dm.unused", "Unused")
f.item_kind = ProtoField.uint32("zorbus.item.kind", "Kind")
f.item_name_length = ProtoField.uint32("zorbus.item.name_length", "Name length")
f.item_value_length = ProtoField.uint32("zorbus.item.value_length", "Value length")
f.item_name = ProtoField.string("zorbus.item.name", "Name")
f.item_value = ProtoField.bytes("zorbus.item.value", "Value")
f.item_text = ProtoField.string("zorbus.item.text", "Value as text")

local e = zorbus.experts
e.short = ProtoExpert.new("zorbus.short", "Truncated", expert.group.MALFORMED, expert.severity.WARN)
e.cut = ProtoExpert.new("zorbus.cut", "The capture contains only the start of the body", expert.group.UNDECODED,
  expert.severity.NOTE)
e.undelivered = ProtoExpert.new("zorbus.undelivered", "Not delivered", expert.group.RESPONSE_CODE,
  expert.severity.WARN)
e.missed = ProtoExpert.new("zorbus.missed", "Copies are missing before this one", expert.group.SEQUENCE,
  expert.severity.NOTE)

-- Text up to its first NUL, with everything but visible ASCII and spaces escaped.
local function visible(text)
  return (text:match("^[^\0]*"):gsub("[^ -~]", function(byte) return string.format("\\x%02x", byte:byte()) end))
end

-- Takes bytes from the front of a range of the packet.
local Reader = {}
Reader.__index = Reader

function Reader.new(tvb, offset, length, little_endian)
  local last = math.min(offset + length, tvb:captured_len())
  return setmetatable({ tvb = tvb, offset = offset, last = last, little = little_endian }, Reader)
end

function Reader:left() return math.max(self.last - self.offset, 0) end

-- The next bytes; nil if fewer are left.
function Reader:take(length)
  if length < 1 or length > self:left() then return nil end
  local range = self.tvb:range(self.offset, length)
  self.offset = self.offset + length
  return range
end

function Reader:number(range) return self.little and range:le_uint() or range:uint() end

-- Adds a number of so many bytes to the tree: its value and tree item; nil, with a mark at the tree, when it is not
-- there. Numbers of 8 bytes have no value.
function Reader:add_number(tree, field, size)
  local range = self:take(size)
  if not range then
    tree:add_proto_expert_info(e.short)
    return nil
  end
  local item = self.little and tree:add_le(field, range) or tree:add(field, range)
  return size <= 4 and self:number(range), item
end

-- Adds a name in a field of so many bytes: the name.
function Reader:add_name(tree, field, size)
  local range = self:take(size)
  if not range then return "" end
  local name = visible(range:raw())
  return name, tree:add(field, range, name)
end

-- Adds a text in a field of so many bytes. Wireshark escapes what cannot be shown.
function Reader:add_text(tree, field, size)
  local range = self:take(size)
  return range and tree:add(field, range, range:string(ENC_UTF_8))
end

-- Up to and with the next NUL, or all that is left.
function Reader:text_size()
  if self:left() == 0 then return 0 end
  local nul = self.tvb:range(self.offset, self:left()):raw():find("\0", 1, true)
  return nul or self:left()
end

-- The entry of a message type in the table; nil for an unknown type.
local function describe(message_type)
  for _, list in ipairs({ message_types, vendor_types }) do
    for _, entry in ipairs(list) do
      if message_type >= entry[1] and message_type <= entry[2] then
        return { name = entry[3], to = entry[4], request = entry[6], reply = entry[7] }
      end
    end
  end
end

-- The frames of requests by type, sequence number and sender, and those that a frame replies to.
local requests, replies = {}, {}

function zorbus.init() requests, replies = {}, {} end

-- The frame of the request that this message replies to: the same type and number, the other way. Frames are read in
-- their order the first time; later in any order.
local function request_frame(message, receiver, pinfo)
  if not pinfo.visited and message.sequence ~= 0 then
    local about = message.type == SEND_FAILED_NOTICE and message.data or message.type
    local key = about .. "/" .. message.sequence .. "/"
    replies[pinfo.number] = requests[key .. receiver]
    if replies[pinfo.number] then
      requests[key .. receiver] = nil
    else
      requests[key .. message.source] = pinfo.number
    end
  end
  return replies[pinfo.number]
end

-- When the capture lacks the request: requests go to the daemon that replies to them, or have no destination and the
-- server finds it; replies go to other daemons.
local function looks_like_reply(description, message)
  local from_receiver_of_requests = message.source == (description.to == "server" and "" or description.to)
  return from_receiver_of_requests and message.destination ~= "" and message.destination ~= description.to
end

local function shape_of(message)
  local description = message.description
  if message.in_file or not description then return nil end
  local is_reply = message.request_frame or looks_like_reply(description, message)
  return is_reply and description.reply or description.request
end

local function add_management_item(reader, tree, index)
  local start = reader.offset
  local item = tree:add(zorbus, reader.tvb:range(start, math.min(12, reader:left())), "Item " .. index)
  if not reader:add_number(item, f.item_kind, 4) then return false end
  local name_length = reader:add_number(item, f.item_name_length, 4)
  local value_length = name_length and reader:add_number(item, f.item_value_length, 4)
  if not value_length then return false end
  if name_length + value_length > reader:left() then
    item:add_proto_expert_info(e.short)
    return false
  end
  local name = reader:add_name(item, f.item_name, name_length)
  local value = reader:take(value_length)
  local text = ""
  if value then
    item:add(f.item_value, value)
    text = visible(value:raw())
    item:add(f.item_text, value, text)
  end
  item:append_text(": " .. name .. " = " .. text)
  item:set_len(reader.offset - start)
  return true
end

-- The capacity and free bytes are the sender's bookkeeping; items fill the used part.
local function add_items(reader, tree)
  local start = reader.offset
  local magic = reader:add_number(tree, f.dm_magic, 4)
  local capacity = magic and reader:add_number(tree, f.dm_capacity, 4)
  local free = capacity and reader:add_number(tree, f.dm_free, 4)
  local code = free and reader:add_number(tree, f.dm_error, 4)
  local id = code and reader:add_number(tree, f.dm_config_id, 4)
  if not (id and reader:add_number(tree, f.dm_sub_type, 4)) then return end
  local used = math.max(math.min(start + capacity - free, reader.last), start)
  local index = 1
  while reader.offset < used do
    local rest = reader.tvb:range(reader.offset, reader:left())
    -- Replies may contain their unused bytes, all zero.
    if not rest:raw():find("[^\0]") then
      tree:add(f.dm_unused, reader:take(reader:left()))
    elseif not add_management_item(reader, tree, index) then
      return
    end
    index = index + 1
  end
end

local NUMBERS = {
  u8 = { f.field_u8, 1 }, u16 = { f.field_u16, 2 }, u32 = { f.field_u32, 4 }, u64 = { f.field_u64, 8 },
  i8 = { f.field_i8, 1 }, i16 = { f.field_i16, 2 }, i32 = { f.field_i32, 4 }, i64 = { f.field_i64, 8 },
  f64 = { f.field_f64, 8 }, bool = { f.field_u8, 1 },
}

-- Adds one field of a shape, such as "u32:mode" or "text64:prefix": its tree item.
local function add_field(reader, tree, kind)
  local family, size = kind:match("^(%a+)(%d*)$")
  local left = reader:left()
  if NUMBERS[kind] then
    return select(2, reader:add_number(tree, NUMBERS[kind][1], NUMBERS[kind][2]))
  elseif kind == "items" then
    return add_items(reader, tree)
  elseif kind == "json" then
    return reader:add_text(tree, f.json, left)
  elseif kind == "name" then
    return select(2, reader:add_name(tree, f.field_name, math.min(NAME_SIZE, left)))
  elseif family == "text" then
    return reader:add_text(tree, f.field_text, math.min(tonumber(size) or reader:text_size(), left))
  end
  local range = reader:take(math.min(tonumber(size) or left, left))
  return range and tree:add(f.field_bytes, range)
end

local function add_body(reader, tree, shape, data_item)
  for kind, label in (shape or ""):gmatch("(%w+):?([%w_]*)") do
    local item = data_item
    if kind ~= "data" then item = reader:left() > 0 and add_field(reader, tree, kind) end  -- a body may end early
    if item and label ~= "" then item:append_text(" (" .. label .. ")") end
  end
  local rest = reader:take(reader:left())
  if rest then tree:add(f.body, rest) end
end

-- The header: what is known of the message, nil when it is not whole.
local function add_header(reader, tree)
  local type_range = reader:take(4)
  if not type_range then return nil end
  local word = reader:number(type_range)
  local message = { type = word % 0x100000, in_file = math.floor(word / IN_FILE_BIT) % 2 == 1 }
  message.description = describe(message.type)
  message.name = message.description and message.description.name or string.format("0x%X", message.type)
  local add = reader.little and tree.add_le or tree.add
  add(tree, f.type, type_range)
  tree:add(f.type_name, type_range, message.name):set_generated()
  add(tree, f.in_file, type_range)
  add(tree, f.board, type_range)
  message.sequence = reader:add_number(tree, f.sequence, 4)
  message.source = reader:add_name(tree, f.source, NAME_SIZE)
  message.destination = reader:add_name(tree, f.destination, NAME_SIZE)
  message.data, message.data_item = reader:add_number(tree, f.data, 4)
  message.body_length = message.data and reader:add_number(tree, f.body_length, 4)
  return message.body_length and message
end

local function add_message(reader, tree, receiver, pinfo)
  local item = tree:add(zorbus, reader.tvb:range(reader.offset, reader:left()), "Message")
  local message = add_header(reader, item)
  if not message then
    item:add_proto_expert_info(e.short)
    return nil
  end
  item:append_text(" " .. message.name)
  if message.body_length > reader:left() then item:add_proto_expert_info(e.cut) end
  message.request_frame = request_frame(message, receiver, pinfo)
  if message.request_frame then item:add(f.request_frame, message.request_frame):set_generated() end
  local body = Reader.new(reader.tvb, reader.offset, math.min(message.body_length, reader:left()), reader.little)
  if message.in_file then
    body:add_text(item, f.body_path, math.min(PATH_SIZE, body:left()))
  end
  add_body(body, item, shape_of(message), message.data_item)
  return message
end

local function add_copy(reader, root)
  local item = root:add(zorbus, reader.tvb:range(0, COPY_SIZE), "Copy")
  local time = reader:take(8)
  local micros = reader.little and time:le_uint64() or time:uint64()
  item:add(f.copy_time, time, NSTime.new((micros / 1000000):tonumber(), (micros % 1000000):tonumber() * 1000))
  local copy = {}
  copy.missed = reader:add_number(item, f.copy_missed, 4)
  local outcome
  copy.outcome, outcome = reader:add_number(item, f.copy_outcome, 4)
  reader:add_number(item, f.copy_frame_size, 4)
  copy.receiver = reader:add_name(item, f.copy_receiver, NAME_SIZE)
  if copy.missed > 0 then item:add_proto_expert_info(e.missed) end
  if copy.outcome ~= 0 then outcome:add_proto_expert_info(e.undelivered) end
  return copy
end

local function set_columns(pinfo, copy, message)
  pinfo.cols.protocol = "ZORBUS"
  if not message then
    pinfo.cols.info = "Truncated"
    return
  end
  pinfo.cols.src = message.source == "" and "(server)" or message.source
  pinfo.cols.dst = copy.receiver ~= "" and copy.receiver or message.destination ~= "" and message.destination
    or "(server)"
  pinfo.cols.info = string.format("%s seq %.0f data %.0f body %.0f%s%s", message.name, message.sequence, message.data,
    message.body_length, message.in_file and " in a file" or "", copy.outcome ~= 0 and " UNDELIVERED" or "")
end

function zorbus.dissector(tvb, pinfo, root)
  pinfo.cols.protocol = "ZORBUS"
  if tvb:captured_len() < COPY_SIZE then
    root:add(zorbus, tvb(), "Message bus"):add_proto_expert_info(e.short)
    pinfo.cols.info = "Truncated"
    return
  end
  local size = tvb:range(16, 4)
  local reader = Reader.new(tvb, 0, tvb:captured_len(), size:le_uint() < size:uint())
  local tree = root:add(zorbus, tvb())
  local copy = add_copy(reader, tree)
  local message = reader:left() > 0 and add_message(reader, tree, copy.receiver, pinfo)
  set_columns(pinfo, copy, message or nil)
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, zorbus)
