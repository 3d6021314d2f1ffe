#include "programs/messages/log_names.h"

#include <zor/log.h>

#include <algorithm>

#include "common/ascii.h"
#include "programs/format_number.h"
#include "programs/messages/invalid.h"
#include "programs/messages/nearest.h"
#include "programs/messages/number.h"
#include "programs/messages/text.h"

namespace zor::messages {
namespace {

constexpr uint32_t kAllTypes = UINT32_MAX >> ZOR_LOG_TYPE_SHIFT;

// The name of one bit; empty for a bit without a name.
std::string TypeName(uint32_t bit) {
  const char *name = ZOR_UTIL_LOG_GetTypeString(bit << ZOR_LOG_TYPE_SHIFT, 0);
  return name == nullptr ? "" : name;
}

std::string LevelName(uint32_t bit) {
  const char *name = ZOR_UTIL_LOG_GetLevelString(bit, 0);
  return name == nullptr ? "" : name;
}

// The names of these bits.
std::vector<std::string> NamesOf(std::string (*nameOf)(uint32_t), uint32_t bits) {
  std::vector<std::string> known;
  for (uint32_t bit = 1; (bit & bits) != 0; bit <<= 1) {
    const std::string text = nameOf(bit);
    if (!text.empty() && std::find(known.begin(), known.end(), text) == known.end()) known.push_back(text);
  }
  return known;
}

std::string Known(const std::string &name, const std::vector<std::string> &known) {
  return DidYouMean(name, known) + "known ones: " + Join(known, ", ");
}

uint32_t TypeBits(const std::string &name) {
  if (const auto number = ParseUint32(name); number && *number != 0 && *number <= kAllTypes) return *number;
  uint32_t bits = 0;
  for (uint32_t bit = 1; (bit & kAllTypes) != 0; bit <<= 1) {
    if (!name.empty() && EqualIgnoringCase(TypeName(bit), name)) bits |= bit;
  }
  if (bits == 0) throw UnknownName("unknown log type " + Escape(name), Known(name, LogTypeNames()));
  return bits;
}

}  // namespace

std::vector<std::string> LogTypeNames() {
  return NamesOf(TypeName, kAllTypes);
}

std::vector<std::string> LogLevelNames() {
  return NamesOf(LevelName, ZOR_LOG_LEVEL_MASK);
}

uint32_t LogTypes(const std::vector<std::string> &names) {
  uint32_t bits = 0;
  for (const std::string &name : names) bits |= TypeBits(name);
  return names.empty() ? kAllTypes : bits;
}

uint32_t LogLevels(const std::string &name) {
  if (name.empty()) return ZOR_LOG_LEVEL_MASK;
  for (uint32_t bit = ZOR_LOG_EMERGENCY; bit <= ZOR_LOG_DEBUG; bit <<= 1) {
    if (EqualIgnoringCase(LevelName(bit), name)) return bit | (bit - 1);
  }
  throw Invalid("unknown log level " + Escape(name), Known(name, LogLevelNames()));
}

std::string LogTypeText(uint32_t typeLevel) {
  const std::string name = TypeName(typeLevel >> ZOR_LOG_TYPE_SHIFT);
  return name.empty() ? daemon::HexText(typeLevel >> ZOR_LOG_TYPE_SHIFT) : name;
}

std::string LogLevelText(uint32_t typeLevel) {
  const std::string name = LevelName(typeLevel & ZOR_LOG_LEVEL_MASK);
  return name.empty() ? daemon::HexText(typeLevel & ZOR_LOG_LEVEL_MASK) : name;
}

}  // namespace zor::messages
