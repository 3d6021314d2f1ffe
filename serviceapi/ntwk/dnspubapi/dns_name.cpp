#include "ntwk/dnspubapi/dns_name.h"

#include <zor/limits.h>

#include <optional>

namespace zor::dns {
namespace {

// A lone pointer needs a byte behind it: no question or record can end with its name.
constexpr std::size_t kLonePointerRoom = 3;
constexpr std::uint32_t kPointerSize = 2;

bool IsPointer(std::uint8_t byte) {
  return (byte & kPointerBits) == kPointerBits;
}

// The target of the pointer at the front of rest; nothing when pointer or target is outside the message.
std::optional<Bytes> Follow(Bytes message, Bytes rest) {
  if (rest.size() < kPointerSize) return std::nullopt;
  const std::size_t target = LoadBig16(rest.data()) & ~(kPointerBits << 8);
  if (target > message.size()) return std::nullopt;
  return message.subspan(target);
}

// One segment: labels up to a zero byte or a pointer.
class Segment {
 public:
  enum class End { kRoot, kPointer, kMalformed };

  Segment(Bytes rest, std::span<char> room) noexcept : rest_(rest), room_(room) {}

  // Writes each label with a dot behind it.
  End ReadLabels() noexcept;
  // Ends the text in place of the last dot. False when there is no room for the root's empty text.
  bool Terminate() noexcept;

  Bytes Unread() const { return rest_.subspan(read_); }
  std::span<char> Room() const { return room_.subspan(written_); }
  std::uint32_t ReadLength() const { return static_cast<std::uint32_t>(read_); }

 private:
  bool CopyLabel(std::size_t length) noexcept;

  Bytes rest_;
  std::span<char> room_;
  std::size_t read_ = 0;
  std::size_t written_ = 0;
};

Segment::End Segment::ReadLabels() noexcept {
  while (read_ < rest_.size()) {
    const std::uint8_t length = rest_[read_];
    if (IsPointer(length)) return End::kPointer;
    ++read_;
    if (length == 0) return End::kRoot;
    if (length > kMaxLabel || length > rest_.size() - read_ || !CopyLabel(length)) return End::kMalformed;
  }
  return End::kMalformed;
}

bool Segment::CopyLabel(std::size_t length) noexcept {
  if (length >= room_.size() - written_) return false;
  const std::uint8_t *from = rest_.data() + read_;
  char *to = room_.data() + written_;
  for (std::size_t i = 0; i < length; ++i) {
    if (from[i] == '.') return false;  // the text would read as two labels
    to[i] = static_cast<char>(from[i]);
  }
  to[length] = '.';
  read_ += length;
  written_ += length + 1;
  return true;
}

// An empty segment adds nothing to the text, so labels that point to the root keep their last dot.
bool Segment::Terminate() noexcept {
  if (room_.empty()) return false;
  room_[written_ == 0 ? 0 : written_ - 1] = '\0';
  return true;
}

}  // namespace

std::uint32_t NameLength(Bytes rest) noexcept {
  if (rest.empty()) return 0;
  if (IsPointer(rest[0])) return rest.size() >= kLonePointerRoom ? kPointerSize : 0;
  for (std::size_t i = 0; i < rest.size();) {
    const std::uint8_t length = rest[i++];
    if (length == 0) return static_cast<std::uint32_t>(i);
    if (IsPointer(length)) return static_cast<std::uint32_t>(i + 1);
    if (length > kMaxLabel || length > rest.size() - i) return 0;
    i += length;
  }
  return 0;
}

bool ExpandName(Bytes message, Bytes rest, std::span<char> text, std::uint32_t *consumed) noexcept {
  std::uint32_t occupied = 0;
  bool jumped = false;
  for (int budget = ZOR_DNS_SEGMENTS_MAX; budget > 0 && !rest.empty(); --budget) {
    Segment segment(rest, text);
    if (!IsPointer(rest[0])) {
      const Segment::End end = segment.ReadLabels();
      if (end == Segment::End::kMalformed) return false;
      if (end == Segment::End::kRoot) {
        *consumed = jumped ? occupied : segment.ReadLength();
        return segment.Terminate();
      }
      // occupied stays 0: callers step over a name that ends in a pointer behind labels by 0 and rely on it.
    } else {
      if (jumped || rest.size() < kLonePointerRoom) return false;
      occupied = kPointerSize;
    }
    const std::optional<Bytes> target = Follow(message, segment.Unread());
    if (!target) return false;
    jumped = true;
    rest = *target;
    text = segment.Room();
  }
  return false;
}

}  // namespace zor::dns

uint32_t ZOR_DNS_PacketGetNameLen(const DnsPacket *packet, const uint8_t *position) {
  if (packet == nullptr || position == nullptr) return 0;
  return zor::dns::NameLength(zor::dns::RestAt(*packet, position));
}

uint32_t ZOR_DNS_PacketGetName(const DnsPacket *packet, const uint8_t *position, char *name, uint32_t capacity,
                               uint32_t *consumed) {
  if (consumed != nullptr) *consumed = 0;
  if (name != nullptr && capacity > 0) name[0] = '\0';
  if (packet == nullptr || position == nullptr || name == nullptr) return ZOR_DNS_E_ARGUMENT;
  const zor::dns::Bytes rest = zor::dns::RestAt(*packet, position);
  std::uint32_t occupied = 0;
  if (!zor::dns::ExpandName(zor::dns::MessageOf(*packet), rest, {name, capacity}, &occupied)) {
    if (capacity > 0) name[0] = '\0';
    return ZOR_DNS_E_MALFORMED;
  }
  if (consumed != nullptr) *consumed = occupied;
  return ZOR_DNS_OK;
}
