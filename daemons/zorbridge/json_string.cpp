#include "zorbridge/json_string.h"

#include <array>
#include <cstdio>

namespace zor::bridge {

void AppendJsonString(std::string &json, std::string_view text) {
  json += '"';
  for (const char character : text) {
    const auto code = static_cast<unsigned char>(character);
    if (code < ' ') {
      std::array<char, 8> escaped;
      std::snprintf(escaped.data(), escaped.size(), "\\u%04x", unsigned{code});
      json += escaped.data();
      continue;
    }
    if (character == '"' || character == '\\') json += '\\';
    json += character;
  }
  json += '"';
}

}  // namespace zor::bridge
