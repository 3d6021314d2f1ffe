// The connection and the loop: what the library calls, and what zor.lua is called with.
#include <zor/event.h>
#include <zor/msg.h>
#include <zor/uv.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "common/malloc_ptr.h"
#include "lua_face.h"

namespace zor::lua {
namespace {

// What zor.lua is called with, in a table of the registry; and there too the error that such a call ended with, until
// ZOR_UV_LoopRun has returned and it can be raised.
enum Hook { kOnMessage = 1, kOnTimer, kOnLink, kFailure, kReference };
constexpr char kHooks[] = "zor.hooks";
constexpr char kSession[] = "zor.session";
// Callbacks push a few values on the stack of the state that runs the loop, where nothing may fail.
constexpr int kCallbackRoom = 40;

// One for the process, as the bus is.
struct Face {
  lua_State *home = nullptr;     // that has joined; a thread of its own, for callbacks outside of Run()
  lua_State *running = nullptr;  // that runs the loop
  int hooks = LUA_NOREF;
  int thread = LUA_NOREF;
  std::uint32_t session = 0;  // grows with each join
  std::uintptr_t timers = 0;  // grows with each timer, so that a stale one is not taken for another
};
Face face;

lua_State *CallbackState() {
  return face.home != nullptr && face.running != nullptr ? face.running : face.home;
}

// Called unprotected: allocates nothing.
void KeepFailure(lua_State *L) {
  lua_rawgeti(L, LUA_REGISTRYINDEX, face.hooks);
  lua_insert(L, -2);
  lua_rawseti(L, -2, kFailure);
  lua_pop(L, 1);
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

void Enter(lua_CFunction function, void *argument) {
  lua_State *L = CallbackState();
  if (L != nullptr && Protect(L, function, argument) != 0) KeepFailure(L);
}

void PushHook(lua_State *L, Hook hook) {
  lua_rawgeti(L, LUA_REGISTRYINDEX, face.hooks);
  lua_rawgeti(L, -1, hook);
  lua_remove(L, -2);
}

struct Incoming {
  const ZOR_MSG_HEAD *message;
  const char *body;
  std::size_t length;
  bool handled;
};

int DispatchMessage(lua_State *L) {
  auto &incoming = *static_cast<Incoming *>(lua_touserdata(L, 1));
  const ZOR_MSG_HEAD &message = *incoming.message;
  PushHook(L, kOnMessage);
  PushWord(L, message.type);
  PushWord(L, message.sequence);
  lua_pushlstring(L, message.source, ::strnlen(message.source, ZOR_MSG_NAME_SIZE));
  PushWord(L, message.data);
  lua_pushlstring(L, incoming.body, incoming.length);
  incoming.handled = true;  // also when it fails
  lua_call(L, 5, 1);
  incoming.handled = lua_toboolean(L, -1) != 0;
  return 0;
}

// Events with items reach the face as the JSON that the library makes of them.
void OnMessage(ZOR_MSG_HEAD *message, std::uint32_t) {
  const auto *body = static_cast<const char *>(ZOR_MSG_GetMsgByHead(message));
  Incoming incoming = {message, body == nullptr ? "" : body, message->bodyLength, false};
  MallocPtr<char> text;
  if (message->type >= ZOR_EVT_ITEMS_FIRST && message->type <= ZOR_EVT_ITEMS_LAST) {
    char *content = nullptr;
    std::uint32_t length = 0;
    if (ZOR_EVT_GetEventContent(message, &content, &length) == ZOR_OK) {
      text.reset(content);
      incoming.body = content;
      incoming.length = length;
    }
  }
  Enter(DispatchMessage, &incoming);
  if (!incoming.handled) ZOR_MSG_DefaultMsgProc(message);
}

int DispatchTimer(lua_State *L) {
  const auto id = reinterpret_cast<std::uintptr_t>(lua_touserdata(L, 1));
  PushHook(L, kOnTimer);
  lua_pushnumber(L, static_cast<lua_Number>(id));
  lua_call(L, 1, 0);
  return 0;
}

void OnTimer(void *id) {
  Enter(DispatchTimer, id);
}

int DispatchLink(lua_State *L) {
  PushHook(L, kOnLink);
  PushWord(L, *static_cast<std::uint32_t *>(lua_touserdata(L, 1)));
  lua_call(L, 1, 0);
  return 0;
}

void OnLink(std::uint32_t event, void *) {
  Enter(DispatchLink, &event);
}

int DoNothing(lua_State *) {
  return 0;
}

// The interpreter breaks off a script, on an interrupt, by a hook that raises an error at the next call. While the loop
// waits there is none, so that this makes one.
void OnTurn(UvIdle *, std::uint32_t) {
  if (face.running != nullptr && lua_gethook(face.running) != nullptr) Enter(DoNothing, nullptr);
}

void Leave(lua_State *L) {
  if (face.home == nullptr) return;
  luaL_unref(L, LUA_REGISTRYINDEX, face.thread);
  face.home = nullptr;
  ZOR_MSG_Destroy();
}

int CollectSession(lua_State *L) {
  if (*static_cast<std::uint32_t *>(luaL_checkudata(L, 1, kSession)) == face.session) Leave(L);
  return 0;
}

// The bus ends with this when the collector finds it, or the interpreter ends.
void PushSession(lua_State *L) {
  auto *session = static_cast<std::uint32_t *>(lua_newuserdata(L, sizeof(std::uint32_t)));
  *session = 0;
  if (luaL_newmetatable(L, kSession) != 0) {
    lua_pushcfunction(L, CollectSession);
    lua_setfield(L, -2, "__gc");
  }
  lua_setmetatable(L, -2);
}

void TakeHooks(lua_State *L, int first) {
  lua_getfield(L, LUA_REGISTRYINDEX, kHooks);
  for (int hook = kOnMessage; hook <= kOnLink; ++hook) {
    lua_pushvalue(L, first + hook - kOnMessage);
    lua_rawseti(L, -2, hook);
  }
  lua_pushboolean(L, 0);
  lua_rawseti(L, -2, kFailure);
  lua_rawgeti(L, -1, kReference);
  face.hooks = static_cast<int>(lua_tointeger(L, -1));
  lua_pop(L, 2);
}

std::uint32_t Connect(const char *name, bool rejoin) {
  const std::uint32_t status = ZOR_MSG_Init(name);
  if (status != ZOR_OK) return status;
  if (g_stMsgCtx.socketFd < 0) return ZOR_E_REFUSED;  // which the library does not report
  ZOR_MSG_RegisterMsgProc(OnMessage);
  const std::uint32_t linked = ZOR_MSG_SetLinkProc(OnLink, nullptr);
  return linked == ZOR_OK && rejoin ? ZOR_MSG_EnableRejoin(nullptr) : linked;
}

// join(name, rejoin, on_message, on_timer, on_link) -> status, granted name, session; nothing when there is a bus
int Join(lua_State *L) {
  const char *name = luaL_checkstring(L, 1);
  for (int hook = 3; hook <= 5; ++hook) luaL_checktype(L, hook, LUA_TFUNCTION);
  if (face.home != nullptr || g_stMsgCtx.socketFd >= 0) return 0;
  PushSession(L);
  auto *session = static_cast<std::uint32_t *>(lua_touserdata(L, -1));
  lua_State *home = lua_newthread(L);
  const int thread = luaL_ref(L, LUA_REGISTRYINDEX);
  TakeHooks(L, 3);
  const std::uint32_t status = Connect(name, lua_toboolean(L, 2) != 0);
  if (status == ZOR_OK) {
    face.home = home;
    face.thread = thread;
    *session = ++face.session;
  } else {
    ZOR_MSG_Destroy();
    luaL_unref(L, LUA_REGISTRYINDEX, thread);
  }
  PushWord(L, status);
  lua_pushlstring(L, g_stMsgCtx.appName, ::strnlen(g_stMsgCtx.appName, ZOR_MSG_NAME_SIZE));
  lua_pushvalue(L, -3);
  return 3;
}

// leave(): the loop of a bus that is gone ends too.
int LeaveBus(lua_State *L) {
  Leave(L);
  if (face.running != nullptr) ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
  return 0;
}

int RaiseFailure(lua_State *L) {
  PushHook(L, kFailure);
  if (lua_toboolean(L, -1) == 0) return 0;
  lua_pushboolean(L, 0);
  KeepFailure(L);
  return lua_error(L);
}

// run() -> status, when the loop was stopped
int Run(lua_State *L) {
  luaL_checkstack(L, kCallbackRoom, "the loop");
  lua_State *outer = face.running;
  face.running = L;
  UvIdle *turn = ZOR_UV_IdleStart(nullptr, OnTurn);
  const std::uint32_t status = ZOR_UV_LoopRun(nullptr, 0);
  ZOR_UV_IdleStop(turn);
  face.running = outer;
  RaiseFailure(L);
  PushWord(L, status);
  return 1;
}

int Stop(lua_State *) {
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
  return 0;
}

// timer(milliseconds, count) -> id, handle, which is valid until the timer's last firing; nil without memory
int StartTimer(lua_State *L) {
  const std::uint32_t intervalMs = CheckWord(L, 1);
  const std::uint32_t count = CheckWord(L, 2);
  const std::uintptr_t id = ++face.timers;
  UvTimer *timer = ZOR_UTIL_TimerAdd(intervalMs, count, OnTimer, reinterpret_cast<void *>(id));
  if (timer == nullptr) return 0;
  lua_pushnumber(L, static_cast<lua_Number>(id));
  lua_pushlightuserdata(L, timer);
  return 2;
}

int StopTimer(lua_State *L) {
  luaL_checktype(L, 1, LUA_TLIGHTUSERDATA);
  ZOR_UTIL_TimerDel(static_cast<UvTimer *>(lua_touserdata(L, 1)));
  return 0;
}

// Whether the running coroutine can wait by yielding. 5.1 does not tell, but no C function may be in between.
int Yieldable(lua_State *L) {
#if LUA_VERSION_NUM == 501
  bool yieldable = lua_pushthread(L) == 0;
  lua_Debug frame;
  for (int level = 1; yieldable && lua_getstack(L, level, &frame) != 0; ++level) {
    lua_getinfo(L, "S", &frame);
    yieldable = *frame.what != 'C';
  }
  lua_pushboolean(L, yieldable);
#else
  lua_pushboolean(L, lua_isyieldable(L));
#endif
  return 1;
}

}  // namespace

void AddLoopFunctions(lua_State *L) {
  lua_createtable(L, kReference, 0);
  lua_pushvalue(L, -1);
  lua_pushinteger(L, luaL_ref(L, LUA_REGISTRYINDEX));
  lua_rawseti(L, -2, kReference);
  lua_setfield(L, LUA_REGISTRYINDEX, kHooks);
  constexpr luaL_Reg kFunctions[] = {
      {"join", Join},         {"leave", LeaveBus},      {"run", Run},       {"stop", Stop}, {"timer", StartTimer},
      {"untimer", StopTimer}, {"yieldable", Yieldable}, {nullptr, nullptr},
  };
  SetFunctions(L, kFunctions);
}

}  // namespace zor::lua
