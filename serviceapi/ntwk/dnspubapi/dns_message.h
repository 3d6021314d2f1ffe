// The bytes of a DNS message. A position becomes the span from there to the end of the message, so that every later
// check is against that span and never against a pointer.
#ifndef DNSPUBAPI_DNS_MESSAGE_H
#define DNSPUBAPI_DNS_MESSAGE_H

#include <zor/dns.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace zor::dns {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t kHeaderSize = 12;
constexpr std::size_t kFlagsAt = 2;
constexpr std::size_t kQuestionCountAt = 4;
constexpr std::size_t kAnswerCountAt = 6;
constexpr std::size_t kAuthorityCountAt = 8;
constexpr std::size_t kAdditionalCountAt = 10;

// What follows the name: type and class; type, class, TTL and RDLENGTH.
constexpr std::size_t kQuestionFixedSize = 4;
constexpr std::size_t kRecordFixedSize = 10;
constexpr std::size_t kClassAt = 2;
constexpr std::size_t kTtlAt = 4;
constexpr std::size_t kDataLengthAt = 8;

constexpr std::size_t kMaxLabel = 63;
constexpr std::uint8_t kPointerBits = 0xc0;

inline std::uint16_t LoadBig16(const std::uint8_t *from) noexcept {
  return static_cast<std::uint16_t>(from[0] << 8 | from[1]);
}

inline std::uint32_t LoadBig32(const std::uint8_t *from) noexcept {
  return static_cast<std::uint32_t>(LoadBig16(from)) << 16 | LoadBig16(from + 2);
}

// Truncates the value to its low 16 bits.
inline void StoreBig16(std::uint8_t *to, std::uint32_t value) noexcept {
  to[0] = static_cast<std::uint8_t>(value >> 8);
  to[1] = static_cast<std::uint8_t>(value);
}

inline void StoreBig32(std::uint8_t *to, std::uint32_t value) noexcept {
  StoreBig16(to, value >> 16);
  StoreBig16(to + 2, value);
}

inline Bytes MessageOf(const DnsPacket &packet) noexcept {
  return {&packet.data[0], packet.length};
}

// The bytes from a position on; empty for a position outside the message.
inline Bytes RestAt(const DnsPacket &packet, const std::uint8_t *position) noexcept {
  const Bytes message = MessageOf(packet);
  const std::size_t offset =
      reinterpret_cast<std::uintptr_t>(position) - reinterpret_cast<std::uintptr_t>(message.data());
  return offset <= message.size() ? message.subspan(offset) : Bytes();
}

}  // namespace zor::dns

#endif
