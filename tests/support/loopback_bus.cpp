// Separate from the rest of scripted_server.h, which tests of the servers use without the library.
#include <unistd.h>
#include <zor/msg_head.h>

#include <cstdio>
#include <utility>

#include "support/scripted_server.h"

namespace zor::test {

LoopbackBus::LoopbackBus(const char *ownName) {
  SocketPair pair;
  g_stMsgCtx.socketFd = pair.near.Release();
  std::snprintf(g_stMsgCtx.appName, sizeof g_stMsgCtx.appName, "%s", ownName);
  peer = std::move(pair.far);
}

LoopbackBus::~LoopbackBus() {
  if (g_stMsgCtx.socketFd >= 0) ::close(std::exchange(g_stMsgCtx.socketFd, -1));
}

}  // namespace zor::test
