// Operators' requests: looking into the server and setting it. Answered to root and to the server's own user only.
#ifndef MSGSVR_CONTROL_H
#define MSGSVR_CONTROL_H

#include <zor/control_wire.h>

#include <span>
#include <string_view>

#include "msgsvr/delivery.h"

namespace zor::msgsvr {

inline bool IsControl(uint32_t type) {
  return type >= ZOR_MSG_CONTROL_FIRST && type <= ZOR_MSG_CONTROL_LAST;
}

class Control {
 public:
  Control(Bus &bus, Delivery &delivery) : bus_(bus), delivery_(delivery) {}

  // Answers a request of a registered client, whatever it is.
  void Handle(Client &from, const Frame &frame);

 private:
  using Body = std::span<const std::byte>;
  // The data word of the answer, and its body.
  struct Answer {
    uint32_t result;
    std::string body;
  };
  struct Entry {
    uint32_t type;
    Answer (Control::*handle)(Client &from, Body body);
  };
  static const Entry kEntries[];

  Answer Perform(Client &from, const Frame &frame);
  void Send(Client &to, const Frame &request, const Answer &answer);
  void SendInFile(Client &to, const Frame &request, const Answer &answer);

  Answer List(Client &from, Body body);
  Answer Monitor(Client &from, Body body);
  Answer TraceGet(Client &from, Body body);
  Answer TraceSet(Client &from, Body body);
  Answer TraceClear(Client &from, Body body);

  Bus &bus_;
  Delivery &delivery_;
};

}  // namespace zor::msgsvr

#endif
