// Exit statuses of the servers. The same numbers for all of them; --help prints the table.
#ifndef PROGRAMS_EXIT_CODE_H
#define PROGRAMS_EXIT_CODE_H

namespace zor::daemon {

enum ExitCode : int {
  kExitOk = 0,        // stopped by SIGTERM or SIGINT, or --help
  kExitFailure = 1,   // a system error that the server cannot survive
  kExitUsage = 2,     // wrong command line
  kExitSettings = 3,  // the settings file cannot be read or holds a mistake
  kExitBusy = 4,      // another process listens on the server's path
  kExitState = 5,     // the state to take over cannot be read; only with --check-state
};

}  // namespace zor::daemon

#endif
