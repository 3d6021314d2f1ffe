// Encodes paths of USB storage as single tokens without characters that a transport would interpret.
#include <zor/platform/text.h>
#include <zor/status.h>
#include <zor/url.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "base/alloc.h"
#include "base/pieces.h"

namespace {

using zor::MallocPtr;

constexpr std::string_view kMountPoint = "/mnt";

// A text that grows in the caller's field and is always terminated.
class Output {
 public:
  Output(char *field, std::size_t size) noexcept : field_(field), size_(size) { field_[0] = '\0'; }

  // Appends a text, or nothing when it does not fit with its NUL.
  bool Append(std::string_view text) noexcept {
    if (text.size() >= size_ - used_) return false;
    used_ += text.copy(field_ + used_, text.size());
    field_[used_] = '\0';
    return true;
  }

 private:
  char *field_;
  std::size_t size_;
  std::size_t used_ = 0;
};

bool AppendEncoded(Output &output, std::string_view piece) {
  const MallocPtr<char> encoded(ZOR_UTIL_Base64Encode(piece.data(), static_cast<uint32_t>(piece.size())));
  return encoded != nullptr && *encoded != '\0' && output.Append("-") && output.Append(encoded.get());
}

// A decoded zero byte ends the piece.
bool AppendDecoded(Output &output, std::string_view piece) {
  const MallocPtr<char> terminated(::strndup(piece.data(), piece.size()));
  const MallocPtr<char> decoded(ZOR_UTIL_Base64Decode(terminated.get(), nullptr));
  return decoded != nullptr && *decoded != '\0' && output.Append("/") && output.Append(decoded.get());
}

}  // namespace

uint32_t ZOR_UTIL_EncodePath(const char *path, char *output, uint32_t size) {
  if (path == nullptr || output == nullptr || size == 0) return ZOR_E_ARGUMENT;
  Output token(output, size);
  std::string_view rest(path);
  // The prefix is assumed to come first, wherever it was found.
  if (rest.find(kMountPoint) != std::string_view::npos) rest.remove_prefix(kMountPoint.size());
  if (!rest.empty() && rest.front() == '/') rest.remove_prefix(1);
  if (rest.empty()) return token.Append(kMountPoint) ? ZOR_OK : ZOR_E_ARGUMENT;
  for (std::string_view piece; !(piece = zor::NextPiece(rest, '/')).empty();) {
    if (!AppendEncoded(token, piece)) return ZOR_E_ARGUMENT;
  }
  return ZOR_OK;
}

uint32_t ZOR_UTIL_DecodePath(const char *token, char *output, uint32_t size) {
  if (token == nullptr || output == nullptr || size == 0) return ZOR_E_ARGUMENT;
  Output path(output, size);
  const MallocPtr<char> copy(::strdup(token));
  if (copy == nullptr) return ZOR_E_NO_MEMORY;
  const std::size_t length = std::strlen(copy.get());
  // The transport may have turned '+' into a space.
  std::replace(copy.get(), copy.get() + length, ' ', '+');
  std::string_view rest(copy.get(), length);
  if (rest.empty() || rest.front() != '-' || !path.Append(kMountPoint)) return ZOR_E_ARGUMENT;
  for (std::string_view piece; !(piece = zor::NextPiece(rest, '-')).empty();) {
    if (!AppendDecoded(path, piece)) return ZOR_E_ARGUMENT;
  }
  return ZOR_OK;
}
