#include <zor/dmmsg.h>
#include <zor/msg_build.h>
#include <zor/msg_bus.h>
#include <zor/msg_dispatch.h>
#include <zor/status.h>

#include <algorithm>

#include "base/text.h"
#include "message/context.h"
#include "sdk/dmmsg/body.h"

namespace zor {
namespace {

// An answer without items.
struct BareAnswer {
  ZOR_MSG_HEAD header;
  ZOR_DMMSG_HEAD dm;
};
static_assert(sizeof(BareAnswer) == ZOR_MSG_HEAD_SIZE + ZOR_DMMSG_HEAD_SIZE);

std::uint32_t MessageType(const ZOR_MSG_HEAD &msg) {
  return msg.type & ZOR_MSG_TYPE_MASK;
}

// A body that ends where the used part does.
void Shrink(ZOR_DMMSG_HEAD &dm, std::uint32_t length) {
  dm.capacity = length;
  dm.free = 0;
  BusHeaderOf(dm).bodyLength = length;
}

std::uint32_t SendWithCode(ZOR_DMMSG_HEAD &answer, std::uint32_t code) {
  answer.errorCode = code;
  return ZOR_MSG_Send(&BusHeaderOf(answer));
}

// Waits for the next message of the type and sets all others aside.
std::uint32_t ReceiveType(std::uint32_t type, MessagePtr &answer, std::uint32_t timeoutMs) {
  for (;;) {
    ZOR_MSG_HEAD *received = nullptr;
    const std::uint32_t status = ZOR_MSG_Recv(g_stMsgCtx.socketFd, &received, timeoutMs);
    if (status != ZOR_OK) return status;
    answer.reset(received);
    if (MessageType(*received) == type) return ZOR_OK;
    if (ZOR_MSG_QueueAppend(&g_stMsgCtx.pending, received) == ZOR_OK) static_cast<void>(answer.release());
  }
}

}  // namespace
}  // namespace zor

uint32_t ZOR_DMMSG_Send(ZOR_DMMSG_HEAD *dm) {
  const auto used = zor::UsedLength(dm);
  if (!used) return ZOR_E_DM_ARGUMENT;
  zor::Shrink(*dm, *used);
  return ZOR_MSG_Send(&zor::BusHeaderOf(*dm));
}

uint32_t ZOR_DMMSG_SyncSend(ZOR_DMMSG_HEAD *dm, ZOR_DMMSG_HEAD **answer, uint32_t timeoutMs) {
  if (answer != nullptr) *answer = nullptr;
  uint32_t status = ZOR_DMMSG_Send(dm);
  if (status != ZOR_OK) return status;
  zor::MessagePtr msg;
  status = zor::ReceiveType(zor::MessageType(zor::BusHeaderOf(*dm)), msg, timeoutMs);
  if (status != ZOR_OK) return status;
  auto *received = static_cast<ZOR_DMMSG_HEAD *>(ZOR_MSG_GetMsgByHead(msg.get()));
  if (!zor::HasDmHead(received)) return ZOR_E_DM_BAD_ANSWER;
  if (received->errorCode != 0 || answer == nullptr) return received->errorCode;
  static_cast<void>(msg.release());  // the caller's now
  *answer = received;
  return ZOR_OK;
}

uint32_t ZOR_DMMSG_ReplyRetCode(const ZOR_DMMSG_HEAD *request, uint32_t code) {
  if (!zor::HasDmHead(request) || zor::BusHeaderOf(*request).type != ZOR_MSG_DM) return ZOR_E_DM_ARGUMENT;
  zor::BareAnswer answer = {};
  ZOR_MSG_SimpleBuilder(&answer.header, nullptr, ZOR_MSG_DM, 0);
  zor::CopyName(answer.header.destination, zor::BusHeaderOf(*request).source);
  answer.header.bodyLength = ZOR_DMMSG_HEAD_SIZE;
  answer.dm = {ZOR_DMMSG_MAGIC, ZOR_DMMSG_HEAD_SIZE, 0, code, 0, request->subType};
  return ZOR_MSG_Send(&answer.header);
}

uint32_t ZOR_DMMSG_ReplyEx(const char *destination, uint32_t code, ZOR_DMMSG_HEAD *answer) {
  const auto used = zor::UsedLength(answer);
  if (!used) return ZOR_E_DM_ARGUMENT;
  ZOR_MSG_HEAD &header = zor::BusHeaderOf(*answer);
  header.bodyLength = *used;
  zor::SetName(header.destination, destination);
  return zor::SendWithCode(*answer, code);
}

// The request's free count is taken off the answer's capacity: receivers know the whole body area of an answer.
uint32_t ZOR_DMMSG_Reply(const ZOR_DMMSG_HEAD *request, uint32_t code, ZOR_DMMSG_HEAD *answer) {
  if (!zor::HasDmHead(request) || !zor::HasDmHead(answer)) return ZOR_E_DM_ARGUMENT;
  if (uint64_t{request->free} + ZOR_DMMSG_HEAD_SIZE > answer->capacity) return ZOR_E_DM_ARGUMENT;
  ZOR_MSG_HEAD &header = zor::BusHeaderOf(*answer);
  zor::Shrink(*answer, std::min(answer->capacity - request->free, header.bodyLength));
  zor::CopyName(header.destination, zor::BusHeaderOf(*request).source);
  return zor::SendWithCode(*answer, code);
}
