// Message bodies by their described fields: built from texts of the command line or from JSON, and decoded for users
// and scripts. docs/types.md has the rules: fields in their order without padding, or a JSON object; a message may end
// early and may go on after its last known field, so that senders and receivers of different versions understand each
// other.
#ifndef PROGRAMS_MESSAGES_BODY_H
#define PROGRAMS_MESSAGES_BODY_H

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "programs/types/type.h"

namespace zor::messages {

// Pairs of a name and its value, in the order given.
using Values = std::vector<std::pair<std::string, std::string>>;

// The data word and the body of a message.
struct Content {
  uint32_t data = 0;
  std::string body;
};

// Fields filled with values; those without a value have their default, or are zero or empty. Without a value for any
// field of the body the body is empty. Invalid for a name that is no field and for a value that does not fit.
Content Encode(types::Shape shape, const Values &values);

// The same with JSON values. Numbers may also be texts, bytes are hexadecimal digits, and "rest" is what follows the
// last field. An object of a JSON message may have members that are not described.
Content EncodeJson(types::Shape shape, const nlohmann::ordered_json &values);

// The body of a management message to be sent.
std::string EncodeItems(const Values &items, uint32_t subType);

// The fields by name, as far as the body goes and then as far as they have defaults; bytes after the last field are
// under "rest". Bytes are hexadecimal digits, numbers are numbers, and a management message is an object with its head
// and a list of items.
nlohmann::ordered_json Decode(types::Shape shape, uint32_t data, std::string_view body);

// The same for a body of unknown shape: "text" if it is text, otherwise "hex"; no member if it is empty.
nlohmann::ordered_json DecodeUnknown(std::string_view body);

// The names of fields, separated by commas; "none" without any.
std::string FieldNames(types::Shape shape);
// Null for a name that is no field.
const types::Field *FindField(types::Shape shape, std::string_view name);

}  // namespace zor::messages

#endif
