// What every server does before its own work: it reads its command line, its settings and what it takes over.
#ifndef PROGRAMS_SERVER_MAIN_H
#define PROGRAMS_SERVER_MAIN_H

#include <cstdlib>
#include <new>
#include <optional>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "programs/command_line.h"
#include "programs/inheritance.h"
#include "programs/keeper.h"
#include "programs/problem_log.h"
#include "programs/service_manager.h"
#include "programs/settings.h"
#include "programs/succession.h"

namespace zor::daemon {

// What a server starts with that can be kept or replaced.
struct Start {
  const Program &program;
  const ProgramImage &image;
  bool verbose;
  std::optional<Inheritance> inherited;  // from the server that it replaces
  std::vector<PassedDescriptor> passed;  // from the service manager, after a crash
};

// For a server that cannot be replaced.
struct NoTrial {};

// The part of a trial that needs the state: `check` reports what is wrong with it and returns an exit code. It must end
// by itself, since the server that waits for it may end first.
template <typename Check>
int TryState(Check check, ProblemLog &log) {
  ::alarm(static_cast<unsigned>(limits::kTrialTime.count()));
  const std::optional<Inheritance> inherited = TakeInheritance();
  if (!inherited) {
    log.Print("no state to check");
    return kExitState;
  }
  const MappedState state(inherited->state.get());
  if (state.valid()) return check(state.bytes());
  log.PrintErrno("the state cannot be read");
  return kExitState;
}

// The body of main. `read` makes the server's own settings from a Settings, leaving mistakes in it. `run` gets them,
// the log, and a Start& (or, in a server that cannot be replaced, whether --verbose was given), and returns the exit
// code. A server with a mistake in its settings does not run.
//
// `check` gets the settings, the log and the bytes of a state: without any effect outside the process it does what
// `run` would do with them, and returns kExitOk, or kExitState after a line in the log.
template <typename Read, typename Run, typename Check = NoTrial>
int ServerMain(const Program &program, int count, char **arguments, Read read, Run run, Check check = {}) {
  ProblemLog log(program.name);
  try {
    const ProgramImage image(arguments);
    const CommandLine line = ReadCommandLine(program, count, arguments);
    if (line.exit) return *line.exit;
    if (line.keeper) return Keeper(program, image).Run();
    Settings file = Settings::FromFile(line.settingsPath, line.settingsGiven);
    const auto settings = read(file);
    if (!file.CheckAndReport(log)) return kExitSettings;
    if constexpr (!std::is_same_v<Check, NoTrial>) {
      if (line.checkState) {
        return TryState([&](std::span<const std::byte> state) { return check(settings, log, state); }, log);
      }
    }
    if constexpr (std::is_invocable_v<Run, decltype(settings), ProblemLog &, Start &>) {
      Start start = {program, image, line.verbose, TakeInheritance(), TakePassedDescriptors()};
      return run(settings, log, start);
    } else {
      return run(settings, log, line.verbose);
    }
  } catch (const std::bad_alloc &) {  // before it serves: a server deals with it while it does
    log.Print("no memory");
    return kExitFailure;
  }
}

}  // namespace zor::daemon

#endif
