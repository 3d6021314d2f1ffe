#include "programs/fleet_wire.h"

#include <algorithm>

#include "common/utf8.h"

namespace zor::fleet {
namespace {

constexpr std::string_view kEmpty = "%";
constexpr std::string_view kCut = "%~";
constexpr std::string_view kDigits = "0123456789ABCDEF";

bool IsPlain(char each) {
  return (each >= 'A' && each <= 'Z') || (each >= 'a' && each <= 'z') || (each >= '0' && each <= '9') || each == '-' ||
         each == '_' || each == '.';
}

// Brokers may end a connection over the others in a topic.
bool IsAllowedBeyondAscii(char32_t character) {
  const bool isControl = character < 0xa0;
  const bool isNoncharacter = (character >= 0xfdd0 && character <= 0xfdef) || (character & 0xfffe) == 0xfffe;
  return !isControl && !isNoncharacter;
}

// The bytes at the front of the text that stand for themselves: one character or nothing.
std::size_t PlainLength(std::string_view text) {
  const Utf8Sequence next = FirstUtf8Character(text);
  if (next.length <= 1) return IsPlain(text[0]) ? 1 : 0;
  return IsAllowedBeyondAscii(next.value) ? next.length : 0;
}

std::optional<char> ByteOf(std::string_view escape) {
  if (escape.size() < 3) return std::nullopt;
  const std::size_t high = kDigits.find(escape[1]);
  const std::size_t low = kDigits.find(escape[2]);
  if (high == kDigits.npos || low == kDigits.npos) return std::nullopt;
  return static_cast<char>(high << 4 | low);
}

}  // namespace

std::string Level(std::string_view name) {
  if (name.empty()) return std::string(kEmpty);
  std::string level;
  std::size_t whole = 0;  // where it may be cut
  while (!name.empty()) {
    const std::size_t plain = PlainLength(name);
    const auto byte = static_cast<unsigned char>(name[0]);
    if (plain == 0) level.append({'%', kDigits[byte >> 4], kDigits[byte & 15]});
    level.append(name.substr(0, plain));
    name.remove_prefix(std::max<std::size_t>(plain, 1));
    if (level.size() <= kMostLevelBytes - kCut.size()) whole = level.size();
    if (level.size() > kMostLevelBytes) return level.erase(whole).append(kCut);
  }
  return level;
}

std::optional<std::string> NameOf(std::string_view level) {
  std::string name;
  for (std::string_view left = level == kEmpty ? "" : level; !left.empty();) {
    const auto byte = left[0] == '%' ? ByteOf(left) : left[0];
    if (!byte) return std::nullopt;
    name += *byte;
    left.remove_prefix(left[0] == '%' ? 3 : 1);
  }
  return Level(name) == level ? std::optional(std::move(name)) : std::nullopt;
}

std::string Topic(std::initializer_list<std::string_view> names) {
  std::string topic;
  for (const std::string_view name : names) topic.append(topic.empty() ? "" : "/").append(Level(name));
  return topic;
}

std::optional<CallTopic> ParseCallTopic(std::string_view text) {
  const std::size_t first = text.find('/');
  const std::size_t second = first == text.npos ? text.npos : text.find('/', first + 1);
  if (second == text.npos || text.substr(0, first) != topic::kCall) return std::nullopt;
  auto daemon = NameOf(text.substr(first + 1, second - first - 1));
  auto type = NameOf(text.substr(second + 1));
  if (!daemon || !type) return std::nullopt;
  return CallTopic{std::move(*daemon), std::move(*type)};
}

}  // namespace zor::fleet
