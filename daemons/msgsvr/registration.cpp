#include "msgsvr/registration.h"

#include <algorithm>
#include <cstring>

namespace zor::msgsvr {
namespace {

static_assert(sizeof(ZOR_MSG_REGISTER_REPLY) == 8);
static_assert(sizeof(ZOR_TRACE_SETTINGS_HEAD) == ZOR_TRACE_SETTINGS_HEAD_SIZE);
static_assert(sizeof(ZOR_TRACE_SETTINGS_ENTRY) == 20);

template <typename Record>
void Append(std::vector<std::byte> &body, const Record &record) {
  body.resize(body.size() + sizeof record);
  std::memcpy(body.data() + body.size() - sizeof record, &record, sizeof record);
}

// Fills in a member that has no override from the settings file or the default.
template <typename Value>
void Complete(std::optional<Value> &member, const PerDaemon<Value> &file, const AppName &daemon, bool &fromFile) {
  if (member) return;
  if (file.Find(daemon) != nullptr) fromFile = true;
  member = file.Get(daemon);
}

ZOR_TRACE_SETTINGS_HEAD TraceHead(uint64_t fileKiB, const std::string &output) {
  ZOR_TRACE_SETTINGS_HEAD head{};
  head.fileMaxKiB = fileKiB;
  if (output == "file") {
    head.outputIndex = 1;
  } else if (output != "stdout") {
    output.copy(head.outputText, sizeof head.outputText - 1);
  }
  return head;
}

}  // namespace

TraceSettings TraceSettingsOf(const BusSettings &settings, const TraceOverrides &overrides, const AppName &daemon) {
  TraceMembers members = overrides.Of(daemon);
  const bool overridden = members.output || members.fileKiB || members.levels;
  bool fromFile = false;
  Complete(members.output, settings.traceOutput, daemon, fromFile);
  Complete(members.fileKiB, settings.traceFileKiB, daemon, fromFile);
  Complete(members.levels, settings.traceLevels, daemon, fromFile);
  if (members.output->empty()) members.output = "stdout";
  return {std::move(members), overridden ? "kept" : fromFile ? "file" : "default"};
}

std::vector<std::byte> RegistrationBody(const BusSettings &settings, const TraceOverrides &overrides,
                                        const AppName &daemon) {
  const uint32_t reportSeconds = settings.reportSeconds.Get(daemon);
  std::vector<std::byte> body;
  Append(body, ZOR_MSG_REGISTER_REPLY{reportSeconds != 0 ? 1u : 0u, reportSeconds});
  TraceMembers trace = TraceSettingsOf(settings, overrides, daemon).members;
  Append(body, TraceHead(*trace.fileKiB, *trace.output));
  // A level for all modules resets the levels that the daemon has read before it.
  std::stable_partition(trace.levels->begin(), trace.levels->end(),
                        [](const TraceLevel &l) { return l.module.text() == "all"; });
  for (const TraceLevel &level : *trace.levels) {
    ZOR_TRACE_SETTINGS_ENTRY entry{};
    std::memcpy(entry.module, level.module.field().data(), sizeof entry.module);
    entry.level = level.level;
    Append(body, entry);
  }
  return body;
}

}  // namespace zor::msgsvr
