// Names of message types in rules: those of their macros, without "ZOR_MSG_" and "ZOR_".
#ifndef PROGRAMS_ACCESS_TYPE_NAMES_H
#define PROGRAMS_ACCESS_TYPE_NAMES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zor::access {

struct Range {
  std::uint32_t first;
  std::uint32_t last;

  bool Contains(std::uint32_t number) const { return number >= first && number <= last; }
};

// A number, decimal or with 0x; two with '-' between them; or a name in any case, also with its prefix.
std::optional<Range> ParseTypes(std::string_view text);

// The name of a type, or its number.
std::string TypeName(std::uint32_t type);

}  // namespace zor::access

#endif
