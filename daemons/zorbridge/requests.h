// Requests from outside: what the settings allow is passed on to daemons of the bus, or served by the bridge itself,
// and every request that can be answered is, exactly once: with the reply, or with the reason why there is none.
//
// A request whose time is over before it starts is not started. The time is the broker's message expiry, so a clock
// that is wrong at either end does not matter. The broker may deliver a request twice, and it is served once.
#ifndef ZORBRIDGE_REQUESTS_H
#define ZORBRIDGE_REQUESTS_H

#include <zor/msg_wire.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "programs/bus_request.h"
#include "programs/problem_log.h"
#include "zorbridge/broker_link.h"
#include "zorbridge/settings.h"
#include "zorbridge/uplink.h"

namespace zor::bridge {

class Requests {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr char kOverBefore[] = "its time was over before it started";
  static std::chrono::milliseconds TimeUntil(Clock::time_point deadline) {
    return std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  }

  // A request of the bridge itself that is being served.
  struct Own {
    std::string payload;
    Clock::time_point deadline;
    // Exactly one of them is called, once, now or later.
    std::function<void(Members members)> done;
    std::function<void(std::string_view result, std::string reason)> failed;
  };
  using Serve = std::function<void(Own)>;
  struct Figures {
    uint64_t served = 0;   // answered "done"
    uint64_t failed = 0;   // answered otherwise
    uint64_t dropped = 0;  // retained, without a place for the answer, or the second of a double
  };

  // The log, which may be null, gets a line for each request.
  Requests(const BridgeSettings &settings, Uplink &uplink, daemon::ProblemLog *log);

  // Names a request of the bridge itself.
  void Add(std::string name, Serve serve) { own_[std::move(name)] = std::move(serve); }

  void OnDelivery(const Delivery &delivery);
  // Those that wait can no longer be answered: their line is gone. On the bus they still count.
  void OnDisconnected();

  const Figures &figures() const { return figures_; }

 private:
  // One that waits for its answer.
  struct Pending {
    std::string responseTopic;  // empty: it cannot be answered
    std::string correlation;
    Clock::time_point deadline;
    std::string daemon;
    uint32_t type = 0;
  };

  bool CanBeAnswered(const Delivery &delivery) const;
  bool IsDouble(const Delivery &delivery);
  // Whether another one may be served now.
  bool TakeTurn();
  void ServeOwn(uint64_t id, const std::string &name, const Delivery &delivery);
  void ServeByDaemon(uint64_t id, const std::string &typeText, const Delivery &delivery);
  // Asks whether the daemon is there: an absent one is to be told from one that ends meanwhile.
  void Look(uint64_t id, uint32_t data, std::string body);
  void Pass(uint64_t id, uint32_t data, std::string body);
  void OnReply(uint64_t id, const ZOR_MSG_HEAD *reply, daemon::NoReply why);
  void Done(uint64_t id, const Members &members);
  void Fail(uint64_t id, std::string_view result, std::string_view reason);
  void Answer(uint64_t id, std::string_view result, const Members &members);

  const BridgeSettings &settings_;
  Uplink &uplink_;
  daemon::ProblemLog *log_;
  std::map<std::string, Serve, std::less<>> own_;
  std::map<uint64_t, Pending> pending_;
  uint64_t lastId_ = 0;
  std::deque<std::string> remembered_;  // response topics and correlations of the latest
  double turns_ = 0;                    // that may be taken now
  Clock::time_point turnsAt_{};
  Figures figures_;
};

}  // namespace zor::bridge

#endif
