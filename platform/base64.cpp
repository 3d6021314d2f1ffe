// The C library's own codec, which its resolver uses for keys.
#include <netinet/in.h>
#include <resolv.h>
#include <zor/platform/text.h>

#include <cstdlib>
#include <cstring>

#include "common/malloc_ptr.h"

char *ZOR_UTIL_Base64Encode(const void *data, uint32_t length) {
  if (data == nullptr) return nullptr;
  const size_t size = (static_cast<size_t>(length) + 2) / 3 * 4 + 1;
  zor::MallocPtr<char> text(static_cast<char *>(std::malloc(size)));
  if (text == nullptr) return nullptr;
  const int encoded = ::b64_ntop(static_cast<const unsigned char *>(data), length, text.get(), size);
  return encoded < 0 ? nullptr : text.release();
}

char *ZOR_UTIL_Base64Decode(const char *text, uint32_t *length) {
  if (length != nullptr) *length = 0;
  if (text == nullptr) return nullptr;
  // One byte more than there can be: the codec touches the byte behind the last.
  const size_t size = std::strlen(text) / 4 * 3 + 4;
  zor::MallocPtr<char> bytes(static_cast<char *>(std::malloc(size)));
  if (bytes == nullptr) return nullptr;
  const int decoded = ::b64_pton(text, reinterpret_cast<unsigned char *>(bytes.get()), size - 1);
  if (decoded < 0) return nullptr;
  bytes.get()[decoded] = '\0';
  if (length != nullptr) *length = static_cast<uint32_t>(decoded);
  return bytes.release();
}
