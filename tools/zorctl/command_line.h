// The command line: the verbs with their options, as the parser and the completion see them.
#ifndef ZORCTL_COMMAND_LINE_H
#define ZORCTL_COMMAND_LINE_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zorctl/fleet_arguments.h"
#include "zorctl/verb.h"

namespace zor::ctl {

// The verb of the command line, with its options.
struct Selected {
  const VerbRow *row;
  std::unique_ptr<Verb> verb;
  FleetArguments fleet;
  bool json = false;
  double seconds = 0;
};

// The program without verbs.
void DeclareProgram(CLI::App &program);
// All verbs without options, which take time to declare.
void AddVerbs(CLI::App &program);
// One verb with its options, which must live as long as the program.
void DeclareVerb(CLI::App &program, Selected &selected);

// The row of a verb; null for anything else.
const VerbRow *FindVerb(std::string_view name);
// What the user may have meant by a verb that does not exist, as DidYouMean returns it.
std::string VerbMeant(std::string_view name);
// The long names of a verb's options, sorted.
std::vector<std::string> OptionsOf(const VerbRow &row);

}  // namespace zor::ctl

#endif
