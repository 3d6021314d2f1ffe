#include "programs/messages/text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "common/utf8.h"
#include "programs/messages/hex.h"

namespace zor::messages {
namespace {

struct Range {
  char32_t first;
  char32_t last;
};

// Controls of both kinds, line and paragraph separators, marks and overrides of the direction of writing.
constexpr std::array kUnprintable = {Range{0, 0x1f}, Range{0x7f, 0x9f}, Range{0x200e, 0x200f}, Range{0x2028, 0x202e},
                                     Range{0x2066, 0x2069}};

bool IsUnprintable(char32_t character) {
  return std::any_of(kUnprintable.begin(), kUnprintable.end(),
                     [=](const Range &range) { return character >= range.first && character <= range.last; });
}

void AppendHex(std::string_view bytes, std::string &out) {
  for (const char &each : bytes) out.append("\\x").append(ToHex({&each, 1}));
}

// ASCII that is shown as it is.
bool IsPlain(char each) {
  return each >= ' ' && each <= '~' && each != '\\';
}

// Visits the bytes of each character, and whether it is valid and printable. Plain text comes in runs: most text is.
template <class Visit>
void ForEachCharacter(std::string_view text, const Visit &visit) {
  while (!text.empty()) {
    const auto run = static_cast<size_t>(std::find_if_not(text.begin(), text.end(), IsPlain) - text.begin());
    if (run > 0) {
      visit(text.substr(0, run), true);
      text.remove_prefix(run);
      continue;
    }
    const Utf8Sequence next = FirstUtf8Character(text);
    const std::string_view bytes = text.substr(0, std::max<size_t>(next.length, 1));
    visit(bytes, next.length != 0 && !IsUnprintable(next.value));
    text.remove_prefix(bytes.size());
  }
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

std::string_view CutText(std::string_view text, size_t bytes) {
  if (text.size() <= bytes) return text;
  while (bytes > 0 && IsUtf8Continuation(text[bytes])) --bytes;
  return text.substr(0, bytes);
}

std::string EscapeJson(std::string_view json) {
  std::string out;
  ForEachCharacter(json, [&out](std::string_view bytes, bool printable) {
    if (printable) {
      out.append(bytes);
      return;
    }
    std::array<char, 8> escaped{};
    std::snprintf(escaped.data(), escaped.size(), "\\u%04x",
                  static_cast<unsigned>(FirstUtf8Character(bytes).value) & 0xffff);
    out.append(escaped.data());
  });
  return out;
}

std::string Join(const std::vector<std::string> &texts, std::string_view separator) {
  std::string joined;
  for (const std::string &text : texts) joined.append(joined.empty() ? "" : separator).append(text);
  return joined;
}

std::string_view FieldText(const char *field, size_t size) {
  return {field, ::strnlen(field, size)};
}

}  // namespace zor::messages
