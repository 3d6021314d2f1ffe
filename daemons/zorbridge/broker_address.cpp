#include "zorbridge/broker_address.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <charconv>

namespace zor::bridge {
namespace {

constexpr std::size_t kMostHost = 253;

bool IsIpv6(const std::string &text) {
  in6_addr address;
  return ::inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

bool IsHostByte(char byte) {
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') || byte == '-' ||
         byte == '.' || byte == '_';
}

// As far as it matters for a lookup and for the name in a certificate.
bool IsHostName(std::string_view text) {
  return !text.empty() && text.size() <= kMostHost && text.front() != '-' && text.front() != '.' &&
         std::all_of(text.begin(), text.end(), IsHostByte);
}

bool ParsePort(std::string_view text, uint16_t *port) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *port);
  return error == std::errc() && end == text.data() + text.size() && *port != 0;
}

struct Scheme {
  std::string_view prefix;
  bool tls;
  uint16_t port;
};
constexpr Scheme kSchemes[] = {{"mqtt://", false, 1883}, {"mqtts://", true, 8883}};

}  // namespace

std::optional<BrokerAddress> BrokerAddress::Parse(std::string_view url, std::string *problem) {
  const auto *scheme = std::find_if(std::begin(kSchemes), std::end(kSchemes),
                                    [url](const Scheme &each) { return url.starts_with(each.prefix); });
  if (scheme == std::end(kSchemes)) {
    *problem = "it must begin with mqtt:// or mqtts://";
    return std::nullopt;
  }
  BrokerAddress address = {scheme->tls, {}, scheme->port};
  std::string_view rest = url.substr(scheme->prefix.size());
  if (rest.ends_with('/')) rest.remove_suffix(1);
  const bool bracketed = rest.starts_with('[');
  const std::size_t end = bracketed ? rest.find(']') : rest.find(':');
  if (bracketed && end == std::string_view::npos) {
    *problem = "the bracket is not closed";
    return std::nullopt;
  }
  address.host = rest.substr(bracketed ? 1 : 0, bracketed ? end - 1 : end);
  rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + (bracketed ? 1 : 0));
  if (bracketed ? !IsIpv6(address.host) : !IsHostName(address.host)) {
    *problem = "after the scheme it has no name of a host, no IPv4 address, and no IPv6 address in brackets";
    return std::nullopt;
  }
  if (!rest.empty() && (rest.front() != ':' || !ParsePort(rest.substr(1), &address.port))) {
    *problem = "after the host only a port from 1 to 65535 may follow";
    return std::nullopt;
  }
  return address;
}

std::string BrokerAddress::Text() const {
  const bool brackets = host.find(':') != std::string::npos;
  return (brackets ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

bool BrokerAddress::isLiteral() const {
  in_addr address;
  return ::inet_pton(AF_INET, host.c_str(), &address) == 1 || IsIpv6(host);
}

}  // namespace zor::bridge
