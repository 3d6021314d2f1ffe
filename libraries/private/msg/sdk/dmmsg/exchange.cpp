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

// A reply without items.
struct BareReply {
  ZOR_MSG_HEAD header;
  ZOR_DMMSG_HEAD dm;
};
static_assert(sizeof(BareReply) == ZOR_MSG_HEAD_SIZE + ZOR_DMMSG_HEAD_SIZE);

std::uint32_t MessageType(const ZOR_MSG_HEAD &msg) {
  return msg.type & ZOR_MSG_TYPE_MASK;
}

// Cuts the body to the given length, with nothing free.
void Shrink(ZOR_DMMSG_HEAD &dm, std::uint32_t length) {
  dm.capacity = length;
  dm.free = 0;
  BusHeaderOf(dm).bodyLength = length;
}

std::uint32_t SendWithCode(ZOR_DMMSG_HEAD &reply, std::uint32_t code) {
  reply.errorCode = code;
  return ZOR_MSG_Send(&BusHeaderOf(reply));
}

// Waits for the next message of the type and sets all others aside.
std::uint32_t ReceiveType(std::uint32_t type, MessagePtr &reply, std::uint32_t timeoutMs) {
  for (;;) {
    ZOR_MSG_HEAD *received = nullptr;
    const std::uint32_t status = ZOR_MSG_Recv(g_stMsgCtx.socketFd, &received, timeoutMs);
    if (status != ZOR_OK) return status;
    reply.reset(received);
    if (MessageType(*received) == type) return ZOR_OK;
    if (ZOR_MSG_QueueAppend(&g_stMsgCtx.pending, received) == ZOR_OK) static_cast<void>(reply.release());
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

uint32_t ZOR_DMMSG_SyncSend(ZOR_DMMSG_HEAD *dm, ZOR_DMMSG_HEAD **reply, uint32_t timeoutMs) {
  if (reply != nullptr) *reply = nullptr;
  uint32_t status = ZOR_DMMSG_Send(dm);
  if (status != ZOR_OK) return status;
  zor::MessagePtr msg;
  status = zor::ReceiveType(zor::MessageType(zor::BusHeaderOf(*dm)), msg, timeoutMs);
  if (status != ZOR_OK) return status;
  auto *received = static_cast<ZOR_DMMSG_HEAD *>(ZOR_MSG_GetMsgByHead(msg.get()));
  if (!zor::HasDmHead(received)) return ZOR_E_DM_BAD_ANSWER;
  if (received->errorCode != 0 || reply == nullptr) return received->errorCode;
  static_cast<void>(msg.release());  // the caller's now
  *reply = received;
  return ZOR_OK;
}

uint32_t ZOR_DMMSG_ReplyRetCode(const ZOR_DMMSG_HEAD *request, uint32_t code) {
  if (!zor::HasDmHead(request) || zor::BusHeaderOf(*request).type != ZOR_MSG_DM) return ZOR_E_DM_ARGUMENT;
  zor::BareReply reply = {};
  ZOR_MSG_SimpleBuilder(&reply.header, nullptr, ZOR_MSG_DM, 0);
  zor::CopyName(reply.header.destination, zor::BusHeaderOf(*request).source);
  reply.header.bodyLength = ZOR_DMMSG_HEAD_SIZE;
  reply.dm = {ZOR_DMMSG_MAGIC, ZOR_DMMSG_HEAD_SIZE, 0, code, 0, request->subType};
  return ZOR_MSG_Send(&reply.header);
}

uint32_t ZOR_DMMSG_ReplyEx(const char *destination, uint32_t code, ZOR_DMMSG_HEAD *reply) {
  const auto used = zor::UsedLength(reply);
  if (!used) return ZOR_E_DM_ARGUMENT;
  ZOR_MSG_HEAD &header = zor::BusHeaderOf(*reply);
  header.bodyLength = *used;
  zor::SetName(header.destination, destination);
  return zor::SendWithCode(*reply, code);
}

// The request's free count is taken off the reply's capacity: receivers expect the whole body area.
uint32_t ZOR_DMMSG_Reply(const ZOR_DMMSG_HEAD *request, uint32_t code, ZOR_DMMSG_HEAD *reply) {
  if (!zor::HasDmHead(request) || !zor::HasDmHead(reply)) return ZOR_E_DM_ARGUMENT;
  if (uint64_t{request->free} + ZOR_DMMSG_HEAD_SIZE > reply->capacity) return ZOR_E_DM_ARGUMENT;
  ZOR_MSG_HEAD &header = zor::BusHeaderOf(*reply);
  zor::Shrink(*reply, std::min(reply->capacity - request->free, header.bodyLength));
  zor::CopyName(header.destination, zor::BusHeaderOf(*request).source);
  return zor::SendWithCode(*reply, code);
}
