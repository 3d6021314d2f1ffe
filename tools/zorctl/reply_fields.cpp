#include "zorctl/reply_fields.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "programs/messages/hex.h"
#include "programs/messages/json_text.h"
#include "programs/messages/status_text.h"
#include "zorctl/foreign_json.h"
#include "zorctl/output.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::ordered_json;

std::string ValueText(const Json &value, int indent) {
  if (value.is_string()) return Escape(value.get<std::string>());
  return EscapeLines(value.dump(indent, ' ', false, Json::error_handler_t::replace));
}

// The items of a management message; null for any other value.
const Json &ItemsOf(const Json &value) {
  const Json &items = MemberOf(value, "items");
  const bool valid = items.is_array() && std::all_of(items.begin(), items.end(), [](const Json &item) {
                       return MemberOf(item, "name").is_string() && MemberOf(item, "value").is_string();
                     });
  return valid ? items : MemberOf(Json(), "");
}

// What the number of a field means, " (argument error)"; empty for other fields and numbers.
std::string Meaning(const std::string &field, const Json &value) {
  const bool mayBeStatus = field == "data" || field == "result" || field == "error_code";
  if (!mayBeStatus || !value.is_number_unsigned()) return {};
  const std::string_view text = messages::StatusText(value.get<uint64_t>());
  return text.empty() ? "" : std::string(" (").append(text).append(")");
}

void ReplaceTexts(Json &value) {
  if (value.is_string()) {
    value = TextJson(value.get<std::string>());
  } else if (value.is_structured()) {
    for (Json &each : value) ReplaceTexts(each);
  }
}

bool IsHex(const Json &value) {
  const auto isDigit = [](char each) {
    return std::string_view("0123456789abcdef").find(each) != std::string_view::npos;
  };
  if (!value.is_string()) return false;
  const auto text = value.get<std::string>();
  return text.size() % 2 == 0 && std::all_of(text.begin(), text.end(), isDigit);
}

void PrintField(const std::string &name, const Json &value) {
  if (const Json &items = ItemsOf(value); !items.is_null()) {
    Print("error_code: " + ValueText(MemberOf(value, "error_code"), -1) +
          Meaning("error_code", MemberOf(value, "error_code")) +
          "\nsub_type: " + ValueText(MemberOf(value, "sub_type"), -1) + "\n");
    for (const Json &item : items) {
      Print(ValueText(item["name"], -1) + " = " + ValueText(item["value"], -1) + "\n");
    }
  } else if (name == "hex" && IsHex(value)) {
    Print(messages::HexDump(messages::ParseHex(value.get<std::string>())));
  } else {
    Print(Escape(name) + ": " + ValueText(value, value.is_structured() ? 2 : -1) + Meaning(name, value) + "\n");
  }
}

}  // namespace

Json TextJson(const std::string &text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  if (first == text.npos || (text[first] != '{' && text[first] != '[')) return text;
  Json value = messages::ParseJson(text);
  return value.is_discarded() ? Json(text) : value;
}

Json FieldsJson(Json fields) {
  ReplaceTexts(fields);
  for (const char *name : {"data", "result"}) {
    const Json &value = MemberOf(fields, name);
    const std::string_view text =
        value.is_number_unsigned() ? messages::StatusText(value.get<uint64_t>()) : std::string_view();
    if (!text.empty()) fields["status"] = text;
  }
  return fields;
}

void PrintFields(const Json &fields) {
  for (const auto &[name, value] : fields.items()) PrintField(name, value);
}

std::string FieldsLine(const Json &fields) {
  std::string line;
  for (const auto &[name, value] : fields.items()) {
    line += (line.empty() ? "" : ", ") + Escape(name) + ": " + ValueText(value, -1) + Meaning(name, value);
  }
  return line;
}

bool IsError(const Json &fields) {
  const Json &result = MemberOf(fields, "result"), &code = MemberOf(MemberOf(fields, "items"), "error_code");
  return (!result.is_null() && result != 0) || (!code.is_null() && code != 0u);
}

}  // namespace zor::ctl
