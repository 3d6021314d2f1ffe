#include "zorbridge/log_text.h"

#include <zor/log_wire.h>

#include <cstring>
#include <nlohmann/json.hpp>

#include "programs/messages/json_text.h"
#include "programs/messages/log_names.h"
#include "programs/messages/text.h"

namespace zor::bridge {
namespace {

// Names of levels and types are ASCII.
std::string LowerCase(std::string name) {
  for (char &each : name) {
    if (each >= 'A' && each <= 'Z') each = static_cast<char>(each - 'A' + 'a');
  }
  return name;
}

}  // namespace

std::optional<LogCopy> ParseLogCopy(std::string_view body) {
  ZOR_LOG_COPY head;
  if (body.size() < sizeof head) return std::nullopt;
  std::memcpy(&head, body.data(), sizeof head);
  body.remove_prefix(sizeof head);
  return LogCopy{head.time, head.typeLevel, head.index, std::string(messages::FieldText(body.data(), body.size()))};
}

std::string TextOfLog(const LogCopy &copy) {
  return messages::JsonMembers({{"level", LowerCase(messages::LogLevelText(copy.typeLevel))},
                                {"type", LowerCase(messages::LogTypeText(copy.typeLevel))},
                                {"index", copy.index},
                                {"text", copy.text}});
}

}  // namespace zor::bridge
