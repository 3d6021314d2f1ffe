// The calls that encode and decode a field, the same in C and C++: both use the functions of include/zor/gen.
#ifndef ZORGEN_CODEC_H
#define ZORGEN_CODEC_H

#include <string>
#include <string_view>

#include "zorgen/message.h"

namespace zor::zorgen {

// What is after zor_gen_ or zor_json_ for that field, and a last argument with its comma or nothing.
struct Call {
  std::string function;
  std::string size;
};
Call PutCall(const types::Field &field, bool json);
Call GetCall(const types::Field &field, bool json);

// Whether the field is a text, bytes or another part of the body that C has as a view.
bool IsView(const types::Field &field);

// "uint32_t", "double" or "bool"; nothing for views.
std::string CType(const types::Field &field);

// A number as an expression; the lowest ones have no literal.
std::string CNumber(const types::Field &field);

// `{"label":` as a literal with its length behind it: the arguments for a member's beginning.
std::string MemberStart(const types::Field &field, bool first);

// The names of the members in the body as zor_json_put_kept takes them.
std::string KnownNames(const Message &message);

// The fields in the body.
bool HasBody(const Message &message);

}  // namespace zor::zorgen

#endif
