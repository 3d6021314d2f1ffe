// Reads the fields of a message.
#ifndef PROGRAMS_TYPES_FIELD_READER_H
#define PROGRAMS_TYPES_FIELD_READER_H

#include <string_view>
#include <vector>

#include "programs/types/json_walk.h"
#include "programs/types/type.h"

namespace zor::types {

std::vector<Field> ReadFields(const Node &list, Encoding encoding);

// Letters, digits and underscores, a letter first: a name in every language.
bool IsIdentifier(std::string_view text);

}  // namespace zor::types

#endif
