// Live traffic for the pages that want it: copies of messages, as the message server sends them to monitors. Nobody
// reads thousands of messages a second, so when that many come, the copies stop until the next second.
#ifndef ZORWEB_TRAFFIC_FEED_H
#define ZORWEB_TRAFFIC_FEED_H

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "programs/messages/bus_copy.h"
#include "zorweb/pages.h"

namespace zor::web {

class TrafficFeed {
 public:
  explicit TrafficFeed(const Pages &pages) : pages_(pages) {}
  TrafficFeed(const TrafficFeed &) = delete;
  TrafficFeed &operator=(const TrafficFeed &) = delete;

  // A ZOR_MSG_CONTROL_COPY from the server.
  void Take(std::string_view body);
  // The server's reply to what this has asked of it.
  void TakeReply(std::uint32_t result);
  void Greet(EventStream &stream) const;
  // Several times a second: pages get what has come.
  void OnFlush();
  // Once a second.
  void OnTick();
  // The server has forgotten that this is a monitor.
  void OnRejoined() { monitored_.reset(); }

 private:
  struct Batch {
    nlohmann::ordered_json messages = nlohmann::ordered_json::array();
    std::uint64_t leftOut = 0;
    std::uint32_t inSecond = 0;
  };

  std::optional<TrafficFilter> Wanted() const;
  void Monitor(const std::optional<TrafficFilter> &filter);
  nlohmann::ordered_json Describe(const messages::BusCopy &copy);

  const Pages &pages_;
  std::optional<TrafficFilter> monitored_;  // what the server copies now
  std::uint32_t inSecond_ = 0;
  std::uint64_t missed_ = 0;  // copies that the server could not send
  bool paused_ = false;       // until the next second
  std::string problem_;       // why there are no copies, as an event's data
  messages::Conversations conversations_;
  std::map<const EventStream *, Batch> batches_;
};

}  // namespace zor::web

#endif
