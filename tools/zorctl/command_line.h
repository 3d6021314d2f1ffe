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

// The words between braces, as CLI11 lists those that an option takes: "{show,set,clear}".
std::vector<std::string> ChoicesIn(std::string_view text);

// The program without verbs.
void DeclareProgram(CLI::App &program);
// All verbs without options, which take time to declare.
void AddVerbs(CLI::App &program);
// One verb with its options, which must live as long as the program.
void DeclareVerb(CLI::App &program, Selected &selected);

// Runs a verb with its options on this gateway, and flushes its output. Failure for any result but success.
void RunWords(const std::vector<std::string> &words);

// The row of a verb; null for anything else.
const VerbRow *FindVerb(std::string_view name);
// What the user may have meant by a verb that does not exist, as DidYouMean returns it.
std::string VerbMeant(std::string_view name);

// The options and arguments of a verb, for who helps to write them.
class VerbWords {
 public:
  explicit VerbWords(const VerbRow &row);
  ~VerbWords();
  VerbWords(const VerbWords &) = delete;
  VerbWords &operator=(const VerbWords &) = delete;

  // The long names of the options, sorted.
  std::vector<std::string> OptionNames() const;
  // Whether the word is an option that the next word belongs to.
  bool TakesNext(const std::string &word) const;
  // The words that an option, or the argument at that place, is limited to; empty if it is not.
  std::vector<std::string> ChoicesOf(const std::string &option) const;
  std::vector<std::string> ChoicesAt(size_t place) const;

 private:
  std::unique_ptr<Verb> verb_;
  FleetArguments fleet_;
  double seconds_ = 0;
  std::unique_ptr<CLI::App> app_;
};

}  // namespace zor::ctl

#endif
