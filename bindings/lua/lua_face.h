// What the sources of the Lua module share. The module has two halves: this one, in C++, knows the library and nothing
// of the face; zor.lua, which it carries inside, is the face.
//
// An error in Lua is a longjmp. It must skip neither a destructor nor a frame of the library, so that:
// - a function that Lua calls owns nothing across a call that may raise an error; what it must own is in an Owned,
// which
//   Lua's collector releases;
// - a callback of the library enters Lua only through Protect(), and keeps its error for Run(), which raises it.
#ifndef LUA_FACE_H
#define LUA_FACE_H

#include <lua.hpp>

#include <cstddef>
#include <cstdint>

namespace zor::lua {

// Adds the functions to the table on top of the stack.
void SetFunctions(lua_State *L, const luaL_Reg *functions);

std::size_t RawLength(lua_State *L, int index);

// 5.1 has no integers, and its lua_Integer may have 32 bits.
void PushWord(lua_State *L, std::uint32_t word);
std::uint32_t CheckWord(lua_State *L, int argument);

// Calls a function with one light pointer. No error leaves this; of one the status is not 0 and the object on the
// stack.
int Protect(lua_State *L, lua_CFunction function, void *argument);

// A block that the collector releases, on top of the stack, empty at first.
struct Owned {
  void *block;
  void (*release)(void *);
};
Owned *PushOwned(lua_State *L, void (*release)(void *));
void Release(Owned &owned);

// The functions of each subject, added to the table on top of the stack.
void AddBusFunctions(lua_State *L);
void AddLoopFunctions(lua_State *L);
void AddJsonFunctions(lua_State *L);
void AddFileFunctions(lua_State *L);

}  // namespace zor::lua

#endif
