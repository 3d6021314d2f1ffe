// What goes to a broker, and what comes from it.
#ifndef ZORBRIDGE_PUBLICATION_H
#define ZORBRIDGE_PUBLICATION_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zor::bridge {

struct Publication {
  std::string topic;
  std::string payload;  // JSON
  int qos = 1;
  bool retain = false;
  std::vector<std::pair<std::string, std::string>> properties;  // user properties
  std::string responseTo;                                       // of a request: the topic of its reply
  std::string correlation;                                      // of a request and of its reply
  std::optional<uint32_t> expirySeconds;
  uint64_t token = 0;  // 0: its acknowledgement is not reported, as with QoS 0
};

struct Delivery {
  std::string topic;
  std::string payload;
  std::string responseTopic;
  std::string correlation;
  std::optional<uint32_t> expirySeconds;
  bool retained = false;
  std::vector<std::pair<std::string, std::string>> properties;  // user properties
};

}  // namespace zor::bridge

#endif
