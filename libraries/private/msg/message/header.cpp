#include "message/header.h"

#include <initializer_list>

#include "base/bytes.h"

const char *ZOR_MSG_GetVersion(void) {
  return "V1.01";
}

void ZOR_MSG_HeaderEndianSwap(ZOR_MSG_HEAD *header) {
  if (header == nullptr) return;
  for (uint32_t *word : {&header->type, &header->sequence, &header->data, &header->bodyLength}) {
    *word = zor::SwapU32(*word);
  }
}

uint32_t ZOR_MSG_BodyNeedEndianSwap(const void *) {
  return 0;
}

ZOR_MSG_HEAD *ZOR_MSG_GetMsgHead(void *body) {
  if (body == nullptr) return nullptr;
  return reinterpret_cast<ZOR_MSG_HEAD *>(static_cast<char *>(body) - ZOR_MSG_HEAD_SIZE);
}

void *ZOR_MSG_GetMsgByHead(ZOR_MSG_HEAD *header) {
  if (header == nullptr || zor::HeaderAt(header).bodyLength == 0) return nullptr;
  return zor::BodyOf(header);
}

namespace zor {

std::uint32_t FixUpReceivedHeader(ZOR_MSG_HEAD &header, ZOR_MSG_CTX &context) noexcept {
  if ((context.flags & ZOR_MSG_FLAG_SWAP) != 0) ZOR_MSG_HeaderEndianSwap(&header);
  context.flags = (context.flags & ~ZOR_MSG_FLAG_PEER_BOARD_MASK) | (header.type & ZOR_MSG_BOARD_MASK);
  const std::uint32_t bodyInFile = (header.type & ZOR_MSG_BODY_IN_FILE) != 0 ? 1 : 0;
  header.type &= ZOR_MSG_TYPE_MASK;
  return bodyInFile;
}

std::uint32_t OwnBoard(const ZOR_MSG_CTX &context) noexcept {
  return (context.flags & ZOR_MSG_FLAG_BOARD_MASK) >> ZOR_MSG_FLAG_BOARD_SHIFT;
}

std::uint32_t PeerBoard(const ZOR_MSG_CTX &context) noexcept {
  return (context.flags & ZOR_MSG_FLAG_PEER_BOARD_MASK) >> ZOR_MSG_BOARD_SHIFT;
}

OutgoingHeader::OutgoingHeader(ZOR_MSG_HEAD &header, const ZOR_MSG_CTX &context) noexcept
    : header_(header), type_(header.type), swapped_((context.flags & ZOR_MSG_FLAG_SWAP) != 0) {
  header_.type = (header_.type & ~ZOR_MSG_BOARD_MASK) | (OwnBoard(context) << ZOR_MSG_BOARD_SHIFT);
  if (swapped_) ZOR_MSG_HeaderEndianSwap(&header_);
}

OutgoingHeader::~OutgoingHeader() {
  if (swapped_) ZOR_MSG_HeaderEndianSwap(&header_);
  header_.type = type_ & typeMask_;
}

}  // namespace zor
