// Sending, waiting for a reply, events and what the library knows of them.
#include <glob.h>
#include <poll.h>
#include <unistd.h>
#include <zor/control_wire.h>
#include <zor/event.h>
#include <zor/msg.h>
#include <zor/platform/file.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "common/malloc_ptr.h"
#include "lua_face.h"
#include "lua_json.h"

namespace zor::lua {
namespace {

using MessagePtr = MallocPtr<ZOR_MSG_HEAD>;

struct Outgoing {
  const char *to;
  std::uint32_t type;
  std::uint32_t word;
  const char *body;
  std::size_t length;
};

// The arguments that every send has: destination, type, data word, body or nil.
Outgoing CheckOutgoing(lua_State *L) {
  Outgoing out = {luaL_checkstring(L, 1), CheckWord(L, 2), CheckWord(L, 3), nullptr, 0};
  out.body = luaL_optlstring(L, 4, nullptr, &out.length);
  return out;
}

// A new number unless one is given; head becomes what was sent.
std::uint32_t Send(const Outgoing &out, const std::uint32_t *sequence, ZOR_MSG_HEAD &head) {
  if (out.length > ZOR_ALLOC_MAX - ZOR_MSG_HEAD_SIZE) return ZOR_E_NO_MEMORY;
  ZOR_MSG_SimpleBuilder(&head, out.to, out.type, out.word);
  if (sequence != nullptr) head.sequence = *sequence;
  if (out.length == 0) return ZOR_MSG_Send(&head);
  head.bodyLength = static_cast<std::uint32_t>(out.length);
  void *body = ZOR_MSG_GetMsgBlock(head.bodyLength);
  if (body == nullptr) return ZOR_E_NO_MEMORY;
  const MessagePtr message(ZOR_MSG_GetMsgHead(body));
  *message = head;
  std::memcpy(body, out.body, out.length);
  return ZOR_MSG_Send(message.get());
}

std::int64_t NowMs() {
  struct timespec now = {};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

bool IsNoticeOf(const ZOR_MSG_HEAD &message, const ZOR_MSG_HEAD &request) {
  return message.type == ZOR_MSG_SEND_FAILED_NOTICE && message.source[0] == '\0' && message.data == request.type &&
         message.sequence == request.sequence;
}

// Nobody in particular was asked when the destination is empty.
bool IsReplyTo(const ZOR_MSG_HEAD &message, const ZOR_MSG_HEAD &request) {
  return message.type == request.type && message.sequence == request.sequence &&
         (request.destination[0] == '\0' || std::strncmp(message.source, request.destination, ZOR_MSG_NAME_SIZE) == 0);
}

// How long a wait lasts before it looks whether the interpreter is to break off the script.
constexpr std::int64_t kSliceMs = 250;

// False when the time is up, or the script interrupted: the interpreter's hook raises the error then.
bool AwaitInput(lua_State *L, lua_Hook hook, std::int64_t deadline) {
  pollfd wait = {g_stMsgCtx.socketFd, POLLIN, 0};
  while (lua_gethook(L) == hook) {
    const std::int64_t remaining = deadline - NowMs();
    if (remaining <= 0) return false;
    if (::poll(&wait, 1, static_cast<int>(std::min(remaining, kSliceMs))) > 0) return true;
  }
  return false;
}

// Unlike the library's own wait, this one compares numbers: neither a late reply nor a notice of another message of the
// type ends it. All else is set aside in the library's queue.
std::uint32_t AwaitReply(lua_State *L, const ZOR_MSG_HEAD &request, std::uint32_t timeoutMs, MessagePtr &reply) {
  const lua_Hook hook = lua_gethook(L);
  const std::int64_t deadline = NowMs() + timeoutMs;
  for (std::uint32_t setAside = 0; setAside < ZOR_MSG_SET_ASIDE_MAX;) {
    if (!AwaitInput(L, hook, deadline)) return ZOR_E_TIMEOUT;
    const std::int64_t remaining = std::max<std::int64_t>(1, deadline - NowMs());
    ZOR_MSG_HEAD *received = nullptr;
    const std::uint32_t status = ZOR_MSG_Recv(g_stMsgCtx.socketFd, &received, static_cast<std::uint32_t>(remaining));
    if (status != ZOR_OK) return status;
    MessagePtr message(received);
    if (IsNoticeOf(*message, request)) return ZOR_E_PEER_GONE;
    if (IsReplyTo(*message, request)) {
      reply = std::move(message);
      return ZOR_OK;
    }
    if (ZOR_MSG_QueueAppend(&g_stMsgCtx.pending, message.get()) != ZOR_OK) continue;
    static_cast<void>(message.release());  // the queue's now
    ++setAside;
  }
  return ZOR_E_TIMEOUT;
}

std::uint32_t Ask(lua_State *L, const Outgoing &out, std::uint32_t timeoutMs, ZOR_MSG_HEAD &request, Owned &reply) {
  std::uint32_t status = Send(out, nullptr, request);
  MessagePtr message;
  if (status == ZOR_OK) status = AwaitReply(L, request, timeoutMs, message);
  reply.block = message.release();
  return status;
}

void PushName(lua_State *L, const char *name) {
  lua_pushlstring(L, name, ::strnlen(name, ZOR_MSG_NAME_SIZE));
}

// send(to, type, word, body or nil, sequence or nil) -> status, sequence
int SendMessage(lua_State *L) {
  const Outgoing out = CheckOutgoing(L);
  const std::uint32_t sequence = lua_isnoneornil(L, 5) ? 0 : CheckWord(L, 5);
  ZOR_MSG_HEAD head = {};
  PushWord(L, Send(out, lua_isnoneornil(L, 5) ? nullptr : &sequence, head));
  PushWord(L, head.sequence);
  return 2;
}

// call(to, type, word, body or nil, milliseconds) -> status, word, body, source; or status, sequence
int CallAndWait(lua_State *L) {
  const Outgoing out = CheckOutgoing(L);
  const std::uint32_t timeoutMs = CheckWord(L, 5);
  Owned *owned = PushOwned(L, std::free);
  ZOR_MSG_HEAD request;
  const std::uint32_t status = Ask(L, out, timeoutMs, request, *owned);
  PushWord(L, status);
  if (status != ZOR_OK) {
    PushWord(L, request.sequence);
    return 2;
  }
  auto *reply = static_cast<ZOR_MSG_HEAD *>(owned->block);
  PushWord(L, reply->data);
  lua_pushlstring(L, reply->bodyLength == 0 ? "" : static_cast<char *>(ZOR_MSG_GetMsgByHead(reply)), reply->bodyLength);
  PushName(L, reply->source);
  Release(*owned);
  return 4;
}

// publish(module, name, type, payload) -> status, or nil and why the payload has no JSON
int Publish(lua_State *L) {
  std::size_t moduleLength = 0;
  std::size_t nameLength = 0;
  const char *module = luaL_checklstring(L, 1, &moduleLength);
  const char *name = luaL_checklstring(L, 2, &nameLength);
  const std::uint32_t type = CheckWord(L, 3);
  luaL_checkany(L, 4);
  const char *reason = FaultOf({module, moduleLength});
  if (reason == nullptr) reason = FaultOf({name, nameLength});
  Owned *payload = reason == nullptr ? PushJson(L, 4, reason) : nullptr;
  if (payload == nullptr) {
    lua_pushnil(L);
    lua_pushstring(L, reason);
    return 2;
  }
  const std::uint32_t status = ZOR_EVT_PublishEventWithJson(module, name, type, static_cast<cJSON *>(payload->block));
  Release(*payload);
  PushWord(L, status == ZOR_EVT_FAILED ? ZOR_E_NO_MEMORY : status);
  return 1;
}

// publish_items(name, type, {name, value, name, value, ...}) -> status; all of them texts
int PublishItems(lua_State *L) {
  const char *name = luaL_checkstring(L, 1);
  const std::uint32_t type = CheckWord(L, 2);
  luaL_checktype(L, 3, LUA_TTABLE);
  const std::size_t count = RawLength(L, 3) / 2;
  auto *pairs = static_cast<ZOR_NVPAIR *>(lua_newuserdata(L, (count + 1) * sizeof(ZOR_NVPAIR)));
  for (std::size_t i = 0; i < count; ++i) {
    lua_rawgeti(L, 3, static_cast<int>(2 * i + 1));
    lua_rawgeti(L, 3, static_cast<int>(2 * i + 2));
    if (lua_type(L, -1) != LUA_TSTRING || lua_type(L, -2) != LUA_TSTRING) return luaL_argerror(L, 3, "not texts");
    // They stay the table's; the library copies them.
    pairs[i] = {i + 1 < count ? &pairs[i + 1] : nullptr, const_cast<char *>(lua_tostring(L, -2)),
                const_cast<char *>(lua_tostring(L, -1))};
    lua_pop(L, 2);
  }
  const std::uint32_t status = ZOR_EVT_PublishEventWithNVPair(type, name, count == 0 ? nullptr : pairs);
  PushWord(L, status == ZOR_EVT_FAILED ? ZOR_E_NO_MEMORY : status);
  return 1;
}

// subscribe(type, on) -> status
int Subscribe(lua_State *L) {
  const std::uint32_t type = CheckWord(L, 1);
  const auto change =
      lua_toboolean(L, 2) != 0 ? ZOR_MSG_SubscribeEventForOtherApp : ZOR_MSG_UnSubscribeEventForOtherApp;
  PushWord(L, change(type, g_stMsgCtx.appName));
  return 1;
}

// module_type(name) -> the type that the library knows for it, or nil
int ModuleType(lua_State *L) {
  const std::uint32_t type = ZOR_EVT_GetMsgTypeByEventModuleName(luaL_checkstring(L, 1));
  if (type == ZOR_EVT_ALL) return 0;
  PushWord(L, type);
  return 1;
}

int ModuleName(lua_State *L) {
  lua_pushstring(L, ZOR_EVT_GetEventModuleNameByEventType(CheckWord(L, 1)));
  return 1;
}

// gaps(body) -> {type, count, type, count, ...}; those that the server no longer tells apart have ZOR_EVT_ALL
int Gaps(lua_State *L) {
  std::size_t length = 0;
  const char *body = luaL_checklstring(L, 1, &length);
  lua_newtable(L);
  ZOR_CONTROL_GAP gap;
  if (length < sizeof gap) return 1;
  std::memcpy(&gap, body, sizeof gap);
  const std::size_t types = std::min<std::size_t>(gap.types, (length - sizeof gap) / sizeof(ZOR_CONTROL_GAP_TYPE));
  int at = 0;
  for (std::size_t i = 0; i <= types; ++i) {
    ZOR_CONTROL_GAP_TYPE one = {ZOR_EVT_ALL, gap.events};
    if (i < types) std::memcpy(&one, body + sizeof gap + i * sizeof one, sizeof one);
    if (one.events == 0) continue;
    if (i < types) gap.events -= std::min(gap.events, one.events);
    PushWord(L, one.type);
    lua_rawseti(L, -2, ++at);
    PushWord(L, one.events);
    lua_rawseti(L, -2, ++at);
  }
  return 1;
}

void FreePaths(void *block) {
  ::globfree(static_cast<glob_t *>(block));
  std::free(block);
}

// type_files(directory or nil) -> the paths of its JSON files; nil stands for where packages install them
int TypeFiles(lua_State *L) {
  char pattern[4096];
  const char *directory = luaL_optstring(L, 1, nullptr);
  if (directory == nullptr) {
    ZOR_UTIL_FixedPath("/usr/share/zor/types.d/*.json", pattern, sizeof pattern);
  } else if (std::snprintf(pattern, sizeof pattern, "%s/*.json", directory) >= static_cast<int>(sizeof pattern)) {
    return luaL_argerror(L, 1, "too long");
  }
  Owned *owned = PushOwned(L, FreePaths);
  auto *found = static_cast<glob_t *>(std::calloc(1, sizeof(glob_t)));
  owned->block = found;
  lua_newtable(L);
  if (found == nullptr || ::glob(pattern, 0, nullptr, found) != 0) return 1;
  for (std::size_t i = 0; i < found->gl_pathc; ++i) {
    lua_pushstring(L, found->gl_pathv[i]);
    lua_rawseti(L, -2, static_cast<int>(i + 1));
  }
  Release(*owned);
  return 1;
}

int ProcessId(lua_State *L) {
  PushWord(L, static_cast<std::uint32_t>(::getpid()));
  return 1;
}

}  // namespace

void AddBusFunctions(lua_State *L) {
  constexpr luaL_Reg kFunctions[] = {
      {"send", SendMessage},       {"call", CallAndWait},
      {"publish", Publish},        {"publish_items", PublishItems},
      {"subscribe", Subscribe},    {"module_type", ModuleType},
      {"module_name", ModuleName}, {"gaps", Gaps},
      {"type_files", TypeFiles},   {"pid", ProcessId},
      {nullptr, nullptr},
  };
  SetFunctions(L, kFunctions);
}

}  // namespace zor::lua
