// The header in C: for each message a record and inline functions that encode and decode it.
#include "zorgen/codec.h"
#include "zorgen/message.h"
#include "zorgen/text.h"

namespace zor::zorgen {
namespace {

using types::Field;

class CWriter {
 public:
  explicit CWriter(const Source &source) : source_(source), names_(ReservedInC()), macros_(ReservedInC()) {}

  std::string Write() {
    const types::TypeFile &file = *source_.file;
    const std::string guard = Upper(Identifier(source_.outputName)) + "_";
    macros_.Take(guard);
    out_ = "/* Made by zorgen from " + CommentText(source_.fileName) + " of " + CommentText(file.vendor) +
           "; do not edit.\n"
           "   A decoded message points into the body that it was decoded from; include/zor/gen/view.h reads its "
           "texts. */\n"
           "#ifndef " +
           guard + "\n#define " + guard +
           "\n\n"
           "#include <zor/gen/data.h>\n#include <zor/gen/json_writer.h>\n#include <zor/status.h>\n\n"
           "#ifdef __cplusplus\nextern \"C\" {\n#endif\n";
    for (const types::Module &module : file.modules) WriteModule(module);
    for (const types::Type &type : file.types) WriteType(type);
    return out_ + "\n#ifdef __cplusplus\n}\n#endif\n\n#endif\n";
  }

 private:
  void Line(const std::string &text) { out_ += text + "\n"; }

  void Comment(const std::string &text) {
    if (!text.empty()) Line("/* " + text + " */");
  }

  std::string Prefix() const { return source_.file->nameSpace + "_"; }

  void WriteModule(const types::Module &module) {
    Line("");
    Comment(CommentText("The module " + module.name + (module.meaning.empty() ? "." : ": " + module.meaning)));
    Line("#define " + macros_.Take(Upper(Prefix() + "module_" + Identifier(module.name))) + " " + Hex(module.type) +
         "u");
  }

  void WriteType(const types::Type &type) {
    const std::string macro = macros_.Take(Upper(Prefix() + type.name));
    Line("");
    Comment(About(type));
    Line("#define " + macro + " " + Hex(type.first) + "u");
    if (type.isRange()) Line("#define " + macros_.Take(macro + "_LAST") + " " + Hex(type.last) + "u");
    WriteText(macro + "_TO", type.to == "any" ? "" : type.to);
    WriteText(macro + "_MODULE", type.module);
    WriteText(macro + "_EVENT", type.event);
    for (const Message &message : MessagesOf(type)) WriteMessage(message);
  }

  void WriteText(const std::string &macro, const std::string &text) {
    if (!text.empty()) Line("#define " + macros_.Take(macro) + " " + CLiteral(text));
  }

  void WriteMessage(const Message &message) {
    name_ = names_.Take(Prefix() + message.type->name + "_" + std::string(message.part));
    fields_ = FieldNames(message, Scope(ReservedInC()));
    WriteRecord(message);
    WriteInit(message);
    WriteData(message);
    WriteEncode(message);
    WriteDecode(message);
  }

  void WriteRecord(const Message &message) {
    Line("\nstruct " + name_ + " {");
    for (size_t i = 0; i < fields_.size(); ++i) {
      const Field &field = (*message.fields)[i];
      const std::string about = About(field);
      if (!about.empty()) Line("  /* " + about + " */");
      Line("  " + (IsView(field) ? "struct zor_gen_view" : CType(field)) + " " + fields_[i] + ";");
    }
    Line("  /* What a newer version has added; it is encoded again. */\n  struct zor_gen_view unknown;\n};");
  }

  void Begin(const std::string &about, const std::string &result, const std::string &function, bool constant,
             const std::string &parameters = "") {
    Line("");
    Comment(about);
    Line("static inline " + result + " " + name_ + "_" + function + "(" + (constant ? "const " : "") + "struct " +
         name_ + " *message" + parameters + ") {");
  }

  void WriteInit(const Message &message) {
    Begin("Sets the defaults.", "void", "init", false);
    for (size_t i = 0; i < fields_.size(); ++i) {
      const Field &field = (*message.fields)[i];
      const std::string text = IsView(field) ? DefaultText(field) : "";
      const std::string view = "zor_gen_bytes(" + CLiteral(text) + ", " + std::to_string(text.size()) + ")";
      const std::string value = IsView(field) ? view : CNumber(field);
      Line("  message->" + fields_[i] + " = " + value + ";");
    }
    Line("  message->unknown = zor_gen_bytes(\"\", 0);\n}");
  }

  std::string DataName(const Message &message) const {
    return "message->" + fields_[static_cast<size_t>(message.DataField() - message.fields->data())];
  }

  void WriteData(const Message &message) {
    Begin("The data word that goes with the body.", "uint32_t", "data", true);
    const Field *field = message.DataField();
    if (field == nullptr) {
      Line("  (void)message;\n  return 0;");
    } else if (field->kind == types::FieldKind::kSigned) {
      Line("  return (uint32_t)(int32_t)" + DataName(message) + ";");
    } else {
      Line("  return " + DataName(message) + ";");
    }
    Line("}");
  }

  void WriteEncode(const Message &message) {
    Begin(
        "Writes the body and returns its length; 0 if it does not fit or if a value cannot be encoded. With a null "
        "buffer it "
        "only returns the length.",
        "size_t", "encode", true, ", void *buffer, size_t capacity");
    Line("  struct zor_gen_writer writer = zor_gen_writer_to(buffer, capacity);");
    message.isJson() ? EncodeJson(message) : EncodeRecord(message);
    Line("  return zor_gen_written(&writer);\n}");
  }

  // The arguments of a call for the field: a view or number by value, or the number's place.
  std::string Put(const Field &field, const std::string &name, bool json) {
    const Call call = PutCall(field, json);
    const bool byPlace = call.function == "put";
    return std::string("  zor_") + (json ? "json_" : "gen_") + call.function + "(&writer, " + (byPlace ? "&" : "") +
           "message->" + name + call.size + ");";
  }

  void EncodeRecord(const Message &message) {
    for (size_t i = 0; i < fields_.size(); ++i) {
      const Field &field = (*message.fields)[i];
      if (field.inData) continue;
      Line(Put(field, fields_[i], false));
    }
    Line("  zor_gen_put_rest(&writer, message->unknown);");
  }

  void EncodeJson(const Message &message) {
    bool first = true;
    for (size_t i = 0; i < fields_.size(); ++i) {
      const Field &field = (*message.fields)[i];
      if (field.inData) continue;
      Line("  zor_gen_put(&writer, " + MemberStart(field, first) + ");");
      Line(Put(field, fields_[i], true));
      first = false;
    }
    Line("  zor_json_put_kept(&writer, message->unknown, " + KnownNames(message) + (first ? ", '{');" : ", ',');"));
    Line(std::string("  ") + (first ? "if (message->unknown.length > 0) " : "") + "zor_gen_put(&writer, \"}\", 1);");
  }

  void WriteDecode(const Message &message) {
    Begin("Reads a message; what it lacks gets its default. ZOR_E_ARGUMENT for an invalid one.", "uint32_t", "decode",
          false, ", uint32_t data, const void *body, size_t length");
    const std::string kind = message.isJson() ? "json" : "gen";
    Line("  struct zor_" + kind + "_reader reader = zor_" + kind + "_reader_of(body, length);");
    Line("  " + name_ + "_init(message);");
    const Field *field = message.DataField();
    if (field == nullptr) {
      Line("  (void)data;");
    } else {
      const std::string type = field->kind == types::FieldKind::kBool ? "bool" : field->typeText;
      Line("  if (!zor_gen_data_" + type + "(data, &" + DataName(message) + ")) return ZOR_E_ARGUMENT;");
    }
    message.isJson() ? DecodeJson(message) : DecodeRecord(message);
    Line("}");
  }

  void DecodeRecord(const Message &message) {
    for (size_t i = 0; i < fields_.size(); ++i) {
      const Field &field = (*message.fields)[i];
      const Call call = GetCall(field, false);
      if (!field.inData) Line("  zor_gen_" + call.function + "(&reader, &message->" + fields_[i] + call.size + ");");
    }
    Line("  zor_gen_get_rest(&reader, &message->unknown);\n  return reader.failed ? ZOR_E_ARGUMENT : ZOR_OK;");
  }

  void DecodeJson(const Message &message) {
    Line("  while (zor_json_next(&reader)) {");
    std::string otherwise;
    for (size_t i = 0; i < fields_.size(); ++i) {
      const Field &field = (*message.fields)[i];
      if (field.inData) continue;
      const Call call = GetCall(field, true);
      Line("    " + otherwise + "if (zor_json_is(&reader, " + CLiteral(field.name) + ", " +
           std::to_string(field.name.size()) + ")) {");
      Line("      zor_json_" + call.function + "(&reader, &message->" + fields_[i] + call.size + ");");
      otherwise = "} else ";
    }
    const std::string keep = "zor_json_keep(&reader, &message->unknown);";
    Line(otherwise.empty() ? "    " + keep : "    } else {\n      " + keep + "\n    }");
    Line("  }\n  return reader.scan.failed ? ZOR_E_ARGUMENT : ZOR_OK;");
  }

  const Source &source_;
  Scope names_;
  Scope macros_;
  std::string out_;
  std::string name_;
  std::vector<std::string> fields_;
};

}  // namespace

std::string WriteC(const Source &source) {
  return CWriter(source).Write();
}

}  // namespace zor::zorgen
