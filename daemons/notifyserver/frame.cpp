#include "notifyserver/frame.h"

#include <bit>
#include <cstring>

namespace zor::notifyserver {
namespace {

static_assert(sizeof(ZOR_NOTIFY_MSG) == ZOR_NOTIFY_HEAD_SIZE);

// Why a header is malformed; null if it is valid.
const char *FaultOf(const ZOR_NOTIFY_MSG &head, size_t maxDataBytes) {
  if (head.data_len > maxDataBytes) return "its frame is oversized";
  const bool asynchronous = head.sync_tag == 0;
  const bool reply = head.ack_tag == ZOR_NOTIFY_ACK_ANSWER;
  if (head.sync_tag > 1 || (!reply && head.ack_tag != ZOR_NOTIFY_ACK_REQUEST) || (asynchronous && reply)) {
    return "its frame is not a notification, request or reply";
  }
  if (asynchronous && uint64_t{head.sub_data_len1} + head.sub_data_len2 > head.data_len) {
    return "its frame has parts longer than its data";
  }
  return nullptr;
}

}  // namespace

Frame::Kind Frame::kind() const {
  if (head.sync_tag == 0) return Kind::kNotification;
  return head.ack_tag == ZOR_NOTIFY_ACK_REQUEST ? Kind::kRequest : Kind::kReply;
}

uint32_t Frame::FirstValue() const {
  uint32_t value;
  std::memcpy(&value, bytes.data() + ZOR_NOTIFY_HEAD_SIZE, sizeof value);
  return value;
}

void Frame::SetSource(uint32_t mid) {
  head.source_id = mid;
  std::memcpy(bytes.data() + offsetof(ZOR_NOTIFY_MSG, source_id), &mid, sizeof mid);
}

Parsed ParseFrame(std::span<std::byte> bytes, size_t maxDataBytes) {
  Parsed parsed{Parsed::State::kPartial, {}, nullptr};
  ZOR_NOTIFY_MSG &head = parsed.frame.head;
  if (bytes.size() < sizeof head) return parsed;
  std::memcpy(&head, bytes.data(), sizeof head);
  if (const char *fault = FaultOf(head, maxDataBytes)) return {Parsed::State::kMalformed, {}, fault};
  if (bytes.size() - sizeof head < head.data_len) return parsed;
  parsed.state = Parsed::State::kWhole;
  parsed.frame.bytes = bytes.first(sizeof head + head.data_len);
  return parsed;
}

size_t FrameSize(std::span<const std::byte> bytes) {
  ZOR_NOTIFY_MSG head;
  if (bytes.size() < sizeof head) return 0;
  std::memcpy(&head, bytes.data(), sizeof head);
  return sizeof head + size_t{head.data_len};
}

ZOR_NOTIFY_MSG ReplyHead(uint32_t type, uint32_t sequence, uint32_t source, uint32_t destination) {
  ZOR_NOTIFY_MSG head = {};
  head.msg_type = type;
  head.seq = sequence;
  head.source_id = source;
  head.des_id = destination;
  head.sync_tag = 1;
  head.ack_tag = ZOR_NOTIFY_ACK_ANSWER;
  return head;
}

std::array<std::byte, ZOR_NOTIFY_HEAD_SIZE> BuildEmptyReply(uint32_t type, uint32_t sequence, uint32_t source,
                                                            uint32_t destination) {
  return std::bit_cast<std::array<std::byte, ZOR_NOTIFY_HEAD_SIZE>>(ReplyHead(type, sequence, source, destination));
}

}  // namespace zor::notifyserver
