// Reads one type.
#ifndef PROGRAMS_TYPES_TYPE_READER_H
#define PROGRAMS_TYPES_TYPE_READER_H

#include <cstdint>
#include <optional>
#include <vector>

#include "programs/types/json_walk.h"
#include "programs/types/type.h"

namespace zor::types {

Type ReadType(const Node &node, const TypeFile &file);

// A number, or a text with one; no value, and a problem, for anything that is no message type.
std::optional<uint32_t> ReadNumber(const Node &node);

bool IsEventType(uint32_t type);

}  // namespace zor::types

#endif
