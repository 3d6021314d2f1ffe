// The line to a broker: MQTT 5, from the library's loop, without a thread and without a call that blocks.
//
// A line is one session: clean start, no expiry. What must survive its end is kept by others (the queue on disk), so
// that neither the library below nor the broker has to. Lines are tried for ever, with pauses (retry.h), one broker
// after the other in order of preference. After a line that lasted it begins with the first one again; a good line to a
// lesser broker is not given up for a better one.
//
// What is under way is bounded: at most Options::inFlight publications with QoS 1 that are not acknowledged, and
// kMostUnderWay bytes that are not acknowledged or not sent. Beyond that Publish refuses, and OnRoom tells when it may
// be called again.
#ifndef ZORBRIDGE_BROKER_LINK_H
#define ZORBRIDGE_BROKER_LINK_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "programs/problem_log.h"
#include "zorbridge/broker_address.h"
#include "zorbridge/publication.h"
#include "zorbridge/retry.h"
#include "zorbridge/tls_files.h"

namespace zor::bridge {

// Its functions may call Publish and Stop. They may not destroy the link.
class LinkListener {
 public:
  virtual ~LinkListener() = default;
  // The broker has accepted the session and every subscription has its answer.
  virtual void OnConnected() = 0;
  // Whatever has not been acknowledged by now will not be.
  virtual void OnDisconnected(const std::string &why) = 0;
  // An attempt has failed; another one follows after a pause.
  virtual void OnAttemptFailed(const std::string & /*why*/) {}
  virtual void OnDelivery(const Delivery &delivery) = 0;
  virtual void OnAcknowledged(uint64_t token) = 0;
  // This broker will never take it: its rules forbid it, or it is malformed or too large. It has been reported in the
  // log. Sending it again would block what is behind it for ever.
  virtual void OnRefused(uint64_t token, const std::string & /*why*/) { OnAcknowledged(token); }
  // Publish may be called again after it has refused.
  virtual void OnRoom() = 0;
  // After Stop: the farewell has been acknowledged or given up, and there is no connection.
  virtual void OnStopped() {}
};

class BrokerLink {
 public:
  static constexpr std::size_t kMostUnderWay = std::size_t{1} << 20;
  // What the broker may send in one packet.
  static constexpr uint32_t kLargestPacket = 256 * 1024;

  struct Options {
    std::vector<BrokerAddress> brokers;  // in order of preference
    std::string clientId;
    std::string willTopic;  // empty: no will. Retained, QoS 1
    std::string willPayload;
    std::vector<std::string> subscriptions;
    bool retainedToo = false;  // whether subscriptions begin with retained messages
    Tls tls;
    std::string userName;
    std::string passwordFile;                       // real path; nobody else may read it
    uint16_t keepAliveSeconds = 60;                 // at least 5
    std::chrono::milliseconds ackTime{30'000};      // without an acknowledgement for so long the line is given up
    std::chrono::milliseconds connectTime{20'000};  // for each of: looking up the name, connecting to one address
    Retry::Options retry;
    uint32_t inFlight = 64;
  };
  struct Figures {
    std::string broker;                                          // HOST:PORT of the line or of the last attempt
    std::optional<std::chrono::system_clock::time_point> since;  // of the line
    uint64_t connects = 0;
    uint64_t failures = 0;  // attempts that failed and lines that ended
    std::string problem;    // why the last one of them did; empty while connected
  };

  BrokerLink(Options options, LinkListener &listener, daemon::ProblemLog &log);
  BrokerLink(const BrokerLink &) = delete;
  BrokerLink &operator=(const BrokerLink &) = delete;
  ~BrokerLink();

  // Makes the first attempt after a random part of the first pause. False, with a line in the log, when the settings
  // cannot work: a file of credentials that is missing, malformed or readable by others.
  bool Start();
  // False: there is no line or no room. What is refused for its content counts as sent, see OnRefused.
  bool Publish(const Publication &publication);
  // Sends it and says good-bye; the end comes with OnStopped, after a second at most. Without a line, on the next turn.
  void Stop(const Publication &farewell);
  bool connected() const;
  const Figures &figures() const;

 private:
  class Line;
  std::unique_ptr<Line> line_;
};

}  // namespace zor::bridge

#endif
