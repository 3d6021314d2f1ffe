// A daemon's input from the message server: a stream of messages.
#include <zor/event.h>
#include <zor/msg_bus.h>
#include <zor/msg_dispatch.h>
#include <zor/status.h>
#include <zor/trace.h>

#include <cstring>
#include <fstream>

#include "fuzz.h"
#include "message/context.h"
#include "message/header.h"
#include "support/temp_root.h"

namespace {

using zor::fuzz::Require;

constexpr char kBodyFile[] = "/var/run/msg/f";
constexpr uint32_t kHandledType = 0x4001;

uint32_t OnRestful(void *body, char **text) {
  *text = ::strdup(static_cast<const char *>(body) + ZOR_MSG_RESTFUL_HEAD_SIZE);
  return ZOR_OK;
}

uint32_t OnEvent(uint32_t, const char *body, uint32_t length) {
  Require(std::strlen(body) <= length + 1, "an event's text is terminated");
  return ZOR_OK;
}

// A daemon that replies to every request, subscribes to every event, and whose own sends fail from then on.
void BecomeDaemon() {
  static constexpr ZOR_MSG_RESTFUL_ENTRY kProcedures[] = {{"n", OnRestful}, {nullptr, nullptr}};
  const auto [far, near] = zor::fuzz::SocketPair();
  g_stMsgCtx.socketFd = near.get();
  Require(ZOR_MSG_RegRestfulProcs("/p", kProcedures) == ZOR_OK, "procedures are registered");
  g_stMsgCtx.socketFd = -1;
  ZOR_MSG_RegMsgProcEx(
      kHandledType, nullptr, [](ZOR_MSG_HEAD *msg) { return msg; }, 0, nullptr);
  ZOR_MSG_RegMsgProc(
      ZOR_MSG_SAFE_EXIT, [](ZOR_MSG_HEAD *) {}, 0, nullptr);  // the default handler would end the process
  ZOR_EVT_SubscribeAllEventCallBack(OnEvent);
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_TRACE_SetPackageLevel(nullptr, ZOR_TRACE_DEBUG);
}

void ReadAll(const uint8_t *data, size_t size, uint32_t flags) {
  const zor::UniqueFd stream = zor::fuzz::StreamOf(data, size);
  g_stMsgCtx.flags = flags;
  size_t at = 0;
  for (ZOR_MSG_HEAD *received; ZOR_MSG_Recv(stream.get(), &received, 1000) == ZOR_OK;) {
    const zor::MessagePtr msg(received);
    ZOR_MSG_HEAD sent;
    std::memcpy(&sent, data + at, sizeof sent);
    if (flags != 0) ZOR_MSG_HeaderEndianSwap(&sent);
    at += ZOR_MSG_HEAD_SIZE + std::size_t{sent.bodyLength};
    Require(at <= size && msg->type == (sent.type & ZOR_MSG_TYPE_MASK), "a message is read as it was sent");
    const bool isInFile = (sent.type & ZOR_MSG_BODY_IN_FILE) != 0 && sent.bodyLength != 0;
    Require(isInFile || std::memcmp(zor::BodyOf(msg.get()), data + at - sent.bodyLength, sent.bodyLength) == 0,
            "a body is read as it was sent");
    ZOR_MSG_MsgFilterProc(msg.get(), 0);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const zor::test::TempRoot root;
  static const bool isReady = (BecomeDaemon(), true);
  if (isReady && ::access(root.Path(kBodyFile).c_str(), F_OK) != 0) std::ofstream(root.Path(kBodyFile)) << "in a file";
  for (const uint32_t flags : {0u, ZOR_MSG_FLAG_SWAP}) ReadAll(data, size, flags);
  return 0;
}
