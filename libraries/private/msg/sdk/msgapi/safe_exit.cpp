#include "sdk/msgapi/safe_exit.h"

#include <unistd.h>
#include <zor/msg_build.h>
#include <zor/msg_head.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "base/text.h"

namespace zor {
namespace {

constexpr std::array<std::string_view, 7> kDaemons = {"dhcps",        "ssdpd",   "upnp",   "ntwksync",
                                                      "quorelbridge", "devmngr", "datacli"};

}  // namespace

// The destination decides, not this process's name; every other daemon handles the request itself or ignores it.
bool IsSafeExitRequest(const ZOR_MSG_HEAD &msg) noexcept {
  return msg.type == ZOR_MSG_SAFE_EXIT &&
         std::find(kDaemons.begin(), kDaemons.end(), NameView(msg.destination)) != kDaemons.end();
}

void SafeExit(ZOR_MSG_HEAD &request) noexcept {
  std::printf("Fatal: App(%.12s:%d) exited.=================================\n", g_stMsgCtx.appName, ::getpid());
  NameField sender;
  CopyName(sender, request.source);
  ZOR_MSG_SendSimpleMsg(sender, ZOR_MSG_SAFE_EXIT, 0);
  std::exit(0);
}

}  // namespace zor
