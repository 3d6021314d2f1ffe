// How a line comes about, what happens on it, and how it ends. See broker_link.h.
//
// There is one timer and at most one descriptor. While nothing happens the timer is that of the keep-alive, so an idle
// line wakes the processor for a ping and its answer. Sessions end in the callbacks of the loop alone: what a listener
// does meanwhile is noted, and the next turn acts on it.
#ifndef ZORBRIDGE_LINE_H
#define ZORBRIDGE_LINE_H

#include "programs/loop_watch.h"
#include "zorbridge/broker_link.h"
#include "zorbridge/resolver.h"
#include "zorbridge/session.h"
#include "zorbridge/under_way.h"

namespace zor::bridge {

class BrokerLink::Line {
 public:
  Line(Options options, LinkListener &listener, daemon::ProblemLog &log);
  Line(const Line &) = delete;
  Line &operator=(const Line &) = delete;

  bool Start();
  bool Publish(const Publication &publication);
  void Stop(const Publication &farewell);
  bool connected() const { return state_ == State::kOpen; }
  const Figures &figures() const { return figures_; }

 private:
  using Clock = std::chrono::steady_clock;
  enum class State { kPause, kLookUp, kConnect, kOpen, kStopping, kStopped };
  struct Refusal {
    uint64_t token;
    std::string why;
  };

  // Attempts, in attempts.cpp.
  const BrokerAddress &broker() const { return options_.brokers[at_]; }
  bool CheckFiles() const;
  bool ReadPassword(std::string *password) const;
  void Attempt();
  static void OnLookedUp(void *self, std::vector<std::string> addresses, const std::string &problem);
  void TryAddresses(std::string problem);
  std::string Connect(const std::string &address);
  void FailAttempt(const std::string &why, bool refused);
  void PauseThen(std::size_t broker, bool refused);
  void Say(const std::string &why);

  // The session, in line.cpp.
  static void OnSocket(void *self, uint32_t event);
  static void OnTimer(void *self);
  void Tick();
  void Settle();
  void Take(const SessionEvent &event);
  void Accepted(int keepAliveSeconds);
  void Opened();
  void Acknowledged(const SessionEvent &event);
  void TellRefusals();
  bool Send(const Publication &publication);
  void SayGoodbye();
  std::string WhyEnded();
  void SessionEnded(const std::string &why, bool refused);
  void Close();
  void Finish();

  const Options options_;
  LinkListener &listener_;
  daemon::ProblemLog &log_;
  Retry retry_;
  Figures figures_;
  State state_ = State::kPause;
  std::size_t at_ = 0;                  // of the brokers
  std::vector<std::string> said_;       // of each broker: what the log says of it
  bool failureSaid_ = false;            // since it said that there was a line
  std::vector<std::string> addresses_;  // yet to be tried
  daemon::LoopTimer timer_;
  daemon::LoopWatch socket_;
  Resolver resolver_;
  std::unique_ptr<Session> session_;
  UnderWay underWay_;
  std::vector<Refusal> refusals_;                       // to be told on the next turn
  std::optional<std::pair<int, std::size_t>> blocked_;  // QoS and size of what found no room
  int readsUnanswered_ = 0;                             // since the socket last took everything
  int shortLines_ = 0;                                  // in a row
  int lastId_ = 0;                                      // of what was published last
  int farewellId_ = 0;
  std::chrono::seconds keepAlive_{};
  Clock::time_point openedAt_;
  Clock::time_point writtenAt_;  // at least so late something has been written
  Clock::time_point keepAliveDue_;
};

}  // namespace zor::bridge

#endif
