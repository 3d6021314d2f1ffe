#include "programs/types/type_reader.h"

#include <zor/event.h>
#include <zor/msg_wire.h>

#include <algorithm>
#include <array>
#include <utility>

#include "programs/settings.h"
#include "programs/types/field_reader.h"

namespace zor::types {
namespace {

constexpr size_t kMaxNameBytes = 64;

std::optional<uint32_t> NumberIn(std::string_view text) {
  uint64_t number = 0;
  if (!daemon::ParseNumber(text, &number) || number > ZOR_MSG_TYPE_MASK) return std::nullopt;
  return static_cast<uint32_t>(number);
}

// One number, or "0xA-0xB".
void ReadRange(const Node &node, Type &type) {
  const std::optional<Node> member = node.Find("type");
  if (!member) return node.Report("no \"type\"");
  if (!member->value().is_string()) {
    type.first = type.last = ReadNumber(*member).value_or(0);
    return;
  }
  const std::optional<std::string> text = member->Text();
  const std::string_view numbers = text ? *text : std::string_view();
  const size_t hyphen = std::min(numbers.find('-'), numbers.size());
  const auto first = NumberIn(numbers.substr(0, hyphen));
  const auto last = hyphen == numbers.size() ? first : NumberIn(numbers.substr(hyphen + 1));
  if (!first || !last || *first > *last) return member->Report("not a type from 0 to 0xFFFFF, or \"0xA-0xB\"");
  type.first = *first;
  type.last = *last;
}

// Returns the index of the member's text; `otherwise` and a problem if it is none of these.
template <size_t count>
size_t ReadChoice(const Node &node, const std::string &name, const std::array<std::string_view, count> &texts,
                  size_t otherwise) {
  const std::optional<Node> member = node.Find(name);
  if (!member) return otherwise;
  const std::optional<std::string> text = member->Text();
  if (!text) return otherwise;
  const auto found = std::find(texts.begin(), texts.end(), *text);
  if (found != texts.end()) return static_cast<size_t>(found - texts.begin());
  std::string all;
  for (const std::string_view each : texts) all.append(all.empty() ? "" : ", ").append(each);
  member->Report("not one of " + all);
  return otherwise;
}

void ReadEvent(const Node &node, const TypeFile &file, Type &type) {
  type.module = node.TextOf("module");
  type.event = node.TextOf("event");
  if (type.kind != Kind::kEvent) {
    if (!type.module.empty() || !type.event.empty()) node.Report("\"module\" and \"event\" are for events");
    return;
  }
  if (!IsEventType(type.first) || !IsEventType(type.last)) {
    node.Report("the type of an event lies between 0x2DA00 and 0x2DAFF");
  }
  const auto module = std::find_if(file.modules.begin(), file.modules.end(),
                                   [&](const Module &each) { return each.name == type.module; });
  const bool isJson = type.first >= ZOR_EVT_JSON_FIRST && type.first <= ZOR_EVT_JSON_LAST;
  if (isJson && !type.event.empty() && type.encoding != Encoding::kJson) {
    node.Report("events of a type from 0x2DA01 to 0x2DA63 have \"encoding\": \"json\"");
  }
  if (module != file.modules.end() && (module->type != type.first || type.isRange())) {
    node.Report("not the type of its module \"" + type.module + "\"");
  }
}

void ReadMessages(const Node &node, Type &type) {
  const std::optional<Node> request = node.Find("request"), message = node.Find("message"), reply = node.Find("reply");
  if (request) type.request = ReadFields(*request, type.encoding);
  if (message) {
    if (type.kind == Kind::kRequest) message->Report("a request has \"request\" and \"reply\"");
    if (request) message->Report("\"request\" is there too");
    type.request = ReadFields(*message, type.encoding);
  }
  if (!reply) return;
  if (type.kind != Kind::kRequest) reply->Report("only a request has a reply");
  type.reply = ReadFields(*reply, type.encoding);
}

}  // namespace

bool IsEventType(uint32_t type) {
  return type >= ZOR_MSG_EVENT_FIRST && type <= ZOR_MSG_EVENT_LAST;
}

std::optional<uint32_t> ReadNumber(const Node &node) {
  const nlohmann::json &value = node.value();
  std::optional<uint32_t> number;
  if (value.is_string()) number = NumberIn(value.get_ref<const std::string &>());
  if (value.is_number_unsigned() && value.get<uint64_t>() <= ZOR_MSG_TYPE_MASK) number = value.get<uint32_t>();
  if (!number) node.Report("not a type from 0 to 0xFFFFF");
  return number;
}

Type ReadType(const Node &node, const TypeFile &file) {
  static constexpr std::array<std::string_view, 4> kKinds = {"request", "oneway", "event", "notice"};
  static constexpr std::array<std::string_view, 2> kEncodings = {"record", "json"};
  Type type;
  if (!node.IsObject({"type", "name", "kind", "to", "since", "meaning", "encoding", "module", "event", "request",
                      "message", "reply"})) {
    return type;
  }
  ReadRange(node, type);
  type.nameSpace = file.nameSpace;
  type.name = node.RequiredTextOf("name");
  if (!type.name.empty() && (!IsIdentifier(type.name) || type.name.size() > kMaxNameBytes)) {
    node.Find("name")->Report("not 1 to 64 letters, digits and _, a letter first");
  }
  if (!node.Find("kind")) node.Report("no \"kind\"");
  type.kind = static_cast<Kind>(ReadChoice(node, "kind", kKinds, 0));
  type.encoding = static_cast<Encoding>(ReadChoice(node, "encoding", kEncodings, 0));
  if (node.Find("to")) type.to = node.RequiredTextOf("to");
  if (type.to.size() >= ZOR_MSG_NAME_SIZE) node.Find("to")->Report("longer than 11 characters");
  type.since = node.TextOf("since");
  type.meaning = node.TextOf("meaning");
  ReadEvent(node, file, type);
  ReadMessages(node, type);
  return type;
}

}  // namespace zor::types
