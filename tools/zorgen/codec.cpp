#include "zorgen/codec.h"

#include <algorithm>

#include "zorgen/text.h"

namespace zor::zorgen {
namespace {

using types::Field;
using types::FieldKind;

// "text" or "text_of" and the size.
Call SizedCall(const std::string &name, const std::string &open, const Field &field) {
  if (field.size == 0) return {open, ""};
  return {name + "_of", ", " + std::to_string(field.size)};
}

// "_u16".
std::string NumberName(const Field &field) {
  constexpr std::string_view kLetters[] = {"u", "i", "f"};
  return std::string(kLetters[static_cast<size_t>(field.kind)]) + std::to_string(field.size * 8);
}

Call ViewCall(const std::string &verb, const Field &field, bool json) {
  if (field.kind == FieldKind::kText) return SizedCall(verb + "_text", verb + "_text", field);
  if (field.kind == FieldKind::kJson) return {verb + "_json", ""};
  return SizedCall(verb + "_bytes", json ? verb + "_bytes" : verb + "_rest", field);
}

}  // namespace

bool IsView(const Field &field) {
  return !field.isNumber() && field.kind != FieldKind::kBool;
}

Call PutCall(const Field &field, bool json) {
  if (IsView(field)) return ViewCall("put", field, json);
  if (field.kind == FieldKind::kBool) return {"put_bool", ""};
  if (!json) return {"put", ", " + std::to_string(field.size)};
  constexpr std::string_view kNames[] = {"put_unsigned", "put_signed", "put_double"};
  return {std::string(kNames[static_cast<size_t>(field.kind)]), ""};
}

Call GetCall(const Field &field, bool json) {
  if (IsView(field)) return ViewCall("get", field, json);
  if (field.kind == FieldKind::kBool) return {"get_bool", ""};
  if (!json) return {"get", ", " + std::to_string(field.size)};
  return {"get_" + NumberName(field), ""};
}

std::string CType(const Field &field) {
  if (field.kind == FieldKind::kReal) return "double";
  if (field.kind == FieldKind::kBool) return "bool";
  return (field.kind == FieldKind::kUnsigned ? "uint" : "int") + std::to_string(field.size * 8) + "_t";
}

std::string CNumber(const Field &field) {
  std::string number = DefaultNumber(field);
  if (field.kind == FieldKind::kBool) return field.defaultValue == "true" ? "true" : "false";
  if (field.kind == FieldKind::kUnsigned && field.size > 2) return number + (field.size == 8 ? "ull" : "u");
  if (number == "-9223372036854775808") return "-9223372036854775807ll - 1";
  if (field.kind == FieldKind::kSigned && field.size == 8) return number + "ll";
  if (number == "-2147483648") return "-2147483647 - 1";
  return number;
}

std::string MemberStart(const Field &field, bool first) {
  const std::string text = (first ? "{\"" : ",\"") + field.name + "\":";
  return CLiteral(text) + ", " + std::to_string(text.size());
}

std::string KnownNames(const Message &message) {
  std::string names;
  for (const Field &field : *message.fields) {
    if (!field.inData) names += field.name + "\\0";
  }
  return "\"" + names + "\"";
}

bool HasBody(const Message &message) {
  return std::any_of(message.fields->begin(), message.fields->end(), [](const Field &field) { return !field.inData; });
}

}  // namespace zor::zorgen
