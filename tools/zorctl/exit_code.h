// The tool's exit codes, the same for every verb. `zorctl --help` prints the table.
#ifndef ZORCTL_EXIT_CODE_H
#define ZORCTL_EXIT_CODE_H

#include <array>
#include <stdexcept>
#include <string>

namespace zor::ctl {

enum ExitCode : int {
  kExitOk = 0,
  kExitFailure = 1,
  kExitUsage = 2,
  kExitNotFound = 3,
  kExitTimeOver = 4,
  kExitRefused = 5,
  kExitNoServer = 6,
};

struct ExitCodeText {
  ExitCode code;
  const char *text;
};

inline constexpr std::array kExitCodes = {
    ExitCodeText{kExitOk, "success; also when the reader of the output has exited"},
    ExitCodeText{kExitFailure, "system failure: disk, memory, or an invalid reply"},
    ExitCodeText{kExitUsage, "invalid arguments"},
    ExitCodeText{kExitNotFound, "no such daemon, module, type, statistic or stored value"},
    ExitCodeText{kExitTimeOver, "timed out"},
    ExitCodeText{kExitRefused, "refused: no permission, or the reply reports an error"},
    ExitCodeText{kExitNoServer, "the server is absent, or has disconnected"},
};

// Ends a verb: what went wrong and what the user can do about it. main prints both as one line.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode exitCode, const std::string &what, std::string whatToDo)
      : std::runtime_error(what), code(exitCode), advice(std::move(whatToDo)) {}

  ExitCode code;
  std::string advice;
};

}  // namespace zor::ctl

#endif
