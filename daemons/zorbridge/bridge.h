// The bridge: joins the queue, the line and the bus.
#ifndef ZORBRIDGE_BRIDGE_H
#define ZORBRIDGE_BRIDGE_H

#include <string>

#include "programs/bus_daemon.h"
#include "programs/exit_code.h"
#include "programs/problem_log.h"
#include "programs/stop_signal.h"
#include "zorbridge/broker_link.h"
#include "zorbridge/intake.h"
#include "zorbridge/outbox.h"
#include "zorbridge/requests.h"
#include "zorbridge/settings.h"
#include "zorbridge/status.h"
#include "zorbridge/trace_tap.h"
#include "zorbridge/uplink.h"

namespace zor::bridge {

inline constexpr char kBusName[] = "bridge";

class Bridge : private LinkListener, private daemon::BusListener {
 public:
  // The settings name the gateway; the queue is open.
  Bridge(const BridgeSettings &settings, Outbox &outbox, daemon::ProblemLog &problems, bool verbose);

  // Serves until a signal arrives; then the broker is told, and what waits is written to the queue's file.
  daemon::ExitCode Run(const daemon::StopSignal &stop);

 private:
  // The line.
  void OnConnected() override;
  void OnDisconnected(const std::string &why) override;
  void OnDelivery(const Delivery &delivery) override { requests_.OnDelivery(delivery); }
  void OnAcknowledged(uint64_t token) override { uplink_.OnAcknowledged(token); }
  void OnRoom() override { uplink_.OnRoom(); }
  void OnStopped() override;

  // The bus.
  daemon::ExitCode OnJoined() override;
  void OnBusLost() override { status_.OnBusLost(); }
  void OnRejoined() override;
  void OnLeaving() override;

  BrokerLink::Options LinkOptions() const;
  // Ends the bridge when another one has its name on the bus.
  bool IsAlone() const;
  std::string Presence(bool online, const char *reason, const std::string &since) const;
  void SayFarewell();

  const BridgeSettings &settings_;
  daemon::ProblemLog &problems_;
  std::string base_;     // PREFIX/GATEWAY
  std::string started_;  // when
  Outbox &outbox_;
  Uplink uplink_;
  BrokerLink link_;
  Requests requests_;
  Intake intake_;
  TraceTap trace_;
  Status status_;
  bool leaving_ = false;
};

}  // namespace zor::bridge

#endif
