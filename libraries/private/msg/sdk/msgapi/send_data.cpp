// Sends that build their message themselves.
#include <zor/msg_build.h>
#include <zor/msg_bus.h>
#include <zor/status.h>

#include "base/text.h"
#include "sdk/msgapi/transfer.h"

namespace {

constexpr uint32_t kDataLengthMax = 0xffffffd6;  // above it nothing is printed

}  // namespace

uint32_t ZOR_MSG_SendSimpleMsg(const char *destination, uint32_t type, uint32_t dataWord) {
  ZOR_MSG_HEAD msg;
  ZOR_MSG_SimpleBuilder(&msg, destination, type, dataWord);
  return ZOR_MSG_Send(&msg);
}

uint32_t ZOR_MSG_SendSimpleMsgWithSeqNum(const char *destination, uint32_t type, uint32_t dataWord, uint32_t sequence) {
  ZOR_MSG_HEAD msg;
  ZOR_MSG_SimpleBuilder(&msg, destination, type, dataWord);
  msg.sequence = sequence;
  return ZOR_MSG_Send(&msg);
}

uint32_t ZOR_MSG_SendMsgDataWithDataSeq(const char *destination, uint32_t type, const void *data, uint32_t dataLength,
                                        uint32_t dataWord, uint32_t sequence) {
  if (data == nullptr) return ZOR_MSG_SendSimpleMsgWithSeqNum(destination, type, dataWord, sequence);
  if (dataLength > kDataLengthMax) return ZOR_E_NO_MEMORY;
  ZOR_MSG_HEAD header = {};
  zor::SetName(header.destination, destination);
  header.type = type;
  header.sequence = sequence;
  header.data = dataWord;
  header.bodyLength = dataLength;
  return zor::SendParts(header, data);
}

uint32_t ZOR_MSG_SendMsgDataWithData(const char *destination, uint32_t type, const void *data, uint32_t dataLength,
                                     uint32_t dataWord) {
  if (data == nullptr) return ZOR_MSG_SendSimpleMsg(destination, type, dataWord);
  return ZOR_MSG_SendMsgDataWithDataSeq(destination, type, data, dataLength, dataWord, 0);
}

uint32_t ZOR_MSG_SendMsgData(const char *destination, uint32_t type, const void *data, uint32_t dataLength) {
  return ZOR_MSG_SendMsgDataWithData(destination, type, data, dataLength, 0);
}
