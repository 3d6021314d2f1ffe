// The options of the command line with which a verb works on a fleet. They may also come before the verb.
#ifndef ZORCTL_FLEET_ARGUMENTS_H
#define ZORCTL_FLEET_ARGUMENTS_H

#include <string>
#include <string_view>
#include <vector>

#include "zorctl/fleet.h"
#include "zorctl/options.h"
#include "zorctl/verb.h"

namespace zor::ctl {

class FleetArguments {
 public:
  // Only --fleet, and not in --help, for a verb that works here only.
  void Declare(Options &options, Reach reach);
  // Whether the user wants a fleet: by an option, or by ZOR_FLEET.
  bool wanted() const;
  // Connects.
  Fleet Open(Milliseconds timeout) const;

 private:
  FleetOptions options_;
  FleetScope scope_;
};

// How many words such an option takes, with its value; 0 for any other word.
size_t FleetWordsAt(std::string_view word);
// How many of the words, from the first one on, are such options with their values.
size_t CountFleetWords(const std::vector<std::string> &words);

}  // namespace zor::ctl

#endif
