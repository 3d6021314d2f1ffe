#include "msgsvr/json.h"

#include <algorithm>
#include <cstdint>

namespace zor::msgsvr {
namespace {

struct TextDeleter {
  void operator()(char *text) const { cJSON_free(text); }
};

// The first byte of a character, what its second may be, and how long it is: no control characters, overlong forms or
// surrogates.
struct Form {
  uint8_t firstLeast, firstMost, secondLeast, secondMost;
  size_t length;
};

constexpr Form kForms[] = {
    {0x20, 0x7e, 0, 0, 1},       {0xc2, 0xc2, 0xa0, 0xbf, 2}, {0xc3, 0xdf, 0x80, 0xbf, 2}, {0xe0, 0xe0, 0xa0, 0xbf, 3},
    {0xe1, 0xec, 0x80, 0xbf, 3}, {0xed, 0xed, 0x80, 0x9f, 3}, {0xee, 0xef, 0x80, 0xbf, 3}, {0xf0, 0xf0, 0x90, 0xbf, 4},
    {0xf1, 0xf3, 0x80, 0xbf, 4}, {0xf4, 0xf4, 0x80, 0x8f, 4},
};

uint8_t Byte(char character) {
  return static_cast<uint8_t>(character);
}

// The length of the character at the start of the text; 0 when there is none.
size_t CharacterLength(std::string_view text) {
  for (const Form &form : kForms) {
    if (Byte(text[0]) < form.firstLeast || Byte(text[0]) > form.firstMost) continue;
    if (text.size() < form.length) return 0;
    if (form.length > 1 && (Byte(text[1]) < form.secondLeast || Byte(text[1]) > form.secondMost)) return 0;
    const std::string_view rest = text.substr(1, form.length - 1);
    return std::all_of(rest.begin(), rest.end(), [](char c) { return (Byte(c) & 0xc0) == 0x80; }) ? form.length : 0;
  }
  return 0;
}

}  // namespace

std::string JsonText(const cJSON *value) {
  const std::unique_ptr<char, TextDeleter> text(cJSON_PrintUnformatted(value));
  return text == nullptr ? std::string() : std::string(text.get());
}

std::string CleanText(std::string_view text) {
  std::string clean;
  while (!text.empty()) {
    const size_t length = CharacterLength(text);
    clean += length == 0 ? std::string_view("?") : text.substr(0, length);
    text.remove_prefix(std::max<size_t>(length, 1));
  }
  return clean;
}

}  // namespace zor::msgsvr
