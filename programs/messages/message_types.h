// Known message types: their names and shapes, from messages/types.d/zor.json.
#ifndef PROGRAMS_MESSAGES_MESSAGE_TYPES_H
#define PROGRAMS_MESSAGES_MESSAGE_TYPES_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace zor::messages {

// The columns of the table, which explains them.
struct MessageType {
  uint32_t first;
  uint32_t last;
  std::string_view name;
  std::string_view to;
  std::string_view kind;
  std::string_view request;
  std::string_view reply;
  std::string_view meaning;
};

std::span<const MessageType> MessageTypes();

// Null for an unknown type.
const MessageType *FindType(uint32_t type);

// The name without "ZOR_MSG_" or "ZOR_"; a number if it has no name.
std::string TypeText(uint32_t type);

// A number, or a name with or without "ZOR_MSG_" or "ZOR_", in any case. UnknownName for anything else.
uint32_t ParseType(std::string_view text);

}  // namespace zor::messages

#endif
