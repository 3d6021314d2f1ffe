// The status document: what is unwell, the queue, the line, and the message server's list of its clients. It is
// published at intervals, and at once when the line or the bus is back or the bus has gone.
#ifndef ZORBRIDGE_STATUS_H
#define ZORBRIDGE_STATUS_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "zorbridge/broker_link.h"
#include "zorbridge/outbox.h"
#include "zorbridge/requests.h"
#include "zorbridge/settings.h"
#include "zorbridge/uplink.h"

namespace zor::bridge {

class Status {
 public:
  // The time on the bus within which the list must come.
  static constexpr std::chrono::milliseconds kListTime{3000};

  Status(const BridgeSettings &settings, Uplink &uplink, const Outbox &outbox, const BrokerLink &link,
         const Requests &requests);

  // Begins the interval. False without memory.
  bool Start();
  void Publish();
  // Makes the document; `then` is called once, now or later.
  void Make(const std::function<void(std::string document)> &then);

  void OnBusLost();
  void OnRejoined();
  // The line has ended, for this reason.
  void OnDisconnected(const std::string &why);
  // The message server has told of events that the bridge has missed.
  void OnMissed(uint64_t events) { missed_ += events; }

 private:
  using Json = nlohmann::ordered_json;

  std::string Document(const Json &bus, const std::optional<std::string> &problem) const;
  std::vector<std::string> Unwell(const Json &bus, const std::optional<std::string> &problem) const;

  const BridgeSettings &settings_;
  Uplink &uplink_;
  const Outbox &outbox_;
  const BrokerLink &link_;
  const Requests &requests_;
  std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
  bool busLost_ = false;
  uint64_t missed_ = 0;
  std::string lineEnd_;  // why the line ended last
  std::optional<std::chrono::steady_clock::time_point> lineEndAt_;
};

}  // namespace zor::bridge

#endif
