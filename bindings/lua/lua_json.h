// Lua values as JSON. Bounded, so that no text from the bus costs more than it should: 100 levels and 100000 values.
#ifndef LUA_JSON_H
#define LUA_JSON_H

#include <cjson/cJSON.h>

#include <string_view>

#include "lua_face.h"

namespace zor::lua {

// The tree of the value at an absolute index, in an Owned on top of the stack; null, with nothing pushed and the
// reason, for a value that JSON cannot hold.
Owned *PushJson(lua_State *L, int index, const char *&reason);

// Why a Lua string can be no text of JSON: it is not UTF-8, or has a NUL, at which cJSON's texts end. Null if it can.
const char *FaultOf(std::string_view text);

}  // namespace zor::lua

#endif
