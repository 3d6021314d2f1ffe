#include "zorctl/text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "common/utf8.h"
#include "zorctl/hex.h"

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

// Controls of both kinds, line and paragraph separators, marks and overrides of the direction of writing.
constexpr std::array kUnprintable = {Range{0, 0x1f}, Range{0x7f, 0x9f}, Range{0x200e, 0x200f}, Range{0x2028, 0x202e},
                                     Range{0x2066, 0x2069}};
constexpr std::array kNoColumn = {Range{0x300, 0x36f}, Range{0x200b, 0x200d}, Range{0xfe00, 0xfe0f}};
constexpr std::array kTwoColumns = {Range{0x1100, 0x115f}, Range{0x2e80, 0xa4cf},   Range{0xac00, 0xd7a3},
                                    Range{0xf900, 0xfaff}, Range{0xfe30, 0xfe6f},   Range{0xff00, 0xff60},
                                    Range{0xffe0, 0xffe6}, Range{0x1f300, 0x1faff}, Range{0x20000, 0x3fffd}};

void AppendHex(std::string_view bytes, std::string &out) {
  for (const char &each : bytes) out.append("\\x").append(ToHex({&each, 1}));
}

// Visits the bytes of each character, and whether it is valid and printable.
template <class Visit>
void ForEachCharacter(std::string_view text, const Visit &visit) {
  while (!text.empty()) {
    const Utf8Sequence next = FirstUtf8Character(text);
    const std::string_view bytes = text.substr(0, std::max<size_t>(next.length, 1));
    visit(bytes, next.length != 0 && !Contains(kUnprintable, next.value));
    text.remove_prefix(bytes.size());
  }
}

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

std::string Escape(std::string_view text) {
  std::string out;
  ForEachCharacter(text, [&out](std::string_view bytes, bool printable) {
    if (printable) {
      out.append(bytes == "\\" ? "\\\\" : bytes);
    } else {
      AppendHex(bytes, out);
    }
  });
  return out;
}

std::string EscapeLines(std::string_view text) {
  std::string out;
  ForEachCharacter(text, [&out](std::string_view bytes, bool printable) {
    if (printable || bytes == "\n" || bytes == "\t") {
      out.append(bytes);
    } else {
      AppendHex(bytes, out);
    }
  });
  return out;
}

bool IsPrintable(std::string_view text) {
  bool all = true;
  ForEachCharacter(text, [&all](std::string_view, bool printable) { all = all && printable; });
  return all;
}

std::string ToUtf8(std::string_view text) {
  std::string out;
  ForEachCharacter(text, [&out](std::string_view bytes, bool) {
    out.append(FirstUtf8Character(bytes).length == 0 ? std::string_view("\ufffd") : bytes);
  });
  return out;
}

std::string EscapeJson(std::string_view json) {
  std::string out;
  ForEachCharacter(json, [&out](std::string_view bytes, bool printable) {
    std::array<char, 8> escaped{};
    std::snprintf(escaped.data(), escaped.size(), "\\u%04x",
                  static_cast<unsigned>(FirstUtf8Character(bytes).value) & 0xffff);
    out.append(printable ? bytes : escaped.data());
  });
  return out;
}

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

std::string Join(const std::vector<std::string> &texts, std::string_view separator) {
  std::string joined;
  for (const std::string &text : texts) joined.append(joined.empty() ? "" : separator).append(text);
  return joined;
}

std::string_view FieldText(const char *field, size_t size) {
  return {field, ::strnlen(field, size)};
}

}  // namespace zor::ctl
