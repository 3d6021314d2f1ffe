// Requests on the bus that nothing waits for: the loop brings the reply, or why there is none.
#ifndef PROGRAMS_BUS_REQUEST_H
#define PROGRAMS_BUS_REQUEST_H

#include <zor/msg_wire.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace zor::daemon {

enum class NoReply {
  kTimeOver,
  kUndelivered,  // the message server says so: there is no such daemon, it has ended, or the rules do not allow it
  kServerGone,
};

// The reply, which is valid during the call, or null and why there is none.
using OnReply = std::function<void(const ZOR_MSG_HEAD *reply, NoReply why)>;

struct BusRequest {
  std::string destination;  // empty: the message server
  std::uint32_t type = 0;
  std::uint32_t data = 0;
  std::string body;
};

// Sends a request. `then` is called once: later, or at once when it cannot be sent.
void AskBus(const BusRequest &request, std::chrono::milliseconds timeout, OnReply then);

// The message server's notice that it could not deliver a message.
void TakeUndelivered(const ZOR_MSG_HEAD &notice);

std::string_view BodyOf(const ZOR_MSG_HEAD &message);
// A name as a body.
std::string NameField(std::string name);

}  // namespace zor::daemon

#endif
