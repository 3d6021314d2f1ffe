// The cross-process barrier: the server holds back the reply to a wait until a client posts the name.
#include <zor/msg_build.h>
#include <zor/msg_request.h>

#include <cstring>

#include "base/text.h"
#include "message/context.h"

namespace zor {
namespace {

constexpr std::uint32_t kNothingToPost = 1;

struct WaitRequest {
  ZOR_MSG_HEAD header;
  NameField name;
};

}  // namespace
}  // namespace zor

uint32_t ZOR_MSG_ZorSyncWait(const char *name, uint32_t timeoutMs) {
  zor::WaitRequest request;
  ZOR_MSG_SimpleBuilder(&request.header, nullptr, ZOR_MSG_SYNC_WAIT, 0);
  zor::SetName(request.name, name);
  request.header.bodyLength = static_cast<uint32_t>(zor::NameView(request.name).size() + 1);
  ZOR_MSG_HEAD *received = nullptr;
  const uint32_t status = ZOR_MSG_SendAndRecv(&request.header, &received, timeoutMs);
  const zor::MessagePtr reply(received);
  // The arrival of a reply is the whole result; its content is ignored.
  return status != 0 ? status : request.header.data;
}

uint32_t ZOR_MSG_ZorSyncPost(const char *name) {
  if (name == nullptr || name[0] == '\0') return zor::kNothingToPost;
  return ZOR_MSG_SendMsgData(nullptr, ZOR_MSG_SYNC_POST, name, static_cast<uint32_t>(std::strlen(name) + 1));
}
