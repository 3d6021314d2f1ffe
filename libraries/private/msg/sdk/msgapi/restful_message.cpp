#include <zor/msg_build.h>
#include <zor/msg_dispatch.h>
#include <zor/platform/bounded.h>
#include <zor/status.h>

#include <cstddef>
#include <cstring>

#include "message/context.h"
#include "message/header.h"

static_assert(sizeof(ZOR_MSG_RESTFUL_HEAD) == ZOR_MSG_RESTFUL_HEAD_SIZE);
static_assert(offsetof(ZOR_MSG_RESTFUL_HEAD, prefix) == 8);
static_assert(offsetof(ZOR_MSG_RESTFUL_HEAD, name) == 72);

namespace {

constexpr std::uint32_t kFixedBody = ZOR_MSG_RESTFUL_HEAD_SIZE + 1;  // the head, and the NUL behind the data
constexpr std::uint32_t kFixedBlock = ZOR_MSG_HEAD_SIZE + kFixedBody;

}  // namespace

ZOR_MSG_HEAD *ZOR_MSG_BuildRestfulReqMsg(uint32_t word0, uint32_t word1, const char *prefix, const char *name,
                                         const char *data, uint32_t dataLength) {
  if (dataLength > UINT32_MAX - kFixedBlock) return nullptr;
  zor::MessagePtr msg(static_cast<ZOR_MSG_HEAD *>(zor::GuardedCalloc(kFixedBlock + dataLength)));
  if (msg == nullptr) return nullptr;
  ZOR_MSG_SimpleBuilder(msg.get(), nullptr, ZOR_MSG_RESTFUL_REQUEST, 0);
  msg->bodyLength = kFixedBody + dataLength;
  auto *body = static_cast<ZOR_MSG_RESTFUL_HEAD *>(zor::BodyOf(msg.get()));
  body->word0 = word0;
  body->word1 = word1;
  strcpy_s(body->prefix, sizeof body->prefix, prefix);
  strcpy_s(body->name, sizeof body->name, name);
  // The data is text: it ends at its NUL, which may be missing within dataLength.
  if (data != nullptr) std::memcpy(body + 1, data, strnlen(data, dataLength));
  return msg.release();
}

uint32_t ZOR_MSG_SendRestfulResponseMsg(const char *destination, uint32_t type, const void *data, uint32_t dataLength,
                                        uint32_t dataWord, uint32_t sequence) {
  if (data == nullptr) return ZOR_E_ARGUMENT;
  return ZOR_MSG_SendMsgDataWithDataSeq(destination, type, data, dataLength, dataWord, sequence);
}
