// Parses URLs. Host, port and path are positions in the text, which is not changed: the ':' of the port may be inside
// the path, which still extends to the end.
#include <arpa/inet.h>
#include <zor/url.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "base/alloc.h"

namespace {

using zor::MallocPtr;
constexpr std::size_t kNowhere = std::string_view::npos;

// What follows "://", and where its parts are.
struct Authority {
  std::string_view text;  // NUL-terminated, to the end of the URL
  bool isBracketed;
  std::size_t hostEnd;  // of a bracketed host: at its ']'
  std::size_t portSeparator;
  std::size_t pathStart;
};

std::optional<Authority> FindParts(std::string_view text, bool loose) {
  const bool opensBracket = !text.empty() && text.front() == '[';
  const std::size_t bracket = opensBracket ? text.find(']') : kNowhere;
  const bool isBracketed = bracket != kNowhere;
  if (opensBracket && !isBracketed && !loose) return std::nullopt;
  const std::size_t searchStart = isBracketed ? bracket : 0;
  // Searched for in the path as well: such a URL fails for its port, unless a number follows.
  const std::size_t portSeparator = text.find(':', searchStart);
  const std::size_t pathStart = text.find('/', searchStart);
  const std::size_t hostEnd = isBracketed ? bracket : std::min({portSeparator, pathStart, text.size()});
  return Authority{text, isBracketed, hostEnd, portSeparator, pathStart};
}

// The index of the protocol in front of "://"; -1 when it is unknown.
int32_t ProtocolOf(std::string_view name) {
  const MallocPtr<char> terminated(::strndup(name.data(), name.size()));
  return terminated == nullptr ? -1 : ZOR_UTIL_GetProtocolTypeIdxFromStr(terminated.get());
}

// The port of the URL or its protocol; nothing outside 1 to 65535. What follows the number is ignored.
std::optional<uint32_t> PortOf(const Authority &authority, int32_t protocol) {
  constexpr int64_t kMaxPort = 65535;
  int64_t port = ZOR_UTIL_GetDftPortByProtocolIdx(protocol);
  if (authority.portSeparator != kNowhere) {
    port = std::strtol(authority.text.data() + authority.portSeparator + 1, nullptr, 10);
  }
  if (port < 1 || port > kMaxPort) return std::nullopt;
  return static_cast<uint32_t>(port);
}

bool IsIpv6(std::string_view text) {
  std::array<char, INET6_ADDRSTRLEN> terminated = {};
  in6_addr address;
  if (text.size() >= terminated.size()) return false;
  std::copy(text.begin(), text.end(), terminated.begin());
  return ::inet_pton(AF_INET6, terminated.data(), &address) == 1;
}

std::string_view HostOf(const Authority &authority, bool loose) {
  if (!authority.isBracketed) return authority.text.substr(0, authority.hostEnd);
  const std::string_view inside = authority.text.substr(1, authority.hostEnd - 1);
  return loose && !IsIpv6(inside) ? authority.text.substr(0, authority.hostEnd + 1) : inside;
}

// Stores both host and path, or neither.
uint32_t StoreTexts(const Authority &authority, bool loose, char **host, char **path) {
  MallocPtr<char> hostCopy;
  if (host != nullptr) {
    const std::string_view text = HostOf(authority, loose);
    hostCopy.reset(::strndup(text.data(), text.size()));
    *host = nullptr;
    if (hostCopy == nullptr) return 0;
  }
  if (path != nullptr) {
    *path = nullptr;
    if (authority.pathStart != kNowhere) {
      *path = ZOR_UTIL_GetEscapedUri(authority.text.data() + authority.pathStart);
      if (*path == nullptr) return 0;
    }
  }
  if (host != nullptr) *host = hostCopy.release();
  return 1;
}

}  // namespace

uint32_t ZOR_UTIL_ParseUrlEx(const char *url, int32_t *protocol, char **host, uint32_t *port, char **path,
                             uint32_t loose) {
  constexpr std::string_view kSeparator = "://";
  if (url == nullptr) return 0;
  const std::string_view text(url + std::strspn(url, " \t\n\v\f\r"));
  const std::size_t separator = text.find(kSeparator);
  if (separator == kNowhere) return 0;
  const int32_t index = ProtocolOf(text.substr(0, separator));
  if (index < 0) return 0;
  if (protocol != nullptr) *protocol = index;
  const std::optional<Authority> authority = FindParts(text.substr(separator + kSeparator.size()), loose != 0);
  if (!authority) return 0;
  const std::optional<uint32_t> number = PortOf(*authority, index);
  if (!number) return 0;
  if (port != nullptr) *port = *number;
  return StoreTexts(*authority, loose != 0, host, path);
}

uint32_t ZOR_UTIL_ParseUrl(const char *url, int32_t *protocol, char **host, uint32_t *port, char **path) {
  return ZOR_UTIL_ParseUrlEx(url, protocol, host, port, path, 0);
}
