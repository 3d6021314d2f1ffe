// URL parsing and both encoders: the input is a text.
#include <zor/url.h>

#include <tuple>

#include "base/alloc.h"
#include "fuzz.h"

namespace {

using zor::fuzz::Require;

std::string Take(char *text) {
  const zor::MallocPtr<char> owned(text);
  return text == nullptr ? "" : text;
}

void CheckEncoders(const std::string &text) {
  const std::string escaped = Take(ZOR_UTIL_GetEscapedUri(text.c_str()));
  Require(Take(ZOR_UTIL_GetEscapedUri(escaped.c_str())) == escaped, "what is escaped stays as it is");
  Take(ZOR_UTIL_UrlEncode(text.c_str()));
}

// Protocol, host, port and path; port 0 when the URL is refused.
using Parts = std::tuple<int32_t, std::string, uint32_t, std::string>;

Parts Parse(const std::string &url, uint32_t loose) {
  int32_t protocol = -1;
  uint32_t port = 0;
  char *host = nullptr, *path = nullptr;
  if (ZOR_UTIL_ParseUrlEx(url.c_str(), &protocol, &host, &port, &path, loose) == 0) return {};
  Require(port >= 1 && port <= 65535, "a port is one");
  Require(path == nullptr || *path == '/', "a path begins with a slash");
  return {protocol, Take(host), port, Take(path)};
}

void CheckUrl(const std::string &url, uint32_t loose) {
  const Parts parts = Parse(url, loose);
  const auto &[protocol, host, port, path] = parts;
  if (port == 0 || host.find_first_of("[:/") != std::string::npos) return;
  const std::string origin = ZOR_UTIL_GetProtocolTypeStrFromIdx(protocol) + ("://" + host);
  Require(Parse(origin + ":" + std::to_string(port) + path, loose) == parts, "a URL put together again is the same");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string text = zor::fuzz::TextOf(data, size);
  CheckEncoders(text);
  for (const uint32_t loose : {0u, 1u}) CheckUrl(text, loose);
  return 0;
}
