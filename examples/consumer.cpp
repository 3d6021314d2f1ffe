// A daemon that uses another one (provider.cpp) in every way that the bus knows. Each step prints what came back and
// whether that is right; the exit status is 0 when all of it was.
#include "consumer.h"

#include <zor/mlog.h>
#include <zor/notifyclt.h>
#include <zor/trace.h>

#include <cstdio>
#include <cstring>

#include "demo.h"

namespace {

int failures = 0;

void Diagnostics() {
  Check(ZOR_TRACE_IsModuleEnabled("demo", ZOR_TRACE_INFO) != 0, "trace of module demo is on, as the registration said");
  ZOR_TRACE_PrintInfo("consumer.cpp", __LINE__, 0, "demo", ZOR_TRACE_INFO, "a trace line of %s\n", CONSUMER);
  Check(mlog_print("demo", ZOR_MLOG_INFO, "a log line of %s", CONSUMER) == 0, "log line handed to the logging daemon");
}

}  // namespace

void Check(bool good, const std::string &what) {
  std::printf("%s %s\n", good ? "ok" : "FAILED", what.c_str());
  if (!good) ++failures;
}

Message Build(const char *destination, uint32_t type, const std::string &text) {
  const auto length = static_cast<uint32_t>(text.size());
  void *body = ZOR_MSG_GetMsgBlock(length);
  if (body == nullptr) std::abort();
  std::memcpy(body, text.data(), length);
  ZOR_MSG_SetMsgProfile(body, destination, type, length);
  return Message(ZOR_MSG_GetMsgHead(body));
}

std::string Text(ZOR_MSG_HEAD *msg) {
  const auto *body = static_cast<const char *>(ZOR_MSG_GetMsgByHead(msg));
  return body == nullptr ? std::string() : std::string(body, msg->bodyLength);
}

Message Ask(const Message &request, uint32_t *status) {
  ZOR_MSG_HEAD *reply = nullptr;
  const uint32_t result = ZOR_MSG_SendAndRecv(request.get(), &reply, kWaitMs);
  if (status != nullptr) *status = result;
  return Message(reply);
}

int main() {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const bool connected = ZOR_MSG_Init(CONSUMER) == ZOR_OK;
  Check(connected && std::strcmp(g_stMsgCtx.appName, CONSUMER) == 0,
        std::string("registration: granted the name ") + g_stMsgCtx.appName);
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);

  Diagnostics();
  Requests();
  Transfers();
  Channels();
  NamedData();
  Check(ZOR_MSG_SafeExitProcesses(PROVIDER) == ZOR_OK, "safe exit: " PROVIDER " has agreed to exit");

  ZOR_NOTIFYCLT_Destroy();
  ZOR_MSG_Destroy();
  return failures == 0 ? 0 : 1;
}
