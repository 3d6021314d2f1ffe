// URL parsing, both encoders and the path codec: the input is a text.
#include <zor/status.h>
#include <zor/url.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "base/pieces.h"
#include "fuzz.h"

namespace {

using zor::fuzz::Require;

std::string Take(char *text) {
  Require(text != nullptr, "there is memory");
  const std::string copy = text;
  std::free(text);
  return copy;
}

std::string Unescape(const std::string &text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%') {
      plain += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      plain += text[i] == '+' ? ' ' : text[i];
    }
  }
  return plain;
}

void CheckEncoders(const std::string &text) {
  const std::string escaped = Take(ZOR_UTIL_GetEscapedUri(text.c_str()));
  Require(escaped.size() <= 3 * text.size() + 1, "escaping makes at most three characters of one");
  Require(Take(ZOR_UTIL_GetEscapedUri(escaped.c_str())) == escaped, "what is escaped stays as it is");
  Require(Unescape(Take(ZOR_UTIL_UrlEncode(text.c_str()))) == text, "a form value comes back");
}

struct Parts {
  int32_t protocol = -1;
  uint32_t port = 0;
  std::string host;
  std::string path;

  bool operator==(const Parts &) const = default;
};

bool Parse(const std::string &url, uint32_t loose, Parts *parts) {
  char *host = nullptr, *path = nullptr;
  if (ZOR_UTIL_ParseUrlEx(url.c_str(), &parts->protocol, &host, &parts->port, &path, loose) == 0) return false;
  parts->host = Take(host);
  if (path != nullptr) parts->path = Take(path);
  return true;
}

void CheckUrl(const std::string &url, uint32_t loose) {
  Parts parts, again;
  if (!Parse(url, loose, &parts)) return;
  Require(parts.port >= 1 && parts.port <= 65535, "a port is one");
  Require(parts.path.empty() || parts.path[0] == '/', "a path begins with a slash");
  const bool wasBracketed = parts.host.find_first_of("[:/") != std::string::npos;
  const char *protocol = ZOR_UTIL_GetProtocolTypeStrFromIdx(parts.protocol);
  Require(protocol != nullptr, "a protocol has a name");
  const std::string rebuilt =
      std::string(protocol) + "://" + parts.host + ":" + std::to_string(parts.port) + parts.path;
  Require(wasBracketed || (Parse(rebuilt, loose, &again) && again == parts), "a URL put together again is the same");
}

void CheckPath(const std::string &path) {
  std::vector<char> token(2 * path.size() + 16);
  const auto size = static_cast<uint32_t>(token.size());
  const uint32_t status = ZOR_UTIL_EncodePath(path.c_str(), token.data(), size);
  Require(status == ZOR_OK || path.size() > 8, "a short path fits");
  if (status != ZOR_OK || token[0] != '-') return;
  std::string expected = "/mnt";
  std::string_view rest = path;
  if (path.find("/mnt") != std::string::npos) rest.remove_prefix(4);
  for (std::string_view piece; !(piece = zor::NextPiece(rest, '/')).empty();) expected += "/" + std::string(piece);
  std::vector<char> decoded(expected.size() + 1);
  const auto exact = static_cast<uint32_t>(decoded.size());
  Require(ZOR_UTIL_DecodePath(token.data(), decoded.data(), exact) == ZOR_OK && expected == decoded.data(),
          "a path comes back");
  Require(ZOR_UTIL_DecodePath(token.data(), decoded.data(), exact - 1) != ZOR_OK, "a field that is short is refused");
}

void CheckToken(const std::string &token) {
  std::vector<char> path(32, 'x');
  ZOR_UTIL_DecodePath(token.c_str(), path.data(), 32);
  Require(std::find(path.begin(), path.end(), '\0') != path.end(), "a path is terminated");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string text(data, std::find(data, data + size, 0));
  CheckEncoders(text);
  for (const uint32_t loose : {0u, 1u}) CheckUrl(text, loose);
  CheckPath(text);
  CheckToken(text);
  return 0;
}
