#include "programs/json.h"

#include <algorithm>

#include "common/utf8.h"

namespace zor::daemon {
namespace {

struct TextDeleter {
  void operator()(char *text) const { cJSON_free(text); }
};

// The length of the character at the start of the text; 0 for a malformed or control character.
size_t CharacterLength(std::string_view text) {
  const Utf8Sequence first = FirstUtf8Character(text);
  const bool isControl = first.value < 0x20 || (first.value >= 0x7f && first.value <= 0x9f);
  return isControl ? 0 : first.length;
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

void AddText(cJSON *object, const char *name, std::string_view text) {
  cJSON_AddStringToObject(object, name, CleanText(text).c_str());
}

}  // namespace zor::daemon
