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
#include "zorctl/output.h"
#include "zorctl/seconds_option.h"
#include "zorctl/text.h"
#include "zorctl/verb.h"

namespace zor::ctl {
namespace {

struct Declared {
  const VerbRow *row;
  std::unique_ptr<Verb> verb;
  CLI::App *app;
  bool json = false;
  double seconds;
};

std::string ExitCodeTable() {
  std::string text = "exit status:\n";
  for (const ExitCodeText &each : kExitCodes) {
    text += "  " + std::to_string(each.code) + "  " + each.text + "\n";
  }
  return text;
}

void Declare(CLI::App &program, Declared &declared) {
  const VerbRow &row = *declared.row;
  declared.app = program.add_subcommand(row.name, std::string(row.purpose) + ".")->group("Verbs");
  declared.seconds = row.timeoutSeconds;
  declared.verb->Declare(*declared.app);
  declared.app->add_flag("--json", declared.json, "Print JSON");
  AddSeconds(*declared.app, "--timeout", declared.seconds, "Maximum time to wait");
  declared.app->footer(std::string("examples:\n") + row.examples);
}

void PrintError(const std::string &verb, const std::string &what, const std::string &advice) {
  ShowProgress("");
  const std::string subject = verb.empty() ? "zorctl" : "zorctl " + verb;
  std::fprintf(stderr, "%s: %s; %s\n", subject.c_str(), what.c_str(), advice.c_str());
}

bool IsVerb(std::string_view name) {
  return std::any_of(Verbs().begin(), Verbs().end(), [=](const VerbRow &row) { return row.name == name; });
}

// The verb that the arguments name; null without one.
const Declared *Selected(const std::vector<Declared> &all) {
  for (const Declared &each : all) {
    if (each.app->parsed()) return &each;
  }
  return nullptr;
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

int RunVerb(const Declared &declared) {
  const Common common = {declared.json, FromSeconds(declared.seconds)};
  const std::string name = declared.row->name;
  try {
    const ExitCode code = declared.verb->Run(common);
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

int Main(int count, char **arguments) {
  TakeOutput();
  CLI::App program("Inspects the message bus, sends on it and configures it.", "zorctl");
  program.set_help_flag("--help", "Print this help and exit");
  program.get_formatter()->label("SUBCOMMAND", "VERB");
  program.require_subcommand(1);
  program.footer("zorctl VERB --help explains a verb.\n\n" + ExitCodeTable() +
                 "\nThe environment variable ZOR_ROOT moves every fixed path beneath the directory that it names.");
  if (count < 2 || (*arguments[1] != '-' && !IsVerb(arguments[1]))) {
    PrintError("", count < 2 ? "no verb" : "unknown verb " + Escape(arguments[1]), "zorctl --help lists the verbs");
    return kExitUsage;
  }
  std::vector<Declared> declared;
  for (const VerbRow &row : Verbs()) declared.push_back({&row, row.make(), nullptr, false, 0});
  for (Declared &each : declared) Declare(program, each);
  try {
    program.parse(count, arguments);
  } catch (const CLI::Success &) {
    Print(program.help());
    Flush();
    return kExitOk;
  } catch (const CLI::ParseError &error) {
    const Declared *verb = Selected(declared);
    return ReportUsage(error, verb == nullptr ? "" : verb->row->name);
  }
  return RunVerb(*Selected(declared));
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
