#include <zor/msg_build.h>
#include <zor/status.h>

#include <cstring>

#include "base/text.h"
#include "message/context.h"
#include "message/header.h"

namespace {

// From these lengths on the size of the block would not fit into the callers' arithmetic; nothing is printed then.
constexpr uint32_t kResponseLengthEnd = 0x7fffffd7;
constexpr uint32_t kDupLengthEnd = 0xffffffd7;

// A block for a body of the given length, its header zero but for that length.
zor::MessagePtr NewMessage(uint32_t bodyLength) {
  zor::MessagePtr msg = zor::NewMessageBlock(bodyLength);
  if (msg == nullptr) return nullptr;
  *msg = {};
  msg->bodyLength = bodyLength;
  return msg;
}

}  // namespace

void ZOR_MSG_SimpleBuilder(ZOR_MSG_HEAD *header, const char *destination, uint32_t type, uint32_t dataWord) {
  if (header == nullptr) return;
  *header = {};
  header->type = type;
  header->sequence = zor::NextSequence();
  header->data = dataWord;
  zor::SetName(header->destination, destination);
}

ZOR_MSG_HEAD *ZOR_MSG_MsgResponseBuilder(const ZOR_MSG_HEAD *request, uint32_t dataWord, const void *data,
                                         uint32_t dataLength) {
  if (request == nullptr || (data != nullptr && dataLength >= kResponseLengthEnd)) return nullptr;
  zor::MessagePtr reply = NewMessage(data == nullptr ? 0 : dataLength);
  if (reply == nullptr) return nullptr;
  if (data == nullptr) zor::NextSequence();  // a header-only reply uses up a number
  reply->type = request->type;
  reply->sequence = request->sequence;
  reply->data = dataWord;
  zor::CopyName(reply->destination, request->source);
  if (data != nullptr) std::memcpy(zor::BodyOf(reply.get()), data, dataLength);
  return reply.release();
}

ZOR_MSG_HEAD *ZOR_MSG_Dup(const ZOR_MSG_HEAD *msg) {
  if (msg == nullptr || msg->bodyLength >= kDupLengthEnd) return nullptr;
  zor::MessagePtr copy = NewMessage(msg->bodyLength);
  if (copy == nullptr) return nullptr;
  *copy = *msg;
  std::memcpy(zor::BodyOf(copy.get()), zor::BodyOf(msg), msg->bodyLength);
  return copy.release();
}

void *ZOR_MSG_GetMsgBlock(uint32_t dataLength) {
  zor::MessagePtr msg = NewMessage(dataLength);
  return msg == nullptr ? nullptr : zor::BodyOf(msg.release());
}

void *ZOR_MSG_GetMsgBlockEx(void *buffer, uint32_t size) {
  if (buffer == nullptr || size < ZOR_MSG_HEAD_SIZE) return nullptr;
  ZOR_MSG_HEAD header = {};
  header.bodyLength = size - ZOR_MSG_HEAD_SIZE;
  zor::StoreHeader(buffer, header);
  return static_cast<char *>(buffer) + ZOR_MSG_HEAD_SIZE;
}

uint32_t ZOR_MSG_SetMsgProfile(void *body, const char *destination, uint32_t type, uint32_t dataLength) {
  if (body == nullptr) return ZOR_E_ARGUMENT;
  void *block = ZOR_MSG_GetMsgHead(body);
  ZOR_MSG_HEAD header = zor::HeaderAt(block);
  if (destination != nullptr) zor::SetName(header.destination, destination);
  header.type = type;
  const bool fits = dataLength <= header.bodyLength;
  if (fits) header.bodyLength = dataLength;
  zor::StoreHeader(block, header);
  return fits ? ZOR_OK : ZOR_E_ARGUMENT;
}
