// Asks the rules what a client may do. The log names what they refuse and the rule; the caller tells the client.
//
// A reply needs no rule: whoever was asked may answer once, as long as it is known who asked whom. What a client asks
// about itself alone needs none either.
#ifndef MSGSVR_PERMISSION_H
#define MSGSVR_PERMISSION_H

#include <span>

#include "msgsvr/bus.h"
#include "msgsvr/frames.h"

namespace zor::msgsvr {

class Permission {
 public:
  explicit Permission(Bus &bus) : bus_(bus) {}

  // Have the name, beside the clients that have it.
  bool MayOwn(const Client &client, const AppName &name);
  bool MayPublish(const Client &from, uint32_t type) {
    return IsOpen() || Ask(from, {access::Verb::kPublish, type, {}});
  }
  bool MaySend(const Client &from, const Client &to, uint32_t type) { return IsOpen() || AskSend(from, to, type); }
  // Have a request to the server itself carried out.
  bool MayRequest(const Client &from, const Frame &frame, std::span<const std::byte> body) {
    return IsOpen() || AskRequest(from, frame, body);
  }
  bool MayControl(const Client &from, uint32_t type);

 private:
  bool IsOpen() const { return bus_.guard.rules().isOpen(); }
  bool Ask(const Client &from, const access::Action &action);
  bool AskSend(const Client &from, const Client &to, uint32_t type);
  bool AskRequest(const Client &from, const Frame &frame, std::span<const std::byte> body);
  bool AskPatterns(const Client &from, std::string_view patternList);

  Bus &bus_;
};

}  // namespace zor::msgsvr

#endif
