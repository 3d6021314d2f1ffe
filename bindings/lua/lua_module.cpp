// What require "zor" calls.
#include <string_view>

#include "lua_face.h"
#include "zor_lua.h"

extern "C" __attribute__((visibility("default"))) int luaopen_zor(lua_State *L);

int luaopen_zor(lua_State *L) {
  constexpr std::string_view kSource = zor::lua::kFaceSource;
  if (luaL_loadbuffer(L, kSource.data(), kSource.size(), "=zor") != 0) return lua_error(L);
  lua_newtable(L);
  zor::lua::AddBusFunctions(L);
  zor::lua::AddLoopFunctions(L);
  zor::lua::AddJsonFunctions(L);
  zor::lua::AddFileFunctions(L);
  lua_call(L, 1, 1);
  return 1;
}
