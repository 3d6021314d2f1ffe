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
#include "zorctl/fleet_arguments.h"
#include "zorctl/output.h"
#include "zorctl/seconds_option.h"
#include "zorctl/text.h"
#include "zorctl/verb.h"

namespace zor::ctl {
namespace {

// The verb of the command line, with its options.
struct Selected {
  const VerbRow *row;
  std::unique_ptr<Verb> verb;
  FleetArguments fleet;
  bool json = false;
  double seconds = 0;
};

std::string ExitCodeTable() {
  std::string text = "exit status:\n";
  for (const ExitCodeText &each : kExitCodes) {
    text += "  " + std::to_string(each.code) + "  " + each.text + "\n";
  }
  return text;
}

CLI::App *AddVerb(CLI::App &program, const VerbRow &row) {
  return program.add_subcommand(row.name, std::string(row.purpose) + ".")->group("Verbs");
}

// Options take time to declare, so only the selected verb has any.
void Declare(CLI::App &program, Selected &selected) {
  const VerbRow &row = *selected.row;
  CLI::App &app = *AddVerb(program, row);
  selected.seconds = row.timeoutSeconds;
  selected.verb->Declare(app);
  app.add_flag("--json", selected.json, "Print JSON");
  AddSeconds(app, "--timeout", selected.seconds, "Maximum time to wait");
  selected.fleet.Declare(app, row.reach);
  app.footer(std::string("examples:\n") + row.examples);
}

void PrintError(const std::string &verb, const std::string &what, const std::string &advice) {
  ShowProgress("");
  const std::string subject = verb.empty() ? "zorctl" : "zorctl " + verb;
  std::fprintf(stderr, "%s: %s; %s\n", subject.c_str(), what.c_str(), advice.c_str());
}

// The row of a verb; null for anything else.
const VerbRow *RowOf(std::string_view name) {
  const auto row = std::find_if(Verbs().begin(), Verbs().end(), [=](const VerbRow &each) { return each.name == name; });
  return row == Verbs().end() ? nullptr : &*row;
}

// CLI11's texts are sentences with a full stop.
int ReportUsage(const CLI::ParseError &error, const std::string &verb) {
  std::string what = verb.empty() ? "options must follow a verb" : Escape(error.what());
  while (!what.empty() && what.back() == '.') what.pop_back();
  PrintError(verb, what, verb.empty() ? "zorctl --help lists the verbs" : "zorctl " + verb + " --help explains it");
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

int Main(int count, char **arguments) {
  TakeOutput();
  CLI::App program("Inspects the message bus, sends on it and configures it.", "zorctl");
  program.set_help_flag("--help", "Print this help and exit");
  program.get_formatter()->label("SUBCOMMAND", "VERB");
  program.require_subcommand(1);
  program.footer("zorctl VERB --help explains a verb.\n\n" + ExitCodeTable() +
                 "\nThe environment variable ZOR_ROOT moves every fixed path beneath the directory that it names.");
  std::vector<std::string> words = VerbFirst(count, arguments);
  const VerbRow *row = words.empty() ? nullptr : RowOf(words.front());
  if (words.empty() || (row == nullptr && !words.front().starts_with('-'))) {
    PrintError("", words.empty() ? "no verb" : "unknown verb " + Escape(words.front()),
               "zorctl --help lists the verbs");
    return kExitUsage;
  }
  Selected selected = {row, row == nullptr ? nullptr : row->make(), {}};
  if (row != nullptr) Declare(program, selected);
  for (const VerbRow &each : Verbs()) {
    if (row == nullptr) AddVerb(program, each);
  }
  try {
    std::reverse(words.begin(), words.end());  // as CLI11 takes them
    program.parse(std::move(words));
  } catch (const CLI::Success &) {
    Print(program.help());
    Flush();
    return kExitOk;
  } catch (const CLI::ParseError &error) {
    return ReportUsage(error, row == nullptr ? "" : row->name);
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
