// A verb is one file verb_NAME.cpp: a class that declares its options and runs, and a row of the table in verbs.cpp.
#ifndef ZORCTL_VERB_H
#define ZORCTL_VERB_H

#include <memory>
#include <span>

#include "zorctl/deadline.h"
#include "zorctl/exit_code.h"

namespace CLI {
class App;
}

namespace zor::ctl {

// The options of every verb.
struct Common {
  bool json = false;
  Milliseconds timeout;

  // The deadline of the whole verb, from now on.
  Deadline deadline() const { return Deadline(timeout); }
};

class Verb {
 public:
  virtual ~Verb() = default;
  // Binds options, which are members. --json, --timeout and --help are declared already.
  virtual void Declare(CLI::App &app) = 0;
  // Throws Failure or Invalid for anything but success; other codes are for verbs that have already printed their
  // result.
  virtual ExitCode Run(const Common &common) = 0;
};

constexpr double kDefaultTimeoutSeconds = 5;

struct VerbRow {
  const char *name;
  const char *purpose;   // one sentence without its full stop
  const char *examples;  // two lines "  zorctl ...\n"
  std::unique_ptr<Verb> (*make)();
  double timeoutSeconds = kDefaultTimeoutSeconds;
  // Sources of its words' completions: names, types, modules, or the words themselves with bars between; the last
  // repeats.
  const char *completes = "";
};

// All verbs, as --help lists them.
std::span<const VerbRow> Verbs();

}  // namespace zor::ctl

#endif
