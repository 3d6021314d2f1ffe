#include "programs/command_line.h"

#include <getopt.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <vector>

#include "programs/paths.h"
#include "programs/service_manager.h"
#include "programs/standard_descriptors.h"

namespace zor::daemon {
namespace {

constexpr char kHelp[] =
    "usage: %s [--settings FILE] [--verbose]%s%s\n"
    "%s\n"
    "\n"
    "  --settings FILE  read the settings from FILE instead of %s\n"
    "  --verbose        %s\n"
    "%s%s"
    "  --help           print this help and exit\n"
    "\n"
    "settings, one \"key = value\" a line, with their defaults:\n"
    "%s"
    "\n"
    "The environment variable ZOR_ROOT moves every fixed path beneath the directory that it names.\n"
    "exit status: 0 stopped by SIGTERM or SIGINT, 1 system error, 2 usage error, 3 invalid setting,\n"
    "4 another process is already listening%s\n";
constexpr char kKeeperHelp[] =
    "  --keeper         start the server and keep it running: a service manager for hosts without one\n";
constexpr char kTrialHelp[] =
    "  --check-state    report whether the state of a running server can be taken over, and exit\n";

constexpr auto kOptions = std::to_array<option>({
    {"settings", required_argument, nullptr, 's'},
    {"verbose", no_argument, nullptr, 'v'},
    {"help", no_argument, nullptr, 'h'},
    {"keeper", no_argument, nullptr, 'k'},
    {"check-state", no_argument, nullptr, 'c'},
    {nullptr, 0, nullptr, 0},
});

bool Has(const Program &program, char option) {
  if (option == 'c') return program.handsOver;
  return option != 'k' || program.socketPath != nullptr;
}

std::vector<option> OptionsOf(const Program &program) {
  std::vector<option> options;
  std::copy_if(kOptions.begin(), kOptions.end(), std::back_inserter(options),
               [&](const option &each) { return Has(program, static_cast<char>(each.val)); });
  return options;
}

void PrintHelp(const Program &program) {
  const bool kept = Has(program, 'k');
  const bool tried = Has(program, 'c');
  std::printf(kHelp, program.name, kept ? " [--keeper]" : "", tried ? " [--check-state]" : "", program.purpose,
              program.settingsPath, program.verboseHelp, kept ? kKeeperHelp : "", tried ? kTrialHelp : "",
              program.settingsHelp, tried ? ",\n5 invalid state" : "");
}

}  // namespace

CommandLine ReadCommandLine(const Program &program, int count, char **arguments) {
  FillStandardDescriptors();
  CommandLine line;
  line.settingsPath = FixedPath(program.settingsPath);
  const std::vector<option> options = OptionsOf(program);
  for (int found; (found = ::getopt_long(count, arguments, "", options.data(), nullptr)) != -1;) {
    if (found == 's') {
      line.settingsPath = optarg;
      line.settingsGiven = true;
    } else if (found == 'v') {
      line.verbose = true;
    } else if (found == 'k') {
      line.keeper = true;
    } else if (found == 'c') {
      line.checkState = true;
    } else if (found == 'h') {
      PrintHelp(program);
      line.exit = kExitOk;
      return line;
    } else {
      line.exit = kExitUsage;
    }
  }
  if (optind < count) {
    std::fprintf(stderr, "%s: unexpected argument: %s\n", program.name, arguments[optind]);
    line.exit = kExitUsage;
  }
  if (line.exit == kExitUsage) std::fprintf(stderr, "%s: --help says how to call me\n", program.name);
  return line;
}

void SayListening(const Program &program, const char *fixedPath) {
  std::printf("%s: listening on %s\n", program.name, fixedPath);
  std::fflush(stdout);
  TellReady();
}

}  // namespace zor::daemon
