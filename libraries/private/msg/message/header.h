// The 40-byte header on its way out and in: board bits, byte order, and the flag of a body in a file.
#ifndef MESSAGE_HEADER_H
#define MESSAGE_HEADER_H

#include <zor/msg_head.h>

#include <cstdint>
#include <cstring>

namespace zor {

// Header access for blocks that callers have laid over a buffer of any alignment.
inline ZOR_MSG_HEAD HeaderAt(const void *block) noexcept {
  ZOR_MSG_HEAD header;
  std::memcpy(&header, block, sizeof header);
  return header;
}
inline void StoreHeader(void *block, const ZOR_MSG_HEAD &header) noexcept {
  std::memcpy(block, &header, sizeof header);
}

// The place of the body, also when it is empty.
inline void *BodyOf(ZOR_MSG_HEAD *header) noexcept {
  return header + 1;
}
inline const void *BodyOf(const ZOR_MSG_HEAD *header) noexcept {
  return header + 1;
}

// Brings an arrived header into host order, notes the sender's board in the context and reduces the type word to the
// message type. Returns 1 when the body is in a file. Changes the header in place: once for each message.
std::uint32_t FixUpReceivedHeader(ZOR_MSG_HEAD &header, ZOR_MSG_CTX &context) noexcept;

std::uint32_t OwnBoard(const ZOR_MSG_CTX &context) noexcept;
std::uint32_t PeerBoard(const ZOR_MSG_CTX &context) noexcept;

// While it lives the header is in wire form: own board bits in place, byte order swapped when the peer wants that.
// Afterwards the header is in host order and its type word reduced to the message type, unless the send was cancelled.
class OutgoingHeader {
 public:
  OutgoingHeader(ZOR_MSG_HEAD &header, const ZOR_MSG_CTX &context) noexcept;
  OutgoingHeader(const OutgoingHeader &) = delete;
  OutgoingHeader &operator=(const OutgoingHeader &) = delete;
  ~OutgoingHeader();

  // Nothing was written: the caller finds its type word unchanged.
  void Cancel() noexcept { typeMask_ = ~UINT32_C(0); }

 private:
  ZOR_MSG_HEAD &header_;
  std::uint32_t type_;
  std::uint32_t typeMask_ = ZOR_MSG_TYPE_MASK;
  bool swapped_;
};

}  // namespace zor

#endif
