// The types of messages/types.d/zor.json, which are compiled in: the tools know them without a file.
#ifndef PROGRAMS_TYPES_OWN_TYPES_H
#define PROGRAMS_TYPES_OWN_TYPES_H

#include <string_view>
#include <vector>

#include "programs/types/type.h"

namespace zor::types {

// The namespace of these types, and the name of their file in a folder of types.
inline constexpr std::string_view kOwnNamespace = "zor";
inline constexpr std::string_view kOwnFile = "zor.json";

// In ascending order.
const std::vector<Type> &OwnTypes();

// Fields as the generated table has them, "data:user u16:port"; none for "-".
std::vector<Field> ParseShape(std::string_view shape);

}  // namespace zor::types

#endif
