#include "zorctl/type_range.h"

#include "programs/messages/message_types.h"
#include "zorctl/exit_code.h"
#include "zorctl/text.h"

namespace zor::ctl {

// Names have no hyphens.
TypeRange ParseTypes(const std::string &text) {
  const size_t hyphen = text.find('-');
  const uint32_t first = messages::ParseType(text.substr(0, hyphen));
  const uint32_t last = hyphen == std::string::npos ? first : messages::ParseType(text.substr(hyphen + 1));
  if (last < first || last == 0) {
    throw Failure(kExitUsage, "not a range of message types: " + Escape(text),
                  "write 0x5000-0x50FF, the lower one first");
  }
  return {first, last};
}

}  // namespace zor::ctl
