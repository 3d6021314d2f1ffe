#include "zorgen/message.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "programs/messages/hex.h"

namespace zor::zorgen {

using types::Field;
using types::FieldKind;

const Field *Message::DataField() const {
  const auto found = std::find_if(fields->begin(), fields->end(), [](const Field &field) { return field.inData; });
  return found == fields->end() ? nullptr : &*found;
}

std::vector<Message> MessagesOf(const types::Type &type) {
  if (type.kind != types::Kind::kRequest) return {{&type, "message", &type.request}};
  return {{&type, "request", &type.request}, {&type, "reply", &type.reply}};
}

std::vector<std::string> FieldNames(const Message &message, Scope scope) {
  std::vector<std::string> names;
  for (const Field &field : *message.fields) names.push_back(scope.Take(field.name));
  return names;
}

bool HasDefault(const Field &field) {
  return !field.defaultValue.empty() && (field.kind == FieldKind::kJson || field.defaultValue != "\"\"");
}

std::string DefaultNumber(const Field &field) {
  std::string number = field.defaultValue.empty() ? "0" : field.defaultValue;
  const bool isWhole = number.find_first_of(".eE") == number.npos;
  if (field.kind == FieldKind::kReal && isWhole) number += ".0";
  return number;
}

std::string DefaultText(const Field &field) {
  if (!HasDefault(field) || field.kind == FieldKind::kJson) return field.defaultValue;
  const std::string text = nlohmann::json::parse(field.defaultValue).get<std::string>();
  return field.kind == FieldKind::kBytes ? messages::ParseHex(text) : text;
}

}  // namespace zor::zorgen
