// What goes out to the broker, by what becomes of it while there is no line: records that are kept wait in the queue,
// of others the latest of each topic waits, and the rest is lost.
//
// The bus must not notice the line. So nothing is sent from where a record is made: it is only noted there, and an idle
// hook of the loop hands a bounded number of records to the line in each turn, and writes the queue's file when that is
// due. While there is nothing to do, the hook does not shorten the loop's wait.
#ifndef ZORBRIDGE_UPLINK_H
#define ZORBRIDGE_UPLINK_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "zorbridge/broker_link.h"
#include "zorbridge/outbox.h"
#include "zorbridge/settings.h"

struct UvIdle;

namespace zor::bridge {

// Members of a JSON object without its braces, such as "lost":1,"found":2.
using Members = std::string;

// One with the properties that all have.
Publication MakePublication(std::string topic, std::string payload);

class Uplink {
 public:
  // `base` is PREFIX/GATEWAY.
  Uplink(std::string base, std::string gateway, Outbox &outbox);
  Uplink(const Uplink &) = delete;
  Uplink &operator=(const Uplink &) = delete;
  ~Uplink();

  // From now on the loop's turns send by this link, whose listener calls the functions with these names. False without
  // memory.
  bool Start(BrokerLink &link);

  // A record below the gateway's topics. `group` is what a gap counts it under.
  void Record(Keeping keeping, const std::string &topic, std::string_view group, const Members &members);
  // A document that replaces the one before, and stays at the broker.
  void Document(const std::string &topic, std::string payload);
  // A reply to a request from outside. It is lost with the line that the request came by.
  void Reply(std::string topic, std::string correlation, const Members &members);

  void OnConnected();
  void OnDisconnected();
  void OnAcknowledged(uint64_t token);
  void OnRoom() { room_ = true; }

  const std::string &gateway() const { return gateway_; }
  const std::string &base() const { return base_; }
  // Records that were lost since nothing keeps them.
  uint64_t dropped() const { return dropped_; }

 private:
  struct Latest {
    std::string payload;
    bool retain = false;
    uint64_t token = 0;  // under which it has been sent; 0: it waits
  };

  void Turn();
  void WriteQueue();
  // These send one publication at most. False: there is none, or no room.
  bool SendSoon();
  bool SendLatest();
  bool SendQueued();
  bool Publish(const Publication &publication);
  void DropOrSend(std::string topic, const Members &members);
  void AddSoon(Publication publication);
  void AddLatest(std::string topic, std::string payload, bool retain);
  std::string Head() const;
  std::string Envelope(const Members &members) const;

  std::string base_;
  std::string gateway_;
  Outbox &outbox_;
  BrokerLink *link_ = nullptr;
  UvIdle *hook_ = nullptr;
  bool room_ = false;                                  // the link takes publications
  std::deque<Publication> soon_;                       // lost with the line
  std::size_t soonBytes_ = 0;                          // of it
  std::map<std::string, Latest, std::less<>> latest_;  // by topic, until it is acknowledged
  std::size_t latestBytes_ = 0;                        // of their payloads
  uint64_t lastLatest_ = 1;                            // its token
  uint64_t dropped_ = 0;
};

}  // namespace zor::bridge

#endif
