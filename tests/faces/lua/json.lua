-- Tables and JSON, both ways.
local zor = require "zor"
local integers = _VERSION ~= "Lua 5.1"

local function nested(levels) return ("["):rep(levels) .. ("]"):rep(levels) end

-- Texts that come back as they were.
for _, text in ipairs {
  "[]", "{}", "null", "true", "-12.5", '"a\\"b\\\\\\n"', '{"a":[1,[],{},null]}', '"\195\188\240\159\154\128"', nested(100),
  integers and "[9007199254740991]" or "[1]", "[0.1,1e+300,0.30000000000000004]",
} do
  local got = zor.encode(zor.decode(text))
  assert(got == text, got .. " instead of " .. text)
end

-- Texts that are refused, whole: they come from others.
for what, text in pairs {
  nothing = "", torn = '{"a":', trailing = "1 2", NUL = '"a\\u0000b"', depth = nested(101), cut = '"\195"',
  surrogate = '"\237\160\128"', values = "[" .. ("1,"):rep(100000) .. "1]", word = "[nul]",
} do
  local value, reason = zor.decode(text)
  assert(value == nil and reason.name == "Argument", what .. " was taken")
end

-- Tables that have no JSON.
local circle = {}
circle.circle = circle
for what, value in pairs {
  functions = { print }, mixed = { 1, a = 2 }, holes = { 1, nil, 3 }, booleans = { [true] = 1 }, sparse = { [3] = 1 },
  infinite = { 1 / 0 }, NUL = "a\0b", bytes = "\255", name = { ["\255"] = 1 }, circle = circle, userdata = io.stdout,
} do
  local ok, reason = pcall(zor.encode, value)
  assert(not ok and zor.is_error(reason) and reason.name == "Argument", what .. " was taken")
end

assert(zor.encode(zor.array()) == "[]" and zor.encode({}) == "{}")
assert(zor.decode("[null]")[1] == zor.null)
assert(zor.decode('{"a":1}\n\0').a == 1, "a text with its NUL")
if integers then
  assert(math.type(zor.decode("3")) == "integer" and math.type(zor.decode("3.5")) == "float")
  assert(zor.encode({ math.maxinteger, 2.0 ^ 53 }) == "[9223372036854775807,9007199254740992]", "integers keep their digits")
end
