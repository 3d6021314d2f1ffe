// What every server does before its own work: it reads its command line and its settings.
#ifndef PROGRAMS_SERVER_MAIN_H
#define PROGRAMS_SERVER_MAIN_H

#include <new>

#include "programs/command_line.h"
#include "programs/problem_log.h"
#include "programs/settings.h"

namespace zor::daemon {

// The body of main. `read` makes the server's own settings from a Settings, leaving mistakes in it; `run` gets them,
// the log and whether --verbose was given, and returns the exit code. A server with a mistake in its settings does not
// run.
template <typename Read, typename Run>
int ServerMain(const Program &program, int count, char **arguments, Read read, Run run) {
  ProblemLog log(program.name);
  try {
    const CommandLine line = ReadCommandLine(program, count, arguments);
    if (line.exit) return *line.exit;
    Settings file = Settings::FromFile(line.settingsPath, line.settingsGiven);
    const auto settings = read(file);
    return file.CheckAndReport(log) ? run(settings, log, line.verbose) : kExitSettings;
  } catch (const std::bad_alloc &) {  // before it serves: a server deals with it while it does
    log.Print("no memory");
    return kExitFailure;
  }
}

}  // namespace zor::daemon

#endif
