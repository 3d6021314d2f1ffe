#include "msgsvr/registration.h"

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

ZOR_TRACE_SETTINGS_HEAD TraceHead(const BusSettings &settings, const AppName &daemon) {
  ZOR_TRACE_SETTINGS_HEAD head{};
  head.fileMaxKiB = settings.traceFileKiB.Get(daemon);
  const std::string output = settings.traceOutput.Get(daemon);
  if (output == "file") {
    head.outputIndex = 1;
  } else if (output != "stdout") {
    output.copy(head.outputText, sizeof head.outputText - 1);
  }
  return head;
}

}  // namespace

std::vector<std::byte> RegistrationBody(const BusSettings &settings, const AppName &daemon) {
  const uint32_t reportSeconds = settings.reportSeconds.Get(daemon);
  std::vector<std::byte> body;
  Append(body, ZOR_MSG_REGISTER_REPLY{reportSeconds != 0 ? 1u : 0u, reportSeconds});
  Append(body, TraceHead(settings, daemon));
  for (const TraceLevel &level : settings.traceLevels.Get(daemon)) {
    ZOR_TRACE_SETTINGS_ENTRY entry{};
    std::memcpy(entry.module, level.module.field().data(), sizeof entry.module);
    entry.level = level.level;
    Append(body, entry);
  }
  return body;
}

}  // namespace zor::msgsvr
