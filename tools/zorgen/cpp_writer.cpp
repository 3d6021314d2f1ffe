// The header in C++17: a struct for each message, and one for each type that names them.
#include "zorgen/codec.h"
#include "zorgen/message.h"
#include "zorgen/text.h"

namespace zor::zorgen {
namespace {

using types::Field;
using types::FieldKind;

std::string CppType(const Field &field) {
  if (IsView(field)) return "std::string";
  const std::string type = CType(field);
  return type.ends_with("_t") ? "std::" + type : type;
}

std::string CppDefault(const Field &field) {
  if (!IsView(field)) return " = " + CNumber(field);
  const std::string text = DefaultText(field);
  // With its length, since bytes may have a NUL in them.
  if (text.empty()) return "";
  return " = std::string(" + CLiteral(text) + ", " + std::to_string(text.size()) + ")";
}

// Names that are macros in C begin with their namespace, which C++ has already: MSG_DM, not ZOR_MSG_DM, which would be
// 0x209 behind the header that defines it.
std::string CppName(const types::Type &type) {
  const std::string prefix = Upper(type.nameSpace) + "_";
  if (!type.name.starts_with(prefix)) return type.name;
  const std::string rest = type.name.substr(prefix.size());
  return Identifier(rest) == rest ? rest : type.name;
}

class CppWriter {
 public:
  explicit CppWriter(const Source &source) : source_(source), names_(ReservedInC()) {}

  std::string Write() {
    const types::TypeFile &file = *source_.file;
    const std::string guard = Upper(Identifier(source_.outputName)) + "_";
    out_ = "// Made by zorgen from " + CommentText(source_.fileName) + " of " + CommentText(file.vendor) +
           "; do not edit.\n#ifndef " + guard + "\n#define " + guard +
           "\n\n"
           "#include <cstddef>\n#include <cstdint>\n#include <string>\n#include <string_view>\n\n"
           "#include <zor/gen/message.hpp>\n\n"
           "namespace " +
           Scope(ReservedInC()).Take(file.nameSpace) + " {\n";
    WriteModules();
    for (const types::Type &type : file.types) WriteType(type);
    return out_ + "\n}  // namespace\n\n#endif\n";
  }

 private:
  void Line(const std::string &text) { out_ += text + "\n"; }

  void WriteModules() {
    if (source_.file->modules.empty()) return;
    Scope names(ReservedInC());
    Line("\n// The modules' event types.\nnamespace modules {");
    for (const types::Module &module : source_.file->modules) {
      if (!module.meaning.empty()) Line("// " + CommentText(module.meaning));
      Line("inline constexpr std::uint32_t " + names.Take(Identifier(module.name)) + " = " + Hex(module.type) + ";");
    }
    Line("}  // namespace modules");
  }

  // The type's own name is taken first, so that its messages give way.
  void WriteType(const types::Type &type) {
    const std::string name = names_.Take(CppName(type));
    std::string uses;
    for (const Message &message : MessagesOf(type)) {
      std::string part(message.part);
      part.front() = Upper(part).front();
      name_ = names_.Take(CppName(type) + part);
      WriteMessage(message);
      uses += "  using " + part + " = " + name_ + ";\n";
    }
    Line("\n// " + About(type) + "\nstruct " + name + " {");
    Line("  static constexpr std::uint32_t kType = " + Hex(type.first) + ";");
    if (type.isRange()) Line("  static constexpr std::uint32_t kLastType = " + Hex(type.last) + ";");
    WriteText("kName", type.name);
    WriteText("kTo", type.to == "any" ? "" : type.to);
    WriteText("kModule", type.module);
    WriteText("kEvent", type.event);
    out_ += uses + "};\n";
  }

  void WriteText(const std::string &name, const std::string &text) {
    if (!text.empty()) Line("  static constexpr const char *" + name + " = " + CLiteral(text) + ";");
  }

  void WriteMessage(const Message &message) {
    Scope scope(ReservedInC());
    scope.Take(name_);  // which would be a constructor
    fields_ = FieldNames(message, scope);
    Line("\nstruct " + name_ + " {");
    for (size_t i = 0; i < fields_.size(); ++i) {
      const Field &field = (*message.fields)[i];
      const std::string about = About(field);
      if (!about.empty()) Line("  // " + about);
      Line("  " + CppType(field) + " " + fields_[i] + CppDefault(field) + ";");
    }
    Line("  // What a newer version has added; it is encoded again.\n  std::string unknown;");
    WriteData(message);
    WriteEncode(message);
    WriteDecode(message);
    Line("};");
  }

  std::string DataName(const Message &message) const {
    return fields_[static_cast<size_t>(message.DataField() - message.fields->data())];
  }

  void WriteData(const Message &message) {
    const Field *field = message.DataField();
    std::string value = field == nullptr ? "0" : DataName(message);
    if (field != nullptr && field->kind == FieldKind::kBool) value += " ? 1 : 0";
    if (field != nullptr && field->kind == FieldKind::kSigned) {
      value = "static_cast<std::uint32_t>(static_cast<std::int32_t>(" + value + "))";
    }
    Line("\n  // The data word that goes with the body.\n  std::uint32_t data_word() const { return " + value + "; }");
  }

  void WriteEncode(const Message &message) {
    Line(
        "\n  // Throws std::invalid_argument if a value cannot be encoded.\n  void append_to(std::string &body_) const "
        "{");
    Line("    ::zor::gen::Appender to_(body_);");
    bool first = true;
    for (size_t i = 0; i < fields_.size(); ++i) {
      const Field &field = (*message.fields)[i];
      if (field.inData) continue;
      if (message.isJson()) Line("    zor_gen_put(to_.writer(), " + MemberStart(field, first) + ");");
      Line("    " + Put(field, fields_[i], message.isJson()));
      first = false;
    }
    message.isJson() ? EncodeRest(message, first)
                     : Line("    zor_gen_put_rest(to_.writer(), ::zor::gen::View(unknown));");
    Line("    to_.Finish();\n  }");
  }

  static std::string Put(const Field &field, const std::string &name, bool json) {
    const Call call = PutCall(field, json);
    std::string value = call.function == "put" ? "&" + name : name;
    if (IsView(field)) value = "::zor::gen::View(" + name + ")";
    return std::string("zor_") + (json ? "json_" : "gen_") + call.function + "(to_.writer(), " + value + call.size +
           ");";
  }

  void EncodeRest(const Message &message, bool empty) {
    Line("    zor_json_put_kept(to_.writer(), ::zor::gen::View(unknown), " + KnownNames(message) +
         (empty ? ", '{');" : ", ',');"));
    Line(std::string("    ") + (empty ? "if (!unknown.empty()) " : "") + "zor_gen_put(to_.writer(), \"}\", 1);");
  }

  void WriteDecode(const Message &message) {
    const std::string kind = message.isJson() ? "json" : "gen";
    Line(
        "\n  // What the message lacks gets its default. False for an invalid one.\n"
        "  static bool decode(std::string_view body_, std::uint32_t data_, " +
        name_ + " &out_) {");
    Line("    auto reader_ = zor_" + kind + "_reader_of(body_.data(), body_.size());");
    Line("    out_ = " + name_ + "();");
    const Field *field = message.DataField();
    if (field == nullptr) {
      Line("    static_cast<void>(data_);");
    } else {
      Line("    if (!zor_gen_data_" + field->typeText + "(data_, &out_." + DataName(message) + ")) return false;");
    }
    message.isJson() ? DecodeJson(message) : DecodeRecord(message);
    Line("  }");
  }

  // The call that reads a field, for both readers.
  static std::string Get(const Field &field, const std::string &name, bool json) {
    const Call call = GetCall(field, json);
    const std::string function = std::string("zor_") + (json ? "json_" : "gen_") + call.function;
    if (IsView(field)) return "::zor::gen::Take(reader_, out_." + name + ", " + function + call.size + ");";
    return function + "(&reader_, &out_." + name + call.size + ");";
  }

  void DecodeRecord(const Message &message) {
    for (size_t i = 0; i < fields_.size(); ++i) {
      const Field &field = (*message.fields)[i];
      if (!field.inData) Line("    " + Get(field, fields_[i], false));
    }
    Line("    ::zor::gen::Take(reader_, out_.unknown, zor_gen_get_rest);\n    return !reader_.failed;");
  }

  void DecodeJson(const Message &message) {
    Line("    while (zor_json_next(&reader_)) {");
    std::string otherwise;
    for (size_t i = 0; i < fields_.size(); ++i) {
      const Field &field = (*message.fields)[i];
      if (field.inData) continue;
      Line("      " + otherwise + "if (zor_json_is(&reader_, " + CLiteral(field.name) + ", " +
           std::to_string(field.name.size()) + ")) {");
      Line("        " + Get(field, fields_[i], true));
      otherwise = "} else ";
    }
    const std::string keep = "::zor::gen::Keep(reader_, out_.unknown);";
    Line(otherwise.empty() ? "      " + keep : "      } else {\n        " + keep + "\n      }");
    Line("    }\n    return !reader_.scan.failed;");
  }

  const Source &source_;
  Scope names_;
  std::string out_;
  std::string name_;
  std::vector<std::string> fields_;
};

}  // namespace

std::string WriteCpp(const Source &source) {
  return CppWriter(source).Write();
}

}  // namespace zor::zorgen
