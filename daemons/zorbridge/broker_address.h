// Where a broker is.
#ifndef ZORBRIDGE_BROKER_ADDRESS_H
#define ZORBRIDGE_BROKER_ADDRESS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zor::bridge {

struct BrokerAddress {
  bool tls = false;
  std::string host;  // a name or the text of an IP address, without brackets
  uint16_t port = 0;

  // mqtt://HOST[:1883] or mqtts://HOST[:8883]; an IPv6 address stands in brackets. None, with the reason, if malformed.
  static std::optional<BrokerAddress> Parse(std::string_view url, std::string *problem);
  // HOST:PORT
  std::string Text() const;
  // The host is an address, which need not be looked up.
  bool isLiteral() const;

  bool operator==(const BrokerAddress &) const = default;
};

}  // namespace zor::bridge

#endif
