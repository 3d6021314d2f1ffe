// A gateway's bridge without a gateway: its line, its pauses, its will and its publications, with events that it makes
// up.
//
// It talks through the bridge's own session (zorbridge/session.h) and waits with the bridge's own pauses, so that a
// broker cannot tell it from a bridge. Its events are numbers that have not been acknowledged yet, so a queue costs it
// nothing.
#ifndef BENCH_FLEET_PLAYER_H
#define BENCH_FLEET_PLAYER_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "zorbridge/retry.h"
#include "zorbridge/session.h"

namespace zor::fleet {

using Clock = std::chrono::steady_clock;

struct Script {
  uint16_t port = 0;
  std::string prefix;
  Clock::duration eventInterval{};  // 0: none
  Clock::time_point eventsBegin, eventsEnd;
  Clock::duration statusInterval{};
  Clock::duration connectTime = std::chrono::seconds(20);
  uint16_t keepAliveSeconds = 90;
  uint32_t inFlight = 64;
  bridge::Retry::Options retry;
  std::shared_ptr<const bridge::TlsContext> tls;  // null: none
};

// Of all players.
struct Totals {
  uint64_t connected = 0;  // now; the others only grow
  uint64_t made = 0;       // events
  uint64_t acknowledged = 0;
  uint64_t answered = 0;  // requests
  uint64_t attempts = 0;
  uint64_t unreached = 0;  // attempts that ended without an answer of the broker
  uint64_t refused = 0;    // by the broker
  uint64_t lost = 0;       // lines
};

class Player {
 public:
  Player(const Script &script, Totals &totals, const std::string &gateway);

  // Does what is due, and says when something is next.
  Clock::time_point Work(Clock::time_point now);
  void OnReady(bool readable, bool writable);
  // Without a farewell and without more attempts: the last word is the will's.
  bool hasFinished() const { return made_ == acknowledged_ && ended_; }

  // -1: there is no connection.
  int socket() const { return session_ == nullptr ? -1 : session_->socket(); }
  bool wantsToWrite() const { return session_ != nullptr && session_->wantsToWrite(); }

 private:
  void Attempt(Clock::time_point now);
  void MakeEvents(Clock::time_point now);
  void Take();
  void OnAccepted();
  void OnPublished(int id);
  void OnDelivery(const bridge::Delivery &delivery);
  void Pump();
  void Publish(bridge::Publication publication, int *id = nullptr);
  void PublishPresence();
  void PublishStatus();
  void Lose();
  bridge::Publication Event(uint64_t number) const;
  std::string Presence(bool online) const;

  const Script &script_;
  Totals &totals_;
  std::string gateway_;
  std::string stream_;
  bridge::Retry retry_;
  std::unique_ptr<bridge::Session> session_;
  bool accepted_ = false;
  bool ended_ = false;  // no more events
  Clock::time_point since_, nextAttempt_, nextEvent_, nextStatus_, nextKeepAlive_;
  uint64_t made_ = 0;
  uint64_t acknowledged_ = 0;
  uint64_t sent_ = 0;
  struct UnderWay {
    int id;
    uint64_t number;
  };
  std::deque<UnderWay> underWay_;
};

}  // namespace zor::fleet

#endif
