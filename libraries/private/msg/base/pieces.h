// Splits a text at a separator.
#ifndef BASE_PIECES_H
#define BASE_PIECES_H

#include <algorithm>
#include <string_view>

namespace zor {

// Cuts the next piece that is not empty off the front of a text; empty when there is none left.
inline std::string_view NextPiece(std::string_view &text, char separator) noexcept {
  text.remove_prefix(std::min(text.find_first_not_of(separator), text.size()));
  const std::string_view piece = text.substr(0, text.find(separator));
  text.remove_prefix(piece.size());
  return piece;
}

}  // namespace zor

#endif
