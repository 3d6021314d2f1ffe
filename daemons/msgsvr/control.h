// Control requests: operators' tools inspect and configure the server. Only those who may by the rules, or root and the
// server's own user where there are none, get more than a refusal, except to what a daemon asks for itself.
#ifndef MSGSVR_CONTROL_H
#define MSGSVR_CONTROL_H

#include <zor/control_wire.h>

#include <span>
#include <string_view>

#include "msgsvr/delivery.h"
#include "msgsvr/file_passing.h"
#include "msgsvr/permission.h"

namespace zor::msgsvr {

inline bool IsControl(uint32_t type) {
  return type >= ZOR_MSG_CONTROL_FIRST && type <= ZOR_MSG_CONTROL_LAST;
}

class Control {
 public:
  Control(Bus &bus, Delivery &delivery, FilePassing &files)
      : bus_(bus), delivery_(delivery), files_(files), permission_(bus) {}

  // Replies to a control request of a registered client, known or not.
  void Handle(Client &from, const Frame &frame);

 private:
  using Body = std::span<const std::byte>;
  struct ControlReply {
    uint32_t result;  // the data word
    std::string body;
    bool later = false;  // nothing is sent now
  };
  struct Entry {
    uint32_t type;
    bool forOperators;
    ControlReply (Control::*handle)(Client &from, const Frame &frame, Body body);
  };
  static const Entry kEntries[];

  ControlReply Perform(Client &from, const Frame &frame);
  void Send(Client &to, const Frame &request, const ControlReply &reply);
  void SendInFile(Client &to, const Frame &request, const ControlReply &reply);

  ControlReply List(Client &from, const Frame &frame, Body body);
  ControlReply Monitor(Client &from, const Frame &frame, Body body);
  ControlReply TraceGet(Client &from, const Frame &frame, Body body);
  ControlReply TraceSet(Client &from, const Frame &frame, Body body);
  ControlReply TraceClear(Client &from, const Frame &frame, Body body);
  ControlReply Restart(Client &from, const Frame &frame, Body body);
  ControlReply AccessReload(Client &from, const Frame &frame, Body body);
  ControlReply AccessRefused(Client &from, const Frame &frame, Body body);
  ControlReply Recorder(Client &from, const Frame &frame, Body body);
  ControlReply Gaps(Client &from, const Frame &frame, Body body);

  Bus &bus_;
  Delivery &delivery_;
  FilePassing &files_;
  Permission permission_;
};

}  // namespace zor::msgsvr

#endif
