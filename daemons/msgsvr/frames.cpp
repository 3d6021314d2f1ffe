#include "msgsvr/frames.h"

#include <cstddef>
#include <cstring>

namespace zor::msgsvr {

static_assert(sizeof(ZOR_MSG_HEAD) == ZOR_MSG_HEAD_SIZE);

void Frame::SetSource(const AppName &name) {
  std::memcpy(head.source, name.field().data(), name.field().size());
  std::memcpy(bytes.data() + offsetof(ZOR_MSG_HEAD, source), name.field().data(), name.field().size());
}

Parsed ParseFrame(std::span<std::byte> bytes) {
  Parsed parsed{Parsed::State::kPartial, {}, nullptr};
  if (bytes.size() < ZOR_MSG_HEAD_SIZE) return parsed;
  ZOR_MSG_HEAD &head = parsed.frame.head;
  std::memcpy(&head, bytes.data(), sizeof head);
  if (head.bodyLength > ZOR_MSG_INLINE_BODY_MAX) {
    return {Parsed::State::kMalformed, {}, "its frame is oversized"};
  }
  const auto destination = AppName::FromField(head.destination);
  if (!destination) return {Parsed::State::kMalformed, {}, "its frame has an unterminated destination"};
  if (bytes.size() < ZOR_MSG_HEAD_SIZE + head.bodyLength) return parsed;
  parsed.state = Parsed::State::kWhole;
  parsed.frame.destination = *destination;
  parsed.frame.bytes = bytes.first(ZOR_MSG_HEAD_SIZE + head.bodyLength);
  return parsed;
}

size_t FrameSize(std::span<const std::byte> bytes) {
  ZOR_MSG_HEAD head;
  std::memcpy(&head, bytes.data(), sizeof head);
  // Only the server's own frames have no source.
  const bool otherOrder = head.type == __builtin_bswap32(ZOR_MSG_REGISTER_APP) && head.source[0] == '\0';
  return ZOR_MSG_HEAD_SIZE + (otherOrder ? __builtin_bswap32(head.bodyLength) : head.bodyLength);
}

std::vector<std::byte> InOtherOrder(std::span<const std::byte> frame) {
  std::vector<std::byte> converted(frame.begin(), frame.end());
  ZOR_MSG_HEAD head;
  std::memcpy(&head, converted.data(), sizeof head);
  head = InOtherOrder(head);
  std::memcpy(converted.data(), &head, sizeof head);
  return converted;
}

ZOR_MSG_HEAD InOtherOrder(ZOR_MSG_HEAD head) {
  for (uint32_t *word : {&head.type, &head.sequence, &head.data, &head.bodyLength}) *word = __builtin_bswap32(*word);
  return head;
}

std::string_view TextOf(std::span<const std::byte> body) {
  const auto *text = reinterpret_cast<const char *>(body.data());
  return body.empty() ? std::string_view() : std::string_view(text, ::strnlen(text, body.size()));
}

std::vector<std::byte> BuildFrame(uint32_t type, uint32_t sequence, const AppName &destination, uint32_t data,
                                  std::span<const std::byte> body) {
  ZOR_MSG_HEAD head{};
  head.type = type;
  head.sequence = sequence;
  std::memcpy(head.destination, destination.field().data(), destination.field().size());
  head.data = data;
  head.bodyLength = static_cast<uint32_t>(body.size());
  std::vector<std::byte> frame(sizeof head + body.size());
  std::memcpy(frame.data(), &head, sizeof head);
  if (!body.empty()) std::memcpy(frame.data() + sizeof head, body.data(), body.size());
  return frame;
}

}  // namespace zor::msgsvr
