// Described message types: what a type file says of them. docs/types.md explains the files.
#ifndef PROGRAMS_TYPES_TYPE_H
#define PROGRAMS_TYPES_TYPE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zor::types {

enum class FieldKind { kUnsigned, kSigned, kReal, kBool, kText, kBytes, kItems, kJson };

struct Field {
  std::string name;
  FieldKind kind = FieldKind::kBytes;
  std::string typeText;  // as it is written: "u32", "text64"
  size_t size = 0;       // bytes in a record; 0: a text up to its NUL, or all that is left
  bool inData = false;   // in the data word, not in the body
  std::string unit;
  std::string meaning;
  std::string since;
  std::string defaultValue;  // compact JSON; empty: 0, false or empty

  bool isNumber() const { return kind <= FieldKind::kReal; }
  bool isInteger() const { return kind <= FieldKind::kSigned; }
};

enum class Kind { kRequest, kOneway, kEvent, kNotice };
enum class Encoding { kRecord, kJson };

// How one message of a type looks.
struct Shape {
  const std::vector<Field> &fields;
  Encoding encoding;

  bool empty() const { return fields.empty(); }
};

struct Type {
  uint32_t first = 0;
  uint32_t last = 0;
  std::string nameSpace;
  std::string name;
  Kind kind = Kind::kOneway;
  std::string to = "any";  // the daemon that serves it; "server" is the message server
  std::string since;
  std::string meaning;
  Encoding encoding = Encoding::kRecord;
  std::string module;          // of an event
  std::string event;           // and its name; events of one module have one type
  std::vector<Field> request;  // the message, whatever its kind
  std::vector<Field> reply;

  bool isRange() const { return first != last; }
  Shape requestShape() const { return {request, encoding}; }
  Shape replyShape() const { return {reply, encoding}; }
  // "thermo.GetState".
  std::string fullName() const { return nameSpace.empty() ? name : nameSpace + "." + name; }
};

struct Module {
  std::string name;
  uint32_t type = 0;
  std::string meaning;
};

struct TypeFile {
  std::string path;
  std::string vendor;
  std::string nameSpace;
  std::vector<Module> modules;
  std::vector<Type> types;
};

std::string_view KindText(Kind kind);

// The field's kind and size from "u32", "text64" and so on. False for anything else.
bool SetFieldType(Field &field, std::string_view text);

}  // namespace zor::types

#endif
