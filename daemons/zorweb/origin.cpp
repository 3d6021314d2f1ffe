#include "zorweb/origin.h"

#include <arpa/inet.h>

#include <algorithm>

#include "common/ascii.h"

namespace zor::web {
namespace {

bool IsPort(std::string_view text) {
  return text.empty() || (text.front() == ':' && text.size() > 1 && text.size() <= 6 &&
                          std::all_of(text.begin() + 1, text.end(), [](char c) { return c >= '0' && c <= '9'; }));
}

bool IsAddress(const std::string &host) {
  in6_addr address;
  if (host.size() > 2 && host.front() == '[') {
    return ::inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), &address) == 1;
  }
  return ::inet_pton(AF_INET, host.c_str(), &address) == 1;
}

}  // namespace

std::string HostIn(std::string_view header) {
  const size_t end = header.starts_with('[') ? header.find(']') : header.find(':');
  const size_t length = end == header.npos ? header.size() : end + (header.starts_with('[') ? 1 : 0);
  if (!IsPort(header.substr(length))) return {};
  std::string host(header.substr(0, length));
  std::transform(host.begin(), host.end(), host.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return host;
}

const char *ForeignBecause(const OriginHeaders &headers, bool usesTls, const std::vector<std::string> &names) {
  const std::string host = HostIn(headers.host);
  const bool isOurs = headers.hosts == 1 && !host.empty() &&
                      (IsAddress(host) || host == "localhost" || std::ranges::find(names, host) != names.end());
  if (!isOurs) return "This host name is not in the setting \"names\".";
  if (!headers.origin.empty() &&
      !EqualIgnoringCase(headers.origin, (usesTls ? "https://" : "http://") + headers.host)) {
    return "This request comes from another site.";
  }
  // A link to the page is harmless, and what the page loads comes from itself.
  const bool isForeign =
      !headers.fetchSite.empty() && headers.fetchSite != "same-origin" && headers.fetchSite != "none";
  if (isForeign && headers.fetchMode != "navigate") return "This request comes from another site.";
  return nullptr;
}

}  // namespace zor::web
