#include "zorctl/text.h"

#include <algorithm>
#include <array>

#include "common/utf8.h"

namespace zor::ctl {
namespace {

constexpr std::string_view kEllipsis = "\u2026";

struct Range {
  char32_t first;
  char32_t last;
};

template <size_t Count>
bool Contains(const std::array<Range, Count> &ranges, char32_t character) {
  return std::any_of(ranges.begin(), ranges.end(),
                     [=](const Range &range) { return character >= range.first && character <= range.last; });
}

constexpr std::array kNoColumn = {Range{0x300, 0x36f}, Range{0x200b, 0x200d}, Range{0xfe00, 0xfe0f}};
constexpr std::array kTwoColumns = {Range{0x1100, 0x115f}, Range{0x2e80, 0xa4cf},   Range{0xac00, 0xd7a3},
                                    Range{0xf900, 0xfaff}, Range{0xfe30, 0xfe6f},   Range{0xff00, 0xff60},
                                    Range{0xffe0, 0xffe6}, Range{0x1f300, 0x1faff}, Range{0x20000, 0x3fffd}};

size_t ColumnsOf(char32_t character) {
  if (Contains(kNoColumn, character)) return 0;
  return Contains(kTwoColumns, character) ? 2 : 1;
}

// Bytes of the longest start of the text that fits.
size_t FittingLength(std::string_view text, size_t columns) {
  size_t length = 0;
  while (length < text.size()) {
    const Utf8Sequence next = FirstUtf8Character(text.substr(length));
    const size_t width = ColumnsOf(next.value);
    if (width > columns) break;
    columns -= width;
    length += std::max<size_t>(next.length, 1);
  }
  return length;
}

}  // namespace

size_t Width(std::string_view text) {
  size_t width = 0;
  while (!text.empty()) {
    const Utf8Sequence next = FirstUtf8Character(text);
    width += ColumnsOf(next.value);
    text.remove_prefix(std::max<size_t>(next.length, 1));
  }
  return width;
}

std::string Cut(std::string_view text, size_t columns) {
  if (Width(text) <= columns) return std::string(text);
  if (columns == 0) return {};
  return std::string(text.substr(0, FittingLength(text, columns - 1))).append(kEllipsis);
}

std::string PadRight(std::string_view text, size_t columns) {
  return std::string(text).append(columns - std::min(columns, Width(text)), ' ');
}

std::string PadLeft(std::string_view text, size_t columns) {
  return std::string(columns - std::min(columns, Width(text)), ' ').append(text);
}

}  // namespace zor::ctl
