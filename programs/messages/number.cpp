#include "programs/messages/number.h"

#include <string>

#include "programs/messages/invalid.h"
#include "programs/messages/text.h"
#include "programs/settings.h"

namespace zor::messages {

std::optional<uint32_t> ParseUint32(std::string_view text) {
  uint64_t number = 0;
  if (!daemon::ParseNumber(text, &number) || number > UINT32_MAX) return std::nullopt;
  return static_cast<uint32_t>(number);
}

uint32_t RequireUint32(std::string_view text, std::string_view what) {
  if (const auto number = ParseUint32(text)) return *number;
  throw Invalid(std::string(what) + " is not a 32-bit number: " + Escape(text), "write 42 or 0x2A");
}

}  // namespace zor::messages
