// The daemon that most benchmarks ask: it replies with the request's body.
#ifndef BENCH_ECHO_PROVIDER_H
#define BENCH_ECHO_PROVIDER_H

#include <zor/msg.h>

#include <cstdint>

#include "harness.h"

namespace zor::bench {

inline ZOR_MSG_HEAD *Echo(ZOR_MSG_HEAD *msg) {
  return ZOR_MSG_MsgResponseBuilder(msg, 0, ZOR_MSG_GetMsgByHead(msg), msg->bodyLength);
}

// Joins under that name and serves the type until it is killed.
inline void ProvideEcho(const char *name, std::uint32_t type) {
  Require(ZOR_MSG_Init(name) == ZOR_OK, "the provider joins the bus");
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_MSG_RegSyncMsgProc(type, Echo, 0, nullptr);
  ZOR_MSG_GetAndDispatch();
}

}  // namespace zor::bench

#endif
