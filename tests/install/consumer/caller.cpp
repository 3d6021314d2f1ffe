// Calls the greeter of README.md from a separate project that has only the installed files.
#include <zor/msg.h>
#include <zor/uv.h>

#include "greeter.hpp"

namespace {

using greeter::Next;

Next::Reply reply;

void OnReply(ZOR_MSG_HEAD *msg) {
  Next::Reply::decode({}, msg->data, reply);
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

}  // namespace

int main() {
  if (ZOR_MSG_Init("caller") != ZOR_OK) return 1;
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_MSG_RegMsgProc(Next::kType, OnReply, 0, nullptr);
  if (ZOR_MSG_SendSimpleMsg(Next::kTo, Next::kType, Next::Request().data_word()) != ZOR_OK) return 1;
  if (ZOR_MSG_GetAndDispatch() != ZOR_OK) return 1;
  return reply.number == 42 ? 0 : 1;
}
