// Message bodies by their shape: built from texts of the command line, and decoded for users and scripts. Shapes
// come from types.d/zor.json: consecutive fields without padding.
#ifndef PROGRAMS_MESSAGES_BODY_H
#define PROGRAMS_MESSAGES_BODY_H

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zor::messages {

// Pairs of a name and its value, in the order given.
using Values = std::vector<std::pair<std::string, std::string>>;

// The data word and the body of a message.
struct Content {
  uint32_t data = 0;
  std::string body;
};

// A shape's fields filled with values; fields without a value are zero or empty. Without a value for any field of the
// body the body is empty. Invalid for a name that the shape does not have and for a value that does not fit.
Content Encode(std::string_view shape, const Values &values);

// The body of a management message to be sent.
std::string EncodeItems(const Values &items, uint32_t subType);

// The fields by name, as far as the body goes; bytes after the last field are under "rest". Bytes are hexadecimal
// digits, numbers are numbers, and a management message is an object with its head and a list of items.
nlohmann::ordered_json Decode(std::string_view shape, uint32_t data, std::string_view body);

// The same for a body of unknown shape: "text" if it is text, otherwise "hex"; no member if it is empty.
nlohmann::ordered_json DecodeUnknown(std::string_view body);

}  // namespace zor::messages

#endif
