// Bytes as base64.
#ifndef PROGRAMS_MESSAGES_BASE64_H
#define PROGRAMS_MESSAGES_BASE64_H

#include <optional>
#include <string>
#include <string_view>

namespace zor::messages {

std::string ToBase64(std::string_view bytes);

// None for a text that is not base64, padding included; white space is skipped.
std::optional<std::string> ParseBase64(const std::string &text);

}  // namespace zor::messages

#endif
