// Base 64 as the resolver's codec of the C library does it. That one is not called, because each daemon would map its
// library for it.
#include <zor/platform/text.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

#include "common/malloc_ptr.h"

namespace {

constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPad = '=';
constexpr std::string_view kSpace = " \t\n\v\f\r";

constexpr bool IsSpace(char c) {
  return kSpace.find(c) != std::string_view::npos;
}

// Bits of the last digit that belong to no byte, by the number of digits in a group of four.
constexpr std::array<int, 4> kSpareBits = {0, 6, 4, 2};

// Whether this can follow so many digits: padding to a multiple of four, with space anywhere.
bool IsPadding(std::string_view text, size_t digits) {
  constexpr std::array<std::ptrdiff_t, 4> kPads = {0, -1, 2, 1};  // none can follow a single digit
  return std::all_of(text.begin(), text.end(), [](char c) { return c == kPad || IsSpace(c); }) &&
         std::count(text.begin(), text.end(), kPad) == kPads[digits % 4];
}

}  // namespace

char *ZOR_UTIL_Base64Encode(const void *data, uint32_t length) {
  const uint64_t size = (uint64_t{length} + 2) / 3 * 4 + 1;
  // With 32 bits the size of the longest does not fit.
  if (data == nullptr || size != static_cast<size_t>(size)) return nullptr;
  zor::MallocPtr<char> text(static_cast<char *>(std::malloc(static_cast<size_t>(size))));
  if (text == nullptr) return nullptr;
  const auto *const bytes = static_cast<const unsigned char *>(data);
  char *next = text.get();
  for (size_t at = 0; at < length; at += 3) {
    const size_t count = length - at < 3 ? length - at : 3;
    uint32_t group = 0;
    for (size_t i = 0; i < 3; ++i) group = group << 8 | (i < count ? bytes[at + i] : 0u);
    for (size_t i = 0; i < 4; ++i) *next++ = i <= count ? kDigits[group >> (18 - 6 * i) & 63] : kPad;
  }
  *next = '\0';
  return text.release();
}

char *ZOR_UTIL_Base64Decode(const char *text, uint32_t *length) {
  if (length != nullptr) *length = 0;
  if (text == nullptr) return nullptr;
  const std::string_view rest(text);
  zor::MallocPtr<char> bytes(static_cast<char *>(std::malloc(rest.size() / 4 * 3 + 4)));
  if (bytes == nullptr) return nullptr;
  char *next = bytes.get();
  uint32_t group = 0;
  size_t digits = 0;
  const std::string_view padding = rest.substr(std::min(rest.find(kPad), rest.size()));
  for (const char c : rest.substr(0, rest.size() - padding.size())) {
    if (IsSpace(c)) continue;
    const size_t digit = kDigits.find(c);
    if (digit == std::string_view::npos) return nullptr;
    group = group << 6 | static_cast<uint32_t>(digit);
    if (++digits % 4 != 1) *next++ = static_cast<char>(group >> kSpareBits[digits % 4]);
  }
  const uint32_t spare = group & ((1u << kSpareBits[digits % 4]) - 1);
  if (!IsPadding(padding, digits) || spare != 0) return nullptr;
  *next = '\0';
  if (length != nullptr) *length = static_cast<uint32_t>(next - bytes.get());
  return bytes.release();
}
