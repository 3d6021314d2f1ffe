// What the bus has for the bridge: events, copies of log records, and the message server's notices. A handler copies
// what is to go out to the uplink and does nothing else.
#ifndef ZORBRIDGE_INTAKE_H
#define ZORBRIDGE_INTAKE_H

#include <zor/msg_wire.h>

#include <cstdint>
#include <functional>
#include <string_view>

#include "zorbridge/settings.h"
#include "zorbridge/uplink.h"

namespace zor::bridge {

class Intake {
 public:
  // Is given the number of events that did not reach the bridge.
  using OnMissed = std::function<void(std::uint64_t events)>;

  Intake(const BridgeSettings &settings, Uplink &uplink, OnMissed onMissed);
  Intake(const Intake &) = delete;
  Intake &operator=(const Intake &) = delete;
  ~Intake();

  // On the bus: subscribes, and takes all messages from now on.
  void Join();
  // On the bus again, where subscriptions have been repeated.
  void Rejoin();

 private:
  static void OnMessage(ZOR_MSG_HEAD *message, std::uint32_t length);
  static void OnAnyLength(ZOR_MSG_HEAD *message);
  void TakeMessages();
  void Take(ZOR_MSG_HEAD &message);
  void TakeEvent(const ZOR_MSG_HEAD &message);
  void TakeLog(const ZOR_MSG_HEAD &message);
  void TakeGap(std::string_view body);

  const BridgeSettings &settings_;
  Uplink &uplink_;
  OnMissed onMissed_;
};

}  // namespace zor::bridge

#endif
