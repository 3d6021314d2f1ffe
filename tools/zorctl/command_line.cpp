#include "zorctl/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "programs/messages/nearest.h"
#include "programs/version.h"
#include "zorctl/seconds_option.h"

namespace zor::ctl {
namespace {

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

}  // namespace

void DeclareProgram(CLI::App &program) {
  program.name("zorctl");
  program.description("Inspects the message bus, sends on it and configures it.");
  program.set_help_flag("--help", "Print this help and exit");
  program.set_version_flag("--version", std::string("zorctl ") + daemon::Version(), "Print the version and exit");
  program.get_formatter()->label("SUBCOMMAND", "VERB");
  program.require_subcommand(1);
  program.footer("zorctl VERB --help explains a verb.\n\n" + ExitCodeTable() +
                 "\nThe environment variable ZOR_ROOT moves every fixed path beneath the directory that it names.");
}

void AddVerbs(CLI::App &program) {
  for (const VerbRow &each : Verbs()) AddVerb(program, each);
}

void DeclareVerb(CLI::App &program, Selected &selected) {
  const VerbRow &row = *selected.row;
  CLI::App &app = *AddVerb(program, row);
  selected.seconds = row.timeoutSeconds;
  selected.verb->Declare(app);
  app.add_flag("--json", selected.json, "Print JSON");
  AddSeconds(app, "--timeout", selected.seconds, "Maximum time to wait");
  selected.fleet.Declare(app, row.reach);
  app.footer(std::string("examples:\n") + row.examples);
}

const VerbRow *FindVerb(std::string_view name) {
  const auto row = std::find_if(Verbs().begin(), Verbs().end(), [=](const VerbRow &each) { return each.name == name; });
  return row == Verbs().end() ? nullptr : &*row;
}

std::string VerbMeant(std::string_view name) {
  std::vector<std::string> names;
  for (const VerbRow &row : Verbs()) names.emplace_back(row.name);
  return messages::DidYouMean(name, names);
}

std::vector<std::string> OptionsOf(const VerbRow &row) {
  CLI::App app;
  const std::unique_ptr<Verb> verb = row.make();
  verb->Declare(app);
  FleetArguments fleet;
  if (row.reach != Reach::kHere) fleet.Declare(app, row.reach);
  std::vector<std::string> names = {"--json", "--timeout", "--help"};
  for (const CLI::Option *option : app.get_options()) {
    for (const std::string &name : option->get_lnames()) names.push_back("--" + name);
  }
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

}  // namespace zor::ctl
