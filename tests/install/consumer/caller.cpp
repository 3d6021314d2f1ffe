// Calls the greeter of README.md from a separate project that has only the installed files.
#include <zor/msg.h>
#include <zor/uv.h>

namespace {

uint32_t reply;

void OnReply(ZOR_MSG_HEAD *msg) {
  reply = msg->data;
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

}  // namespace

int main() {
  if (ZOR_MSG_Init("caller") != ZOR_OK) return 1;
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_MSG_RegMsgProc(0x4001, OnReply, 0, nullptr);
  if (ZOR_MSG_SendSimpleMsg("greeter", 0x4001, 41) != ZOR_OK || ZOR_MSG_GetAndDispatch() != ZOR_OK) return 1;
  return reply == 42 ? 0 : 1;
}
