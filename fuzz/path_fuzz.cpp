// The path codec: the input is a path, or text that claims to be an encoded one.
#include <zor/status.h>
#include <zor/url.h>

#include <cstring>

#include "base/pieces.h"
#include "fuzz.h"

namespace {

using zor::fuzz::Require;

void CheckRoundTrip(const std::string &path) {
  std::vector<char> token(3 * path.size() + 16);
  const uint32_t status = ZOR_UTIL_EncodePath(path.c_str(), token.data(), static_cast<uint32_t>(token.size()));
  if (status != ZOR_OK || token[0] != '-') return;
  std::string expected = "/mnt";
  std::string_view rest = path;
  if (path.find("/mnt") != std::string::npos) rest.remove_prefix(4);
  for (std::string_view piece; !(piece = zor::NextPiece(rest, '/')).empty();) expected += "/" + std::string(piece);
  std::vector<char> decoded(expected.size() + 1);
  const auto exact = static_cast<uint32_t>(decoded.size());
  Require(ZOR_UTIL_DecodePath(token.data(), decoded.data(), exact - 1) != ZOR_OK, "a short field is refused");
  Require(ZOR_UTIL_DecodePath(token.data(), decoded.data(), exact) == ZOR_OK && expected == decoded.data(),
          "a path comes back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string path = zor::fuzz::TextOf(data, size);
  std::array<char, 32> decoded;
  ZOR_UTIL_DecodePath(path.c_str(), decoded.data(), decoded.size());
  Require(std::memchr(decoded.data(), '\0', decoded.size()) != nullptr, "a path is terminated");
  CheckRoundTrip(path);
  return 0;
}
