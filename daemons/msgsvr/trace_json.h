// Trace settings of one daemon as JSON: how operators' tools send and get them, and how they are kept.
#ifndef MSGSVR_TRACE_JSON_H
#define MSGSVR_TRACE_JSON_H

#include <optional>
#include <string>
#include <vector>

#include "msgsvr/json.h"
#include "msgsvr/settings.h"

namespace zor::msgsvr {

// What has been set; a member that has no value leaves to others what it is.
struct TraceMembers {
  std::optional<std::string> output;
  std::optional<uint64_t> fileKiB;
  std::optional<std::vector<TraceLevel>> levels;
};

struct NamedTrace {
  std::string name;  // of a daemon, or "*"
  TraceMembers members;
};

// Nothing when the value is not an object with a name and at least one member, each as a daemon can use it. A member
// "source", which the answer to a request has, does not count.
std::optional<NamedTrace> TraceFromJson(const cJSON *value);

// The object of what is set; null when memory is short.
Json TraceToJson(const NamedTrace &trace);

}  // namespace zor::msgsvr

#endif
