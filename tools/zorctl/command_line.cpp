#include "zorctl/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

#include "programs/messages/nearest.h"
#include "programs/version.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
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

std::vector<std::string> ChoicesIn(std::string_view text) {
  std::vector<std::string> words;
  const size_t open = text.find('{'), close = text.rfind('}');
  if (open == text.npos || close == text.npos || close < open) return words;
  std::istringstream list{std::string(text.substr(open + 1, close - open - 1))};
  for (std::string word; std::getline(list, word, ',');) words.push_back(word);
  return words;
}

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
  Options options(app);
  selected.verb->Declare(options);
  options.AddFlag("--json", selected.json, "Print JSON");
  AddSeconds(options, "--timeout", selected.seconds, "Maximum time to wait");
  selected.fleet.Declare(options, row.reach);
  app.footer(std::string("examples:\n") + row.examples);
}

void RunWords(const std::vector<std::string> &words) {
  const VerbRow *row = FindVerb(words.front());
  if (row == nullptr) throw Failure(kExitNotFound, "this zorctl has no verb " + words.front(), "use a later version");
  CLI::App program;
  DeclareProgram(program);
  Selected selected = {row, row->make(), {}};
  DeclareVerb(program, selected);
  try {
    program.parse(std::vector<std::string>(words.rbegin(), words.rend()));  // as CLI11 takes them
  } catch (const CLI::ParseError &error) {
    throw Failure(kExitUsage, error.what(), "use a tool whose parts have the same version");
  }
  const ExitCode code = selected.verb->Run({selected.json, FromSeconds(selected.seconds)});
  Flush();
  if (code != kExitOk) throw Failure(code, "ended with status " + std::to_string(code), "run it by itself");
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

VerbWords::VerbWords(const VerbRow &row) : verb_(row.make()), app_(std::make_unique<CLI::App>()) {
  Options options(*app_);
  verb_->Declare(options);
  AddSeconds(options, "--timeout", seconds_, "");
  if (row.reach != Reach::kHere) fleet_.Declare(options, row.reach);
}

VerbWords::~VerbWords() = default;

std::vector<std::string> VerbWords::OptionNames() const {
  std::vector<std::string> names = {"--json"};
  for (const CLI::Option *option : app_->get_options()) {
    for (const std::string &name : option->get_lnames()) names.push_back("--" + name);
  }
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

bool VerbWords::TakesNext(const std::string &word) const {
  if (!word.starts_with('-') || word.find('=') != word.npos) return false;
  const CLI::Option *option = app_->get_option_no_throw(word);
  return option != nullptr && option->get_items_expected_max() > 0;
}

std::vector<std::string> VerbWords::ChoicesOf(const std::string &option) const {
  const CLI::Option *found = app_->get_option_no_throw(option);
  return found == nullptr ? std::vector<std::string>() : ChoicesIn(found->get_type_name());
}

std::vector<std::string> VerbWords::ChoicesAt(size_t place) const {
  for (const CLI::Option *option : app_->get_options()) {
    if (option->get_positional() && place-- == 0) return ChoicesIn(option->get_type_name());
  }
  return {};
}

}  // namespace zor::ctl
