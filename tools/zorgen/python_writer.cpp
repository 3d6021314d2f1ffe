// The module in Python: a dataclass for each message, and a class for each type that names them. The code that encodes
// and decodes is python_runtime.py, which goes into every module, so that it needs nothing but the standard library.
#include "zorgen/message.h"
#include "zorgen/text.h"

namespace zor::zorgen {
namespace {

using types::Field;
using types::FieldKind;

constexpr std::string_view kRuntime =
#include "zorgen/python_runtime.inc"
    ;

// What the module's code calls; a class of that name would hide it. Fields may have these names.
constexpr const char *kBuiltIns[] = {"OverflowError", "RecursionError", "ValueError", "abs",
                                     "dict",          "getattr",        "isinstance", "len",
                                     "list",          "setattr",        "tuple"};

struct KindRow {
  const char *annotation;
  const char *zero;
};

const KindRow &RowOf(const Field &field) {
  static constexpr KindRow kRows[] = {
      {"int", "0"},    {"int", "0"},       {"float", "0.0"},   {"bool", "False"},
      {"str", "\"\""}, {"bytes", "b\"\""}, {"bytes", "b\"\""}, {"_typing.Any", "None"},
  };
  return kRows[static_cast<size_t>(field.kind)];
}

std::string PythonDefault(const Field &field) {
  if (!HasDefault(field)) return RowOf(field).zero;
  switch (field.kind) {
    case FieldKind::kBool:
      return field.defaultValue == "true" ? "True" : "False";
    case FieldKind::kText:
      return PythonLiteral(DefaultText(field));
    case FieldKind::kBytes:
      return PythonBytes(DefaultText(field));
    case FieldKind::kJson:
      // Each message has its own, since lists and dictionaries can be changed.
      return "_dataclasses.field(default_factory=lambda: _json.loads(" + PythonLiteral(field.defaultValue) + "))";
    default:
      return DefaultNumber(field);
  }
}

// "text64" is a "text" of 64 bytes; a "name" is a text too.
std::string Row(const Field &field, const std::string &attribute) {
  std::string kind = field.typeText.substr(0, field.typeText.find_first_of("0123456789"));
  if (field.isNumber()) kind = field.typeText;
  if (field.kind == FieldKind::kText) kind = "text";
  return "_Field(" + PythonLiteral(attribute) + ", " + PythonLiteral(field.name) + ", " + PythonLiteral(kind) + ", " +
         std::to_string(field.size) + ", " + (field.inData ? "True" : "False") + ")";
}

class PythonWriter {
 public:
  explicit PythonWriter(const Source &source) : source_(source), names_(ReservedInPython()) {
    for (const char *name : kBuiltIns) names_.Take(name);
  }

  std::string Write() {
    const types::TypeFile &file = *source_.file;
    out_ = "# Made by zorgen from " + CommentText(source_.fileName) + " of " + CommentText(file.vendor) +
           "; do not edit.\n";
    out_ += kRuntime;
    Line("\n\nMODULES = {");
    for (const types::Module &module : file.modules) {
      Line("    " + PythonLiteral(module.name) + ": " + Hex(module.type) + ",");
    }
    Line("}");
    for (const types::Type &type : file.types) WriteType(type);
    return out_;
  }

 private:
  void Line(const std::string &text) { out_ += text + "\n"; }

  void WriteType(const types::Type &type) {
    const std::string name = names_.Take(type.name);
    std::string uses;
    for (const Message &message : MessagesOf(type)) {
      std::string part(message.part);
      part.front() = Upper(part).front();
      name_ = names_.Take(type.name + part);
      WriteMessage(message);
      uses += "    " + part + " = " + name_ + "\n";
    }
    Line("\n\nclass " + name + ":\n    " + DocText(About(type)) + "\n");
    Line("    TYPE = " + Hex(type.first));
    if (type.isRange()) Line("    LAST_TYPE = " + Hex(type.last));
    WriteText("NAME", type.name);
    WriteText("KIND", std::string(types::KindText(type.kind)));
    WriteText("TO", type.to == "any" ? "" : type.to);
    WriteText("MODULE", type.module);
    WriteText("EVENT", type.event);
    out_ += uses;
  }

  // A literal, so that no text can leave it.
  static std::string DocText(const std::string &text) { return PythonLiteral(text); }

  void WriteText(const std::string &name, const std::string &text) {
    if (!text.empty()) Line("    " + name + " = " + PythonLiteral(text));
  }

  void WriteMessage(const Message &message) {
    const std::vector<std::string> fields = FieldNames(message, Scope(ReservedInPython()));
    Line("\n\n@_dataclasses.dataclass\nclass " + name_ + "(_Message):");
    std::string rows;
    for (size_t i = 0; i < fields.size(); ++i) {
      const Field &field = (*message.fields)[i];
      const std::string about = About(field);
      if (!about.empty()) Line("    # " + about);
      Line("    " + fields[i] + ": " + RowOf(field).annotation + " = " + PythonDefault(field));
      rows += "        " + Row(field, fields[i]) + ",\n";
    }
    Line("    # What a newer version has added; it is encoded again.\n    unknown: bytes = b\"\"\n");
    Line("    _fields: _typing.ClassVar[_typing.Tuple[_Field, ...]] = (" + (rows.empty() ? "" : "\n" + rows + "    ") +
         ")");
    Line(std::string("    _is_json: _typing.ClassVar[bool] = ") + (message.isJson() ? "True" : "False"));
  }

  const Source &source_;
  Scope names_;
  std::string out_;
  std::string name_;
};

}  // namespace

std::string WritePython(const Source &source) {
  return PythonWriter(source).Write();
}

}  // namespace zor::zorgen
