#include "programs/command_line.h"

#include <getopt.h>

#include <cstdio>

#include "programs/paths.h"
#include "programs/service_manager.h"
#include "programs/standard_descriptors.h"

namespace zor::daemon {
namespace {

constexpr char kHelp[] =
    "usage: %s [--settings FILE] [--verbose]\n"
    "%s\n"
    "\n"
    "  --settings FILE  read the settings from FILE instead of %s\n"
    "  --verbose        %s\n"
    "  --help           print this help and exit\n"
    "\n"
    "settings, one \"key = value\" a line, with their defaults:\n"
    "%s"
    "\n"
    "The environment variable ZOR_ROOT moves every fixed path beneath the directory that it names.\n"
    "exit status: 0 stopped by SIGTERM or SIGINT, 1 system error, 2 usage error, 3 invalid setting,\n"
    "4 another process is already listening\n";

constexpr option kOptions[] = {
    {"settings", required_argument, nullptr, 's'},
    {"verbose", no_argument, nullptr, 'v'},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

}  // namespace

CommandLine ReadCommandLine(const Program &program, int count, char **arguments) {
  FillStandardDescriptors();
  CommandLine line;
  line.settingsPath = FixedPath(program.settingsPath);
  for (int found; (found = ::getopt_long(count, arguments, "", kOptions, nullptr)) != -1;) {
    if (found == 's') {
      line.settingsPath = optarg;
      line.settingsGiven = true;
    } else if (found == 'v') {
      line.verbose = true;
    } else if (found == 'h') {
      std::printf(kHelp, program.name, program.purpose, program.settingsPath, program.verboseHelp,
                  program.settingsHelp);
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
