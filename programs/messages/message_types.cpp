#include "programs/messages/message_types.h"

#include <zor/msg_wire.h>

#include <algorithm>

#include "common/ascii.h"
#include "programs/format_number.h"
#include "programs/messages/invalid.h"
#include "programs/messages/nearest.h"
#include "programs/messages/number.h"
#include "programs/messages/text.h"

namespace zor::messages {
namespace {

constexpr MessageType kMessageTypes[] = {
#include "programs/messages/message_type_table.inc"
};

constexpr std::string_view kPrefixes[] = {"ZOR_MSG_", "ZOR_"};  // the longer one first

bool IsNamed(const MessageType &type, std::string_view text) {
  if (EqualIgnoringCase(type.name, text)) return true;
  return std::any_of(std::begin(kPrefixes), std::end(kPrefixes), [&](std::string_view prefix) {
    return type.name.starts_with(prefix) && EqualIgnoringCase(type.name.substr(prefix.size()), text);
  });
}

std::string_view ShortName(const MessageType &type) {
  for (const std::string_view prefix : kPrefixes) {
    if (type.name.starts_with(prefix)) return type.name.substr(prefix.size());
  }
  return type.name;
}

uint32_t NumberOf(const MessageType &type) {
  if (type.first == type.last) return type.first;
  throw Invalid(std::string(type.name) + " covers a range of types",
                "give a number from " + daemon::HexText(type.first) + " to " + daemon::HexText(type.last));
}

// As DidYouMean; the name may have been given in full.
std::string TypeMeant(std::string_view text) {
  std::vector<std::string> shortNames, names;
  for (const MessageType &type : kMessageTypes) {
    shortNames.emplace_back(ShortName(type));
    names.emplace_back(type.name);
  }
  return DidYouMean(text, StartsWithIgnoringCase(text, "ZOR_") ? names : shortNames);
}

}  // namespace

std::span<const MessageType> MessageTypes() {
  return kMessageTypes;
}

const MessageType *FindType(uint32_t type) {
  const auto *found = std::find_if(std::begin(kMessageTypes), std::end(kMessageTypes),
                                   [=](const MessageType &each) { return type >= each.first && type <= each.last; });
  return found == std::end(kMessageTypes) ? nullptr : found;
}

std::string TypeText(uint32_t type) {
  const MessageType *known = FindType(type);
  return known == nullptr || known->first != known->last ? daemon::HexText(type) : std::string(ShortName(*known));
}

uint32_t ParseType(std::string_view text) {
  if (const auto number = ParseUint32(text); number && *number <= ZOR_MSG_TYPE_MASK) return *number;
  for (const MessageType &type : kMessageTypes) {
    if (IsNamed(type, text)) return NumberOf(type);
  }
  throw UnknownName("unknown message type " + Escape(text), TypeMeant(text) + "give a number from 0 to " +
                                                                daemon::HexText(ZOR_MSG_TYPE_MASK) +
                                                                " or a name from zorctl complete types");
}

}  // namespace zor::messages
