#include "programs/access/type_names.h"

#include <zor/notify_control_wire.h>

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "common/ascii.h"
#include "programs/settings.h"

namespace zor::access {
namespace {

struct NamedRange {
  Range types;
  std::string_view name;
};

// Control requests of the notification server have numbers of their own.
constexpr NamedRange kNames[] = {
#include "programs/access/type_names.inc"
    {{ZOR_NOTIFY_CONTROL_LIST, ZOR_NOTIFY_CONTROL_LIST}, "NOTIFY_CONTROL_LIST"},
    {{ZOR_NOTIFY_CONTROL_RESTART, ZOR_NOTIFY_CONTROL_RESTART}, "NOTIFY_CONTROL_RESTART"},
};

std::string_view WithoutPrefix(std::string_view name) {
  for (const std::string_view prefix : {"ZOR_MSG_", "ZOR_"}) {
    if (StartsWithIgnoringCase(name, prefix)) return name.substr(prefix.size());
  }
  return name;
}

std::optional<std::uint32_t> ParseType(std::string_view text) {
  std::uint64_t number = 0;
  if (!daemon::ParseNumber(text, &number) || number > UINT32_MAX) return std::nullopt;
  return static_cast<std::uint32_t>(number);
}

}  // namespace

std::optional<Range> ParseTypes(std::string_view text) {
  const auto *named = std::find_if(std::begin(kNames), std::end(kNames), [&](const NamedRange &each) {
    return EqualIgnoringCase(each.name, WithoutPrefix(text));
  });
  if (named != std::end(kNames)) return named->types;
  const std::size_t dash = std::min(text.find('-'), text.size());
  const auto first = ParseType(text.substr(0, dash));
  const auto last = dash == text.size() ? first : ParseType(text.substr(dash + 1));
  if (!first || !last || *first > *last) return std::nullopt;
  return Range{*first, *last};
}

std::string TypeName(std::uint32_t type) {
  const auto *named = std::find_if(std::begin(kNames), std::end(kNames), [=](const NamedRange &each) {
    return each.types.first == type && each.types.last == type;
  });
  if (named != std::end(kNames)) return std::string(named->name);
  char text[16];
  std::snprintf(text, sizeof text, "0x%X", type);
  return text;
}

}  // namespace zor::access
