// The shape of a message, as in the table of message types, and as a list of fields.
#ifndef PROGRAMS_MESSAGES_SHAPE_H
#define PROGRAMS_MESSAGES_SHAPE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zor::messages {

struct Field {
  enum class Kind { kData, kNumber, kText, kBytes, kItems, kJson };

  Kind kind;
  size_t size;  // 0: as long as the value
  std::string_view name;
};

// The fields refer to the shape.
std::vector<Field> ParseShape(std::string_view shape);

// The names, separated by commas; "none" without any.
std::string FieldNames(const std::vector<Field> &fields);

}  // namespace zor::messages

#endif
