// The name of another board, as its certificate has it and as rules name it.
#ifndef PROGRAMS_BOARD_NAME_H
#define PROGRAMS_BOARD_NAME_H

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace zor::daemon {

inline constexpr std::size_t kBoardName = 63;  // characters

// Letters, digits, '-', '_' and '.', with a letter first, so that no name can be taken for an address or a pattern.
constexpr bool IsBoardName(std::string_view text) {
  const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  const auto isAllowed = [&](char c) {
    return isLetter(c) || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
  };
  return !text.empty() && text.size() <= kBoardName && isLetter(text.front()) && std::ranges::all_of(text, isAllowed);
}

}  // namespace zor::daemon

#endif
