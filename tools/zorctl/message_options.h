// The message on the command line of send and call.
#ifndef ZORCTL_MESSAGE_OPTIONS_H
#define ZORCTL_MESSAGE_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "zorctl/bus.h"
#include "zorctl/options.h"

namespace zor::ctl {

// A request to a daemon on a gateway of a fleet.
struct FleetCall {
  std::string topic;  // below the gateway's
  std::string payload;
};

class MessageOptions {
 public:
  void Declare(Options &options);
  // The same for a gateway of a fleet: known fields travel by their names, other bodies as bytes. Requests to the
  // bridge itself have names of their own, and fields of any kind.
  FleetCall BuildForFleet() const;
  // Reads files; throws Failure for arguments that do not make a message.
  Outgoing Build() const;

 private:
  // A destination, if the first word is one, and the rest as names with values.
  void SortWords(Outgoing &message, std::vector<std::pair<std::string, std::string>> &fields) const;

  FleetCall BuildForBridge() const;

  std::string type_;
  std::vector<std::string> words_;  // [NAME] [FIELD=VALUE...]
  std::optional<std::string> data_;
  std::optional<std::string> text_;
  std::optional<std::string> hex_;
  std::optional<std::string> file_;
  std::vector<std::string> items_;
  std::string subType_ = "0";
};

}  // namespace zor::ctl

#endif
