// The command line, which is nearly the same for every server: --help, --settings FILE, --verbose,
// and --keeper and --check-state where they apply.
#ifndef PROGRAMS_COMMAND_LINE_H
#define PROGRAMS_COMMAND_LINE_H

#include <sys/types.h>

#include <optional>
#include <string>

#include "programs/exit_code.h"

namespace zor::daemon {

// What --help says about a server.
struct Program {
  const char *name;
  const char *purpose;               // one sentence
  const char *settingsPath;          // a fixed path, where the settings are looked for when --settings is not given
  const char *settingsHelp;          // lines of "  key = default   what it does\n"
  const char *verboseHelp;           // what --verbose does, in a few words
  bool handsOver = false;            // it can be replaced while it runs, so it has --check-state
  const char *socketPath = nullptr;  // the fixed path of the socket that a keeper stores; null: it has no --keeper
  mode_t directoryMode = 0;          // of the socket's directory, which is made; 0: the system makes it
};

struct CommandLine {
  std::string settingsPath;    // ready to open
  bool settingsGiven = false;  // the path was given on the command line, so the file must exist
  bool verbose = false;
  bool checkState = false;       // only report whether the settings and the state to take over are valid
  bool keeper = false;           // be the keeper of this server
  std::optional<ExitCode> exit;  // set when there is nothing to run: after --help, or after a wrong argument
};

// Reads the arguments of main; call it first, since it also opens standard descriptors that are closed. Prints the help
// on standard output, or what is wrong on standard error.
CommandLine ReadCommandLine(const Program &program, int count, char **arguments);

// Says on standard output, in one flushed line, that the server now listens at a fixed path, and notifies the service
// manager that it is ready.
void SayListening(const Program &program, const char *fixedPath);

}  // namespace zor::daemon

#endif
