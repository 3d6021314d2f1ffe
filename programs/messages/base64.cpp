#include "programs/messages/base64.h"

#include <zor/platform/text.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "common/malloc_ptr.h"

namespace zor::messages {

std::string ToBase64(std::string_view bytes) {
  if (bytes.empty()) return {};
  const MallocPtr<char> text(ZOR_UTIL_Base64Encode(bytes.data(), static_cast<uint32_t>(bytes.size())));
  if (text == nullptr) throw std::bad_alloc();
  return text.get();
}

std::optional<std::string> ParseBase64(const std::string &text) {
  if (std::strlen(text.c_str()) != text.size()) return std::nullopt;
  uint32_t length = 0;
  const MallocPtr<char> bytes(ZOR_UTIL_Base64Decode(text.c_str(), &length));
  if (bytes == nullptr) return std::nullopt;
  return std::string(bytes.get(), length);
}

}  // namespace zor::messages
