// zorctl, the operator's tool: inspects the message bus, sends on it and configures it. Each verb is a subcommand.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <clocale>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "programs/messages/invalid.h"
#include "programs/messages/message_types.h"
#include "programs/messages/nearest.h"
#include "zorctl/command_line.h"
#include "zorctl/output.h"
#include "zorctl/seconds_option.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

void PrintError(const std::string &verb, const std::string &what, const std::string &advice) {
  ShowProgress("");
  const std::string subject = verb.empty() ? "zorctl" : "zorctl " + verb;
  std::fprintf(stderr, "%s: %s; %s\n", subject.c_str(), what.c_str(), advice.c_str());
}

// What the user may have meant by the first option that the verb does not have.
std::string OptionMeant(const VerbRow &row, const std::vector<std::string> &words) {
  const std::vector<std::string> known = VerbWords(row).OptionNames();
  for (const std::string &word : words) {
    const std::string name = word.substr(0, word.find('='));
    if (!name.starts_with("--") || std::find(known.begin(), known.end(), name) != known.end()) continue;
    return messages::DidYouMean(name, known);
  }
  return {};
}

// The same for a word that is not one of those that an option takes, which CLI11 lists as "WORD not in {A,B}".
std::string ValueMeant(std::string_view what) {
  constexpr std::string_view kNotIn = " not in {";
  const size_t end = what.find(kNotIn);
  if (end == what.npos || !what.ends_with('}')) return {};
  const size_t colon = what.substr(0, end).rfind(": ");
  const std::string_view word = what.substr(0, end).substr(colon == what.npos ? 0 : colon + 2);
  return messages::DidYouMean(word, ChoicesIn(what.substr(end)));
}

// CLI11's texts are sentences with a full stop.
int ReportUsage(const CLI::ParseError &error, const VerbRow *row, const std::vector<std::string> &words) {
  if (row == nullptr) {
    PrintError("", "options must follow a verb", "zorctl --help lists the verbs");
    return kExitUsage;
  }
  std::string what = Escape(error.what());
  while (!what.empty() && what.back() == '.') what.pop_back();
  const bool isExtra = error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError);
  PrintError(row->name, what,
             (isExtra ? OptionMeant(*row, words) : ValueMeant(what)) + "zorctl " + row->name + " --help explains it");
  return kExitUsage;
}

int Fail(const std::string &verb, const std::exception &error, const std::string &advice, ExitCode code) {
  // Output from before the failure is still useful.
  try {
    Flush();
  } catch (...) {
  }
  PrintError(verb, error.what(), advice);
  return code;
}

ExitCode Run(const Selected &selected) {
  const Common common = {selected.json, FromSeconds(selected.seconds)};
  const Reach reach = selected.row->reach;
  const bool onFleet = reach == Reach::kFleet || (reach != Reach::kNeither && selected.fleet.wanted());
  if (!onFleet) return selected.verb->Run(common);
  if (reach == Reach::kHere) {
    throw Failure(kExitUsage, "works on this gateway only", "leave out --fleet, and unset ZOR_FLEET");
  }
  Fleet fleet = selected.fleet.Open(common.timeout);
  return selected.verb->RunFleet(fleet, common);
}

int RunVerb(const Selected &selected) {
  const std::string name = selected.row->name;
  try {
    const ExitCode code = Run(selected);
    Flush();
    return code;
  } catch (const OutputClosed &) {
    return kExitOk;
  } catch (const Failure &failure) {
    return Fail(name, failure, failure.advice, failure.code);
  } catch (const messages::UnknownName &unknown) {
    return Fail(name, unknown, unknown.advice, kExitNotFound);
  } catch (const messages::Invalid &invalid) {
    return Fail(name, invalid, invalid.advice, kExitUsage);
  } catch (const std::exception &error) {
    PrintError(name, Escape(error.what()), "this is a fault of the system or of zorctl");
    return kExitFailure;
  }
}

// The words of the command line, the verb first.
std::vector<std::string> VerbFirst(int count, char **arguments) {
  std::vector<std::string> words(arguments + 1, arguments + count);
  const auto verb = words.begin() + static_cast<std::ptrdiff_t>(CountFleetWords(words));
  if (verb != words.end()) std::rotate(words.begin(), verb, verb + 1);
  return words;
}

// "help VERB" is "VERB --help".
void AskForHelp(std::vector<std::string> &words) {
  if (words.empty() || words.front() != "help" || (words.size() > 1 && words[1].starts_with('-'))) return;
  words.erase(words.begin());
  words.resize(std::min<size_t>(words.size(), 1));
  words.emplace_back("--help");
}

int Main(int count, char **arguments) {
  TakeOutput();
  messages::UseInstalledKinds();
  std::vector<std::string> words = VerbFirst(count, arguments);
  AskForHelp(words);
  const VerbRow *row = words.empty() ? nullptr : FindVerb(words.front());
  if (words.empty() || (row == nullptr && !words.front().starts_with('-'))) {
    PrintError("", words.empty() ? "no verb" : "unknown verb " + Escape(words.front()),
               (words.empty() ? "" : VerbMeant(words.front())) + "zorctl --help lists the verbs");
    return kExitUsage;
  }
  CLI::App program;
  DeclareProgram(program);
  Selected selected = {row, row == nullptr ? nullptr : row->make(), {}};
  row == nullptr ? AddVerbs(program) : DeclareVerb(program, selected);
  try {
    program.parse(std::vector<std::string>(words.rbegin(), words.rend()));  // as CLI11 takes them
  } catch (const CLI::CallForVersion &version) {
    Print(std::string(version.what()) + "\n");
    Flush();
    return kExitOk;
  } catch (const CLI::Success &) {
    Print(program.help());
    Flush();
    return kExitOk;
  } catch (const CLI::ParseError &error) {
    return ReportUsage(error, row, words);
  }
  return RunVerb(selected);
}

}  // namespace
}  // namespace zor::ctl

int main(int count, char **arguments) {
  try {
    return zor::ctl::Main(count, arguments);
  } catch (const zor::ctl::OutputClosed &) {
    return zor::ctl::kExitOk;
  } catch (const std::exception &error) {
    std::fprintf(stderr, "zorctl: %s\n", error.what());
    return zor::ctl::kExitFailure;
  }
}
