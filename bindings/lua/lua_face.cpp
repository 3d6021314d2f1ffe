#include "lua_face.h"

namespace zor::lua {
namespace {

constexpr char kOwned[] = "zor.owned";

int CollectOwned(lua_State *L) {
  Release(*static_cast<Owned *>(luaL_checkudata(L, 1, kOwned)));
  return 0;
}

}  // namespace

void SetFunctions(lua_State *L, const luaL_Reg *functions) {
  for (; functions->name != nullptr; ++functions) {
    lua_pushcfunction(L, functions->func);
    lua_setfield(L, -2, functions->name);
  }
}

std::size_t RawLength(lua_State *L, int index) {
#if LUA_VERSION_NUM == 501
  return lua_objlen(L, index);
#else
  return static_cast<std::size_t>(lua_rawlen(L, index));
#endif
}

void PushWord(lua_State *L, std::uint32_t word) {
#if LUA_VERSION_NUM == 501
  lua_pushnumber(L, word);
#else
  lua_pushinteger(L, word);
#endif
}

std::uint32_t CheckWord(lua_State *L, int argument) {
  const lua_Number number = luaL_checknumber(L, argument);
  if (!(number >= 0 && number <= UINT32_MAX) || number != static_cast<std::uint32_t>(number)) {
    luaL_argerror(L, argument, "not an integer from 0 to 4294967295");
  }
  return static_cast<std::uint32_t>(number);
}

int Protect(lua_State *L, lua_CFunction function, void *argument) {
#if LUA_VERSION_NUM == 501
  return lua_cpcall(L, function, argument);
#else
  lua_pushcfunction(L, function);
  lua_pushlightuserdata(L, argument);
  return lua_pcall(L, 1, 0, 0);
#endif
}

Owned *PushOwned(lua_State *L, void (*release)(void *)) {
  auto *owned = static_cast<Owned *>(lua_newuserdata(L, sizeof(Owned)));
  *owned = {nullptr, release};
  if (luaL_newmetatable(L, kOwned) != 0) {
    lua_pushcfunction(L, CollectOwned);
    lua_setfield(L, -2, "__gc");
  }
  lua_setmetatable(L, -2);
  return owned;
}

void Release(Owned &owned) {
  void *block = owned.block;
  owned.block = nullptr;
  if (block != nullptr) owned.release(block);
}

}  // namespace zor::lua
