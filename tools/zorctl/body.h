// Message bodies by their shape: built from texts of the command line, and taken apart for people and scripts. A shape
// is what messages.tsv says: fields behind each other, without padding.
#ifndef ZORCTL_BODY_H
#define ZORCTL_BODY_H

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zor::ctl {

// Pairs of a name and its value, in the order given.
using Values = std::vector<std::pair<std::string, std::string>>;

// The data word and the body of a message.
struct Content {
  uint32_t data = 0;
  std::string body;
};

// A shape's fields filled with values; what is not named is zero or empty. Without a value for a field of the body
// there is no body. Failure for a name that the shape does not have and for a value that does not fit.
Content Encode(std::string_view shape, const Values &values);

// The body of a management message to be sent.
std::string EncodeItems(const Values &items, uint32_t subType);

// The fields by name, as far as the body goes; bytes behind the last one stand under "rest". Bytes are hexadecimal
// digits, numbers are numbers, and a management message is an object with its head and a list of items.
nlohmann::ordered_json Decode(std::string_view shape, uint32_t data, std::string_view body);

// The same for a body of unknown shape: "text" when it is one, else "hex"; nothing for an empty one.
nlohmann::ordered_json DecodeUnknown(std::string_view body);

}  // namespace zor::ctl

#endif
