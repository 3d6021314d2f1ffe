// A verb is one file verb_NAME.cpp: a class that declares its options and runs, and a row of the table in verbs.cpp.
#ifndef ZORCTL_VERB_H
#define ZORCTL_VERB_H

#include <memory>
#include <span>

#include "zorctl/deadline.h"
#include "zorctl/exit_code.h"

namespace zor::ctl {

// The options of every verb.
struct Common {
  bool json = false;
  Milliseconds timeout;

  // The deadline of the whole verb, from now on.
  Deadline deadline() const { return Deadline(timeout); }
};

class Fleet;
class Options;

class Verb {
 public:
  virtual ~Verb() = default;
  // Binds options, which are members. --json, --timeout and --help are declared already.
  virtual void Declare(Options &options) = 0;
  // Throws Failure or Invalid for anything but success; other codes are for verbs that have already printed their
  // result.
  virtual ExitCode Run(const Common &common) = 0;
  // The same on the gateways of a fleet, for verbs whose reach includes it.
  virtual ExitCode RunFleet(Fleet &fleet, const Common &common);
};

// Where a verb can work: on the bus here, on the gateways of a fleet, on both, or on neither since it is about the
// tool.
enum class Reach { kHere, kFleet, kBoth, kNeither };

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
  Reach reach = Reach::kHere;
};

// All verbs, as --help lists them.
std::span<const VerbRow> Verbs();

}  // namespace zor::ctl

#endif
