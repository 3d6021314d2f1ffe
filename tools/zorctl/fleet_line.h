// The tool's connection to a fleet's broker: MQTT 5, one session with a clean start and a name of its own, no thread.
// A wait reads the socket, as with the bus. Every function throws Failure with a text for the user.
//
// The code behind it is a module that is loaded when a verb works on a fleet: it brings the MQTT and TLS libraries,
// which would make each start of the tool a fifth longer, and which a gateway need not have.
#ifndef ZORCTL_FLEET_LINE_H
#define ZORCTL_FLEET_LINE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "programs/stop_signal.h"
#include "zorctl/deadline.h"
#include "zorctl/fleet_access.h"

namespace zor::ctl {

// A message to publish, with QoS 1.
struct FleetMessage {
  std::string topic;
  std::string payload;
  std::string responseTopic;  // of a request; empty: none
  std::string correlation;
  uint32_t expirySeconds = 0;  // 0: none
};

struct FleetDelivery {
  std::string topic;
  std::string payload;
  std::string correlation;
  std::string refusal;  // not empty: the broker's reason for not delivering the request with this correlation
  bool retained = false;
};

class FleetLine {
 public:
  virtual ~FleetLine() = default;

  // Returns when the broker has granted all filters.
  virtual void Subscribe(const std::vector<std::string> &filters, int qos, const Deadline &deadline) = 0;
  virtual void Publish(const FleetMessage &message) = 0;
  // The next delivery, also after the deadline if it is there already. No value at the deadline or when the user stops
  // the verb.
  virtual std::optional<FleetDelivery> Receive(const Deadline &deadline) = 0;
  // For verbs that run for long: when the user presses Ctrl-C, Receive returns no value and stopped() is true.
  virtual void StopWith(daemon::StopSignal &signal) = 0;
  virtual bool stopped() const = 0;
  // A name that no other session at the broker has.
  virtual const std::string &name() const = 0;
};

// Loads the module and connects.
std::unique_ptr<FleetLine> OpenFleetLine(const FleetAccess &access, const Deadline &deadline);

// What the module exports, by this name.
using FleetLineOpener = FleetLine *(const FleetAccess &, const Deadline &);
inline constexpr char kFleetLineOpener[] = "ZorOpenFleetLine";
// The same, for programs that are linked with its code.
std::unique_ptr<FleetLine> OpenMqttLine(const FleetAccess &access, const Deadline &deadline);

}  // namespace zor::ctl

#endif
