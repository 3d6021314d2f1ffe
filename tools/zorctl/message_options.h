// The message on the command line of send and call.
#ifndef ZORCTL_MESSAGE_OPTIONS_H
#define ZORCTL_MESSAGE_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "zorctl/bus.h"

namespace CLI {
class App;
}

namespace zor::ctl {

class MessageOptions {
 public:
  void Declare(CLI::App &app);
  // Reads files; throws Failure for arguments that do not make a message.
  Outgoing Build() const;

 private:
  // A destination, if the first word is one, and the rest as names with values.
  void SortWords(Outgoing &message, std::vector<std::pair<std::string, std::string>> &fields) const;

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
