// A daemon of a gateway of the fleet in a box: publishes a series of events on its bus, the last of which says so, and
// answers requests until it is stopped.
// Usage: gateway_daemon name NAME [module device] [rate 1] [seconds 30]
#include <cjson/cJSON.h>
#include <zor/event.h>
#include <zor/msg.h>
#include <zor/uv_timer.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "fleet/arguments.h"

namespace {

constexpr uint32_t kAdd = 0x4001;

struct Publisher {
  std::string module;
  uint32_t type;
  uint32_t next;
  uint32_t last;
};

ZOR_MSG_HEAD *OnAdd(ZOR_MSG_HEAD *msg) {
  return ZOR_MSG_MsgResponseBuilder(msg, msg->data + 1, nullptr, 0);
}

UvTimer *timer = nullptr;

void OnTimer(void *data) {
  auto *publisher = static_cast<Publisher *>(data);
  cJSON *payload = cJSON_CreateObject();
  cJSON_AddNumberToObject(payload, "seq", publisher->next);
  cJSON_AddStringToObject(payload, "mac", "00:11:22:33:44:55");
  if (publisher->next == publisher->last) cJSON_AddTrueToObject(payload, "end");
  const uint32_t status = ZOR_EVT_PublishEventWithJson(publisher->module.c_str(), "Seen", publisher->type, payload);
  cJSON_Delete(payload);
  if (status != ZOR_OK) {
    std::fprintf(stderr, "gateway_daemon: event %u: status %x\n", publisher->next, status);
    return;  // tried again at the next turn
  }
  if (publisher->next++ == publisher->last) ZOR_UTIL_TimerDel(timer);
}

}  // namespace

int main(int argc, char **argv) {
  const zor::fleet::Arguments arguments(argc, argv);
  const double rate = std::max(arguments.Number("rate", 1), 0.001);
  Publisher publisher = {arguments.Text("module", "device"), 0, 1,
                         std::max(static_cast<uint32_t>(rate * arguments.Number("seconds", 30)), 1u)};
  publisher.type = ZOR_EVT_GetMsgTypeByEventModuleName(publisher.module.c_str());
  if (publisher.type == ZOR_EVT_ALL || ZOR_MSG_Init(arguments.Text("name", "alpha").c_str()) != ZOR_OK) return 1;
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_MSG_RegSyncMsgProc(kAdd, OnAdd, 0, nullptr);
  std::puts("on the bus");
  std::fflush(stdout);
  timer = ZOR_UTIL_TimerAdd(static_cast<uint32_t>(1000 / rate), 0, OnTimer, &publisher);
  return static_cast<int>(ZOR_MSG_GetAndDispatch());
}
