#include <zor/pubutil.h>

#include <sys/utsname.h>
#include <zor/msg_build.h>
#include <zor/msg_bus.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "message/context.h"
#include "message/header.h"

namespace {

constexpr uint32_t kOtherVersion = 1;

struct VersionClass {
  const char *release;
  uint32_t value;
};

// In this order: the releases are looked for anywhere in the text.
constexpr std::array<VersionClass, 2> kVersionClasses = {{{"2.6.21", 0}, {"2.6.36", 2}}};

// From this length on the size of the block does not fit into 32 bits; nothing is printed then.
constexpr size_t kScriptLengthEnd = 0xfffffed6;

}  // namespace

uint32_t ZOR_UTIL_GetLinuxVersion(void) {
  struct utsname kernel = {};
  if (::uname(&kernel) != 0) return kOtherVersion;
  for (const VersionClass &each : kVersionClasses) {
    if (std::strstr(kernel.release, each.release) != nullptr) return each.value;
  }
  return kOtherVersion;
}

uint32_t ZOR_UTIL_PostLua(const char *target, const char *script) {
  if (target == nullptr || script == nullptr) return 1;
  const size_t length = std::strlen(script);
  if (length >= kScriptLengthEnd) return 1;
  const uint64_t bodyLength = uint64_t{ZOR_LUA_TARGET_SIZE} + length + 1;
  const zor::MallocPtr<ZOR_MSG_HEAD> msg(
      static_cast<ZOR_MSG_HEAD *>(zor::GuardedCalloc(ZOR_MSG_HEAD_SIZE + bodyLength)));
  if (msg == nullptr) return 1;
  ZOR_MSG_SimpleBuilder(msg.get(), ZOR_LUA_DAEMON_NAME, ZOR_MSG_POST_LUA, 0);
  msg->bodyLength = static_cast<uint32_t>(bodyLength);
  auto *body = static_cast<char *>(zor::BodyOf(msg.get()));
  std::memcpy(body, target, strnlen(target, ZOR_LUA_TARGET_SIZE - 1));
  std::memcpy(body + ZOR_LUA_TARGET_SIZE, script, length + 1);
  return ZOR_MSG_Send(msg.get());
}
