// How the tool ends: the same numbers for every verb. `zorctl --help` prints the table.
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
    ExitCodeText{kExitOk, "done; also when the reader of the output has gone"},
    ExitCodeText{kExitFailure, "the system failed: disk, memory, or an answer that makes no sense"},
    ExitCodeText{kExitUsage, "wrong arguments"},
    ExitCodeText{kExitNotFound, "no such daemon, module, type, statistic or stored value"},
    ExitCodeText{kExitTimeOver, "the time was over first"},
    ExitCodeText{kExitRefused, "refused: no permission, or the other side answered with an error"},
    ExitCodeText{kExitNoServer, "the server is absent, or went away"},
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
