// Operator trace overrides, persisted across restarts. They take precedence over the settings file, and like its
// settings they are sent to a daemon when it registers.
//
// They are stored in one file, a JSON array of the objects that requests set, which is always replaced as a whole: a
// change is either on the disk, or was refused and has had no effect.
#ifndef MSGSVR_TRACE_OVERRIDES_H
#define MSGSVR_TRACE_OVERRIDES_H

#include <map>
#include <string>
#include <string_view>

#include "msgsvr/trace_json.h"
#include "programs/problem_log.h"

namespace zor::msgsvr {

class TraceOverrides {
 public:
  enum class Result { kDone, kMalformed, kFailed };

  // Reads the file at a fixed path. A damaged file is set aside.
  TraceOverrides(std::string fixedPath, daemon::ProblemLog &log);

  // Takes an object with a name and members, which replace those set before.
  Result Set(std::string_view json);
  // Removes the overrides of the name; the empty name stands for all names.
  Result Clear(const AppName &name);
  // The overrides that apply to a daemon: its own, then those of "*".
  TraceMembers Of(const AppName &daemon) const;

 private:
  using ByName = std::map<std::string, TraceMembers>;

  void Load();
  Result Save(ByName changed);

  std::string fixedPath_;
  daemon::ProblemLog &log_;
  ByName byName_;
  bool mayReplaceFile_ = true;  // false if the file could not be read: replacing it would lose its content
};

}  // namespace zor::msgsvr

#endif
