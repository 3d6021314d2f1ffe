// The message on the command line of send and call.
#ifndef ZORCTL_MESSAGE_OPTIONS_H
#define ZORCTL_MESSAGE_OPTIONS_H

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "programs/messages/body.h"
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
  // What the words say: a destination, if the first one is a name, then the fields, or a JSON object.
  struct Sorted {
    std::string destination;
    messages::Values fields;
    std::optional<std::string> object;
  };
  Sorted SortWords() const;
  // The data word and body that the words make up.
  messages::Content ContentOf(const Sorted &words, uint32_t type) const;

  FleetCall BuildForBridge() const;
  // Of all fields of a message those that were given.
  static nlohmann::ordered_json FieldsGiven(const Sorted &words, const nlohmann::ordered_json &all);

  std::string type_;
  std::vector<std::string> words_;  // [NAME] [FIELD=VALUE...], or [NAME] OBJECT
  std::optional<std::string> data_;
  std::optional<std::string> text_;
  std::optional<std::string> hex_;
  std::optional<std::string> file_;
  std::vector<std::string> items_;
  std::string subType_ = "0";
};

}  // namespace zor::ctl

#endif
