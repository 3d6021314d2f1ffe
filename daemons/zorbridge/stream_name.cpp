#include "zorbridge/stream_name.h"

#include <sys/random.h>

#include <array>
#include <charconv>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <system_error>

namespace zor::bridge {
namespace {

constexpr std::size_t kDigits = 16;
constexpr std::uint64_t kCounts = 0xffff;

std::string Text(std::uint64_t value) {
  std::array<char, kDigits + 1> text;
  std::snprintf(text.data(), text.size(), "%016" PRIx64, value);
  return text.data();
}

}  // namespace

std::string NewStreamName() {
  std::uint64_t value = 0;
  while (::getrandom(&value, sizeof value, 0) != sizeof value) {
  }
  return Text(value & ~kCounts);
}

std::string StreamNameAfter(std::string_view name) {
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), value, 16);
  const bool valid = error == std::errc() && end == name.data() + name.size() && name.size() == kDigits;
  return valid && (value & kCounts) != kCounts ? Text(value + 1) : NewStreamName();
}

}  // namespace zor::bridge
