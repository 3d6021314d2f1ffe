// The gateways of a fleet, through its broker: which there are, what their bridges have said last, and requests to
// them.
#ifndef ZORCTL_FLEET_H
#define ZORCTL_FLEET_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zorctl/fleet_line.h"
#include "zorctl/foreign_json.h"

namespace zor::ctl {

// Which gateways a verb is for, and how.
struct FleetScope {
  std::vector<std::string> gateways;  // names or patterns; none: all
  uint32_t parallel = 64;             // requests that may be under way at one time
};

// A gateway, as its retained messages describe it.
struct Gateway {  // NOLINT(bugprone-exception-escape): what moves JSON does not throw
  std::string name;
  ForeignJson presence;  // null: none
  ForeignJson status;
  std::vector<std::string> faults;  // what is wrong with them

  // Not so for one that is only named by the user.
  bool known() const { return !presence.is_null() || !status.is_null() || !faults.empty(); }
  bool online() const;
  // "online", "lost", "stopped" or "unknown".
  std::string state() const;
  // The age of the status; no value without one.
  std::optional<std::chrono::milliseconds> statusAge() const;
  // Sentences: its own and what its messages show.
  std::vector<std::string> unwell() const;
};

// The place of a message in the fleet: the gateway and the rest of the topic.
struct FleetPlace {
  std::string gateway;
  std::string_view rest;  // within the topic
};

class Fleet {
 public:
  // Connects. The time-out is that of each reply; the broker itself gets a few seconds for each step.
  Fleet(const FleetAccess &access, FleetScope scope, Milliseconds timeout);

  FleetLine &line() { return *line_; }
  const FleetScope &scope() const { return scope_; }
  Milliseconds timeout() const { return timeout_; }
  // Whether the verb is for one gateway that is named as such.
  bool isForOne() const;

  Deadline brokerDeadline() const;

  // The gateways of the scope by their names, with those that are named and have no retained message.
  enum class Need { kPresence, kStatus, kBus };  // the status without or with the state of the bus in it
  std::vector<Gateway> Survey(Need need);

  // A filter of topics for each gateway of the scope.
  std::vector<std::string> Filters(std::string_view rest) const;
  std::string TopicOf(const std::string &gateway, const std::string &rest) const;
  // No value for a topic outside the scope.
  std::optional<FleetPlace> PlaceOf(std::string_view topic) const;
  // Where replies to this session go: outside the fleet's topics, where brokers let gateways publish (docs/fleet.md).
  std::string replyTopic() const;
  // Replies are delivered from now on.
  void AwaitReplies();

 private:
  void CheckRefusal(const FleetDelivery &delivery) const;

  FleetAccess access_;
  FleetScope scope_;
  Milliseconds timeout_;
  std::unique_ptr<FleetLine> line_;
  bool awaitsReplies_ = false;
};

}  // namespace zor::ctl

#endif
