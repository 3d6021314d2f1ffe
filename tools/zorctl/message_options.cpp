#include "zorctl/message_options.h"

#include <nlohmann/json.hpp>

#include "programs/fleet_wire.h"
#include "programs/messages/base64.h"
#include "programs/messages/body.h"
#include "programs/messages/hex.h"
#include "programs/messages/json_text.h"
#include "programs/messages/message_types.h"
#include "programs/messages/number.h"
#include "programs/types/own_types.h"
#include "zorctl/exit_code.h"
#include "zorctl/foreign_json.h"
#include "zorctl/format.h"
#include "zorctl/input_file.h"
#include "zorctl/options.h"
#include "zorctl/text.h"
#include "zorctl/value.h"

namespace zor::ctl {

using Json = nlohmann::ordered_json;

void MessageOptions::Declare(Options &options) {
  options.Add("TYPE", type_, "The message type, a number or a name (zorctl complete types)").Required().Type("");
  options
      .Add("WORDS", words_,
           "[NAME] [FIELD=VALUE ...]: the daemon, if the server has no route for the type, and the type's fields; also "
           "as one "
           "JSON object")
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

MessageOptions::Sorted MessageOptions::SortWords() const {
  Sorted sorted;
  for (size_t i = 0; i < words_.size(); ++i) {
    const std::string &word = words_[i];
    if (word.starts_with('{')) {
      if (sorted.object || !sorted.fields.empty()) {
        throw Failure(kExitUsage, "more than one body", "give one JSON object, or FIELD=VALUE ...");
      }
      sorted.object = word;
    } else if (i == 0 && word.find('=') == word.npos) {
      NameField(word);  // throws Failure for an invalid one
      sorted.destination = word;
    } else if (sorted.object) {
      throw Failure(kExitUsage, "more than one body", "give one JSON object, or FIELD=VALUE ...");
    } else {
      sorted.fields.push_back(ParsePair(word));
    }
  }
  return sorted;
}

messages::Content MessageOptions::ContentOf(const Sorted &words, uint32_t type) const {
  static const std::vector<types::Field> kNone;
  const types::Type *known = messages::FindType(type);
  if (!words.fields.empty() && known == nullptr) {
    throw Failure(kExitUsage, "type " + HexText(type) + " has no known fields",
                  "give the body as a JSON object, or with --text, --hex, --file or --item");
  }
  // Without a description an object travels as it is, which is what daemons that speak JSON expect.
  const types::Shape shape = known == nullptr ? types::Shape{kNone, types::Encoding::kJson} : known->requestShape();
  if (!words.object) return messages::Encode(shape, words.fields);
  const Json object = messages::ParseJson(*words.object);
  if (object.is_object()) return messages::EncodeJson(shape, object);
  throw Failure(kExitUsage, "not a JSON object: " + Escape(*words.object),
                "quote it for the shell: '{\"FIELD\":VALUE}'");
}

Outgoing MessageOptions::Build() const {
  Outgoing message;
  message.type = messages::ParseType(type_);
  const Sorted words = SortWords();
  message.destination = words.destination;
  messages::Content content = ContentOf(words, message.type);
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

Json MessageOptions::FieldsGiven(const Sorted &words, const Json &all) {
  if (words.object) return messages::ParseJson(*words.object);
  Json fields = Json::object();
  for (const auto &[name, text] : words.fields) fields[name] = all.value(name, Json(text));
  return fields;
}

// A gateway may not have the file that names a vendor's type.
static std::string TypeLevel(uint32_t type) {
  const types::Type *known = messages::FindType(type);
  return known == nullptr || known->nameSpace != types::kOwnNamespace ? HexText(type) : messages::TypeText(type);
}

FleetCall MessageOptions::BuildForFleet() const {
  if (!words_.empty() && words_.front() == fleet::kBridge) return BuildForBridge();
  const Outgoing message = Build();
  const types::Type *known = messages::FindType(message.type);
  std::string daemon = message.destination;
  if (daemon.empty() && known != nullptr && known->to != "server" && known->to != "any") daemon = known->to;
  if (daemon.empty()) {
    throw Failure(kExitUsage, "no daemon is named", "a request to a fleet names the daemon behind the type");
  }
  const Sorted words = SortWords();
  Json payload = Json::object();
  if (message.data != 0) payload["data"] = message.data;
  if (known != nullptr && (words.object || !words.fields.empty())) {
    // As numbers and texts, whatever the byte order there is.
    payload["fields"] = FieldsGiven(words, messages::Decode(known->requestShape(), message.data, message.body));
    if (!data_) payload.erase("data");  // one of the fields
  } else if (!message.body.empty()) {
    payload["base64"] = messages::ToBase64(message.body);
  }
  return {fleet::Topic({fleet::topic::kCall, daemon, TypeLevel(message.type)}), RequestText(payload)};
}

}  // namespace zor::ctl
