#include "msgsvr/client.h"

namespace zor::msgsvr {

std::string Client::Label() const {
  std::string label = registered() ? std::string(name.text()) : std::string("an unregistered client");
  label += peer.local ? " (pid " + std::to_string(peer.pid) + ")" : " (TCP)";
  return label;
}

}  // namespace zor::msgsvr
