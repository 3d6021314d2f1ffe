// Trace settings that operators have made, kept over restarts. They stand before those of the settings file, and like
// them they are told to a daemon when it registers.
//
// They lie in one file, a JSON array of what the requests set, which is replaced whole: either a change is on the disk,
// or it was refused and has changed nothing.
#ifndef MSGSVR_TRACE_OVERRIDES_H
#define MSGSVR_TRACE_OVERRIDES_H

#include <map>
#include <string>
#include <string_view>

#include "common/problem_log.h"
#include "msgsvr/trace_json.h"

namespace zor::msgsvr {

class TraceOverrides {
 public:
  enum class Result { kDone, kMalformed, kFailed };

  // Reads the file at a fixed path. A damaged one is set aside.
  TraceOverrides(std::string fixedPath, daemon::ProblemLog &log);

  // Takes an object with a name and members, which replace those that were set before.
  Result Set(std::string_view json);
  // Forgets what was set for the name; the empty name stands for everybody.
  Result Clear(const AppName &name);
  // What stands for a daemon: its own, then everybody's.
  TraceMembers Of(const AppName &daemon) const;

 private:
  using ByName = std::map<std::string, TraceMembers>;

  void Load();
  Result Keep(ByName changed);

  std::string fixedPath_;
  daemon::ProblemLog &log_;
  ByName byName_;
  bool isFileOurs_ = true;  // what lies there is known, so that nothing is lost when it is replaced
};

}  // namespace zor::msgsvr

#endif
