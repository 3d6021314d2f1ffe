#include "zorctl/message_options.h"

#include <nlohmann/json.hpp>

#include "programs/fleet_wire.h"
#include "programs/messages/base64.h"
#include "programs/messages/body.h"
#include "programs/messages/hex.h"
#include "programs/messages/message_types.h"
#include "programs/messages/number.h"
#include "zorctl/exit_code.h"
#include "zorctl/foreign_json.h"
#include "zorctl/format.h"
#include "zorctl/input_file.h"
#include "zorctl/options.h"
#include "zorctl/value.h"

namespace zor::ctl {

using Json = nlohmann::ordered_json;

void MessageOptions::Declare(Options &options) {
  options.Add("TYPE", type_, "The message type, a number or a name (zorctl complete types)").Required().Type("");
  options
      .Add("WORDS", words_,
           "[NAME] [FIELD=VALUE ...]: the daemon, if the server has no route for the type, and the type's fields")
      .Type("");
  options.Add("--data", data_, "The data word").Type("NUMBER");
  const auto addBody = [&](const char *name, auto &value, const char *help, const char *type) {
    return options.Add(name, value, help).Type(type).Group("The body (only one of these)");
  };
  addBody("--text", text_, "A text and its NUL", "TEXT");
  addBody("--hex", hex_, "Bytes in hexadecimal digits", "DIGITS");
  addBody("--file", file_, "The contents of a file; - is standard input", "FILE");
  Option items = addBody("--item", items_, "An item of a management message; repeatable", "NAME=VALUE").Repeatable();
  options.Add("--subtype", subType_, "The sub-type of the management message").Type("NUMBER").Needs(items);
}

void MessageOptions::SortWords(Outgoing &message, messages::Values &fields) const {
  for (size_t i = 0; i < words_.size(); ++i) {
    const bool isName = i == 0 && words_[i].find('=') == std::string::npos;
    if (isName) {
      NameField(words_[i]);  // throws Failure for an invalid one
      message.destination = words_[i];
    } else {
      fields.push_back(ParsePair(words_[i]));
    }
  }
}

Outgoing MessageOptions::Build() const {
  Outgoing message;
  message.type = messages::ParseType(type_);
  messages::Values fields;
  SortWords(message, fields);
  const messages::MessageType *known = messages::FindType(message.type);
  if (!fields.empty() && known == nullptr) {
    throw Failure(kExitUsage, "type " + HexText(message.type) + " has no known fields",
                  "give the body with --text, --hex, --file or --item");
  }
  messages::Content content = messages::Encode(known == nullptr ? "-" : known->request, fields);
  message.data = data_ ? messages::RequireUint32(*data_, "--data") : content.data;
  message.body = std::move(content.body);
  if (text_.has_value() + hex_.has_value() + file_.has_value() + !items_.empty() + !message.body.empty() > 1) {
    throw Failure(kExitUsage, "more than one body", "give fields, or one of --text, --hex, --file and --item");
  }
  if (text_) message.body = *text_ + '\0';
  if (hex_) message.body = messages::ParseHex(*hex_);
  if (file_) message.body = ReadInputFile(*file_, kMaxBody);
  if (!items_.empty()) {
    message.body = messages::EncodeItems(ParsePairs(items_), messages::RequireUint32(subType_, "--subtype"));
  }
  return message;
}

FleetCall MessageOptions::BuildForBridge() const {
  Json payload = Json::object();
  for (const auto &[name, text] : ParsePairs({words_.begin() + 1, words_.end()})) {
    const Json value = Json::parse(text, nullptr, false);
    payload[name] = value.is_discarded() ? Json(text) : value;
  }
  return {fleet::Topic({fleet::topic::kCall, fleet::kBridge, type_}), RequestText(payload)};
}

FleetCall MessageOptions::BuildForFleet() const {
  if (!words_.empty() && words_.front() == fleet::kBridge) return BuildForBridge();
  const Outgoing message = Build();
  const messages::MessageType *known = messages::FindType(message.type);
  std::string daemon = message.destination;
  if (daemon.empty() && known != nullptr && known->to != "server" && known->to != "any") daemon = known->to;
  if (daemon.empty()) {
    throw Failure(kExitUsage, "no daemon is named", "a request to a fleet names the daemon behind the type");
  }
  Outgoing ignored;
  messages::Values given;
  SortWords(ignored, given);
  Json payload = Json::object();
  if (message.data != 0) payload["data"] = message.data;
  if (!given.empty()) {
    // As numbers and texts, whatever the byte order there is.
    const Json all = messages::Decode(known->request, message.data, message.body);
    for (const auto &[name, text] : given) payload["fields"][name] = all.value(name, Json(text));
    if (!data_) payload.erase("data");  // one of the fields
  } else if (!message.body.empty()) {
    payload["base64"] = messages::ToBase64(message.body);
  }
  return {fleet::Topic({fleet::topic::kCall, daemon, messages::TypeText(message.type)}), RequestText(payload)};
}

}  // namespace zor::ctl
