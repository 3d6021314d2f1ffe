// One-way messages, synchronous requests, and requests whose replies arrive through the loop.
#include <zor/uv.h>

#include <cstdio>

#include "consumer.h"
#include "demo.h"

namespace {

void OneWayAndRequest() {
  const bool sent = ZOR_MSG_SendSimpleMsg(PROVIDER, DEMO_NOTE, 5) == ZOR_OK &&
                    ZOR_MSG_SendSimpleMsg(PROVIDER, DEMO_NOTE, 6) == ZOR_OK;
  Check(sent, "one-way: notes 5 and 6 sent");
  uint32_t sum = 0;
  ZOR_MSG_SendAndRecvMsgData(PROVIDER, DEMO_SUM, 0, kWaitMs, &sum);
  Check(sum == 11, "request: the notes add up to " + std::to_string(sum));
}

void HandlersInOrder() {
  for (const char *expected : {"first second", "first second third first second"}) {
    const std::string steps = Text(Ask(Build(PROVIDER, DEMO_STEPS)).get());
    Check(steps == expected, "handlers in order: at the second one's answer, the steps were: " + steps);
  }
  ZOR_MSG_HEAD *another = nullptr;
  Check(ZOR_MSG_RecvWithType(DEMO_STEPS, &another, 200) == ZOR_E_TIMEOUT, "handlers in order: one answer each");
  std::free(another);
}

struct Outcome {
  bool called;
  uint32_t status;
  uint32_t data;
};

int awaited = 0;

// Called by the loop with the reply, or with null after the time-out.
void OnReply(ZOR_MSG_HEAD *reply, uint32_t status, void *outcome) {
  *static_cast<Outcome *>(outcome) = {true, status, reply != nullptr ? reply->data : 0};
  if (--awaited == 0) ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

void Asynchronous() {
  Outcome answered = {};
  Outcome unanswered = {};
  awaited = 2;
  ZOR_MSG_AsyncSendAndRecv(Build(PROVIDER, DEMO_SUM).get(), OnReply, kWaitMs, &answered);
  ZOR_MSG_AsyncSendAndRecv(Build(PROVIDER, DEMO_IGNORED).get(), OnReply, 300, &unanswered);
  ZOR_MSG_GetAndDispatch();
  Check(answered.called && answered.status == 0 && answered.data == 11,
        "asynchronous request: answered with " + std::to_string(answered.data));
  Check(unanswered.called && unanswered.status == 1, "asynchronous request: timed out when nobody answered");
}

void Absent() {
  uint32_t status = ZOR_OK;
  const Message reply = Ask(Build("nobody", DEMO_SUM), &status);
  char code[16];
  std::snprintf(code, sizeof code, "0x%x", status);
  Check(reply == nullptr && status == ZOR_E_PEER_GONE, std::string("absent daemon: the request ended with ") + code);
}

}  // namespace

void Requests() {
  OneWayAndRequest();
  HandlersInOrder();
  Asynchronous();
  Absent();
}
