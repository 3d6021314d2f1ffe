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

bool IsRegistrationInOtherOrder(const Frame &frame) {
  return (InOtherOrder(frame.head).type & ZOR_MSG_TYPE_MASK) == ZOR_MSG_REGISTER_APP && frame.destination.empty() &&
         frame.head.bodyLength == 0;
}

ConvertedRegistration::ConvertedRegistration(const Frame &received)
    : frame{InOtherOrder(received.head), received.destination, bytes} {
  std::memcpy(bytes.data(), &frame.head, sizeof frame.head);
}

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
                                        const AppName &daemon, bool otherOrder) {
  const uint32_t reportSeconds = settings.reportSeconds.Get(daemon);
  TraceMembers trace = TraceSettingsOf(settings, overrides, daemon).members;
  ZOR_MSG_REGISTER_REPLY reports{reportSeconds != 0 ? 1u : 0u, reportSeconds};
  ZOR_TRACE_SETTINGS_HEAD head = TraceHead(*trace.fileKiB, *trace.output);
  if (otherOrder) {
    reports = {__builtin_bswap32(reports.reportSwitch), __builtin_bswap32(reports.reportSeconds)};
    head.outputIndex = __builtin_bswap32(head.outputIndex);
    head.fileMaxKiB = __builtin_bswap64(head.fileMaxKiB);
  }
  std::vector<std::byte> body;
  Append(body, reports);
  Append(body, head);
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
