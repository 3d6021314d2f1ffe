// A connection to the notification server by its wire format (zor/notify_wire.h). The library's client does not fit: it
// always registers, waits for minutes and reports failures on standard output.
#ifndef ZORCTL_NOTIFY_CHANNEL_H
#define ZORCTL_NOTIFY_CHANNEL_H

#include <zor/notify_wire.h>

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "common/unique_fd.h"
#include "zorctl/deadline.h"

namespace zor::ctl {

class NotifyChannel {
 public:
  // Connects. Every function throws Failure with a text for the user.
  explicit NotifyChannel(const Deadline &deadline);

  void Register(uint32_t module);
  // An asynchronous notification of one part or two.
  void Post(uint32_t module, uint32_t type, std::string_view part1, std::string_view part2);
  // Sends a synchronous one and returns the data of the reply. For an absent module the server replies without data.
  std::string Request(uint32_t module, uint32_t type, std::string_view data);
  // The server itself and the modules that are connected. Needs no registration.
  nlohmann::json List();
  // Lets the program at the server's path take over. Needs no registration.
  nlohmann::json Restart();
  // Lets it read the rules of access anew. Needs no registration.
  nlohmann::json ReloadRules();
  // What these have refused, or would have, as observations. Needs no registration.
  std::string Refused();

 private:
  std::string Control(uint32_t type);
  nlohmann::json ControlJson(uint32_t type);
  ZOR_NOTIFY_MSG NewHead(uint32_t module, uint32_t type, size_t dataLength);
  void Send(const ZOR_NOTIFY_MSG &head, std::string_view data);
  std::string Receive(size_t length);
  // Waits until the socket is ready for these events.
  void Await(short events);

  Deadline deadline_;
  UniqueFd socket_;
  uint32_t module_ = 0;
  uint32_t sequence_ = 0;
};

}  // namespace zor::ctl

#endif
