// The messages of a type file as the writers of all languages see them: each type has one message, a request two.
#ifndef ZORGEN_MESSAGE_H
#define ZORGEN_MESSAGE_H

#include <string>
#include <string_view>
#include <vector>

#include "programs/types/type.h"
#include "zorgen/names.h"

namespace zor::zorgen {

struct Message {
  const types::Type *type;
  std::string_view part;  // "request", "reply" or "message"
  const std::vector<types::Field> *fields;

  bool isJson() const { return type->encoding == types::Encoding::kJson; }
  // The field in the data word; null if there is none.
  const types::Field *DataField() const;
};

std::vector<Message> MessagesOf(const types::Type &type);

// The identifiers of a message's fields, in their order.
std::vector<std::string> FieldNames(const Message &message, Scope scope);

// A field's default value; the texts of texts, and the bytes of bytes.
bool HasDefault(const types::Field &field);
std::string DefaultNumber(const types::Field &field);
std::string DefaultText(const types::Field &field);

// What a writer makes its output from.
struct Source {
  const types::TypeFile *file;
  std::string fileName;    // of the type file, without its folders
  std::string outputName;  // likewise
};

std::string WriteC(const Source &source);
std::string WriteCpp(const Source &source);
std::string WritePython(const Source &source);

}  // namespace zor::zorgen

#endif
