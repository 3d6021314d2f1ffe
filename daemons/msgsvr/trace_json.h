// Trace settings of one daemon as JSON: the form in which operators' tools send and receive them and in which overrides
// are stored.
#ifndef MSGSVR_TRACE_JSON_H
#define MSGSVR_TRACE_JSON_H

#include <optional>
#include <string>
#include <vector>

#include "msgsvr/settings.h"
#include "programs/json.h"

namespace zor::msgsvr {

// A member without a value is not set here and comes from elsewhere.
struct TraceMembers {
  std::optional<std::string> output;
  std::optional<uint64_t> fileKiB;
  std::optional<std::vector<TraceLevel>> levels;
};

struct NamedTrace {
  std::string name;  // of a daemon, or "*"
  TraceMembers members;
};

// Nothing if the value is not an object with a name and at least one other member, all of them valid for a daemon. A
// member "source", which replies contain, is ignored.
std::optional<NamedTrace> TraceFromJson(const cJSON *value);

// An object with the members that are set; null if memory runs out.
daemon::Json TraceToJson(const NamedTrace &trace);

}  // namespace zor::msgsvr

#endif
