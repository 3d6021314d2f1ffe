#include "zorctl/type_text.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "programs/messages/json_text.h"
#include "programs/messages/message_types.h"
#include "zorctl/format.h"
#include "zorctl/output.h"
#include "zorctl/table.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::ordered_json;
using types::Encoding;
using types::Field;
using types::Kind;
using types::Shape;
using types::Type;

constexpr const char *kTitles[] = {"FIELD", "TYPE", "IN", "UNIT", "DEFAULT", "SINCE", "MEANING"};

std::string OrDash(const std::string &text) {
  return text.empty() ? "-" : text;
}

std::vector<std::string> RowOf(const Field &field) {
  return {field.name,
          field.typeText,
          field.inData ? "data" : "body",
          OrDash(field.unit),
          OrDash(field.defaultValue),
          OrDash(field.since),
          OrDash(field.meaning)};
}

struct Part {
  const char *title;
  Shape shape;
};

std::vector<Part> PartsOf(const Type &type) {
  if (type.kind != Kind::kRequest) return {{"message", type.requestShape()}};
  return {{"request", type.requestShape()}, {"reply", type.replyShape()}};
}

std::string EncodingText(Encoding encoding) {
  return encoding == Encoding::kJson ? "json" : "record";
}

// "request to thermo, since 1.0".
std::string HeadText(const Type &type) {
  std::string text(KindText(type.kind));
  if (type.kind == Kind::kEvent) {
    if (!type.module.empty()) text += " of module " + type.module;
    if (!type.event.empty()) text += ", name " + type.event;
  } else if (type.to != "any") {
    text += " to " + type.to;
  }
  return text + (type.since.empty() ? "" : ", since " + type.since);
}

// Text in a cell of a Markdown table, or in a paragraph; printable, since it may go to a terminal.
std::string Literal(std::string_view text) {
  std::string literal;
  for (const char each : EscapeLines(text)) {
    if (std::string_view("\\`*_{}[]<>#|&").find(each) != std::string_view::npos) literal += '\\';
    literal += each;
  }
  return literal;
}

Json FieldJson(const Field &field) {
  Json json = {{"name", field.name}, {"type", field.typeText}};
  if (field.inData) json["in"] = "data";
  if (!field.unit.empty()) json["unit"] = field.unit;
  if (!field.meaning.empty()) json["meaning"] = field.meaning;
  if (!field.since.empty()) json["since"] = field.since;
  if (!field.defaultValue.empty()) json["default"] = messages::ParseJson(field.defaultValue);
  return json;
}

std::string LuaText(std::string_view text) {
  std::string quoted = "\"";
  for (const char each : text) {
    if (each == '"' || each == '\\') quoted += '\\';
    quoted += each;
  }
  return quoted + "\"";
}

std::string LuaShape(Shape shape) {
  std::string text;
  bool hasBody = false;
  for (const Field &field : shape.fields) {
    hasBody = hasBody || !field.inData;
    if (!field.inData && shape.encoding == Encoding::kJson) continue;
    text += (text.empty() ? "" : " ") + (field.inData ? "data" : field.typeText) + ":" + field.name;
  }
  if (hasBody && shape.encoding == Encoding::kJson) text += (text.empty() ? "json:body" : " json:body");
  return text.empty() ? "-" : text;
}

}  // namespace

std::string NumbersText(const Type &type) {
  return HexText(type.first) + (type.isRange() ? "-" + HexText(type.last) : "");
}

void PrintType(const Type &type) {
  Print(Bold(Escape(messages::TypeText(type))) + "  " + NumbersText(type) + "  " + Escape(HeadText(type)) + "\n");
  if (!type.meaning.empty()) Print(Escape(type.meaning) + "\n");
  for (const Part &part : PartsOf(type)) {
    Print(std::string("\n") + part.title +
          (part.shape.empty() ? ": no fields\n" : ", as " + EncodingText(type.encoding) + ":\n"));
    if (part.shape.empty()) continue;
    std::vector<Table::Column> columns;
    for (const char *title : kTitles) columns.push_back({title});
    Table table(columns);
    for (const Field &field : part.shape.fields) table.Add(RowOf(field));
    table.Print();
  }
}

std::string TypeMarkdown(const Type &type) {
  std::string text = "## " + Literal(messages::TypeText(type)) + " (" + NumbersText(type) + ")\n\n" +
                     Literal(HeadText(type)) + "." + (type.meaning.empty() ? "" : " " + Literal(type.meaning) + ".") +
                     "\n";
  for (const Part &part : PartsOf(type)) {
    text += std::string("\n") + part.title;
    if (part.shape.empty()) {
      text += ": no fields\n";
      continue;
    }
    text += ", as " + EncodingText(type.encoding) + ":\n\n| field | type | in | unit | default | since | meaning |\n" +
            "|---|---|---|---|---|---|---|\n";
    for (const Field &field : part.shape.fields) {
      std::string row = "|";
      for (const std::string &cell : RowOf(field)) row += " " + (cell == "-" ? "" : Literal(cell)) + " |";
      text += row + "\n";
    }
  }
  return text;
}

Json TypeJson(const Type &type) {
  Json json = {{"type", type.isRange() ? Json(NumbersText(type)) : Json(type.first)},
               {"namespace", type.nameSpace},
               {"name", type.name},
               {"kind", KindText(type.kind)},
               {"to", type.to}};
  if (!type.module.empty()) json["module"] = type.module;
  if (!type.event.empty()) json["event"] = type.event;
  if (!type.since.empty()) json["since"] = type.since;
  if (!type.meaning.empty()) json["meaning"] = type.meaning;
  json["encoding"] = EncodingText(type.encoding);
  for (const Part &part : PartsOf(type)) {
    Json fields = Json::array();
    for (const Field &field : part.shape.fields) fields.push_back(FieldJson(field));
    json[part.title] = fields;
  }
  return json;
}

std::string DissectorRow(const Type &type) {
  std::string row = "  { " + HexText(type.first) + ", " + HexText(type.last);
  for (const std::string &text : {type.fullName(), type.to, std::string(KindText(type.kind)),
                                  LuaShape(type.requestShape()), LuaShape(type.replyShape())}) {
    row += ", " + LuaText(text);
  }
  return row + " },\n";
}

}  // namespace zor::ctl
