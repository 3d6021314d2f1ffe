// Other ways to reach a daemon than by its name: a path, an event, the notification channel.
#include <zor/notifyclt.h>
#include <zor/uv.h>

#include "consumer.h"
#include "demo.h"

namespace {

void Restful() {
  const Message reply = Ask(Message(ZOR_MSG_BuildRestfulReqMsg(0, 0, DEMO_PATH, "state", nullptr, 0)));
  const std::string answer = Text(reply.get()).c_str();
  Check(answer == "{\"lamp\":\"on\"}", "restful: " DEMO_PATH "/state is " + answer);
}

std::string event;

void OnEvent(ZOR_MSG_HEAD *msg) {
  event = Text(msg);
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

void Event() {
  const std::string published = "{\"door\":\"open\"}";
  ZOR_MSG_RegMsgProc(DEMO_EVENT, OnEvent, 0, nullptr);
  ZOR_MSG_SubscribeEventForOtherApp(DEMO_EVENT, CONSUMER);
  ZOR_MSG_Send(Build(PROVIDER, DEMO_PUBLISH, published).get());
  ZOR_UV_LoopRun(nullptr, kWaitMs);  // until the event stops it, or nothing has happened for so long
  Check(event == published, "event: subscribed to, and received " + event);
}

void Notification() {
  void *data = nullptr;
  uint32_t length = 0;
  const uint32_t status = ZOR_NOTIFYCLT_SendSynNotify(ZOR_NOTIFYCLT_GetMIDByName(PROVIDER), DEMO_QUESTION, "what?",
                                                      sizeof "what?", &data, &length);
  const std::unique_ptr<void, FreeBlock> owner(data);
  const std::string answer = data != nullptr ? std::string(static_cast<char *>(data), length).c_str() : "";
  Check(status == ZOR_OK && answer == "forty-two", "notification: answered with " + answer);
}

}  // namespace

void Channels() {
  Restful();
  Event();
  Notification();
}
