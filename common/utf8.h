// UTF-8, decoded in two steps: a sequence is a lead byte and the continuation bytes that it announces; a character is a
// sequence that Unicode knows. Texts of the gateway's old daemons are only sequences: their surrogates come one by one.
#ifndef COMMON_UTF8_H
#define COMMON_UTF8_H

#include <array>
#include <bit>
#include <cstddef>
#include <string_view>

namespace zor {

struct Utf8Sequence {
  char32_t value;
  std::size_t length;  // in bytes; 0: malformed
};

inline constexpr Utf8Sequence kMalformedUtf8 = {0, 0};

// What a lead byte announces: the length of its sequence, at most 6, and the bits that it contributes.
constexpr Utf8Sequence Utf8Lead(char byte) noexcept {
  const auto lead = static_cast<unsigned char>(byte);
  const auto ones = static_cast<std::size_t>(std::countl_one(lead));
  if (ones == 0) return {lead, 1};
  if (ones == 1 || ones > 6) return kMalformedUtf8;
  return {static_cast<char32_t>(lead & (0x7fu >> ones)), ones};
}

constexpr bool IsUtf8Continuation(char byte) noexcept {
  return (static_cast<unsigned char>(byte) & 0xc0u) == 0x80u;
}

constexpr char32_t AppendUtf8Bits(char32_t value, char continuation) noexcept {
  return value << 6 | (static_cast<unsigned char>(continuation) & 0x3fu);
}

// The sequence at the front of a text, which must not be empty.
constexpr Utf8Sequence FirstUtf8Sequence(std::string_view text) noexcept {
  Utf8Sequence sequence = Utf8Lead(text[0]);
  if (sequence.length > text.size()) return kMalformedUtf8;
  for (std::size_t i = 1; i < sequence.length; ++i) {
    if (!IsUtf8Continuation(text[i])) return kMalformedUtf8;
    sequence.value = AppendUtf8Bits(sequence.value, text[i]);
  }
  return sequence;
}

// The same for characters only: no overlong form, no surrogate, nothing above U+10FFFF.
constexpr Utf8Sequence FirstUtf8Character(std::string_view text) noexcept {
  constexpr std::array<char32_t, 5> kLeast = {0, 0, 0x80, 0x800, 0x10000};
  const Utf8Sequence sequence = FirstUtf8Sequence(text);
  if (sequence.length >= kLeast.size() || sequence.value < kLeast[sequence.length]) return kMalformedUtf8;
  const bool isSurrogate = sequence.value >= 0xd800 && sequence.value <= 0xdfff;
  return isSurrogate || sequence.value > 0x10ffff ? kMalformedUtf8 : sequence;
}

}  // namespace zor

#endif
